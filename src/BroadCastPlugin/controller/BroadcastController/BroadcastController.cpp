#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"

#include <cstdlib>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/BroadcastNames.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastTasks.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "framework/base/FileSystem.h"
#include "framework/business/BusinessCommon.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/wuicontrol/WUIControl.h"

namespace BroadCastPlugin {

namespace {

// Temporary files of the file encoding, removed when the work stops.
const char* const kCacheFiles[] = {"broadcast_raw_mp3_file.mp3", "broadcast_mp3_to_wav_file.wav",
                                   "broadcast_single_file.wav", "broadcast_resample_file.wav"};

void DeviceBroadcastMessage(const std::string& message, void* context) {
    static_cast<CBroadcastController*>(context)->HandleDeviceMessageCallback(message);
}

}  // namespace

CBroadcastController::CBroadcastController() {
    RegisterBroadcastMetaTypes();
}

CBroadcastController::~CBroadcastController() {
    // At unload the other singletons may already be gone: only the loops this object owns are stopped.
    std::lock_guard<std::mutex> lock(loopMutex_);
    if (mainLoop_) {
        mainLoop_->Stop();
    }
    if (subLoop_) {
        subLoop_->Stop();
    }
}

CBroadcastController* CBroadcastController::Instance() {
    return WUIControl::CObjectSingleton<CBroadcastController>::Instance();
}

CBroadcastController* CBroadcastController::InstanceIfExists() {
    return WUIControl::CObjectSingleton<CBroadcastController>::InstanceIfExists();
}

CBroadcastController::LoopPtr CBroadcastController::MainLoop() const {
    std::lock_guard<std::mutex> lock(loopMutex_);
    return mainLoop_;
}

CBroadcastController::LoopPtr CBroadcastController::SubLoop() const {
    std::lock_guard<std::mutex> lock(loopMutex_);
    return subLoop_;
}

bool CBroadcastController::Init() {
    if (initialised_.load()) {
        BCAST_LOG(4, "[%s]Has already init.[%s(%d)]");
        return true;
    }
    CFrameMessageMgr* frames = CFrameMessageMgr::Instance();
    if (!frames->InitManager()) {
        BCAST_LOG(5, "[%s]Init websocket message connet failed.[%s(%d)]");
        return false;
    }
    frames->SetMessageCallback([](const PushMessage& message, int msgType) {
        // Frames can outlive the controller on the network loop: look it up each time.
        if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
            controller->HandleServerPushMessage(message, msgType);
        }
    });
    CIPSpeakerManager::Instance()->Init(
        [this](const std::vector<IPSpeakerNotifyParam>& params) { emit SignalBroadcastState(params); });

    auto mainLoop = std::make_shared<Tal::Base::CMessageLoopWorkThread>("bcast-main");
    auto subLoop = std::make_shared<Tal::Base::CMessageLoopWorkThread>("bcast-sub");
    mainLoop->Start();
    subLoop->Start();
    {
        std::lock_guard<std::mutex> lock(loopMutex_);
        mainLoop_ = mainLoop;
        subLoop_ = subLoop;
    }
    initialised_.store(true);
    BCAST_LOG(3, "[%s]Succ Init CBroadcastController[%s(%d)]");
    return true;
}

void CBroadcastController::Unit() {
    BCAST_LOG(3, "[%s]Start to unit CBroadcastController, init state: %d[%s(%d)]",
              initialised_.load() ? 1 : 0);
    if (!initialised_.load()) {
        return;
    }
    if (!CFrameMessageMgr::Instance()->UnInitManager()) {
        BCAST_LOG(5, "[%s]Unit websocket message connect failed.[%s(%d)]");
    }
    CIPSpeakerManager::Instance()->Uninit();
    LoopPtr mainLoop;
    LoopPtr subLoop;
    {
        std::lock_guard<std::mutex> lock(loopMutex_);
        mainLoop.swap(mainLoop_);
        subLoop.swap(subLoop_);
    }
    if (mainLoop) {
        mainLoop->Stop();
    }
    if (subLoop) {
        subLoop->Stop();
    }
    CleanCache();
    TOOL::CBroadcastBusinessManager::UninitManager();
    initialised_.store(false);
    BCAST_LOG(3, "[%s]Succ Unit CBroadcastController[%s(%d)]");
}

void CBroadcastController::StopWorking() {
    BCAST_LOG(3, "[%s]Start to StopWorking.[%s(%d)]");
    SyncStopDeviceBroadcast();
    AsyncStopListen(nullptr);
    AsyncStopBroadcast(nullptr);

    // Quit runs what is queued (the stops just posted), then the loops start again so Unit can stop them.
    BCAST_LOG(3, "[%s]Start to wait main message loop running.[%s(%d)]");
    if (LoopPtr loop = MainLoop()) {
        loop->Quit();
        loop->Start();
    }
    BCAST_LOG(3, "[%s]Main messageloop quit and start finish.[%s(%d)]");
    BCAST_LOG(3, "[%s]Start to wait sub message loop running.[%s(%d)]");
    if (LoopPtr loop = SubLoop()) {
        loop->Quit();
        loop->Start();
    }
    BCAST_LOG(3, "[%s]Sub messageloop quit and start finish.[%s(%d)]");

    BCAST_LOG(3, "[%s]Start to remove cache file.[%s(%d)]");
    const std::string dataPath = BusinessCommon::CFrameSystemConfigMgr::Instance()->GetClientDataPath();
    for (const char* name : kCacheFiles) {
        Tal::Base::FileSystem::DeleteFileW(Tal::Base::FileSystem::JoinPath(dataPath, name));
    }
    BCAST_LOG(3, "[%s]Finish to StopWorking.[%s(%d)]");
}

void CBroadcastController::CleanCache() {
    BCAST_LOG(3, "[%s]Start clean cache.[%s(%d)]");
    CIPSpeakerPartitionManager::Instance()->ClearCache();
    CIPSpeakerTerminalManager::Instance()->ClearCache();
    CIPSpeakerConfigManager::Instance()->ClearCache();
    CMediaFileManager::Instance()->ClearCache();
    BCAST_LOG(3, "[%s]Finish clean cache.[%s(%d)]");
}

bool CBroadcastController::Post(const LoopPtr& loop, std::shared_ptr<Tal::Base::CTask> task) {
    // The null test is on the main loop for every request, the listening ones included.
    if (!task || !MainLoop() || !loop) {
        BCAST_LOG(5, "[%s]Input param error.[%s(%d)]");
        return false;
    }
    if (!loop->PostTask(std::move(task))) {
        BCAST_LOG(5, "[%s]Post task to message loop failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CBroadcastController::AsyncDownloadAllResource() {
    auto task = std::make_shared<CDownloadResourceTask>(
        ResourceDownloadSteps::Default(),
        [this](DownloadResourceState state, ErrorCode error) { emit SignalDownloadResult(state, error); });
    return Post(MainLoop(), task);
}

bool CBroadcastController::AsyncDownloadFileToLocal(ResourceManager::ID fileID, void* user) {
    auto task = std::make_shared<CDownloadMediaFileTask>(
        fileID, user, [this](ResourceManager::ID id, ErrorCode error, void* u) {
            emit SignalDownloadFileToLocal(id, error, u);
        });
    return Post(MainLoop(), task);
}

bool CBroadcastController::AsyncSearchMediaFile(const std::string& filter) {
    auto task = std::make_shared<CSearchMediaFileTask>(
        filter,
        [this](std::vector<MediaFile> files, ErrorCode error) { emit SignalSearchMediaFiles(files, error); });
    return Post(MainLoop(), task);
}

bool CBroadcastController::AsyncUploadRecordFile(const RecordTaskParam& param,
                                                 UploadResultCallback callback) {
    auto task = std::make_shared<CUploadRecordFileTask>(param, std::move(callback));
    return Post(MainLoop(), task);
}

bool CBroadcastController::AsyncStartSpeakVoice(const IPSpeakBroadcastParam& param, void* user) {
    return Post(MainLoop(), std::make_shared<CSpeakVoiceTask>(param, user));
}

bool CBroadcastController::AsyncStartPlayAudioFile(const IPSpeakBroadcastParam& param,
                                                   const std::string& mediaFilePath, void* user) {
    return Post(MainLoop(), std::make_shared<CPlayAudioFileTask>(param, mediaFilePath, user));
}

bool CBroadcastController::AsyncTTSPlay(const TTSRequestParam& param) {
    auto task = std::make_shared<CTTSPlayTask>(
        param, [this](std::vector<TTSResponseError> errors) { emit SignalTTSBroadcastState(errors); });
    return Post(MainLoop(), task);
}

bool CBroadcastController::AsyncStartListen(int32_t elementID, void* user) {
    auto task = std::make_shared<CBroadcastStartListenTask>(
        elementID, user, [this](ResourceManager::ID id, ErrorCode error, void* u) {
            emit SignalListenBroadcast(id, error, u);
        });
    return Post(SubLoop(), task);
}

bool CBroadcastController::AsyncStopListen(void* user) {
    CIPSpeakerManager* manager = CIPSpeakerManager::Instance();
    if (!manager->IsListening()) {
        BCAST_LOG(4, "[%s]IPSpeaker has already stop listen.[%s(%d)]");
        return true;
    }
    auto task = std::make_shared<CBroadcastStopListenTask>(
        user, [this](ErrorCode error, void* u) { emit SignalStopListenBroadcast(error, u); });
    if (!MainLoop()) {
        BCAST_LOG(5, "[%s]Input param error.[%s(%d)]");
        return false;
    }
    // Set on the caller's thread so that a listen start in progress sees it at once.
    manager->SetListenStopFlag(true);
    if (!Post(SubLoop(), task)) {
        return false;
    }
    // Logged at the error level on purpose.
    BCAST_LOG(5, "[%s]Post stop listen task to message loop succ.[%s(%d)]");
    return true;
}

bool CBroadcastController::AsyncStopBroadcast(void* user) {
    CIPSpeakerManager* manager = CIPSpeakerManager::Instance();
    const int kind = manager->GetBroadcastKind();
    BCAST_LOG(3, "[%s]Async to stop broadcast, current control type: %d.[%s(%d)]", kind);
    if (kind == kBroadcastNone) {
        return true;
    }
    auto task = std::make_shared<CStopBroadcastTask>(
        user,
        [this](std::string text, ErrorCode error, void* u) { emit SignalStopBroadcast(text, error, u); });
    if (!MainLoop()) {
        BCAST_LOG(5, "[%s]Input param error.[%s(%d)]");
        return false;
    }
    // Set on the caller's thread so that a start in progress sees it at once.
    manager->SetStopFlag(true);
    if (!Post(MainLoop(), task)) {
        return false;
    }
    BCAST_LOG(3, "[%s]Succ to post stop broadcast task.[%s(%d)]");
    return true;
}

bool CBroadcastController::AsyncStartDeviceBroadcast(const std::vector<ResourceManager::ID>& deviceIDs,
                                                     int broadcastType) {
    TOOL::CBroadcastBusinessManager::InitManager();
    TOOL::CBroadcastBusinessManager::SetBroadcastResoluteCallback(&DeviceBroadcastMessage, this);
    auto task = std::make_shared<CDeviceSpeakVoiceTask>(
        deviceIDs, broadcastType, [this](std::vector<ResourceManager::ID> ids, ErrorCode error) {
            emit SignalStartDeviceBroadcast(ids, error);
        });
    return Post(MainLoop(), task);
}

bool CBroadcastController::SyncStopDeviceBroadcast() {
    BCAST_LOG(3, "[%s]Start to sync stop device broadcast.[%s(%d)]");
    const bool ok = TOOL::CBroadcastBusinessManager::StopBroadcast();
    if (ok) {
        BCAST_LOG(3, "[%s]Succ to sync stop device broadcast.[%s(%d)]");
        TOOL::CBroadcastBusinessManager::UninitManager();
        BCAST_LOG(3, "[%s]Unit broadcast bussiness succ.[%s(%d)]");
    } else {
        BCAST_LOG(5, "[%s]Stop device broadcast failed.[%s(%d)]");
    }
    return ok;
}

void CBroadcastController::HandleDeviceMessageCallback(const std::string& text) {
    BCAST_LOG(3, "[%s]Receive device broadcast message callback: %s[%s(%d)]", text.c_str());
    NetworkCommunication::CRapidJsonProto message;
    if (!message.set_str(text) || message.is_empty() || message.get_str(0).front() != '{') {
        return;
    }
    const int notifyType = message.get_int_v("/NotifyType", -1);
    if (notifyType != 1) {
        BCAST_LOG(5, "[%s]Receive unsupport notify type: %d[%s(%d)]", notifyType);
        return;
    }
    DeviceNotifyParam param;
    param.groupId = message.get_v("/GroupId", "");
    param.indexCode = message.get_v("/IndexCode", "");
    param.errorInfo = message.get_v("/ErrorInfo", "");
    param.resourceStatus = message.get_int_v("/ResourceStatus", -1);
    param.resourceId = static_cast<ResourceManager::ID>(std::strtoul(param.indexCode.c_str(), nullptr, 10));
    param.error.SetCasadingErrorInfo(param.errorInfo);
    if (!param.errorInfo.empty()) {
        param.error.SetSubSystemErrorCode(Tal::Base::Error::kSubSystemServer);
    }
    switch (message.get_int_v("/Status", -1)) {
        case 0:
            param.status = 3;
            break;
        case 1:
            param.status = 0;
            break;
        case 2:
            param.status = 1;
            break;
        case 3:
            param.status = 2;
            break;
        default:
            break;
    }
    emit SignalDeviceBroadcastState(param);
}

void CBroadcastController::HandleServerPushMessage(const std::string& data, int msgType) {
    HandleServerPushMessage(PushMessage::FromData(data), msgType);
}

void CBroadcastController::HandleServerPushMessage(const PushMessage& message, int msgType) {
    TOOL::CBroadcastBusinessManager::PushBroadcastState(message.deviceNotice, message.data);
    CIPSpeakerManager::Instance()->HandleWebsocketMessage(message);
    // A version update pushed by the platform concerns the framework: the module acknowledges it.
    if (message.updateVersion) {
        emit SignalUpdateVersion(message.data);
        TalClientFrameWork::CFrameworkManagerInterface::Instance()->NotifyFrameworkUpdateFinish(kPluginId);
    }
    (void)msgType;
}

int CBroadcastController::GetMainTaskCount() const {
    LoopPtr loop = MainLoop();
    return loop ? loop->GetAllTaskCount() : 0;
}

bool CBroadcastController::GetMediaFile(ResourceManager::ID fileID, MediaFile& file) const {
    return CMediaFileManager::Instance()->GetMediaFile(static_cast<int32_t>(fileID), file);
}

}  // namespace BroadCastPlugin
