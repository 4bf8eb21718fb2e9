// CSpeakerSim's broadcast groups: dialing, the prompt tone, client statuses and the groups' streams.
#include "platform/server/sim/speakers/SpeakerSim.h"

#include <algorithm>

#include "framework/base/FormatLog.h"
#include "platform/server/sim/speakers/SpeakerSimDetail.h"

namespace Platform {

using namespace SpeakerSimDetail;

void CSpeakerSim::OnGroupCreated(const BroadcastGroup& group) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        GroupRun run;
        run.guid = group.guid;
        run.transport = group.transport;
        run.elementIds = group.elementIds;
        run.promptInFront = group.promptInFront;
        for (int id : group.elementIds) {
            if (Speaker* s = FindSpeaker(id)) {
                BeginSessionLocked(*s, Session::kGroup, group.guid);
            }
        }
        groups_[group.guid] = std::move(run);
        groupOrder_.push_back(group.guid);
        while (groupOrder_.size() > kMaxGroups) {
            groups_.erase(groupOrder_.front());
            groupOrder_.pop_front();
        }
    }
    DialLater(group.guid);
}

void CSpeakerSim::DialLater(const std::string& guid) {
    scheduler_.After(kDialDelayMs, [this, guid] {
        std::lock_guard<std::mutex> lock(mutex_);
        if (GroupRun* g = FindGroup(guid)) {
            DialLocked(*g);
        }
    });
}

bool CSpeakerSim::DialLocked(GroupRun& group) {
    if (group.dialed) {
        return false;
    }
    group.dialed = true;
    std::vector<Speaker*> connecting;
    std::vector<Speaker*> offline;
    for (Speaker* s : GroupSpeakersLocked(group)) {
        if (s->phase != SpeakerPhase::kConnecting) {
            continue;
        }
        (s->online ? connecting : offline).push_back(s);
    }
    PushLocked(group.guid, connecting, kSpeakerConnecting, kResourceBroadcasting, kPromptNone);
    for (Speaker* s : offline) {
        EndSessionLocked(*s, SpeakerPhase::kFailed);
    }
    PushLocked(group.guid, offline, kSpeakerFailed, kResourceOffline, kPromptNone, kErrorModulePlatform,
               kErrorTerminalOffline);
    // The streaming server puts the prompt tone before the talk: the client sends no StartPromptTone.
    if (group.transport == GroupTransport::kSms && group.promptInFront) {
        StartPromptLocked(group);
        return true;
    }
    return false;
}

void CSpeakerSim::OnPromptToneStart(const std::vector<std::string>& guids) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& guid : guids) {
        GroupRun* g = FindGroup(guid);
        if (g != nullptr && !DialLocked(*g)) {
            StartPromptLocked(*g);
        }
    }
}

void CSpeakerSim::StartPromptLocked(GroupRun& group) {
    if (group.prompt != nullptr) {
        group.prompt->Cancel();  // a newer start owns the prompt tone now
        group.prompt = nullptr;
    }
    const uint64_t sequence = ++group.promptSequence;
    group.promptAnnounced = false;
    std::vector<Speaker*> eligible;
    for (Speaker* s : GroupSpeakersLocked(group)) {
        if (s->online && s->connects &&
            (s->phase == SpeakerPhase::kConnecting || s->phase == SpeakerPhase::kPromptDone ||
             s->phase == SpeakerPhase::kPlaying || s->phase == SpeakerPhase::kPrompt)) {
            s->phase = SpeakerPhase::kPrompt;
            eligible.push_back(s);
        }
    }
    registry_.UpdateGroup(group.guid, [](BroadcastGroup& g) {
        g.prompt = PromptState::kPlaying;
        ++g.promptSequence;
    });
    const double seconds = fixture_.baseConfig.promptToneDuration;
    TAL_LOG(Tal::Base::kLogInfo, "Platform",
            "[%s]prompt tone starts for group %s, %d speakers, %.1f s[%s(%d)]", group.guid.c_str(),
            static_cast<int>(eligible.size()), seconds);
    PushLocked(group.guid, eligible, kPromptTonePreparing, kResourceBroadcasting, kPromptBegin);
    const std::string guid = group.guid;
    group.prompt = AddPlayoutLocked(std::make_unique<CPlayout>(
        [seconds](const std::atomic<bool>&, std::vector<int16_t>& samples, std::string&) {
            samples = MakeChime(seconds, kSampleRate);
            return true;
        },
        [this, guid, sequence](const int16_t* samples, std::size_t count) {
            OnPromptBlock(guid, sequence, samples, count);
        },
        [this, guid, sequence](CPlayout::Result result, const std::string&) {
            OnPromptDone(guid, sequence, result);
        }));
}

std::vector<CSpeakerSim::Speaker*> CSpeakerSim::AnnouncePromptLocked(GroupRun& g) {
    std::vector<Speaker*> inPrompt;
    for (Speaker* s : GroupSpeakersLocked(g)) {
        if (s->phase == SpeakerPhase::kPrompt) {
            inPrompt.push_back(s);
        }
    }
    if (!g.promptAnnounced) {
        g.promptAnnounced = true;
        PushLocked(g.guid, inPrompt, kPromptTonePlaying, kResourceBroadcasting, kPromptBegin);
    }
    return inPrompt;
}

void CSpeakerSim::OnPromptBlock(const std::string& guid, uint64_t sequence, const int16_t* samples,
                                std::size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    GroupRun* g = FindGroup(guid);
    if (g == nullptr || g->promptSequence != sequence) {
        return;
    }
    const std::vector<Speaker*> inPrompt = AnnouncePromptLocked(*g);
    for (Speaker* s : inPrompt) {
        s->lastTransport = "prompt";
        PlayLocked(*s, samples, count);
    }
}

void CSpeakerSim::OnPromptDone(const std::string& guid, uint64_t sequence, CPlayout::Result result) {
    std::lock_guard<std::mutex> lock(mutex_);
    GroupRun* g = FindGroup(guid);
    if (g == nullptr || g->promptSequence != sequence || result == CPlayout::Result::kCancelled) {
        return;  // a stop or a newer start owns the prompt tone now
    }
    g->prompt = nullptr;
    const std::vector<Speaker*> inPrompt = AnnouncePromptLocked(*g);
    for (Speaker* s : inPrompt) {
        s->phase = SpeakerPhase::kPromptDone;
    }
    registry_.UpdateGroup(guid, [](BroadcastGroup& group) {
        if (group.prompt == PromptState::kPlaying) {
            group.prompt = PromptState::kFinished;
        }
    });
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]prompt tone finished for group %s[%s(%d)]", guid.c_str());
    PushLocked(guid, inPrompt, kPromptToneFinished, kResourceBroadcasting, kPromptEnd);
    if (g->joined) {
        // The client's stream already plays: the speakers go on with it.
        for (Speaker* s : inPrompt) {
            s->phase = SpeakerPhase::kPlaying;
        }
        PushLocked(guid, inPrompt, kSpeakerPlaying, kResourceBroadcasting, kPromptNone);
    }
}

void CSpeakerSim::InterruptPromptLocked(GroupRun& group) {
    if (group.prompt == nullptr) {
        return;
    }
    group.prompt->Cancel();
    group.prompt = nullptr;
    ++group.promptSequence;
    std::vector<Speaker*> inPrompt;
    for (Speaker* s : GroupSpeakersLocked(group)) {
        if (s->phase == SpeakerPhase::kPrompt) {
            s->phase = SpeakerPhase::kPromptDone;
            inPrompt.push_back(s);
        }
    }
    registry_.UpdateGroup(group.guid, [](BroadcastGroup& g) {
        if (g.prompt == PromptState::kPlaying) {
            g.prompt = PromptState::kInterrupted;
            ++g.promptSequence;
        }
    });
    PushLocked(group.guid, inPrompt, kPromptToneInterrupted, kResourceBroadcasting, kPromptEnd);
}

void CSpeakerSim::OnPromptToneStop(const std::vector<std::string>& guids) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::string& guid : guids) {
        if (GroupRun* g = FindGroup(guid)) {
            DialLocked(*g);
            EndGroupLocked(*g, {}, SpeakerPhase::kStopped, kSpeakerStopped, kResourceIdle, 0, 0);
        }
    }
}

void CSpeakerSim::EndGroupLocked(GroupRun& group, const std::vector<int>& onlyIds, SpeakerPhase phase,
                                 int status, int resourceStatus, int errorModule, int errorCode) {
    std::vector<Speaker*> targets;
    bool allOfPrompt = true;
    for (Speaker* s : GroupSpeakersLocked(group)) {
        const bool selected =
            onlyIds.empty() || std::find(onlyIds.begin(), onlyIds.end(), s->element->id) != onlyIds.end();
        if (!selected) {
            allOfPrompt = allOfPrompt && s->phase != SpeakerPhase::kPrompt;
            continue;
        }
        // Failed speakers hear the stop too: the broadcast is over for every speaker it had.
        if (IsLive(s->phase) || s->phase == SpeakerPhase::kFailed) {
            targets.push_back(s);
        }
    }
    if (allOfPrompt) {
        InterruptPromptLocked(group);
    } else {
        std::vector<Speaker*> cut;
        for (Speaker* s : targets) {
            if (s->phase == SpeakerPhase::kPrompt) {
                s->phase = SpeakerPhase::kPromptDone;
                cut.push_back(s);
            }
        }
        PushLocked(group.guid, cut, kPromptToneInterrupted, kResourceBroadcasting, kPromptEnd);
    }
    for (Speaker* s : targets) {
        EndSessionLocked(*s, phase);
    }
    PushLocked(group.guid, targets, status, resourceStatus, kPromptNone, errorModule, errorCode);
}

void CSpeakerSim::OnBroadcastStatus(const std::string& guid, const std::vector<int>& elementIds, int status,
                                    int errorModule, int errorCode) {
    std::lock_guard<std::mutex> lock(mutex_);
    registry_.UpdateGroup(guid, [status](BroadcastGroup& g) { g.reportedStatus = status; });
    GroupRun* g = FindGroup(guid);
    if (g == nullptr) {
        return;
    }
    DialLocked(*g);
    switch (status) {
        case kReportedStarted:
            // Speakers say they play when audio reaches them, not when the client says it sends.
            TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]client reports group %s started[%s(%d)]",
                    guid.c_str());
            break;
        case kReportedFailed:
            EndGroupLocked(*g, elementIds, SpeakerPhase::kFailed, kSpeakerFailed, kResourceIdle, errorModule,
                           errorCode);
            break;
        case kReportedStopped:
            EndGroupLocked(*g, elementIds, SpeakerPhase::kStopped, kSpeakerStopped, kResourceIdle, 0, 0);
            break;
        default:
            break;
    }
}

void CSpeakerSim::MarkPlayingLocked(Speaker& s) {
    if (s.phase == SpeakerPhase::kConnecting || s.phase == SpeakerPhase::kPromptDone) {
        s.phase = SpeakerPhase::kPlaying;
        PushLocked(s.guid, {&s}, kSpeakerPlaying, kResourceBroadcasting, kPromptNone);
    }
}

void CSpeakerSim::OnGroupStreamJoined(const std::string& guid, const std::string& source) {
    std::lock_guard<std::mutex> lock(mutex_);
    GroupRun* g = FindGroup(guid);
    if (g == nullptr) {
        return;
    }
    DialLocked(*g);
    g->joined = true;
    ++g->streams;
    std::vector<Speaker*> reached;
    std::vector<std::pair<int, int>> unreached;  // element id, session
    for (Speaker* s : GroupSpeakersLocked(*g)) {
        s->lastSource = source;
        s->lastTransport = "rtsp";
        if (s->online && s->connects &&
            (s->phase == SpeakerPhase::kConnecting || s->phase == SpeakerPhase::kPromptDone)) {
            s->phase = SpeakerPhase::kPlaying;
            reached.push_back(s);
        } else if (s->online && !s->connects && s->phase == SpeakerPhase::kConnecting) {
            unreached.emplace_back(s->element->id, s->sessions);
        }
    }
    PushLocked(guid, reached, kSpeakerPlaying, kResourceBroadcasting, kPromptNone);
    if (!unreached.empty()) {
        scheduler_.After(kStreamConnectTimeoutMs,
                         [this, guid, unreached] { GiveUpConnecting(guid, unreached); });
    }
}

void CSpeakerSim::GiveUpConnecting(const std::string& guid,
                                   const std::vector<std::pair<int, int>>& speakers) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Speaker*> failed;
    for (const auto& [id, session] : speakers) {
        Speaker* s = FindSpeaker(id);
        // Only the same play of the same group, still waiting for a connection.
        if (s != nullptr && s->guid == guid && s->sessions == session &&
            s->phase == SpeakerPhase::kConnecting && !s->connects) {
            EndSessionLocked(*s, SpeakerPhase::kFailed);
            failed.push_back(s);
        }
    }
    if (!failed.empty()) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]%d speakers of %s did not connect in %d ms[%s(%d)]",
                static_cast<int>(failed.size()), guid.c_str(), kStreamConnectTimeoutMs);
    }
    PushLocked(guid, failed, kSpeakerFailed, kResourceOffline, kPromptNone, kErrorModulePlatform,
               kErrorSpeakerUnreachable);
}

void CSpeakerSim::OnGroupAudio(const std::string& guid, const std::string& source, const int16_t* samples,
                               std::size_t count, std::size_t encodedBytes) {
    std::lock_guard<std::mutex> lock(mutex_);
    GroupRun* g = FindGroup(guid);
    if (g == nullptr) {
        return;
    }
    DialLocked(*g);
    for (Speaker* s : GroupSpeakersLocked(*g)) {
        AcceptAudioLocked(*s, samples, count, encodedBytes, source, "rtsp", false);
    }
}

void CSpeakerSim::OnGroupStreamEnded(const std::string& guid) {
    std::lock_guard<std::mutex> lock(mutex_);
    GroupRun* g = FindGroup(guid);
    if (g == nullptr) {
        return;
    }
    if (--g->streams > 0) {
        return;
    }
    g->streams = 0;
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]the stream of group %s ended[%s(%d)]", guid.c_str());
    EndGroupLocked(*g, {}, SpeakerPhase::kStopped, kSpeakerStopped, kResourceIdle, 0, 0);
}

}  // namespace Platform
