#include "platform/server/push/BroadcastReactor.h"

#include "framework/base/FormatLog.h"

namespace Platform {

namespace {

std::vector<SpeakerStatus> StatusForAll(const std::string& guid, const std::vector<int>& ids, int status,
                                        int resourceStatus, int promptBeginEnd) {
    std::vector<SpeakerStatus> list;
    for (int id : ids) {
        SpeakerStatus s;
        s.groupGuid = guid;
        s.resourceId = id;
        s.status = status;
        s.resourceStatus = resourceStatus;
        s.promptToneBeginEnd = promptBeginEnd;
        list.push_back(s);
    }
    return list;
}

}  // namespace

CBroadcastReactor::CBroadcastReactor(const Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink,
                                     IScheduler& scheduler)
    : fixture_(fixture), registry_(registry), sink_(sink), scheduler_(scheduler) {}

int CBroadcastReactor::PromptToneMs() const {
    return fixture_.baseConfig.promptToneDuration * 1000;
}

void CBroadcastReactor::PublishStatuses(const std::vector<SpeakerStatus>& list) {
    if (!list.empty()) {
        sink_.Publish(BroadcastStatusFrame(list));
    }
}

void CBroadcastReactor::OnGroupCreated(const BroadcastGroup& group) {
    if (group.transport == GroupTransport::kSms && group.promptInFront) {
        StartPromptTone(group);
    }
}

void CBroadcastReactor::OnPromptToneStart(const std::vector<std::string>& guids) {
    for (const std::string& guid : guids) {
        BroadcastGroup group;
        if (registry_.FindGroup(guid, group)) {
            StartPromptTone(group);
        }
    }
}

void CBroadcastReactor::StartPromptTone(const BroadcastGroup& group) {
    int sequence = 0;
    registry_.UpdateGroup(group.guid, [&sequence](BroadcastGroup& g) {
        g.prompt = PromptState::kPlaying;
        sequence = ++g.promptSequence;
    });
    TAL_LOG(Tal::Base::kLogInfo, "Platform",
            "[%s]prompt tone starts for group %s, %d speakers, %d ms[%s(%d)]", group.guid.c_str(),
            static_cast<int>(group.elementIds.size()), PromptToneMs());
    PublishStatuses(StatusForAll(group.guid, group.elementIds, kPromptTonePreparing, kResourceBroadcasting,
                                 kPromptBegin));
    PublishStatuses(
        StatusForAll(group.guid, group.elementIds, kPromptTonePlaying, kResourceBroadcasting, kPromptBegin));
    const std::string guid = group.guid;
    scheduler_.After(PromptToneMs(), [this, guid, sequence] { FinishPromptTone(guid, sequence); });
}

void CBroadcastReactor::FinishPromptTone(const std::string& guid, int sequence) {
    bool finished = false;
    std::vector<int> ids;
    registry_.UpdateGroup(guid, [&](BroadcastGroup& g) {
        // A stop or a newer start since this timer was set owns the prompt tone now.
        if (g.prompt == PromptState::kPlaying && g.promptSequence == sequence) {
            g.prompt = PromptState::kFinished;
            finished = true;
            ids = g.elementIds;
        }
    });
    if (finished) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]prompt tone finished for group %s[%s(%d)]",
                guid.c_str());
        PublishStatuses(StatusForAll(guid, ids, kPromptToneFinished, kResourceBroadcasting, kPromptEnd));
    }
}

void CBroadcastReactor::OnPromptToneStop(const std::vector<std::string>& guids) {
    for (const std::string& guid : guids) {
        bool interrupted = false;
        std::vector<int> ids;
        registry_.UpdateGroup(guid, [&](BroadcastGroup& g) {
            if (g.prompt == PromptState::kPlaying) {
                g.prompt = PromptState::kInterrupted;
                ++g.promptSequence;
                interrupted = true;
                ids = g.elementIds;
            }
        });
        if (interrupted) {
            PublishStatuses(
                StatusForAll(guid, ids, kPromptToneInterrupted, kResourceBroadcasting, kPromptEnd));
        }
    }
}

void CBroadcastReactor::OnBroadcastStatus(const std::string& guid, const std::vector<int>& elementIds,
                                          int status, int errorModule, int errorCode) {
    std::vector<int> ids = elementIds;
    registry_.UpdateGroup(guid, [&](BroadcastGroup& g) {
        g.reportedStatus = status;
        if (status == kReportedStopped && g.prompt == PromptState::kPlaying) {
            g.prompt = PromptState::kInterrupted;
            ++g.promptSequence;
        }
        if (ids.empty()) {
            ids = g.elementIds;
        }
    });
    std::vector<SpeakerStatus> list;
    switch (status) {
        case kReportedStarted:
            list = StatusForAll(guid, ids, kSpeakerPlaying, kResourceBroadcasting, kPromptNone);
            break;
        case kReportedFailed:
            list = StatusForAll(guid, ids, kSpeakerFailed, kResourceIdle, kPromptNone);
            for (SpeakerStatus& s : list) {
                s.errorModule = errorModule;
                s.errorCode = errorCode;
            }
            break;
        case kReportedStopped:
            list = StatusForAll(guid, ids, kSpeakerStopped, kResourceIdle, kPromptNone);
            break;
        default:
            break;
    }
    PublishStatuses(list);
}

void CBroadcastReactor::OnTtsStarted(const std::vector<int>& elementIds) {
    PublishStatuses(StatusForAll("", elementIds, kSpeakerPlaying, kResourceBroadcasting, kPromptNone));
}

void CBroadcastReactor::OnTtsStopped(const std::vector<int>& elementIds) {
    PublishStatuses(StatusForAll("", elementIds, kSpeakerStopped, kResourceIdle, kPromptNone));
}

}  // namespace Platform
