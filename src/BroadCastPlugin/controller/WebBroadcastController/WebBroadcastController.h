#pragma once
// The controller object the module exports for its web pages: turns the page's JSON requests into
// broadcast requests and sends back, through one callback, the results of its own requests.

#include <QObject>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastMetaTypes.h"

#define BCAST_WEB_EXPORT __attribute__((visibility("default")))

namespace BroadCastPlugin {

class BCAST_WEB_EXPORT CWebBroadcastController : public QObject {
    Q_OBJECT

public:
    /// Receives an outgoing message and its target: 0 the web client, 1 the task control application.
    using MessageCallback = std::function<void(std::string message, int target)>;

    explicit CWebBroadcastController(QObject* parent = nullptr);
    ~CWebBroadcastController() override;

    /// Creates the broadcast controller when missing and initialises it.
    static bool GlobalInit();
    static bool GlobalUninit();

    /// Follows the controller's results; true also when already done.
    bool Init();
    /// Stops following them and forgets the callback.
    void Unit();
    void StopWorking();
    void CleanCache();
    void RegisterMessageCallback(MessageCallback callback);
    /// A server push text for the broadcast logic (as the push link delivers them).
    void ReceiveWebsocketMessage(const std::string& message);

    bool StartIPSpeakerBroadcast(const std::string& json);
    bool StopIPSpeakerBroadcast();
    bool DownloadMediaFile(const std::string& json);
    bool StartBroadcastListen(const std::string& json);
    bool StopBroadcastListen();

private:
    void NotifyMessage(std::string text, int target);
    /// True when a result belongs to this object (its own address) or to the module itself (null).
    bool IsMine(const void* user) const;

private slots:
    void OnSignalBroadcastState(std::vector<BroadCastPlugin::IPSpeakerNotifyParam> params);
    void OnSignalStopBroadcast(std::string text, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalDownloadFileToLocal(unsigned int id, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalListenBroadcast(unsigned int id, Tal::Base::Error::ErrorCode error, void* user);

private:
    std::mutex mutex_;  // guards the callback; held while it runs
    MessageCallback callback_;
    std::atomic<bool> initialised_{false};
};

}  // namespace BroadCastPlugin
