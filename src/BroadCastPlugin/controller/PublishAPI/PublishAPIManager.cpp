#include "BroadCastPlugin/controller/PublishAPI/PublishAPIManager.h"

#include <algorithm>
#include <atomic>
#include <functional>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/BroadcastNames.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "framework/business/PluginCommManager.h"
#include "framework/wuicontrol/WUIControl.h"

namespace BroadCastPlugin {

using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

namespace {

const std::string kMethodPrefix = "/API/Broadcast/V0/";

using Handler = bool (CPublishAPIManager::*)(const std::string&, std::string&);
struct MethodEntry {
    const char* name;
    Handler handler;
};

// Registered in this order at start-up and removed at stop.
const MethodEntry kMethods[] = {
    {"DownloadResource", &CPublishAPIManager::StartDownloadResource},
    {"CleanCache", &CPublishAPIManager::CleanCache},
    {"StartIPSpeakerBroadcast", &CPublishAPIManager::StartIPSpeakerBroadcast},
    {"UploadRecordFile", &CPublishAPIManager::UploadRecordFile},
    {"WorkState", &CPublishAPIManager::GetTaskRunState},
    {"StopIPSpeakerBroadcast", &CPublishAPIManager::StopBroadcast},
    {"Config", &CPublishAPIManager::GetBroadcastConfig},
    {"RegisterMessageCallback", &CPublishAPIManager::RegisterMessageCallback},
    {"BroadcastTerminals", &CPublishAPIManager::GetAllTerminals},
    {"StartTTSBroadcast", &CPublishAPIManager::StartTTSBroadcast},
    {"StartDeviceBroadcast", &CPublishAPIManager::StartDeviceBroadcast},
    {"StopDeviceBroadcast", &CPublishAPIManager::StopDeviceBroadcast},
};

ErrorCode InvalidRequest() {
    return ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework,
                     Tal::Base::Error::kCodeInvalidInput);
}

// Answers a request that `run` parses and acts on: the result of the thread's last error, "invalid request"
// when `run` fails. `run` logs its own failures, so that each line carries the handler's name.
bool AnswerRequest(std::string& response, const std::function<bool()>& run) {
    SetLastError(ErrorCode());
    const bool ok = run();
    if (!ok) {
        SetLastError(InvalidRequest());
    }
    response = CProtocalFactory::BuildResultResponse(GetLastError());
    return ok;
}

}  // namespace

CPublishAPIManager* CPublishAPIManager::Instance() {
    return WUIControl::CObjectSingleton<CPublishAPIManager>::Instance();
}

CPublishAPIManager::CPublishAPIManager() = default;

CPublishAPIManager::~CPublishAPIManager() = default;

bool CPublishAPIManager::Init() {
    CBroadcastController* controller = CBroadcastController::Instance();
    connect(controller, &CBroadcastController::SignalBroadcastState, this,
            &CPublishAPIManager::OnSignalBroadcastState, Qt::UniqueConnection);
    connect(controller, &CBroadcastController::SignalStopBroadcast, this,
            &CPublishAPIManager::OnSignalStopBroadcast, Qt::UniqueConnection);
    connect(controller, &CBroadcastController::SignalTTSBroadcastState, this,
            &CPublishAPIManager::OnSignalTTSBroadcastState, Qt::UniqueConnection);
    connect(controller, &CBroadcastController::SignalDownloadResult, this,
            &CPublishAPIManager::OnSignalDownloadResult, Qt::UniqueConnection);
    connect(controller, &CBroadcastController::SignalStartDeviceBroadcast, this,
            &CPublishAPIManager::OnSignalStartDeviceBroadcast, Qt::UniqueConnection);
    connect(controller, &CBroadcastController::SignalDeviceBroadcastState, this,
            &CPublishAPIManager::OnSignalDeviceBroadcastState, Qt::UniqueConnection);

    std::lock_guard<std::mutex> lock(mutex_);
    if (registered_) {
        return true;
    }
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    for (const MethodEntry& entry : kMethods) {
        Handler handler = entry.handler;
        bus->RegisterMethod(kMethodPrefix + entry.name, kPluginId,
                            [this, handler](const std::string& request, std::string& response) {
                                return (this->*handler)(request, response);
                            });
    }
    registered_ = true;
    return true;
}

void CPublishAPIManager::Uninit() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!registered_) {
            return;
        }
        registered_ = false;
    }
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    for (const MethodEntry& entry : kMethods) {
        bus->UnRegisterMethod(kMethodPrefix + entry.name);
    }
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        disconnect(controller, nullptr, this, nullptr);
    }
}

bool CPublishAPIManager::StartDownloadResource(const std::string& /*request*/, std::string& response) {
    BCAST_LOG(3, "[%s]Receive start download broadcast resource request.[%s(%d)]");
    SetLastError(ErrorCode());
    const bool ok = CBroadcastController::Instance()->AsyncDownloadAllResource();
    response = CProtocalFactory::BuildResultResponse(GetLastError());
    return ok;
}

bool CPublishAPIManager::CleanCache(const std::string& /*request*/, std::string& response) {
    CBroadcastController::Instance()->CleanCache();
    response = CProtocalFactory::BuildResultResponse(ErrorCode());
    return true;
}

bool CPublishAPIManager::StartIPSpeakerBroadcast(const std::string& request, std::string& response) {
    BCAST_LOG(3, "[%s]Recevie ipspeaker broadcast request: %s[%s(%d)]", request.c_str());
    SetLastError(ErrorCode());
    StartIPSpeakerRequest parsed;
    bool ok = false;
    if (!CProtocalFactory::ParseStartIPSpeakerJson(request, parsed)) {
        BCAST_LOG(5, "[%s]Parse request failed.[%s(%d)]");
        SetLastError(InvalidRequest());
    } else if (parsed.mode == kRequestModeSpeak) {
        ok = CBroadcastController::Instance()->AsyncStartSpeakVoice(parsed.param, nullptr);
        if (!ok) {
            BCAST_LOG(5, "[%s]AsyncStartSpeakVoice failed.[%s(%d)]");
        }
    } else if (parsed.mode == kRequestModeFile) {
        ok = CBroadcastController::Instance()->AsyncStartPlayAudioFile(parsed.param, parsed.mediaFilePath,
                                                                       nullptr);
        if (!ok) {
            BCAST_LOG(5, "[%s]AsyncStartPlayAudioFile failed.[%s(%d)]");
        }
    } else {
        BCAST_LOG(5, "[%s]Cannot support this control type: %d[%s(%d)]", parsed.mode);
        SetLastError(InvalidRequest());
    }
    if (!ok && GetLastError().IsSucceed()) {
        SetLastError(InvalidRequest());
    }
    response = CProtocalFactory::BuildResultResponse(GetLastError());
    return ok;
}

bool CPublishAPIManager::StartTTSBroadcast(const std::string& request, std::string& response) {
    BCAST_LOG(3, "[%s]Receive tts broadcast request: %s[%s(%d)]", request.c_str());
    return AnswerRequest(response, [&] {
        TTSRequestParam tts;
        if (!CProtocalFactory::ParseStartTTSJson(request, tts)) {
            BCAST_LOG(5, "[%s]Parse request failed.[%s(%d)]");
            return false;
        }
        if (!CBroadcastController::Instance()->AsyncTTSPlay(tts)) {
            BCAST_LOG(5, "[%s]AsyncTTSPlay failed.[%s(%d)]");
            return false;
        }
        return true;
    });
}

bool CPublishAPIManager::StartDeviceBroadcast(const std::string& request, std::string& response) {
    BCAST_LOG(3, "[%s]Receive device broadcast request: %s[%s(%d)]", request.c_str());
    return AnswerRequest(response, [&] {
        DeviceBroadcastRequest device;
        if (!CProtocalFactory::ParseStartDeviceBroadcastJson(request, device)) {
            BCAST_LOG(5, "[%s]Parse request failed.[%s(%d)]");
            return false;
        }
        if (!CBroadcastController::Instance()->AsyncStartDeviceBroadcast(device.deviceIDs, device.type)) {
            BCAST_LOG(5, "[%s]AsyncStartDeviceBroadcast failed.[%s(%d)]");
            return false;
        }
        return true;
    });
}

bool CPublishAPIManager::StopDeviceBroadcast(const std::string& /*request*/, std::string& response) {
    BCAST_LOG(3, "[%s]Receive stop device broadcast request.[%s(%d)]");
    SetLastError(ErrorCode());
    const bool ok = CBroadcastController::Instance()->SyncStopDeviceBroadcast();
    response = CProtocalFactory::BuildResultResponse(GetLastError());
    return ok;
}

bool CPublishAPIManager::UploadRecordFile(const std::string& request, std::string& response) {
    BCAST_LOG(3, "[%s]Receive upload record file request: %s.[%s(%d)]", request.c_str());
    return AnswerRequest(response, [&] {
        RecordTaskParam record;
        if (!CProtocalFactory::ParseUploadRecordFileJson(request, record)) {
            BCAST_LOG(5, "[%s]Parse upload record file json failed. json: %s[%s(%d)]", request.c_str());
            return false;
        }
        // The result goes to the registered plugins from the main thread, where notifications are sent.
        const bool started = CBroadcastController::Instance()->AsyncUploadRecordFile(
            record, [this, record](bool, ErrorCode error) {
                QMetaObject::invokeMethod(
                    this,
                    [this, record, error] {
                        NotifyMessage(CProtocalFactory::BuildPluginRecordUploaded(record, error));
                    },
                    Qt::QueuedConnection);
            });
        if (!started) {
            BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
        }
        return started;
    });
}

bool CPublishAPIManager::GetTaskRunState(const std::string& /*request*/, std::string& response) {
    const int count = CBroadcastController::Instance()->GetMainTaskCount();
    // A caller may poll this while it waits: only a change of the count is worth a line.
    static std::atomic<int> lastLogged{0};
    if (lastLogged.exchange(count) != count && count > 0) {
        BCAST_LOG(3, "[%s]Get task run state, currnet task count: %d[%s(%d)]", count);
    }
    response = CProtocalFactory::BuildTaskRunStateResponse(count);
    return true;
}

bool CPublishAPIManager::StopBroadcast(const std::string& /*request*/, std::string& response) {
    BCAST_LOG(3, "[%s]Receive stop broadcast request.[%s(%d)]");
    return AnswerRequest(response, [] {
        const bool stopping = CBroadcastController::Instance()->AsyncStopBroadcast(nullptr);
        if (!stopping) {
            BCAST_LOG(5, "[%s]AsyncStopBroadcast failed.[%s(%d)]");
        }
        return stopping;
    });
}

bool CPublishAPIManager::GetBroadcastConfig(const std::string& /*request*/, std::string& response) {
    BCAST_LOG(3, "[%s]Receive get broadcast config request.[%s(%d)]");
    response = CProtocalFactory::BuildConfigResponse(CIPSpeakerConfigManager::Instance()->GetConfig());
    return true;
}

bool CPublishAPIManager::RegisterMessageCallback(const std::string& request, std::string& response) {
    BCAST_LOG(3, "[%s]Receive register message request: %s.[%s(%d)]", request.c_str());
    return AnswerRequest(response, [&] {
        bool isRegister = false;
        std::string pluginID;
        if (request.empty()) {
            BCAST_LOG(5, "[%s]INPUT PARAMETERS ERROR[%s(%d)]");
            return false;
        }
        if (!CProtocalFactory::ParseRegisterMessageRequest(request, isRegister, pluginID)) {
            BCAST_LOG(5, "[%s]Parse message failed.[%s(%d)]");
            return false;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = std::find(listeners_.begin(), listeners_.end(), pluginID);
        // A repeated registration keeps one entry; an unregistration of an unknown id is harmless.
        if (isRegister && it == listeners_.end()) {
            listeners_.push_back(pluginID);
        } else if (!isRegister && it != listeners_.end()) {
            listeners_.erase(it);
        }
        return true;
    });
}

bool CPublishAPIManager::GetAllTerminals(const std::string& /*request*/, std::string& response) {
    BCAST_LOG(3, "[%s]Receive get all terminals request.[%s(%d)]");
    response =
        CProtocalFactory::BuildTerminalsResponse(CIPSpeakerTerminalManager::Instance()->GetTerminals());
    return true;
}

std::vector<std::string> CPublishAPIManager::GetListeners() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return listeners_;
}

void CPublishAPIManager::NotifyMessage(const std::string& text) {
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    for (const std::string& listener : GetListeners()) {
        BCAST_LOG(3, "[%s]Notify message to plugin, plugin id: %s, message: %s.[%s(%d)]", listener.c_str(),
                  text.c_str());
        bus->SendMessageToPlugin(kPluginId, listener, text);
    }
}

void CPublishAPIManager::OnSignalBroadcastState(std::vector<IPSpeakerNotifyParam> params) {
    for (const IPSpeakerNotifyParam& param : params) {
        if (param.type == 0 && param.broadcastStatus == 0) {
            NotifyMessage(CProtocalFactory::BuildPluginNotification(kNotifyBroadcastStarted));
        } else {
            NotifyMessage(CProtocalFactory::BuildPluginSpeakerState(param));
        }
    }
}

void CPublishAPIManager::OnSignalTTSBroadcastState(std::vector<TTSResponseError> errors) {
    NotifyMessage(CProtocalFactory::BuildPluginTTSResult(errors));
}

void CPublishAPIManager::OnSignalStopBroadcast(std::string /*text*/, Tal::Base::Error::ErrorCode /*error*/,
                                               void* /*user*/) {
    NotifyMessage(CProtocalFactory::BuildPluginNotification(kNotifyBroadcastStopped));
}

void CPublishAPIManager::OnSignalDownloadResult(DownloadResourceState state,
                                                Tal::Base::Error::ErrorCode /*error*/) {
    if (state == DownloadResourceFinish) {
        NotifyMessage(CProtocalFactory::BuildPluginNotification(kNotifyDownloadFinished));
    } else if (state == DownloadResourceFailed) {
        NotifyMessage(CProtocalFactory::BuildPluginNotification(kNotifyDownloadFailed));
    }
}

void CPublishAPIManager::OnSignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids, ErrorCode error) {
    NotifyMessage(CProtocalFactory::BuildPluginDeviceBroadcastStarted(ids, error));
}

void CPublishAPIManager::OnSignalDeviceBroadcastState(DeviceNotifyParam param) {
    NotifyMessage(CProtocalFactory::BuildPluginDeviceState(param));
}

}  // namespace BroadCastPlugin
