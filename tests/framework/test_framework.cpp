#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PluginCommManager.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/errortext/ErrorCodeTrans.h"
#include "framework/media/videotool/DeviceBroadcastGroup.h"
#include "framework/media/videotool/DeviceStateBoard.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/ResourceManager.h"

using Tal::Base::Error::ErrorCode;

TEST(PluginCommManager, MethodsAreUniqueCallableAndSurviveUnregisterDuringCall) {
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    std::string response;
    EXPECT_FALSE(bus->CallMethod("/Test/Missing", "{}", response));
    EXPECT_TRUE(response.empty());

    ASSERT_TRUE(bus->RegisterMethod("/Test/Echo", "a.c", [](const std::string& req, std::string& resp) {
        resp = "echo:" + req;
        return true;
    }));
    EXPECT_FALSE(bus->RegisterMethod("/Test/Echo", "b.c", [](const std::string&, std::string&) {
        return true;
    })) << "a taken name is refused";
    EXPECT_FALSE(bus->RegisterMethod("", "a.c", [](const std::string&, std::string&) { return true; }));
    EXPECT_EQ(bus->GetMethodOwner("/Test/Echo"), "a.c");
    EXPECT_TRUE(bus->CallMethod("/Test/Echo", "x", response));
    EXPECT_EQ(response, "echo:x");

    // A handler that unregisters itself while running must finish safely.
    ASSERT_TRUE(bus->RegisterMethod("/Test/SelfRemove", "a.c", [bus](const std::string&, std::string& resp) {
        bus->UnRegisterMethod("/Test/SelfRemove");
        resp = "still here";
        return false;
    }));
    EXPECT_FALSE(bus->CallMethod("/Test/SelfRemove", "", response)) << "the handler's failure is passed on";
    EXPECT_EQ(response, "still here");
    EXPECT_FALSE(bus->HasMethod("/Test/SelfRemove"));
    EXPECT_TRUE(bus->UnRegisterMethod("/Test/Echo"));
    EXPECT_FALSE(bus->UnRegisterMethod("/Test/Echo"));
}

TEST(PluginCommManager, MessagesReachOnlyTheAddressedPlugin) {
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    std::vector<std::string> gotA, gotB;
    ASSERT_TRUE(bus->RegisterMessageReceiver(
        "a.c", [&](const std::string& from, const std::string& m) { gotA.push_back(from + ":" + m); }));
    ASSERT_TRUE(bus->RegisterMessageReceiver(
        "b.c", [&](const std::string&, const std::string& m) { gotB.push_back(m); }));
    EXPECT_TRUE(bus->SendMessageToPlugin("broadcast.c", "a.c", "{\"Method\":1}"));
    EXPECT_FALSE(bus->SendMessageToPlugin("broadcast.c", "nobody.c", "x"));
    ASSERT_EQ(gotA.size(), 1u);
    EXPECT_EQ(gotA[0], "broadcast.c:{\"Method\":1}");
    EXPECT_TRUE(gotB.empty());
    bus->UnRegisterMessageReceiver("a.c");
    bus->UnRegisterMessageReceiver("b.c");
    EXPECT_FALSE(bus->SendMessageToPlugin("broadcast.c", "a.c", "x"));
}

namespace {
class RecordingObserver : public TalClientFrameWork::IWebsocketObserver {
public:
    void OnWebsocketMessage(const std::string& raw, int msgType, int wsType) override {
        frames.push_back(raw + "|" + std::to_string(msgType) + "|" + std::to_string(wsType));
    }
    std::vector<std::string> frames;
};

// Reads the document the frame arrives with, as the module's observer does.
class DocumentObserver : public TalClientFrameWork::IWebsocketObserver {
public:
    void OnWebsocketMessage(const std::string&, int, int) override { ++textCalls; }
    void OnWebsocketFrame(const TalClientFrameWork::PushFrame& frame) override {
        values.push_back(frame.document.get_int_v("/Msg/Data/X", -1));
    }
    int textCalls = 0;
    std::vector<int> values;
};
}  // namespace

TEST(FrameworkManagerInterface, ObserversGetTheParsedFrameOrItsText) {
    auto* fw = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    auto parsed = std::make_shared<DocumentObserver>();
    auto text = std::make_shared<RecordingObserver>();
    ASSERT_TRUE(fw->RegisterWebsocketObserver("parsed", parsed));
    ASSERT_TRUE(fw->RegisterWebsocketObserver("text", text));
    ASSERT_TRUE(fw->Messages({3}, "parsed", true));
    ASSERT_TRUE(fw->Messages({3}, "text", true));
    const TalClientFrameWork::PushFrame frame(R"({"MessageType":3,"Msg":{"Data":{"X":7}}})", 3, 0, 1);
    EXPECT_EQ(fw->DeliverFrame(frame), 2);
    EXPECT_EQ(fw->DeliverFrame("not json", 3, 0, 2), 2);
    EXPECT_EQ(parsed->values, (std::vector<int>{7, -1}))
        << "a text that is not JSON arrives as an empty document";
    EXPECT_EQ(parsed->textCalls, 0);
    EXPECT_EQ(text->frames, (std::vector<std::string>{frame.rawMsg + "|3|1", "not json|3|2"}));
    EXPECT_TRUE(fw->UnRegisterWebsocketObserver("parsed"));
    EXPECT_TRUE(fw->UnRegisterWebsocketObserver("text"));
}

TEST(FrameworkManagerInterface, ClientConfigSectionsAndObserverSubscriptions) {
    auto* fw = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    EXPECT_FALSE(fw->SetClientConfig("[1,2]")) << "the configuration must be an object";
    EXPECT_FALSE(fw->SetClientConfig("{broken"));
    ASSERT_TRUE(fw->SetClientConfig(
        R"({"Platform":{"Address":"10.0.0.1","Port":443},"User":{"Name":"u"},"SysConfig":{"NetOvertime":2}})"));
    std::string text;
    ASSERT_TRUE(fw->GetClientConfig(text, TalClientFrameWork::kClientConfigSystem));
    NetworkCommunication::CRapidJsonProto system;
    ASSERT_TRUE(system.set_str(text));
    EXPECT_EQ(system.get_int_v("/SysConfig/NetOvertime", -1), 2);
    EXPECT_FALSE(system.is_exist("/Platform")) << "the system section holds only SysConfig";
    ASSERT_TRUE(fw->GetClientConfig(text, TalClientFrameWork::kClientConfigPlatform));
    NetworkCommunication::CRapidJsonProto platform;
    ASSERT_TRUE(platform.set_str(text));
    EXPECT_EQ(platform.get_v("/Platform/Address"), "10.0.0.1");
    EXPECT_EQ(platform.get_v("/User/Name"), "u");
    EXPECT_FALSE(fw->GetClientConfig(text, 99));

    auto byMessage = std::make_shared<RecordingObserver>();
    auto byEvent = std::make_shared<RecordingObserver>();
    EXPECT_FALSE(fw->Messages({3}, "unregistered", true)) << "subscriptions need a registered observer";
    ASSERT_TRUE(fw->RegisterWebsocketObserver("by.message", byMessage));
    ASSERT_TRUE(fw->RegisterWebsocketObserver("by.event", byEvent));
    ASSERT_TRUE(fw->Messages({3}, "by.message", true));
    TalClientFrameWork::CEventParam event;
    event.SetVal_event_type(310001);
    ASSERT_TRUE(fw->Events({event}, "by.event", true));
    EXPECT_EQ(fw->SubscribedMessageTypes().count(3), 1u);
    EXPECT_EQ(fw->SubscribedEventTypes().count(310001), 1u);

    EXPECT_EQ(fw->DeliverFrame("f1", 3, 0, 1), 1);
    EXPECT_EQ(fw->DeliverFrame("f2", 5, 310001, 1), 1);
    EXPECT_EQ(fw->DeliverFrame("f3", 3, 310001, 2), 2);
    EXPECT_EQ(fw->DeliverFrame("f4", 7, 0, 1), 0);
    EXPECT_EQ(byMessage->frames, (std::vector<std::string>{"f1|3|1", "f3|3|2"}));
    EXPECT_EQ(byEvent->frames, (std::vector<std::string>{"f2|5|1", "f3|3|2"}));

    ASSERT_TRUE(fw->Events({event}, "by.event", false));
    EXPECT_EQ(fw->DeliverFrame("f5", 5, 310001, 1), 0) << "unsubscribed events stop";
    EXPECT_TRUE(fw->UnRegisterWebsocketObserver("by.message"));
    EXPECT_TRUE(fw->UnRegisterWebsocketObserver("by.event"));
    EXPECT_EQ(fw->DeliverFrame("f6", 3, 0, 1), 0);
}

TEST(ErrorCodeTrans, TextsByLanguageWithFallbacksAndCascadingText) {
    ErrorCodeTrans::InitLanguale("en_US");
    EXPECT_EQ(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode()), "");
    EXPECT_NE(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 20, 2002)).find("WAN"), std::string::npos);
    EXPECT_NE(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 29, 5)).find("sound card"),
              std::string::npos);
    const std::string unknown = ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 77, 12));
    EXPECT_NE(unknown.find("77"), std::string::npos);
    EXPECT_NE(unknown.find("12"), std::string::npos);
    ErrorCode server(1, 5, 404);
    server.SetCasadingErrorInfo("no such element");
    const std::string serverText = ErrorCodeTrans::GetErrorInfoByErrorCode(server);
    EXPECT_NE(serverText.find("platform"), std::string::npos);
    EXPECT_NE(serverText.find("no such element"), std::string::npos);
    EXPECT_NE(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 61, 42)).find("42"), std::string::npos)
        << "a module-wide text still names the code";

    ErrorCodeTrans::InitLanguale("zh_CN");
    EXPECT_EQ(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 29, 5)), "未找到声卡。");
    EXPECT_NE(ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 20, 3404)),
              ErrorCodeTrans::GetErrorInfoByErrorCode(ErrorCode(2, 20, 3403)));
    ErrorCodeTrans::InitLanguale("en_US");
}

TEST(VideoTool, VoiceEnvironmentStartsOnlyWithValidConfigurationAndCountsReleases) {
    Tal::Base::CLogCapture log;
    Tal::Base::Error::SetLastError(ErrorCode());
    EXPECT_FALSE(ORVVideoTool::InitVoiceEnvir("not json"));
    EXPECT_FALSE(Tal::Base::Error::GetLastError().IsSucceed());
    EXPECT_FALSE(ORVVideoTool::InitVoiceEnvir(R"({"GeneralInit":false})"));
    EXPECT_FALSE(ORVVideoTool::IsVoiceEnvirInit());
    EXPECT_FALSE(ORVVideoTool::UnInitVoiceEnvir()) << "nothing to release";

    ASSERT_TRUE(
        ORVVideoTool::InitVoiceEnvir(R"({"GeneralInit":true,"CirroInit":true,"CirroLoadPath":"/opt/x/"})"));
    EXPECT_TRUE(ORVVideoTool::IsVoiceEnvirInit());
    EXPECT_EQ(ORVVideoTool::GetVoiceEnvirLoadPath(), "/opt/x/");
    ASSERT_TRUE(ORVVideoTool::InitVoiceEnvir(R"({"GeneralInit":true})"));
    EXPECT_TRUE(ORVVideoTool::UnInitVoiceEnvir());
    EXPECT_TRUE(ORVVideoTool::IsVoiceEnvirInit()) << "one release per start";
    EXPECT_TRUE(ORVVideoTool::UnInitVoiceEnvir());
    EXPECT_FALSE(ORVVideoTool::IsVoiceEnvirInit());
}

namespace {
std::vector<std::string> g_deviceMessages;
void CollectDeviceMessage(const std::string& message, void* context) {
    EXPECT_EQ(context, &g_deviceMessages);
    g_deviceMessages.push_back(message);
}
}  // namespace

TEST(VideoTool, DeviceBroadcastManagerRefusesWhatItCannotDoAndForwardsNoStrayPushes) {
    using Tal::Base::Error::GetLastError;
    using TOOL::CBroadcastBusinessManager;
    g_deviceMessages.clear();
    TOOL::CRequestBroadcast request;
    request.device_ids = "1,2";

    // Not initialised: nothing starts and no push is passed on.
    CBroadcastBusinessManager::SetBroadcastResoluteCallback(&CollectDeviceMessage, &g_deviceMessages);
    EXPECT_FALSE(CBroadcastBusinessManager::StartBroadcast(request));
    EXPECT_EQ(GetLastError().GetSubErrorCode(), Tal::Base::Error::kCodeNotAvailable);
    EXPECT_FALSE(CBroadcastBusinessManager::PushBroadcastState(R"({"NotifyType":1,"GroupId":"g"})"));

    ASSERT_TRUE(CBroadcastBusinessManager::InitManager());
    CBroadcastBusinessManager::SetBroadcastResoluteCallback(&CollectDeviceMessage, &g_deviceMessages);
    // A device status of no running broadcast, a speaker status and garbage all stay here.
    EXPECT_FALSE(
        CBroadcastBusinessManager::PushBroadcastState(R"({"NotifyType":1,"GroupId":"g","Status":2})"));
    EXPECT_FALSE(CBroadcastBusinessManager::PushBroadcastState(R"({"Event":{"BroadcastStatusList":[]}})"));
    EXPECT_FALSE(CBroadcastBusinessManager::PushBroadcastState("garbage"));

    // Ids that are not a list of ids fail before the platform is asked.
    for (const char* ids :
         {"", ",", "1,,2", "x", "3,-4", "5,", ",201", "201;202", "0", "2147483648", " 201", "20a"}) {
        request.device_ids = ids;
        EXPECT_FALSE(CBroadcastBusinessManager::StartBroadcast(request)) << ids;
        EXPECT_EQ(GetLastError(), Tal::Base::Error::ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                              Tal::Base::Error::kModuleFramework,
                                                              Tal::Base::Error::kCodeInvalidInput))
            << ids;
    }
    // Without a platform session the group request fails at the transport, and nothing is left running.
    request.device_ids = "1,2";
    EXPECT_FALSE(CBroadcastBusinessManager::StartBroadcast(request));
    EXPECT_NE(GetLastError().GetMainErrorCode(), Tal::Base::Error::kModuleFramework);
    EXPECT_FALSE(GetLastError().IsSucceed());
    EXPECT_FALSE(CBroadcastBusinessManager::StartBroadcast(request)) << "refused again, not busy";
    EXPECT_NE(GetLastError().GetSubErrorCode(), Tal::Base::Error::kCodeBusy);
    EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast()) << "stopping nothing succeeds";
    EXPECT_TRUE(g_deviceMessages.empty());
    ASSERT_TRUE(CBroadcastBusinessManager::UninitManager());
}

TEST(VideoTool, DeviceStateBoardDeliversEachChangeOnceAndNeverGoesBack) {
    using TOOL::CDeviceStateBoard;
    std::vector<std::string> delivered;
    CDeviceStateBoard board([&delivered](const std::string& text) { delivered.push_back(text); });
    EXPECT_FALSE(board.Offer(R"({"NotifyType":1,"GroupId":"","IndexCode":"201","Status":1})"))
        << "no group yet";
    board.SetGroup("G1");

    board.Report(201, TOOL::kDeviceConnecting, TOOL::kDeviceBroadcasting, "");
    ASSERT_EQ(delivered.size(), 1u);
    NetworkCommunication::CRapidJsonProto first;
    ASSERT_TRUE(first.set_str(delivered[0]));
    EXPECT_EQ(first.get_int_v("/NotifyType", -1), 1);
    EXPECT_EQ(first.get_v("/GroupId", ""), "G1");
    EXPECT_EQ(first.get_v("/IndexCode", ""), "201");
    EXPECT_EQ(first.get_int_v("/Status", -1), TOOL::kDeviceConnecting);
    EXPECT_EQ(first.get_int_v("/ResourceStatus", -1), TOOL::kDeviceBroadcasting);
    EXPECT_TRUE(first.is_exist("/ErrorInfo"));

    // The platform says the same: absorbed. Its playing moves on and is passed on as it came.
    EXPECT_TRUE(board.Offer(R"({"NotifyType":1,"GroupId":"G1","IndexCode":"201","Status":1})"));
    const std::string playing = R"({"NotifyType":1,"GroupId":"G1","IndexCode":"201","Status":2,"Extra":7})";
    EXPECT_TRUE(board.Offer(playing));
    board.Report(201, TOOL::kDevicePlaying, TOOL::kDeviceBroadcasting, "");
    ASSERT_EQ(delivered.size(), 2u);
    EXPECT_EQ(delivered[1], playing);
    // Another group's push is not ours; another notify type of ours goes on untouched.
    EXPECT_FALSE(board.Offer(R"({"NotifyType":1,"GroupId":"G0","IndexCode":"201","Status":3})"));
    EXPECT_TRUE(board.Offer(R"({"NotifyType":2,"GroupId":"G1"})"));
    ASSERT_EQ(delivered.size(), 3u);
    EXPECT_EQ(delivered[2], R"({"NotifyType":2,"GroupId":"G1"})");

    // A late connecting does not undo playing; a failure does; nothing follows stopped.
    board.Report(202, TOOL::kDeviceFailed, TOOL::kDeviceOffline, "The device cannot be reached.");
    EXPECT_TRUE(board.Offer(R"({"NotifyType":1,"GroupId":"G1","IndexCode":"202","Status":1})"));
    EXPECT_TRUE(board.Offer(R"({"NotifyType":1,"GroupId":"G1","IndexCode":"202","Status":3})"));
    ASSERT_EQ(delivered.size(), 4u);
    board.ReportAllStopped();
    ASSERT_EQ(delivered.size(), 6u) << "both devices stopped, the failed one too";
    board.ReportAllStopped();
    board.Report(201, TOOL::kDevicePlaying, TOOL::kDeviceBroadcasting, "");
    EXPECT_TRUE(board.Offer(R"({"NotifyType":1,"GroupId":"G1","IndexCode":"201","Status":0})"));
    EXPECT_EQ(delivered.size(), 6u);

    EXPECT_TRUE(CDeviceStateBoard::Advances(-1, TOOL::kDeviceFailed));
    EXPECT_TRUE(CDeviceStateBoard::Advances(TOOL::kDevicePlaying, TOOL::kDeviceFailed));
    EXPECT_FALSE(CDeviceStateBoard::Advances(TOOL::kDeviceFailed, TOOL::kDevicePlaying));
    EXPECT_FALSE(CDeviceStateBoard::Advances(TOOL::kDeviceConnecting, 9)) << "unknown statuses stay out";
}

TEST(BusinessCommon, PathsEndWithSlashLoopRunsOnlyAfterInit) {
    auto* config = BusinessCommon::CFrameSystemConfigMgr::Instance();
    config->SetClientDataPath("C:\\data\\client");
    EXPECT_EQ(config->GetClientDataPath(), "C:/data/client/");
    config->SetVideoCaptureDataPath("/var/capture/");
    EXPECT_EQ(config->GetVideoCaptureDataPath(), "/var/capture/");
    config->SetClientDataPath("");
    EXPECT_EQ(config->GetClientDataPath(), "");

    struct Flag : Tal::Base::CTask {
        std::promise<std::thread::id>* ran;
        void Exec() override { ran->set_value(std::this_thread::get_id()); }
    };
    auto* loop = BusinessCommon::CMessageLoopForNetworkComm::Instance();
    BusinessCommon::UnInitBusinessCommon();
    std::promise<std::thread::id> ran;
    auto task = std::make_shared<Flag>();
    task->ran = &ran;
    EXPECT_FALSE(loop->PostTask(task)) << "no loop before the services start";
    ASSERT_TRUE(BusinessCommon::InitBusinessCommon(nullptr, "zh_CN"));
    EXPECT_EQ(BusinessCommon::GetLanguage(), "zh_CN");
    ASSERT_TRUE(loop->PostTask(task));
    auto future = ran.get_future();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_NE(future.get(), std::this_thread::get_id());
    BusinessCommon::UnInitBusinessCommon();
    BusinessCommon::SetLanguage("en_US");
}

TEST(ResourceManager, RegistryUpdatesInPlaceAndLinksElementsToTheirDevice) {
    auto* devices = ResourceManager::CDeviceManager::Instance();
    ResourceManager::DeviceInfo info;
    info.id = 501;
    info.name = "Gate speaker";
    info.deviceType = 2020;
    info.accessProtocol = 23;
    info.ipAddress = "127.0.0.1";
    info.port = 5004;
    auto device = devices->AddOrUpdateDevice(info);
    ASSERT_TRUE(device);
    EXPECT_EQ(devices->FindDeviceByID(501), device);
    EXPECT_EQ(devices->FindDeviceByID(502), nullptr);
    info.name = "Gate speaker 2";
    EXPECT_EQ(devices->AddOrUpdateDevice(info), device) << "an update keeps the same object";
    EXPECT_EQ(device->GetName(), "Gate speaker 2");

    ResourceManager::ElementInfo element;
    element.id = 9;
    element.name = "Lobby";
    element.deviceId = 501;
    ResourceManager::CElementManager::Instance()->AddOrUpdateElement(element);
    auto found = ResourceManager::CElementManager::Instance()->FindOtherElementByID(9);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->GetEncodeDeviceAttribute().GetDeviceID(), 501);
    EXPECT_EQ(ResourceManager::CElementManager::Instance()->FindOtherElementByID(10), nullptr);
    devices->Clear();
    ResourceManager::CElementManager::Instance()->Clear();
    EXPECT_EQ(devices->FindDeviceByID(501), nullptr);
}
