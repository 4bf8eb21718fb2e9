#pragma once
// Server push frames: subscribes to the broadcast status frames of the client framework's push link,
// moves their handling onto the network message loop and hands each frame's data part, read once from the
// frame the push link parsed, to one callback.

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"
#include "framework/clientframe/FrameworkManagerInterface.h"

namespace BroadCastPlugin {

/// The observer handed to the client framework; forwards every frame to the manager.
class CFrameMessage : public TalClientFrameWork::IWebsocketObserver {
public:
    ~CFrameMessage() override = default;
    void OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) override;
    void OnWebsocketFrame(const TalClientFrameWork::PushFrame& frame) override;
};

class CFrameMessageMgr {
public:
    /// Receives what the frame's "/Msg/Data" carries and the frame's message type.
    using MessageCallback = std::function<void(const PushMessage& message, int msgType)>;

    static CFrameMessageMgr* Instance();

    bool InitManager();
    bool UnInitManager();
    bool IsInit() const;
    void SetMessageCallback(MessageCallback callback);
    /// Entry from the push link's thread: filters the frame and queues it on the network message loop.
    void OnFrame(const TalClientFrameWork::PushFrame& frame);
    /// The same for a frame text that nobody parsed yet.
    void OnRawMsg(const std::string& rawMsg, int msgType, int websocketMsgType);

private:
    /// Runs on the network message loop.
    void HandleMessage(const PushMessage& message, int msgType);

    mutable std::mutex mutex_;  // guards the callback; held while it runs
    bool initialised_ = false;
    MessageCallback callback_;
};

/// The "/Msg/Data" node of a frame as text; on a frame that does not parse, the whole frame and false.
bool LocationDataMsg(std::string& out, const std::string& rawMsg);

}  // namespace BroadCastPlugin
