#pragma once
// The single entry for every broadcast action: wraps each request into a task on one of two worker loops
// and turns the results into Qt signals.

#include <QObject>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastMetaTypes.h"
#include "framework/base/MessageLoop.h"

namespace BroadCastPlugin {

struct PushMessage;

class CBroadcastController : public QObject {
    Q_OBJECT

public:
    CBroadcastController();
    ~CBroadcastController() override;

    /// The process-wide controller, created on first use.
    static CBroadcastController* Instance();
    /// The controller when it exists, else null.
    static CBroadcastController* InstanceIfExists();

    bool Init();
    void Unit();
    void StopWorking();
    void CleanCache();
    bool IsInit() const { return initialised_.load(); }

    bool AsyncDownloadAllResource();
    bool AsyncDownloadFileToLocal(ResourceManager::ID fileID, void* user);
    bool AsyncSearchMediaFile(const std::string& filter);
    /// Result of a record upload: success and the reason of a failure.
    using UploadResultCallback = std::function<void(bool ok, Tal::Base::Error::ErrorCode error)>;
    bool AsyncUploadRecordFile(const RecordTaskParam& param, UploadResultCallback callback = {});
    bool AsyncStartSpeakVoice(const IPSpeakBroadcastParam& param, void* user);
    bool AsyncStartPlayAudioFile(const IPSpeakBroadcastParam& param, const std::string& mediaFilePath,
                                 void* user);
    bool AsyncTTSPlay(const TTSRequestParam& param);
    bool AsyncStartListen(int32_t elementID, void* user);
    bool AsyncStopListen(void* user);
    bool AsyncStopBroadcast(void* user);
    bool AsyncStartDeviceBroadcast(const std::vector<ResourceManager::ID>& deviceIDs, int broadcastType);
    bool SyncStopDeviceBroadcast();
    void HandleDeviceMessageCallback(const std::string& text);

    /// Handler of server push data (the "/Msg/Data" text of a frame and its message type).
    void HandleServerPushMessage(const std::string& data, int msgType);
    void HandleServerPushMessage(const PushMessage& message, int msgType);
    /// Tasks queued or running on the main loop; 0 means idle.
    int GetMainTaskCount() const;
    /// A cached media file by id.
    bool GetMediaFile(ResourceManager::ID fileID, MediaFile& file) const;

signals:
    void SignalUpdateVersion(std::string data);
    void SignalDownloadResult(BroadCastPlugin::DownloadResourceState state,
                              Tal::Base::Error::ErrorCode error);
    void SignalBroadcastState(std::vector<BroadCastPlugin::IPSpeakerNotifyParam> params);
    void SignalTTSBroadcastState(std::vector<BroadCastPlugin::TTSResponseError> errors);
    void SignalStopBroadcast(std::string text, Tal::Base::Error::ErrorCode error, void* user);
    void SignalListenBroadcast(ResourceManager::ID id, Tal::Base::Error::ErrorCode error, void* user);
    void SignalStopListenBroadcast(Tal::Base::Error::ErrorCode error, void* user);
    void SignalDownloadFileToLocal(ResourceManager::ID id, Tal::Base::Error::ErrorCode error, void* user);
    void SignalSearchMediaFiles(std::vector<BroadCastPlugin::MediaFile> files,
                                Tal::Base::Error::ErrorCode error);
    void SignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids, Tal::Base::Error::ErrorCode error);
    void SignalDeviceBroadcastState(BroadCastPlugin::DeviceNotifyParam param);

private:
    using LoopPtr = std::shared_ptr<Tal::Base::CMessageLoopWorkThread>;
    LoopPtr MainLoop() const;
    LoopPtr SubLoop() const;
    /// Posting checks shared by every asynchronous method; `loop` is where the task goes.
    bool Post(const LoopPtr& loop, std::shared_ptr<Tal::Base::CTask> task);

    mutable std::mutex loopMutex_;  // guards the two loop pointers, never held while a loop works
    LoopPtr mainLoop_;
    LoopPtr subLoop_;
    std::atomic<bool> initialised_{false};
};

}  // namespace BroadCastPlugin
