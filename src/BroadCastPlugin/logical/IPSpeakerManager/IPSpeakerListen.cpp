// Listening to a speaker and the platform's broadcast status pushes.

#include <ctime>

#include "BroadCastPlugin/BroadcastConstants.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/business/OperatLogManager.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

namespace {

constexpr int kDeviceTypeSpeaker = 2020;

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

void AddListenLog(int logType, int32_t deviceID) {
    auto device = ResourceManager::CDeviceManager::Instance()->FindDeviceByID(deviceID);
    BusinessCommon::COperationLogStruct entry;
    entry.SetVal_log_type(logType);
    entry.SetVal_tmOccur(std::time(nullptr));
    entry.SetVal_strElementName(device ? device->GetName() : std::string());
    BusinessCommon::COperatLogManager::Instance()->AddOperationLog(entry);
}

}  // namespace

bool CIPSpeakerManager::StartBroadcastListen(int32_t id) {
    if (id == -1) {
        return false;
    }
    const int32_t deviceID = details::ListenDeviceID(id);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listenStopped_ = false;
        listenDeviceID_ = deviceID;
    }
    auto listenStopped = [this] {
        std::lock_guard<std::mutex> lock(mutex_);
        return listenStopped_;
    };
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    bool ok = false;
    do {
        if (!listenStopped() && !CIPSpeakerConfigManager::Instance()->DownloadConfig()) {
            BCAST_LOG(5, "[%s]get broadcast config failed.[%s(%d)]");
            break;
        }
        const BroadcastBaseConfig config = CIPSpeakerConfigManager::Instance()->GetConfig();
        ORVVideoComm::CVoiceTalkRequestObserverParam answer;
        if (!listenStopped() && !ORVVideoTool::RequestVoiceTalkUrl(answer, deviceID, kDeviceTypeSpeaker, 0,
                                                                   true, config.AudioCompressionType)) {
            BCAST_LOG(5, "[%s]Request voice talk url failed. device id:%d[%s(%d)]", deviceID);
            break;
        }
        ZPSTransferTarget target;
        target.url = answer.GetVal_strUrl();
        target.userName = answer.GetVal_str_username();
        target.password = answer.GetVal_strPassword();
        target.token = answer.GetVal_str_token();
        CVoiceCapture* capture = capture_.get();
        if (!listenStopped() &&
            !transfer->StartListenFromZPS(target, [capture](const uint8_t* data, int32_t size) {
                capture->InputStreamData(data, size);
            })) {
            BCAST_LOG(5, "[%s]Start listen from zps failed.[%s(%d)]");
            break;
        }
        ZPSAudioParam audio;
        if (!listenStopped() && !transfer->GetListenAudioParam(audio)) {
            BCAST_LOG(5, "[%s]Get zps audio param failed.[%s(%d)]");
            break;
        }
        if (!listenStopped() && !capture_->StartDecodePlay(audio)) {
            BCAST_LOG(5, "[%s]Start decodeplay failed.[%s(%d)]");
            break;
        }
        if (listenStopped()) {
            break;
        }
        AddListenLog(kOperationLogListenStart, deviceID);
        // The listen plays: an error left by a step it did not need (an id looked up as an element first)
        // is not its result.
        Tal::Base::Error::SetLastError(ErrorCode());
        ok = true;
    } while (false);
    if (!ok) {
        // Whatever started is undone; the reason stays the thread's last error.
        const ErrorCode failure = Tal::Base::Error::GetLastError();
        StopBroadcastListen();
        Tal::Base::Error::SetLastError(failure);
    }
    return ok;
}

bool CIPSpeakerManager::StopBroadcastListen() {
    int32_t deviceID;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listenStopped_ = true;
        deviceID = listenDeviceID_;
    }
    CVoiceTransferManager::Instance()->StopListenFromZPS();
    capture_->StopDecodePlay();
    if (deviceID != -1) {
        AddListenLog(kOperationLogListenStop, deviceID);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    listenDeviceID_ = -1;
    return true;
}

void CIPSpeakerManager::HandleWebsocketMessage(const std::string& text) {
    HandleWebsocketMessage(PushMessage::FromData(text));
}

void CIPSpeakerManager::HandleWebsocketMessage(const PushMessage& message) {
    BCAST_LOG(3, "[%s]Receive websocket message: %s.[%s(%d)]", message.data.c_str());
    std::vector<IPSpeakerNotifyParam> events;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const BroadcastStatusItem& item : message.statusList) {
        IPSpeakerNotifyParam event;
        event.type = 2;
        event.groupGUID = item.groupGUID;
        event.elementID = item.resourceID;
        event.error = ErrorCode(Tal::Base::Error::kSubSystemServer, item.errorModule, item.errorCode);
        event.resourceType = item.resourceType;
        event.resourceStatus = MapResourceStatus(item.resourceStatus, event.resourceStatus);
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

        const int32_t status = item.status;
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

        const int32_t promptTone = item.promptToneBeginEnd;
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

}  // namespace BroadCastPlugin
