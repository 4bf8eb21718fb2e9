#pragma once
// The module's named JSON methods for other plugins ("/API/Broadcast/V0/...") and the notifications sent to
// the plugins that registered for them.

#include <QObject>

#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastMetaTypes.h"

namespace BroadCastPlugin {

class CPublishAPIManager : public QObject {
    Q_OBJECT

public:
    static CPublishAPIManager* Instance();
    CPublishAPIManager();
    ~CPublishAPIManager() override;

    /// Registers every method on the plugin bus and follows the controller's results. Repeatable.
    bool Init();
    /// Removes the methods; listeners are kept for a later Init.
    void Uninit();

    /// Method handlers: request text in, response text out.
    bool StartDownloadResource(const std::string& request, std::string& response);
    bool CleanCache(const std::string& request, std::string& response);
    bool StartIPSpeakerBroadcast(const std::string& request, std::string& response);
    bool UploadRecordFile(const std::string& request, std::string& response);
    bool GetTaskRunState(const std::string& request, std::string& response);
    bool StopBroadcast(const std::string& request, std::string& response);
    bool GetBroadcastConfig(const std::string& request, std::string& response);
    bool RegisterMessageCallback(const std::string& request, std::string& response);
    bool GetAllTerminals(const std::string& request, std::string& response);
    /// Text to speech played by the platform; "StopIPSpeakerBroadcast" stops it like any broadcast.
    bool StartTTSBroadcast(const std::string& request, std::string& response);
    /// Live talk from the microphone to devices that are not IP speakers; results and device states go to
    /// the registered plugins.
    bool StartDeviceBroadcast(const std::string& request, std::string& response);
    bool StopDeviceBroadcast(const std::string& request, std::string& response);

    std::vector<std::string> GetListeners() const;
    /// Sends one message to every registered plugin.
    void NotifyMessage(const std::string& text);

private slots:
    void OnSignalBroadcastState(std::vector<BroadCastPlugin::IPSpeakerNotifyParam> params);
    void OnSignalTTSBroadcastState(std::vector<BroadCastPlugin::TTSResponseError> errors);
    void OnSignalStopBroadcast(std::string text, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalDownloadResult(BroadCastPlugin::DownloadResourceState state,
                                Tal::Base::Error::ErrorCode error);
    void OnSignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids,
                                      Tal::Base::Error::ErrorCode error);
    void OnSignalDeviceBroadcastState(BroadCastPlugin::DeviceNotifyParam param);

private:
    mutable std::mutex mutex_;
    std::vector<std::string> listeners_;  // in registration order
    bool registered_ = false;
};

}  // namespace BroadCastPlugin
