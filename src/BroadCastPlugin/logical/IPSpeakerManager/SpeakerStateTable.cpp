#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerStateTable.h"

#include <algorithm>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"

namespace BroadCastPlugin {

std::atomic<bool> g_promptToneReported{false};

namespace {

// The server's "ResourceStatus" as carried in events; other values leave the event's default.
int32_t MapResourceStatus(int32_t serverStatus, int32_t fallback) {
    switch (serverStatus) {
        case 1:
            return 2;
        case 3:
            return 0;
        case 4:
        case 5:
        case 6:
            return serverStatus;
        default:
            return fallback;
    }
}

// A speaker still connecting: connecting or in the prompt tone.
bool IsConnecting(int32_t status) {
    return status == kPushConnecting || (status >= kPushPromptToneFirst && status <= kPushPromptToneLast);
}

// The resource-status event every entry of a push becomes, whoever's broadcast it belongs to.
IPSpeakerNotifyParam ResourceEvent(const BroadcastStatusItem& item) {
    IPSpeakerNotifyParam event;
    event.type = kNotifyResourceStatus;
    event.groupGUID = item.groupGUID;
    event.elementID = item.resourceID;
    event.error = ErrorCode(Tal::Base::Error::kSubSystemServer, item.errorModule, item.errorCode);
    event.resourceType = item.resourceType;
    event.resourceStatus = MapResourceStatus(item.resourceStatus, event.resourceStatus);
    return event;
}

}  // namespace

IPSpeakerNotifyParam StageEvent(int32_t broadcastStatus, int64_t requestID) {
    IPSpeakerNotifyParam event;
    event.type = kNotifyStage;
    event.broadcastStatus = broadcastStatus;
    event.requestID = requestID;
    return event;
}

CSpeakerStateTable::CSpeakerStateTable(StopHook stopHook) : stopHook_(std::move(stopHook)) {}

void CSpeakerStateTable::SetNotifyCallback(NotifyCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    notifyCallback_ = std::move(callback);
}

void CSpeakerStateTable::Notify(const std::vector<IPSpeakerNotifyParam>& params) {
    std::lock_guard<std::mutex> lock(mutex_);
    NotifyLocked(params);
}

void CSpeakerStateTable::NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params) {
    if (notifyCallback_) {
        notifyCallback_(params);
    }
}

void CSpeakerStateTable::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    speakers_.clear();
    promptVoiceActive_ = false;
    SetStoppedLocked(true);
}

void CSpeakerStateTable::SetStopped(bool stopped) {
    std::lock_guard<std::mutex> lock(mutex_);
    SetStoppedLocked(stopped);
}

void CSpeakerStateTable::SetStoppedLocked(bool stopped) {
    stopped_ = stopped;
    if (stopHook_) {
        stopHook_(stopped);
    }
}

bool CSpeakerStateTable::IsStopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

void CSpeakerStateTable::SetPromptVoiceActive(bool active) {
    std::lock_guard<std::mutex> lock(mutex_);
    promptVoiceActive_ = active;
}

bool CSpeakerStateTable::IsPromptVoiceActive() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return promptVoiceActive_;
}

void CSpeakerStateTable::RecordSpeakers(const std::vector<BroadcastUrlInfo>& urls) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const BroadcastUrlInfo& url : urls) {
        for (const BroadcastUrlResource& resource : url.Resources) {
            SpeakerEntry entry;
            entry.groupGUID = url.ResourceGuid;
            speakers_[resource.ID] = entry;
            BCAST_LOG(3, "[%s]Get broadcast element id:%d, url:%s, resource guid:%s.[%s(%d)]", resource.ID,
                      url.Url.c_str(), url.ResourceGuid.c_str());
        }
    }
}

void CSpeakerStateTable::AddSpeakers(const std::vector<int32_t>& elementIDs) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (int32_t id : elementIDs) {
        speakers_[id] = SpeakerEntry();
    }
}

std::map<int32_t, SpeakerEntry> CSpeakerStateTable::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return speakers_;
}

std::vector<std::string> CSpeakerStateTable::Groups() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> groups;
    for (const auto& speaker : speakers_) {
        if (std::find(groups.begin(), groups.end(), speaker.second.groupGUID) == groups.end()) {
            groups.push_back(speaker.second.groupGUID);
        }
    }
    return groups;
}

bool CSpeakerStateTable::AnySpeakerConnecting(const std::set<std::string>& groups) const {
    std::lock_guard<std::mutex> lock(mutex_);
    // Only speakers of these groups: device and RTP speakers cannot connect before their senders start,
    // which is after this wait. A speaker that has not reported yet (-1) has not connected either.
    return std::any_of(speakers_.begin(), speakers_.end(), [&groups](const auto& s) {
        return groups.count(s.second.groupGUID) != 0 &&
               (s.second.status == -1 || IsConnecting(s.second.status));
    });
}

bool CSpeakerStateTable::AllSpeakersFailed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return !speakers_.empty() && std::all_of(speakers_.begin(), speakers_.end(),
                                             [](const auto& s) { return s.second.status == kPushFailed; });
}

bool CSpeakerStateTable::AnyPromptToneFinished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(speakers_.begin(), speakers_.end(),
                       [](const auto& s) { return s.second.promptToneFinished; });
}

void CSpeakerStateTable::NotifyTalkFailed(const std::vector<int32_t>& elementIDs, int64_t requestID,
                                          const ErrorCode& failure) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<IPSpeakerNotifyParam> events;
    for (int32_t id : elementIDs) {
        IPSpeakerNotifyParam event = StageEvent(kStageFailed, requestID);
        event.elementID = id;
        event.error = failure;
        events.push_back(event);
        auto entry = speakers_.find(id);
        if (entry != speakers_.end()) {
            entry->second.playState = kPlayFailed;
        }
    }
    NotifyLocked(events);
}

void CSpeakerStateTable::NotifyFilePlayed(const std::vector<int32_t>& elementIDs, int64_t requestID,
                                          const ErrorCode& failure, bool result) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<IPSpeakerNotifyParam> events;
    for (int32_t id : elementIDs) {
        IPSpeakerNotifyParam event = StageEvent(kStageFailed, requestID);
        event.elementID = id;
        auto entry = speakers_.find(id);
        // The speaker's own last error from the platform, or the framework's when that one is clean.
        event.error = entry != speakers_.end() && entry->second.error.GetSubErrorCode() != 0
                          ? entry->second.error
                          : failure;
        event.broadcastStatus = event.error.GetSubErrorCode() == 0 && result ? kStageFileDone : kStageFailed;
        if (entry != speakers_.end()) {
            entry->second.playState = event.broadcastStatus;
        }
        events.push_back(event);
    }
    NotifyLocked(events);
}

bool CSpeakerStateTable::OwnGroupLocked(const std::string& groupGUID) const {
    return std::any_of(speakers_.begin(), speakers_.end(),
                       [&groupGUID](const auto& s) { return s.second.groupGUID == groupGUID; });
}

void CSpeakerStateTable::ApplyStatusPush(const PushMessage& message) {
    std::vector<IPSpeakerNotifyParam> events;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const BroadcastStatusItem& item : message.statusList) {
        IPSpeakerNotifyParam event = ResourceEvent(item);
        events.push_back(event);
        if (ApplySpeakerStatusLocked(event, item.status, item.promptToneBeginEnd)) {
            events.push_back(event);
        }
    }
    NotifyLocked(events);
}

bool CSpeakerStateTable::ApplySpeakerStatusLocked(IPSpeakerNotifyParam& event, int32_t status,
                                                  int32_t promptTone) {
    auto entry = speakers_.find(event.elementID);
    const int32_t playState = entry == speakers_.end() ? kPlayNone : entry->second.playState;
    if (playState == kPlayFinished || playState == kPlayFailed) {
        BCAST_LOG(4,
                  "[%s]Has already play[1-play finish, 2-play failed]:%d , pass this notify message.[%s(%d)]",
                  playState);
        return false;
    }
    if (stopped_ || entry == speakers_.end()) {
        return false;
    }
    if (!OwnGroupLocked(event.groupGUID)) {
        BCAST_LOG(4, "[%s]This broadcast[%d] is broadcast open by other client.[%s(%d)]", event.elementID);
        return false;
    }
    event.type = kNotifySpeakerStatus;
    event.speakerStatus = status;
    SpeakerEntry& speaker = entry->second;
    if (status == kPushPromptFinished) {
        speaker.promptToneFinished = true;
        if (!g_promptToneReported.exchange(true)) {
            IPSpeakerNotifyParam finished = event;
            finished.type = kNotifyStage;
            finished.broadcastStatus = kStagePromptFinished;
            finished.promptVoiceActive = promptVoiceActive_;
            NotifyLocked({finished});
        }
    } else if (status == kPushPromptStopped) {
        speaker.promptToneFinished = false;
    }
    speaker.status = status;
    speaker.error = event.error;
    if (promptTone == kPromptToneBegins) {
        promptVoiceActive_ = true;
    } else if (promptTone == kPromptToneEnds) {
        promptVoiceActive_ = false;
    }
    event.promptVoiceActive = promptVoiceActive_;
    return true;
}

}  // namespace BroadCastPlugin
