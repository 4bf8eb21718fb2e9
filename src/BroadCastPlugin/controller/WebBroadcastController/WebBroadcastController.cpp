#include "BroadCastPlugin/controller/WebBroadcastController/WebBroadcastController.h"

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"

namespace BroadCastPlugin {

CWebBroadcastController::CWebBroadcastController(QObject* parent) : QObject(parent) {}

CWebBroadcastController::~CWebBroadcastController() {
    Unit();
}

bool CWebBroadcastController::GlobalInit() {
    return CBroadcastController::Instance()->Init();
}

bool CWebBroadcastController::GlobalUninit() {
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        controller->Unit();
    }
    return true;
}

bool CWebBroadcastController::Init() {
    if (initialised_.load()) {
        return true;
    }
    BCAST_LOG(3, "[%s]Start Init CWebBroadcastController, this ptr: %p[%s(%d)]", static_cast<void*>(this));
    CBroadcastController* c = CBroadcastController::Instance();
    using W = CWebBroadcastController;
    using C = CBroadcastController;
    connect(c, &C::SignalBroadcastState, this, &W::OnSignalBroadcastState, Qt::UniqueConnection);
    connect(c, &C::SignalStopBroadcast, this, &W::OnSignalStopBroadcast, Qt::UniqueConnection);
    connect(c, &C::SignalDownloadFileToLocal, this, &W::OnSignalDownloadFileToLocal, Qt::UniqueConnection);
    connect(c, &C::SignalListenBroadcast, this, &W::OnSignalListenBroadcast, Qt::UniqueConnection);
    initialised_.store(true);
    BCAST_LOG(3, "[%s]Succ Init CWebBroadcastController, this ptr: %p[%s(%d)]", static_cast<void*>(this));
    return true;
}

void CWebBroadcastController::Unit() {
    if (!initialised_.load()) {
        return;
    }
    BCAST_LOG(3, "[%s]Start Uninit CWebBroadcastController, this ptr: %p[%s(%d)]", static_cast<void*>(this));
    if (CBroadcastController* c = CBroadcastController::InstanceIfExists()) {
        using W = CWebBroadcastController;
        using C = CBroadcastController;
        disconnect(c, &C::SignalBroadcastState, this, &W::OnSignalBroadcastState);
        disconnect(c, &C::SignalStopBroadcast, this, &W::OnSignalStopBroadcast);
        disconnect(c, &C::SignalDownloadFileToLocal, this, &W::OnSignalDownloadFileToLocal);
        disconnect(c, &C::SignalListenBroadcast, this, &W::OnSignalListenBroadcast);
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        callback_ = MessageCallback();
    }
    initialised_.store(false);
    BCAST_LOG(3, "[%s]Succ Uninit CWebBroadcastController, this ptr: %p[%s(%d)]", static_cast<void*>(this));
}

void CWebBroadcastController::StopWorking() {
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        controller->StopWorking();
    }
}

void CWebBroadcastController::CleanCache() {
    BCAST_LOG(3, "[%s]Start to CleanCache., this ptr: %p[%s(%d)]", static_cast<void*>(this));
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        controller->CleanCache();
    }
}

void CWebBroadcastController::RegisterMessageCallback(MessageCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

void CWebBroadcastController::ReceiveWebsocketMessage(const std::string& message) {
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        controller->HandleServerPushMessage(message, 3);
    }
}

bool CWebBroadcastController::StartIPSpeakerBroadcast(const std::string& json) {
    BCAST_LOG(3, "[%s]Recevie ipspeaker broadcast request: %s, this ptr: %p[%s(%d)]", json.c_str(),
              static_cast<void*>(this));
    StartIPSpeakerRequest request;
    if (!CProtocalFactory::ParseStartIPSpeakerJson(json, request)) {
        BCAST_LOG(5, "[%s]Parse request failed.[%s(%d)]");
        return false;
    }
    CBroadcastController* controller = CBroadcastController::Instance();
    if (request.mode == kRequestModeSpeak) {
        if (!controller->AsyncStartSpeakVoice(request.param, this)) {
            BCAST_LOG(5, "[%s]AsyncStartSpeakVoice failed.[%s(%d)]");
            return false;
        }
        return true;
    }
    if (request.mode == kRequestModeFile) {
        if (!controller->AsyncStartPlayAudioFile(request.param, request.mediaFilePath, this)) {
            BCAST_LOG(5, "[%s]AsyncStartPlayAudioFile failed.[%s(%d)]");
            return false;
        }
        return true;
    }
    BCAST_LOG(5, "[%s]Cannot support this control type: %d[%s(%d)]", request.mode);
    return false;
}

bool CWebBroadcastController::StopIPSpeakerBroadcast() {
    if (!CBroadcastController::Instance()->AsyncStopBroadcast(this)) {
        BCAST_LOG(5, "[%s]AsyncStopBroadcast failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CWebBroadcastController::DownloadMediaFile(const std::string& json) {
    BCAST_LOG(3, "[%s]Recevie download media file request: %s, this ptr: %p[%s(%d)]", json.c_str(),
              static_cast<void*>(this));
    int32_t fileID = -1;
    if (!CProtocalFactory::ParseDownloadMediaFileRequest(json, fileID)) {
        BCAST_LOG(5, "[%s]Parse download media file request failed.[%s(%d)]");
        return false;
    }
    if (!CBroadcastController::Instance()->AsyncDownloadFileToLocal(static_cast<ResourceManager::ID>(fileID),
                                                                    this)) {
        BCAST_LOG(5, "[%s]AsyncDownloadFileToLocal failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CWebBroadcastController::StartBroadcastListen(const std::string& json) {
    ListenRequest request;
    if (!CProtocalFactory::ParseListenRequest(json, request)) {
        BCAST_LOG(5, "[%s]Parse listen request failed.[%s(%d)]");
        return false;
    }
    if (!CBroadcastController::Instance()->AsyncStartListen(request.resourceID, this)) {
        BCAST_LOG(5, "[%s]AsyncStartListen failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CWebBroadcastController::StopBroadcastListen() {
    BCAST_LOG(3, "[%s]Recevie broadcast stop listen request, this ptr: %p[%s(%d)]", static_cast<void*>(this));
    if (!CBroadcastController::Instance()->AsyncStopListen(this)) {
        // The message names the other method, as it always has.
        BCAST_LOG(5, "[%s]AsyncStopBroadcast failed.[%s(%d)]");
        return false;
    }
    return true;
}

void CWebBroadcastController::NotifyMessage(std::string text, int target) {
    BCAST_LOG(3,
              "[%s]Notify message to web, target[0-webclient,1-taskcontrolapp]: %d, message: %s, this ptr: "
              "%p[%s(%d)]",
              target, text.c_str(), static_cast<void*>(this));
    std::lock_guard<std::mutex> lock(mutex_);
    if (callback_) {
        callback_(text, target);
    }
}

bool CWebBroadcastController::IsMine(const void* user) const {
    if (user != nullptr && user != this) {
        BCAST_LOG(4, "[%s]Throw message, the method called by: %p, is not equal to:%p.[%s(%d)]", user,
                  static_cast<const void*>(this));
        return false;
    }
    return true;
}

void CWebBroadcastController::OnSignalBroadcastState(std::vector<IPSpeakerNotifyParam> params) {
    for (const IPSpeakerNotifyParam& param : params) {
        if (!IsMine(reinterpret_cast<const void*>(static_cast<intptr_t>(param.requestID)))) {
            continue;
        }
        std::string message = param.type == 0 && param.broadcastStatus == 0
                                  ? CProtocalFactory::BuildBroadcastStartFinish()
                                  : CProtocalFactory::BuildIPSpeakerBroadcastState(param);
        if (!message.empty()) {
            NotifyMessage(message, 0);
        }
    }
}

void CWebBroadcastController::OnSignalStopBroadcast(std::string text, Tal::Base::Error::ErrorCode /*error*/,
                                                    void* user) {
    if (!IsMine(user)) {
        return;
    }
    NotifyMessage(CProtocalFactory::BuildBroadcastStopFinish(), 0);
    if (!text.empty()) {
        NotifyMessage(text, 1);
    }
}

void CWebBroadcastController::OnSignalDownloadFileToLocal(unsigned int id, Tal::Base::Error::ErrorCode error,
                                                          void* user) {
    if (!IsMine(user)) {
        return;
    }
    MediaFile file;
    if (!CBroadcastController::Instance()->GetMediaFile(id, file)) {
        BCAST_LOG(5, "[%s]Get media file failed. id: %d[%s(%d)]", static_cast<int>(id));
        file = MediaFile();
    }
    NotifyMessage(
        CProtocalFactory::BuildDownloadShoutFileFinished(static_cast<int32_t>(id), file.LocalPath, error), 0);
}

void CWebBroadcastController::OnSignalListenBroadcast(unsigned int id, Tal::Base::Error::ErrorCode error,
                                                      void* user) {
    if (!IsMine(user)) {
        return;
    }
    NotifyMessage(CProtocalFactory::BuildBroadcastListeningResult(static_cast<int32_t>(id), error), 0);
}

}  // namespace BroadCastPlugin
