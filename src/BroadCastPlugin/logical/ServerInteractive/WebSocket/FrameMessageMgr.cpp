#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"

#include <vector>

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/base/Singleton.h"
#include "framework/business/BusinessCommon.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BroadCastPlugin {

namespace {

const char* const kObserverName = "broadcast.c";
const std::vector<int> kMessageTypes = {3};
constexpr int kBroadcastStatusEvent = 310001;

TalClientFrameWork::CEventParam BroadcastStatusEvent() {
    TalClientFrameWork::CEventParam event;
    event.SetVal_event_type(kBroadcastStatusEvent);
    event.SetVal_type(0);
    return event;
}

/// A queued frame; runs the handler on the network message loop.
class CRawMsgTask : public Tal::Base::CTask {
public:
    using Handler = std::function<void(const std::string&, int)>;
    CRawMsgTask(std::string rawMsg, int msgType, Handler handler)
        : rawMsg_(std::move(rawMsg)), msgType_(msgType), handler_(std::move(handler)) {}
    ~CRawMsgTask() override = default;
    void Exec() override { handler_(rawMsg_, msgType_); }

private:
    std::string rawMsg_;
    int msgType_;
    Handler handler_;
};

}  // namespace

void CFrameMessage::OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) {
    CFrameMessageMgr::Instance()->OnRawMsg(rawMsg, msgType, websocketMsgType);
}

CFrameMessageMgr* CFrameMessageMgr::Instance() {
    return Tal::Base::CSingleton<CFrameMessageMgr>::Instance();
}

bool CFrameMessageMgr::InitManager() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (initialised_) {
            BCAST_LOG(4, "[%s]Has already init.[%s(%d)]");
            return true;
        }
        initialised_ = true;
    }
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    framework->RegisterWebsocketObserver(kObserverName, std::make_shared<CFrameMessage>());
    framework->Messages(kMessageTypes, kObserverName, true);
    framework->Events({BroadcastStatusEvent()}, kObserverName, true);
    BCAST_LOG(3, "[%s]Init websocket message succ.[%s(%d)]");
    return true;
}

bool CFrameMessageMgr::UnInitManager() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!initialised_) {
            BCAST_LOG(4, "[%s]Has not uninit.[%s(%d)]");
            return true;
        }
        initialised_ = false;
        callback_ = nullptr;
    }
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    framework->Events({BroadcastStatusEvent()}, kObserverName, false);
    framework->UnRegisterWebsocketObserver(kObserverName);
    BCAST_LOG(3, "[%s]Uninit websocket message succ.[%s(%d)]");
    return true;
}

bool CFrameMessageMgr::IsInit() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return initialised_;
}

void CFrameMessageMgr::SetMessageCallback(MessageCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = std::move(callback);
}

void CFrameMessageMgr::OnRawMsg(const std::string& rawMsg, int msgType, int websocketMsgType) {
    BCAST_LOG(3, "[%s]msg_type:%d, raw_msg: %s, websocket_msg_type:%d.[%s(%d)]", msgType, rawMsg.c_str(),
              websocketMsgType);
    bool queue = msgType == 3;
    if (!queue) {
        NetworkCommunication::CRapidJsonProto frame;
        frame.set_str(rawMsg);
        queue = frame.get_int_v("/Msg/ProtocolType", -1) == 1 && frame.get_int_v("/Msg/Module", 0) == 0;
    }
    if (!queue) {
        return;
    }
    auto task = std::make_shared<CRawMsgTask>(
        rawMsg, msgType, [this](const std::string& raw, int type) { HandleRawMsg(raw, type); });
    BusinessCommon::CMessageLoopForNetworkComm::Instance()->PostTask(task);
}

void CFrameMessageMgr::HandleRawMsg(const std::string& rawMsg, int msgType) {
    NetworkCommunication::CRapidJsonProto frame;
    std::string data;
    if (frame.set_str(rawMsg)) {
        data = frame.get_node_str("/Msg/Data");
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (callback_) {
        callback_(data, msgType);
    }
}

bool LocationDataMsg(std::string& out, const std::string& rawMsg) {
    NetworkCommunication::CRapidJsonProto frame;
    if (frame.set_str(rawMsg)) {
        out = frame.get_node_str("/Msg/Data");
        return true;
    }
    BCAST_LOG(4, "[%s]Long link message format is not standardized. [%s(%d)]");
    out = rawMsg;
    return false;
}

}  // namespace BroadCastPlugin
