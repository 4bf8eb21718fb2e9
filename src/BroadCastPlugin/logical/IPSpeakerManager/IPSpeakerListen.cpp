// Listening to a speaker and the platform's broadcast status pushes.

#include <ctime>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
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
    states_.ApplyStatusPush(message);
}

}  // namespace BroadCastPlugin
