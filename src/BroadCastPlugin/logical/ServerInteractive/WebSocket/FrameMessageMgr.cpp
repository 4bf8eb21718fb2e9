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

/// A queued frame, read already; runs the handler on the network message loop.
class CPushMessageTask : public Tal::Base::CTask {
public:
    using Handler = std::function<void(const PushMessage&, int)>;
    CPushMessageTask(PushMessage message, int msgType, Handler handler)
        : message_(std::move(message)), msgType_(msgType), handler_(std::move(handler)) {}
    ~CPushMessageTask() override = default;
    void Exec() override { handler_(message_, msgType_); }

private:
    PushMessage message_;
    int msgType_;
    Handler handler_;
};

}  // namespace

void CFrameMessage::OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) {
    CFrameMessageMgr::Instance()->OnRawMsg(rawMsg, msgType, websocketMsgType);
}

void CFrameMessage::OnWebsocketFrame(const TalClientFrameWork::PushFrame& frame) {
    CFrameMessageMgr::Instance()->OnFrame(frame);
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
    OnFrame(TalClientFrameWork::PushFrame(rawMsg, msgType, 0, websocketMsgType));
}

void CFrameMessageMgr::OnFrame(const TalClientFrameWork::PushFrame& frame) {
    const int msgType = frame.msgType;
    BCAST_LOG(3, "[%s]msg_type:%d, raw_msg: %s, websocket_msg_type:%d.[%s(%d)]", msgType,
              frame.rawMsg.c_str(), frame.websocketMsgType);
    const NetworkCommunication::CRapidJsonProto& document = frame.document;
    const bool queue = msgType == 3 || (document.get_int_v("/Msg/ProtocolType", -1) == 1 &&
                                        document.get_int_v("/Msg/Module", 0) == 0);
    if (!queue) {
        return;
    }
    auto task = std::make_shared<CPushMessageTask>(
        PushMessage::FromDocument(document, "/Msg/Data"), msgType,
        [this](const PushMessage& message, int type) { HandleMessage(message, type); });
    BusinessCommon::CMessageLoopForNetworkComm::Instance()->PostTask(task);
}

void CFrameMessageMgr::HandleMessage(const PushMessage& message, int msgType) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (callback_) {
        callback_(message, msgType);
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
