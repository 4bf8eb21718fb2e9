#include "platform/server/sim/speakers/SpeakerSim.h"

#include <algorithm>
#include <chrono>

#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "platform/server/sim/audio/WavRecorder.h"
#include "platform/server/sim/tts/TtsSynthesizer.h"

namespace Platform {

namespace {

constexpr int kSampleRate = 8000;
constexpr int kBlock = CPlayout::kBlockSamples;
/// A speaker counts as playing for this long after its last audio (gaps of a live talk are silence, not
/// the idle tone).
constexpr int64_t kActiveHoldMs = 300;
constexpr int kTickMs = kBlock * 1000 / kSampleRate;
/// Error of a speaker whose terminal is offline.
constexpr int kErrorModulePlatform = 30;
constexpr int kErrorTerminalOffline = 7;
constexpr int kErrorInternal = 6;
/// Error of a streaming-server speaker that did not connect in time.
constexpr int kErrorSpeakerUnreachable = 9;
constexpr std::size_t kMaxGroups = 1000;

const char* TransportName(SpeakerTransport t) {
    switch (t) {
        case SpeakerTransport::kStreaming:
            return "sms";
        case SpeakerTransport::kDevice:
            return "sdk";
        case SpeakerTransport::kUdp:
            return "udp";
    }
    return "?";
}

}  // namespace

CSpeakerSim::CSpeakerSim(const Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink,
                         IScheduler& scheduler, std::string speakerDir)
    : fixture_(fixture),
      registry_(registry),
      sink_(sink),
      scheduler_(scheduler),
      speakerDir_(std::move(speakerDir)),
      tts_(std::make_unique<CTtsSynthesizer>(speakerDir_)) {
    for (const Element& e : fixture_.elements) {
        Speaker s;
        s.element = &e;
        s.device = fixture_.FindDevice(e.deviceId);
        if (e.stream == StreamKind::kSms) {
            s.transport = SpeakerTransport::kStreaming;
        } else if (s.device != nullptr && s.device->accessProtocol == kAccessProtocolOemUdp) {
            s.transport = SpeakerTransport::kUdp;
        } else {
            s.transport = SpeakerTransport::kDevice;
        }
        s.online = e.terminalStatus != 0;
        speakers_.emplace(e.id, std::move(s));
        deviceElements_[e.deviceId].push_back(e.id);
    }
}

CSpeakerSim::~CSpeakerSim() {
    Stop();
}

bool CSpeakerSim::Start(std::string& error) {
    if (!Tal::Base::FileSystem::DirectoryExists(speakerDir_) &&
        !Tal::Base::FileSystem::MakeFullDir(speakerDir_)) {
        error = "cannot create the speaker directory " + speakerDir_;
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    clockStop_ = false;
    clock_ = std::thread([this] { ClockLoop(); });
    started_ = true;
    return true;
}

void CSpeakerSim::Stop() {
    std::vector<std::unique_ptr<CPlayout>> playouts;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!started_) {
            return;
        }
        started_ = false;
        clockStop_ = true;
        for (auto& p : playouts_) {
            p->Cancel();
        }
        playouts = std::move(playouts_);
        playouts_.clear();
    }
    clockWake_.notify_all();
    if (clock_.joinable()) {
        clock_.join();
    }
    // Joined without the lock: their last callbacks take it.
    playouts.clear();
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : speakers_) {
        if (entry.second.wav) {
            entry.second.wav->Close();
            entry.second.wav.reset();
        }
    }
    groups_.clear();
    ttsJobs_.clear();
}

bool CSpeakerSim::IsLive(SpeakerPhase phase) {
    return phase == SpeakerPhase::kConnecting || phase == SpeakerPhase::kPrompt ||
           phase == SpeakerPhase::kPromptDone || phase == SpeakerPhase::kPlaying;
}

const char* CSpeakerSim::PhaseName(SpeakerPhase phase) {
    switch (phase) {
        case SpeakerPhase::kIdle:
            return "idle";
        case SpeakerPhase::kConnecting:
            return "connecting";
        case SpeakerPhase::kPrompt:
            return "prompt";
        case SpeakerPhase::kPromptDone:
            return "prompt-finished";
        case SpeakerPhase::kPlaying:
            return "playing";
        case SpeakerPhase::kStopped:
            return "stopped";
        case SpeakerPhase::kFailed:
            return "failed";
    }
    return "?";
}

int64_t CSpeakerSim::NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

CSpeakerSim::Speaker* CSpeakerSim::FindSpeaker(int elementId) {
    auto it = speakers_.find(elementId);
    return it == speakers_.end() ? nullptr : &it->second;
}

const CSpeakerSim::Speaker* CSpeakerSim::FindSpeaker(int elementId) const {
    auto it = speakers_.find(elementId);
    return it == speakers_.end() ? nullptr : &it->second;
}

CSpeakerSim::GroupRun* CSpeakerSim::FindGroup(const std::string& guid) {
    auto it = groups_.find(guid);
    return it == groups_.end() ? nullptr : &it->second;
}

std::vector<CSpeakerSim::Speaker*> CSpeakerSim::GroupSpeakersLocked(const GroupRun& group,
                                                                    const std::vector<int>& onlyIds) {
    std::vector<Speaker*> out;
    for (int id : group.elementIds) {
        if (!onlyIds.empty() && std::find(onlyIds.begin(), onlyIds.end(), id) == onlyIds.end()) {
            continue;
        }
        Speaker* s = FindSpeaker(id);
        // A speaker that another broadcast took over no longer belongs to this one.
        if (s != nullptr && s->session == Session::kGroup && s->guid == group.guid) {
            out.push_back(s);
        }
    }
    return out;
}

// Push: {"BoardcastGroupGUID":"..","ResourceID":1001,"ErrorCode":0,"ErrorModule":0,"ResourceType":1027,
//   "ResourceStatus":1,"Status":1[,"PromptToneBeginEnd":0]}, one frame per call.
void CSpeakerSim::PushLocked(const std::string& guid, const std::vector<Speaker*>& speakers, int status,
                             int resourceStatus, int promptBeginEnd, int errorModule, int errorCode) {
    if (speakers.empty()) {
        return;
    }
    std::vector<SpeakerStatus> list;
    for (Speaker* s : speakers) {
        SpeakerStatus item;
        item.groupGuid = guid;
        item.resourceId = s->element->id;
        item.status = status;
        item.resourceStatus = resourceStatus;
        item.promptToneBeginEnd = promptBeginEnd;
        item.errorModule = errorModule;
        item.errorCode = errorCode;
        list.push_back(item);
        s->status = status;
        s->resourceStatus = resourceStatus;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speakers of %s: status %d for %d (first %d)[%s(%d)]",
            guid.empty() ? "-" : guid.c_str(), status, static_cast<int>(list.size()),
            list.front().resourceId);
    sink_.Publish(BroadcastStatusFrame(list));
}

void CSpeakerSim::BeginSessionLocked(Speaker& s, Session session, const std::string& guid) {
    if (IsLive(s.phase)) {
        // The new broadcast takes the speaker over; the old one hears that its speaker stopped.
        PushLocked(s.guid, {&s}, kSpeakerStopped, kResourceIdle, kPromptNone);
        EndSessionLocked(s, SpeakerPhase::kStopped);
    }
    s.session = session;
    s.guid = guid;
    s.ttsJob = 0;
    s.phase = SpeakerPhase::kConnecting;
    s.samplesPlayed = 0;
    s.bytesReceived = 0;
    s.droppedBytes = 0;
    s.firstAudioAtMs = 0;
    s.firstAudioSample = 0;
    ++s.sessions;
    s.wavPath.clear();
    if (!s.online) {
        return;  // an offline speaker records nothing
    }
    const std::string path =
        Tal::Base::FileSystem::JoinPath(speakerDir_, std::to_string(s.element->id) + ".wav");
    s.wav = std::make_unique<CWavRecorder>(path);
    if (!s.wav->Open()) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speaker %d cannot record to %s[%s(%d)]", s.element->id,
                path.c_str());
        s.wav.reset();
        return;
    }
    s.wavPath = path;
}

void CSpeakerSim::EndSessionLocked(Speaker& s, SpeakerPhase phase) {
    if (s.wav) {
        s.wav->Close();
        s.wav.reset();
    }
    s.phase = phase;
    s.endedMs = NowMs();
}

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

void CSpeakerSim::OnDeviceAudio(int deviceId, int channel, SpeakerTransport transport,
                                const std::string& source, const int16_t* samples, std::size_t count,
                                std::size_t encodedBytes) {
    const int elementChannel = channel > 1000 ? channel - 1000 : channel;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = deviceElements_.find(deviceId);
    if (it == deviceElements_.end()) {
        return;
    }
    for (int id : it->second) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || (elementChannel != 0 && s->element->channel != elementChannel)) {
            continue;
        }
        if (s->session == Session::kGroup) {
            if (GroupRun* g = FindGroup(s->guid)) {
                DialLocked(*g);
            }
        }
        AcceptAudioLocked(*s, samples, count, encodedBytes, source,
                          transport == SpeakerTransport::kUdp ? "udp" : "sdk", true);
    }
}

void CSpeakerSim::AcceptAudioLocked(Speaker& s, const int16_t* samples, std::size_t count,
                                    std::size_t encodedBytes, const std::string& source,
                                    const char* transport, bool mayStartAdhoc) {
    const int64_t now = NowMs();
    s.lastSource = source;
    s.lastTransport = transport;
    if (mayStartAdhoc && !IsLive(s.phase) && s.online && s.connects && now - s.endedMs >= kLateAudioMs) {
        // Audio outside any broadcast: a speaker plays whatever reaches it.
        BeginSessionLocked(s, Session::kAdhoc, std::string());
        TAL_LOG(Tal::Base::kLogInfo, "Platform",
                "[%s]speaker %d plays audio from %s outside a broadcast[%s(%d)]", s.element->id,
                source.c_str());
    }
    s.bytesReceived += encodedBytes;
    const bool plays = s.online && s.connects && s.session != Session::kTts &&
                       (s.phase == SpeakerPhase::kConnecting || s.phase == SpeakerPhase::kPromptDone ||
                        s.phase == SpeakerPhase::kPlaying);
    if (!plays) {
        s.droppedBytes += encodedBytes;
        return;
    }
    if (s.firstAudioAtMs == 0) {
        s.firstAudioAtMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
        s.firstAudioSample = s.samplesPlayed;
    }
    MarkPlayingLocked(s);
    PlayLocked(s, samples, count);
}

void CSpeakerSim::PlayLocked(Speaker& s, const int16_t* samples, std::size_t count) {
    if (count == 0) {
        return;
    }
    if (s.wav && !s.wav->Write(samples, count)) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speaker %d cannot write %s, recording stops[%s(%d)]",
                s.element->id, s.wavPath.c_str());
        s.wav->Close();
        s.wav.reset();
    }
    s.samplesPlayed += count;
    s.totalSamples += count;
    s.lastAudioMs = NowMs();
    s.loudspeaker.Play(samples, count);
}

void CSpeakerSim::StartTts(const std::vector<int>& elementIds, const std::string& text,
                           const std::string& language) {
    std::string voice = CTtsSynthesizer::VoiceFor(language);
    for (const TtsLanguage& l : fixture_.ttsLanguages) {
        if (l.key == language && !l.voice.empty()) {
            voice = l.voice;
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t job = nextTtsJob_++;
    TtsJob run;
    for (int id : elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || !s->online) {
            continue;
        }
        BeginSessionLocked(*s, Session::kTts, std::string());
        s->ttsJob = job;
        run.elementIds.insert(id);
    }
    if (run.elementIds.empty()) {
        return;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speech %llu for %d speakers, voice %s[%s(%d)]",
            static_cast<unsigned long long>(job), static_cast<int>(run.elementIds.size()), voice.c_str());
    CTtsSynthesizer* tts = tts_.get();
    run.playout = AddPlayoutLocked(std::make_unique<CPlayout>(
        [tts, text, voice](const std::atomic<bool>& cancelled, std::vector<int16_t>& samples,
                           std::string& error) {
            return tts->Synthesize(text, voice, cancelled, samples, error);
        },
        [this, job](const int16_t* samples, std::size_t count) { OnTtsBlock(job, samples, count); },
        [this, job](CPlayout::Result result, const std::string& error) { OnTtsDone(job, result, error); }));
    ttsJobs_[job] = std::move(run);
}

void CSpeakerSim::OnTtsBlock(uint64_t job, const int16_t* samples, std::size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = ttsJobs_.find(job);
    if (it == ttsJobs_.end()) {
        return;
    }
    for (int id : it->second.elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || s->session != Session::kTts || s->ttsJob != job || !IsLive(s->phase)) {
            continue;
        }
        s->lastTransport = "tts";
        s->lastSource = "espeak-ng";
        MarkPlayingLocked(*s);
        PlayLocked(*s, samples, count);
    }
}

void CSpeakerSim::OnTtsDone(uint64_t job, CPlayout::Result result, const std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = ttsJobs_.find(job);
    if (it == ttsJobs_.end()) {
        return;
    }
    std::vector<Speaker*> ended;
    std::vector<int> ids;
    for (int id : it->second.elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s != nullptr && s->session == Session::kTts && s->ttsJob == job && IsLive(s->phase)) {
            ended.push_back(s);
            ids.push_back(id);
        }
    }
    ttsJobs_.erase(it);
    if (result == CPlayout::Result::kCancelled) {
        return;  // the stop already ended its speakers
    }
    const bool ok = result == CPlayout::Result::kCompleted;
    if (!ok) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speech %llu failed: %s[%s(%d)]",
                static_cast<unsigned long long>(job), error.c_str());
    }
    for (Speaker* s : ended) {
        EndSessionLocked(*s, ok ? SpeakerPhase::kStopped : SpeakerPhase::kFailed);
    }
    PushLocked("", ended, ok ? kSpeakerStopped : kSpeakerFailed, kResourceIdle, kPromptNone,
               ok ? 0 : kErrorModulePlatform, ok ? 0 : kErrorInternal);
    registry_.StopTts(ids);
}

std::vector<int> CSpeakerSim::StopTts(const std::vector<int>& elementIds) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Speaker*> stopped;
    std::vector<int> ids;
    for (int id : elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || s->session != Session::kTts || !IsLive(s->phase)) {
            continue;
        }
        auto job = ttsJobs_.find(s->ttsJob);
        if (job != ttsJobs_.end()) {
            job->second.elementIds.erase(id);
            if (job->second.elementIds.empty() && job->second.playout != nullptr) {
                job->second.playout->Cancel();
                ttsJobs_.erase(job);
            }
        }
        EndSessionLocked(*s, SpeakerPhase::kStopped);
        stopped.push_back(s);
        ids.push_back(id);
    }
    PushLocked("", stopped, kSpeakerStopped, kResourceIdle, kPromptNone);
    return ids;
}

CPlayout* CSpeakerSim::AddPlayoutLocked(std::unique_ptr<CPlayout> playout) {
    CPlayout* raw = playout.get();
    playouts_.push_back(std::move(playout));
    raw->Start();
    return raw;
}

int CSpeakerSim::AddMonitor(int deviceId, MonitorFn fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    return listeners_.Add(deviceId, std::move(fn));
}

void CSpeakerSim::RemoveMonitor(int monitorId) {
    std::lock_guard<std::mutex> lock(mutex_);
    listeners_.Remove(monitorId);
}

double CSpeakerSim::IdleToneHz(int deviceId) const {
    for (std::size_t i = 0; i < fixture_.devices.size(); ++i) {
        const Device& d = fixture_.devices[i];
        if (d.id == deviceId) {
            return d.idleToneHz > 0 ? d.idleToneHz : 440.0 + 10.0 * static_cast<double>(i);
        }
    }
    return 0;
}

bool CSpeakerSim::IsOnline(int elementId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Speaker* s = FindSpeaker(elementId);
    return s != nullptr && s->online;
}

bool CSpeakerSim::SetOnline(int elementId, bool online) {
    std::lock_guard<std::mutex> lock(mutex_);
    Speaker* s = FindSpeaker(elementId);
    if (s == nullptr) {
        return false;
    }
    if (s->online == online) {
        return true;
    }
    s->online = online;
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speaker %d is now %s[%s(%d)]", elementId,
            online ? "online" : "offline");
    if (!online && IsLive(s->phase)) {
        const std::string guid = s->guid;
        EndSessionLocked(*s, SpeakerPhase::kFailed);
        PushLocked(guid, {s}, kSpeakerFailed, kResourceOffline, kPromptNone, kErrorModulePlatform,
                   kErrorTerminalOffline);
    }
    return true;
}

bool CSpeakerSim::SetConnects(int elementId, bool connects) {
    std::lock_guard<std::mutex> lock(mutex_);
    Speaker* s = FindSpeaker(elementId);
    if (s == nullptr) {
        return false;
    }
    s->connects = connects;
    return true;
}

std::vector<SpeakerInfo> CSpeakerSim::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<SpeakerInfo> out;
    for (const auto& entry : speakers_) {
        const Speaker& s = entry.second;
        SpeakerInfo info;
        info.elementId = s.element->id;
        info.deviceId = s.element->deviceId;
        info.name = s.element->name;
        info.transport = TransportName(s.transport);
        info.online = s.online;
        info.connects = s.connects;
        info.phase = PhaseName(s.phase);
        info.status = s.status;
        info.resourceStatus = s.resourceStatus;
        info.groupGuid = s.guid;
        info.bytesReceived = s.bytesReceived;
        info.droppedBytes = s.droppedBytes;
        info.samplesPlayed = s.samplesPlayed;
        info.totalSamplesPlayed = s.totalSamples;
        info.firstAudioAtMs = s.firstAudioAtMs;
        info.firstAudioSample = s.firstAudioSample;
        info.sessions = s.sessions;
        info.wavPath = s.wavPath;
        info.lastSource = s.lastSource;
        info.lastTransport = s.lastTransport;
        info.idleToneHz = IdleToneHz(s.element->deviceId);
        out.push_back(info);
    }
    return out;
}

void CSpeakerSim::Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& p : playouts_) {
        p->Cancel();
    }
    for (auto& entry : speakers_) {
        Speaker& s = entry.second;
        if (s.wav) {
            s.wav->Close();
            s.wav.reset();
        }
        s.phase = SpeakerPhase::kIdle;
        s.session = Session::kNone;
        s.guid.clear();
        s.ttsJob = 0;
        s.online = s.element->terminalStatus != 0;
        s.connects = true;
        s.status = -1;
        s.resourceStatus = kResourceIdle;
        s.loudspeaker.Clear();
    }
    groups_.clear();
    groupOrder_.clear();
    ttsJobs_.clear();
}

void CSpeakerSim::ClockLoop() {
    const auto tick = std::chrono::milliseconds(kTickMs);
    auto due = std::chrono::steady_clock::now() + tick;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!clockStop_) {
        clockWake_.wait_until(lock, due, [this] { return clockStop_; });
        if (clockStop_) {
            break;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now - due > std::chrono::milliseconds(200)) {
            due = now;  // far behind (a stalled machine): resynchronise rather than rush
        }
        due += tick;
        lock.unlock();
        Tick(NowMs());
        lock.lock();
    }
}

void CSpeakerSim::Tick(int64_t nowMs) {
    std::vector<CListeners::Delivery> deliveries;
    std::vector<std::unique_ptr<CPlayout>> finished;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Every loudspeaker plays one block; a device's listeners hear the sum of its speakers.
        for (auto& entry : speakers_) {
            Speaker& s = entry.second;
            const std::vector<int16_t> block = s.loudspeaker.NextBlock(nowMs, s.lastAudioMs);
            const int device = s.element->deviceId;
            if (listeners_.Listened(device)) {
                listeners_.Mix(
                    device, block,
                    !block.empty() || nowMs - s.lastAudioMs < kActiveHoldMs || !s.loudspeaker.Empty());
            }
        }
        deliveries = listeners_.TakeBlocks([this](int device) { return IdleToneHz(device); });
        EndIdleAdhocLocked(nowMs);
        finished = TakeFinishedPlayoutsLocked();
    }
    for (auto& d : deliveries) {
        d.first(d.second.data(), d.second.size());
    }
    // `finished` joins its threads here, outside the lock.
}

void CSpeakerSim::EndIdleAdhocLocked(int64_t nowMs) {
    for (auto& entry : speakers_) {
        Speaker& s = entry.second;
        if (s.session == Session::kAdhoc && IsLive(s.phase) && nowMs - s.lastAudioMs > kAdhocIdleMs) {
            EndSessionLocked(s, SpeakerPhase::kStopped);
            PushLocked("", {&s}, kSpeakerStopped, kResourceIdle, kPromptNone);
        }
    }
}

std::vector<std::unique_ptr<CPlayout>> CSpeakerSim::TakeFinishedPlayoutsLocked() {
    std::vector<std::unique_ptr<CPlayout>> finished;
    for (auto it = playouts_.begin(); it != playouts_.end();) {
        if ((*it)->Finished()) {
            finished.push_back(std::move(*it));
            it = playouts_.erase(it);
        } else {
            ++it;
        }
    }
    return finished;
}

}  // namespace Platform
