// libFuzzer target: a frame of the push link on its way to the broadcast logic. The input is the frame
// text as the platform sends it. It goes where the client framework and the module take it: delivery to the
// subscribed observers by message type, the frame manager's extraction of "/Msg/Data", the speaker-state
// handling of broadcast status messages (with the notifications built from its events) and the device
// broadcast's state board. Besides crashes and hangs, the target traps when delivery misses or invents an
// observer, the data extraction does not give what it promises, a status message gives another number of
// speaker events than it lists, or the board delivers a state that goes back.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"
#include "FuzzSupport.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/media/videotool/DeviceStateBoard.h"
#include "framework/netcomm/RapidJsonProto.h"

using namespace BroadCastPlugin;
using FuzzSupport::Check;
using NetworkCommunication::CRapidJsonProto;

namespace {

constexpr int kStatusMessageType = 3;
constexpr int kStatusEventType = 310001;
const char* const kObserver = "fuzz.push";

int g_delivered = 0;
std::vector<IPSpeakerNotifyParam> g_events;

class CCountingObserver : public TalClientFrameWork::IWebsocketObserver {
public:
    void OnWebsocketMessage(const std::string&, int, int) override { ++g_delivered; }
};

bool Setup() {
    FuzzSupport::QuietLogs();
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    framework->RegisterWebsocketObserver(kObserver, std::make_shared<CCountingObserver>());
    framework->Messages({kStatusMessageType}, kObserver, true);
    TalClientFrameWork::CEventParam event;
    event.SetVal_event_type(kStatusEventType);
    event.SetVal_type(0);
    framework->Events({event}, kObserver, true);
    CIPSpeakerManager::Instance()->Init([](const std::vector<IPSpeakerNotifyParam>& events) {
        g_events.insert(g_events.end(), events.begin(), events.end());
    });
    return true;
}
const bool g_ready = Setup();

// The notifications plugins and pages get from a speaker event must be JSON objects.
void CheckNotifications(const IPSpeakerNotifyParam& event) {
    CRapidJsonProto doc;
    Check(doc.set_str(CProtocalFactory::BuildIPSpeakerBroadcastState(event)));
    Check(doc.set_str(CProtocalFactory::BuildPluginSpeakerState(event)));
    CProtocalFactory::PlayStateOf(event);
}

void OfferToBoard(const std::string& text) {
    std::map<int, int> seen;  // device -> last delivered status
    TOOL::CDeviceStateBoard board([&](const std::string& delivered) {
        CRapidJsonProto status;
        Check(status.set_str(delivered));
        if (status.get_int_v("/NotifyType", -1) == 1) {
            const int device = std::atoi(status.get_v("/IndexCode", "").c_str());
            const int to = status.get_int_v("/Status", -1);
            auto last = seen.find(device);
            Check(TOOL::CDeviceStateBoard::Advances(last == seen.end() ? -1 : last->second, to));
            seen[device] = to;
        }
    });
    board.SetGroup("group-1");
    board.Report(201, TOOL::kDeviceConnecting, TOOL::kDeviceBroadcasting, "");
    CRapidJsonProto message;
    const bool parsed = message.set_str(text);
    const bool offered = board.Offer(text);
    if (offered) {
        Check(parsed && message.is_exist("/NotifyType") && message.get_v("/GroupId", "") == "group-1");
    }
    board.Offer(text);  // a repeat moves nothing on
    board.ReportAllStopped();
}

// What a board whose device 201 is connecting does with `text`: offered as text, or as the notice read
// from a parsed document beforehand. The deliveries, then whether it was taken.
std::vector<std::string> BoardDeliveries(const std::string& text, const TOOL::DeviceStatusNotice* notice) {
    std::vector<std::string> delivered;
    TOOL::CDeviceStateBoard board([&](const std::string& status) { delivered.push_back(status); });
    board.SetGroup("group-1");
    board.Report(201, TOOL::kDeviceConnecting, TOOL::kDeviceBroadcasting, "");
    const bool offered = notice != nullptr ? board.Offer(*notice, text) : board.Offer(text);
    delivered.push_back(offered ? "offered" : "refused");
    return delivered;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::string raw(reinterpret_cast<const char*>(data), size);

    // The push link hands on JSON frames that carry a message type.
    CRapidJsonProto frame;
    if (frame.set_str(raw) && frame.is_exist("/MessageType")) {
        const int msgType = frame.get_int_v("/MessageType", -1);
        const int eventType = frame.get_int_v("/EventType", 0);
        g_delivered = 0;
        const int targets = TalClientFrameWork::CFrameworkManagerInterface::Instance()->DeliverFrame(
            raw, msgType, eventType, 1);
        const bool wanted = msgType == kStatusMessageType || eventType == kStatusEventType;
        Check(targets == (wanted ? 1 : 0));
        Check(g_delivered == targets);
    }

    // The frame manager keeps "/Msg/Data" of a frame, or the whole text of one that does not parse.
    std::string message;
    const bool parsed = LocationDataMsg(message, raw);
    CRapidJsonProto whole;
    Check(parsed == whole.set_str(raw));
    Check(parsed ? message == whole.get_node_str("/Msg/Data") : message == raw);

    // Broadcast status: with no broadcast of this client running, every listed speaker gives one
    // resource-status event and nothing else.
    g_events.clear();
    CIPSpeakerManager::Instance()->HandleWebsocketMessage(message);
    CRapidJsonProto status;
    status.set_str(message);
    const int listed = status.get_cnt("/Event/BroadcastStatusList");
    Check(static_cast<int>(g_events.size()) == listed);
    for (const IPSpeakerNotifyParam& event : g_events) {
        Check(event.type == 2);
        CheckNotifications(event);
    }

    // The device status read in place from the parsed frame decides as the data text does, parsed again.
    if (parsed) {
        const PushMessage read = PushMessage::FromDocument(whole, "/Msg/Data");
        Check(BoardDeliveries(message, &read.deviceNotice) == BoardDeliveries(message, nullptr));
    }

    OfferToBoard(message);
    if (message != raw) {
        OfferToBoard(raw);
    }
    return 0;
}
