#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"

#include "BroadCastPlugin/BroadcastConstants.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BroadCastPlugin {

std::atomic<bool> g_promptToneReported{false};

namespace {

using Tal::Base::Error::kCodeNotAvailable;
using Tal::Base::Error::kModuleFramework;
using Tal::Base::Error::kSubSystemClient;
using Tal::Base::Error::kSubSystemServer;

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

// Operations whose transports are not part of this build fail with a clear reason.
bool NotAvailable(const char* what) {
    Tal::Base::Error::SetLastError(ErrorCode(kSubSystemClient, kModuleFramework, kCodeNotAvailable));
    BCAST_LOG(5, "[%s]%s is not available in this build.[%s(%d)]", what);
    return false;
}

}  // namespace

CIPSpeakerManager* CIPSpeakerManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerManager>::Instance();
}

CIPSpeakerManager::CIPSpeakerManager() = default;

CIPSpeakerManager::~CIPSpeakerManager() = default;

bool CIPSpeakerManager::Init(NotifyCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    notifyCallback_ = std::move(callback);
    ClearBroadcastParamLocked();
    return true;
}

void CIPSpeakerManager::Uninit() {
    Stop();
    StopBroadcastListen();
    std::lock_guard<std::mutex> lock(mutex_);
    notifyCallback_ = nullptr;
}

bool CIPSpeakerManager::StartSpeakVoice(const std::vector<int32_t>& elementIDs, int64_t /*requestID*/) {
    BCAST_LOG(3, "[%s]Start ipspeaker voice speak. broadcast element id count:%d.[%s(%d)]",
              static_cast<int>(elementIDs.size()));
    return NotAvailable("Live talk");
}

bool CIPSpeakerManager::StartPlayAudioFile(const std::vector<int32_t>& elementIDs,
                                           const std::string& filePath, int64_t /*requestID*/) {
    BCAST_LOG(3, "[%s]Start ipspeaker play audio file. broadcast element id count:%d, file path: %s.[%s(%d)]",
              static_cast<int>(elementIDs.size()), filePath.c_str());
    return NotAvailable("File broadcast");
}

bool CIPSpeakerManager::StartTTSBroadcast(std::vector<TTSResponseError>& /*errors*/,
                                          const TTSRequestParam& /*request*/) {
    BCAST_LOG(3, "[%s]Start TTSRequest.[%s(%d)]");
    return NotAvailable("Text-to-speech broadcast");
}

void CIPSpeakerManager::StopTTSBroadcast() {
    TTSRequestParam request;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request = ttsRequest_;
    }
    // Nothing is sent when no text-to-speech broadcast runs.
    if (request.start && !request.elementIDs.empty()) {
        NotAvailable("Stopping a text-to-speech broadcast");
    }
}

bool CIPSpeakerManager::StartBroadcastListen(int32_t deviceID) {
    if (deviceID == -1) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listenStopped_ = false;
        listenDeviceID_ = deviceID;
    }
    NotAvailable("Listening");
    StopBroadcastListen();
    return false;
}

bool CIPSpeakerManager::StopBroadcastListen() {
    std::lock_guard<std::mutex> lock(mutex_);
    listenStopped_ = true;
    listenDeviceID_ = -1;
    return true;
}

void CIPSpeakerManager::Stop() {
    BCAST_LOG(3, "[%s]Start to stop broadcast.[%s(%d)]");
    SetStopFlag(true);
    ClearBroadcastParam();
    BCAST_LOG(3, "[%s]Stop broadcast succ.[%s(%d)]");
}

void CIPSpeakerManager::ClearBroadcastParam() {
    BCAST_LOG(3, "[%s]Start to Clear braodcast params.[%s(%d)]");
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBroadcastParamLocked();
}

void CIPSpeakerManager::ClearBroadcastParamLocked() {
    speakerStates_.clear();
    ttsRequest_ = TTSRequestParam();
    ttsRequest_.start = false;
    playFilePath_.clear();
    startTime_.clear();
    broadcastKind_ = kBroadcastNone;
    promptVoiceActive_ = false;
    stopped_ = true;
    recordedFilePath_.clear();
}

void CIPSpeakerManager::HandleWebsocketMessage(const std::string& text) {
    BCAST_LOG(3, "[%s]Receive websocket message: %s.[%s(%d)]", text.c_str());
    NetworkCommunication::CRapidJsonProto message;
    message.set_str(text);  // a text that does not parse reads as a message without the list
    const std::string list = "/Event/BroadcastStatusList";
    const int count = message.get_cnt(list);

    std::vector<IPSpeakerNotifyParam> events;
    std::lock_guard<std::mutex> lock(mutex_);
    for (int i = 1; i <= count; ++i) {
        const std::string p = list + "[" + std::to_string(i) + "]/";
        IPSpeakerNotifyParam event;
        event.type = 2;
        event.groupGUID = message.get_v(p + "BoardcastGroupGUID", "");
        event.elementID = message.get_int_v(p + "ResourceID", -1);
        event.error = ErrorCode(kSubSystemServer, message.get_int_v(p + "ErrorModule", -1),
                                message.get_int_v(p + "ErrorCode", -1));
        event.resourceType = message.get_int_v(p + "ResourceType", -1);
        event.resourceStatus =
            MapResourceStatus(message.get_int_v(p + "ResourceStatus", -1), event.resourceStatus);
        events.push_back(event);

        auto entry = speakerStates_.find(event.elementID);
        const int32_t playState = entry == speakerStates_.end() ? -1 : entry->second.playState;
        if (playState == 1 || playState == 2) {
            BCAST_LOG(
                4,
                "[%s]Has already play[1-play finish, 2-play failed]:%d , pass this notify message.[%s(%d)]",
                playState);
            continue;
        }
        if (stopped_ || entry == speakerStates_.end()) {
            continue;
        }
        bool ownGroup = false;
        for (const auto& speaker : speakerStates_) {
            if (speaker.second.groupGUID == event.groupGUID) {
                ownGroup = true;
                break;
            }
        }
        if (!ownGroup) {
            BCAST_LOG(4, "[%s]This broadcast[%d] is broadcast open by other client.[%s(%d)]",
                      event.elementID);
            continue;
        }

        const int32_t status = message.get_int_v(p + "Status", -1);
        event.type = 1;
        event.speakerStatus = status;
        SpeakerEntry& speaker = entry->second;
        if (status == 100) {
            speaker.promptToneFinished = true;
            if (!g_promptToneReported.exchange(true)) {
                IPSpeakerNotifyParam finished = event;
                finished.type = 0;
                finished.broadcastStatus = 3;
                finished.promptVoiceActive = promptVoiceActive_;
                NotifyLocked({finished});
            }
        } else if (status == 101) {
            speaker.promptToneFinished = false;
        }
        speaker.status = status;
        speaker.error = event.error;

        const int32_t promptTone = message.get_int_v(p + "PromptToneBeginEnd", -1);
        if (promptTone == 0) {
            promptVoiceActive_ = true;
        } else if (promptTone == 1) {
            promptVoiceActive_ = false;
        }
        event.promptVoiceActive = promptVoiceActive_;
        events.push_back(event);
    }
    NotifyLocked(events);
}

void CIPSpeakerManager::NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params) {
    if (notifyCallback_) {
        notifyCallback_(params);
    }
}

int CIPSpeakerManager::GetBroadcastKind() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return broadcastKind_;
}

void CIPSpeakerManager::SetStopFlag(bool stopped) {
    std::lock_guard<std::mutex> lock(mutex_);
    stopped_ = stopped;
}

bool CIPSpeakerManager::IsStopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

bool CIPSpeakerManager::IsListening() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return listenDeviceID_ != -1;
}

void CIPSpeakerManager::SetListenStopFlag(bool stopped) {
    std::lock_guard<std::mutex> lock(mutex_);
    listenStopped_ = stopped;
}

std::string CIPSpeakerManager::GetRecordedFilePath() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return recordedFilePath_;
}

std::string CIPSpeakerManager::GetStartTime() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return startTime_;
}

std::map<int32_t, SpeakerEntry> CIPSpeakerManager::GetSpeakerStates() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return speakerStates_;
}

bool CIPSpeakerManager::IsPromptVoiceActive() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return promptVoiceActive_;
}

}  // namespace BroadCastPlugin
