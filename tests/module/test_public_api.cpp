#include <gtest/gtest.h>

#include <mutex>

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/controller/PublishAPI/PublishAPIManager.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PluginCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::Settle;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;

namespace {

const std::string kPrefix = "/API/Broadcast/V0/";

class PublicApiTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        BusinessCommon::InitBusinessCommon(nullptr, "en_US");
        ASSERT_TRUE(CBroadcastController::Instance()->Init());
        ASSERT_TRUE(CPublishAPIManager::Instance()->Init());
    }
    static void TearDownTestSuite() {
        CPublishAPIManager::Instance()->Uninit();
        CBroadcastController::Instance()->Unit();
        BusinessCommon::UnInitBusinessCommon();
    }
    void SetUp() override {
        // Results of an earlier test's requests still queued for delivery must not reach this test's
        // listener.
        WaitFor([] { return CBroadcastController::Instance()->GetMainTaskCount() == 0; });
        Settle(100);
        bus = BusinessCommon::CPluginCommManager::Instance();
        bus->RegisterMessageReceiver("listener.c",
                                     [this](const std::string& from, const std::string& message) {
                                         std::lock_guard<std::mutex> lock(mutex);
                                         EXPECT_EQ(from, "broadcast.c");
                                         messages.push_back(message);
                                     });
    }
    void TearDown() override {
        std::string response;
        Call("RegisterMessageCallback", R"({"IsRegister":false,"PluginID":"listener.c"})", response);
        bus->UnRegisterMessageReceiver("listener.c");
    }
    bool Call(const std::string& method, const std::string& request, std::string& response) {
        return bus->CallMethod(kPrefix + method, request, response);
    }
    std::size_t MessageCount() {
        std::lock_guard<std::mutex> lock(mutex);
        return messages.size();
    }
    static std::pair<int, int> Result(const std::string& response) {
        CRapidJsonProto doc;
        EXPECT_TRUE(doc.set_str(response)) << response;
        return {doc.get_int_v("/Response/ErrorModule", -99), doc.get_int_v("/Response/ErrorCode", -99)};
    }
    BusinessCommon::CPluginCommManager* bus = nullptr;
    std::mutex mutex;
    std::vector<std::string> messages;
};

}  // namespace

TEST_F(PublicApiTest, AllNineMethodsAreRegisteredUnderTheBroadcastPrefix) {
    for (const char* name :
         {"DownloadResource", "CleanCache", "StartIPSpeakerBroadcast", "UploadRecordFile", "WorkState",
          "StopIPSpeakerBroadcast", "Config", "RegisterMessageCallback", "BroadcastTerminals"}) {
        EXPECT_TRUE(bus->HasMethod(kPrefix + name)) << name;
        EXPECT_EQ(bus->GetMethodOwner(kPrefix + name), "broadcast.c");
    }
    EXPECT_TRUE(CPublishAPIManager::Instance()->Init()) << "a second Init is harmless";
}

TEST_F(PublicApiTest, StartRequestsAreParsedAndRefusedWithTheirLogLines) {
    CLogCapture log;
    std::string response;
    EXPECT_FALSE(Call("StartIPSpeakerBroadcast", R"({"Data":{"ElementIDs":"1,2"}})", response));
    EXPECT_TRUE(log.Contains("Cannot support this broadcast mode: -1", 5)) << "a missing Mode reads -1";
    EXPECT_TRUE(log.Contains("Parse request failed.", 5));
    EXPECT_NE(Result(response), std::make_pair(0, 0));
    EXPECT_TRUE(log.Contains(R"(Recevie ipspeaker broadcast request: {"Data":{"ElementIDs":"1,2"}})", 3));

    log.Clear();
    EXPECT_FALSE(Call("StartIPSpeakerBroadcast", "{{not json", response));
    EXPECT_TRUE(log.Contains("Parse request failed.", 5));
    EXPECT_FALSE(Call("StartIPSpeakerBroadcast", R"({"Data":{"ElementIDs":"1,x","Mode":0}})", response))
        << "element ids must be numbers";

    EXPECT_TRUE(Call("StartIPSpeakerBroadcast", R"({"Data":{"ElementIDs":"3,4","Mode":0}})", response));
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
    EXPECT_TRUE(Call("StartIPSpeakerBroadcast",
                     R"({"Data":{"ElementIDs":"3","Mode":1,"MediaFilePath":"/tmp/a.mp3"}})", response));
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
    EXPECT_TRUE(WaitFor([] { return CBroadcastController::Instance()->GetMainTaskCount() == 0; }));
    EXPECT_TRUE(log.Contains("Start ipspeaker voice speak. broadcast element id count:2.", 3));
    EXPECT_TRUE(log.Contains("file path: /tmp/a.mp3.", 3));
}

TEST_F(PublicApiTest, ListenersRegisterOnceUnregisterAndEmptyOrBadRequestsAreRefused) {
    CLogCapture log;
    std::string response;
    EXPECT_FALSE(Call("RegisterMessageCallback", "", response));
    EXPECT_TRUE(log.Contains("INPUT PARAMETERS ERROR", 5));
    EXPECT_NE(Result(response), std::make_pair(0, 0)) << "an empty request sets the error it answers with";
    EXPECT_FALSE(Call("RegisterMessageCallback", "{bad", response));
    EXPECT_TRUE(log.Contains("Input json error. json: {bad", 5));
    EXPECT_TRUE(log.Contains("Parse message failed.", 5));

    ASSERT_TRUE(Call("RegisterMessageCallback", R"({"IsRegister":true,"PluginID":"listener.c"})", response));
    EXPECT_EQ(Result(response), std::make_pair(0, 0)) << "the error is reset at entry";
    ASSERT_TRUE(Call("RegisterMessageCallback", R"({"IsRegister":true,"PluginID":"listener.c"})", response));
    EXPECT_EQ(CPublishAPIManager::Instance()->GetListeners(), (std::vector<std::string>{"listener.c"}));

    // The resource download fails without a platform session: the listener hears "/Method" 4, once.
    ASSERT_TRUE(Call("DownloadResource", "", response));
    ASSERT_TRUE(WaitFor([&] { return MessageCount() == 1; }));
    Settle(50);
    ASSERT_EQ(MessageCount(), 1u);
    EXPECT_EQ(messages[0], R"({"Method":4})");
    EXPECT_TRUE(log.Contains("Notify message to plugin, plugin id: listener.c, message: {\"Method\":4}.", 3));

    ASSERT_TRUE(Call("RegisterMessageCallback", R"({"IsRegister":false,"PluginID":"listener.c"})", response));
    EXPECT_TRUE(CPublishAPIManager::Instance()->GetListeners().empty());
    ASSERT_TRUE(Call("DownloadResource", "", response));
    EXPECT_TRUE(WaitFor([] { return CBroadcastController::Instance()->GetMainTaskCount() == 0; }));
    Settle(50);
    EXPECT_EQ(MessageCount(), 1u) << "an unregistered plugin hears nothing";
}

TEST_F(PublicApiTest, SpeakerStatesBecomeMethodTwoMessagesAndStartsMethodZero) {
    std::string response;
    ASSERT_TRUE(Call("RegisterMessageCallback", R"({"IsRegister":true,"PluginID":"listener.c"})", response));
    IPSpeakerNotifyParam started;
    started.type = 0;
    started.broadcastStatus = 0;
    IPSpeakerNotifyParam speaker;
    speaker.type = 1;
    speaker.elementID = 12;
    speaker.speakerStatus = 1;
    speaker.resourceStatus = 4;
    speaker.error = ErrorCode(1, 20, 2001);
    // Resource-status events have no speaker status: broadcasting says nothing (-1, never "connecting");
    // idle, as pushed once a broadcast has ended, says stopped (3).
    IPSpeakerNotifyParam broadcasting;
    broadcasting.type = 2;
    broadcasting.elementID = 12;
    broadcasting.resourceStatus = 2;
    IPSpeakerNotifyParam idle = broadcasting;
    idle.resourceStatus = 0;
    emit CBroadcastController::Instance()->SignalBroadcastState({started, speaker, broadcasting, idle});
    emit CBroadcastController::Instance()->SignalStopBroadcast("", ErrorCode(), nullptr);
    ASSERT_TRUE(WaitFor([&] { return MessageCount() == 5; }));
    EXPECT_EQ(messages[0], R"({"Method":0})");
    CRapidJsonProto state;
    ASSERT_TRUE(state.set_str(messages[1]));
    EXPECT_EQ(state.get_int_v("/Method", -1), 2);
    EXPECT_EQ(state.get_int_v("/Data/ID", -1), 12);
    EXPECT_EQ(state.get_int_v("/Data/NotifyType", -1), 1);
    EXPECT_EQ(state.get_int_v("/Data/PlayState", -1), 1);
    EXPECT_EQ(state.get_int_v("/Data/ConnectState", -1), 1);
    EXPECT_EQ(state.get_int_v("/Data/WorkState", -1), 4);
    EXPECT_NE(state.get_v("/Data/ErrorInfo").find("malformed"), std::string::npos);
    for (int i : {2, 3}) {
        CRapidJsonProto resourceState;
        ASSERT_TRUE(resourceState.set_str(messages[i]));
        EXPECT_EQ(resourceState.get_int_v("/Data/NotifyType", -9), 2);
        EXPECT_EQ(resourceState.get_int_v("/Data/PlayState", -9), i == 2 ? -1 : 3);
    }
    EXPECT_EQ(messages[4], R"({"Method":1})");
}

TEST_F(PublicApiTest, DeviceBroadcastRequestsAreCheckedAndResultsAndStatesReachListeners) {
    std::string response;
    for (const char* bad : {R"({"Data":{"DeviceIDs":""}})", R"({"Data":{"DeviceIDs":"1,x"}})", "{{", "{}"}) {
        EXPECT_FALSE(Call("StartDeviceBroadcast", bad, response)) << bad;
        EXPECT_NE(Result(response), std::make_pair(0, 0)) << bad;
    }
    ASSERT_TRUE(Call("RegisterMessageCallback", R"({"IsRegister":true,"PluginID":"listener.c"})", response));
    // Accepted and run: without a platform session the start fails, and the listener hears why.
    ASSERT_TRUE(Call("StartDeviceBroadcast", R"({"Data":{"DeviceIDs":"5,6","Type":1}})", response));
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
    ASSERT_TRUE(WaitFor([&] { return MessageCount() == 1; }));
    CRapidJsonProto started;
    ASSERT_TRUE(started.set_str(messages[0]));
    EXPECT_EQ(started.get_int_v("/Method", -1), 7);
    EXPECT_EQ(started.get_v("/Data/DeviceIDs"), "5,6");
    EXPECT_NE(started.get_int_v("/Data/ErrorCode", 0), 0);
    EXPECT_FALSE(started.get_v("/Data/ErrorInfo").empty());

    DeviceNotifyParam state;
    state.groupId = "G7";
    state.resourceId = 201;
    state.status = 2;
    state.resourceStatus = 4;
    state.errorInfo = "The device cannot be reached.";
    emit CBroadcastController::Instance()->SignalDeviceBroadcastState(state);
    ASSERT_TRUE(WaitFor([&] { return MessageCount() == 2; }));
    CRapidJsonProto device;
    ASSERT_TRUE(device.set_str(messages[1]));
    EXPECT_EQ(device.get_int_v("/Method", -1), 8);
    EXPECT_EQ(device.get_v("/Data/GroupId"), "G7");
    EXPECT_EQ(device.get_int_v("/Data/ID", -1), 201);
    EXPECT_EQ(device.get_int_v("/Data/Status", -1), 2);
    EXPECT_EQ(device.get_int_v("/Data/ResourceStatus", -1), 4);
    EXPECT_EQ(device.get_v("/Data/ErrorInfo"), "The device cannot be reached.");

    EXPECT_TRUE(Call("StopDeviceBroadcast", "{}", response)) << "stopping nothing succeeds";
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
}

TEST_F(PublicApiTest, ConfigTerminalsWorkStateStopAndUpload) {
    CLogCapture log;
    std::string response;
    ASSERT_TRUE(Call("Config", "", response));
    CRapidJsonProto config;
    ASSERT_TRUE(config.set_str(response));
    EXPECT_TRUE(config.is_exist("/ConfigParam/PomptVoiceParam/Enable")) << "the key is spelled Pompt";
    EXPECT_TRUE(config.is_exist("/ConfigParam/PomptVoiceParam/MediaFileID"));
    EXPECT_TRUE(config.is_exist("/ConfigParam/PomptVoiceParam/VoiceDuration"));
    EXPECT_TRUE(config.is_exist("/ConfigParam/RecordParam/StoragePool"));
    EXPECT_EQ(config.get_int_v("/ConfigParam/RecordParam/StorageID", 0), -1) << "empty cache: defaults";

    ASSERT_TRUE(Call("BroadcastTerminals", "", response));
    CRapidJsonProto terminals;
    ASSERT_TRUE(terminals.set_str(response));
    EXPECT_TRUE(terminals.is_exist("/BroadcastTerminalList/BroadcastTerminal"));
    EXPECT_EQ(terminals.get_cnt("/BroadcastTerminalList/BroadcastTerminal"), 0);

    ASSERT_TRUE(Call("WorkState", "", response));
    CRapidJsonProto state;
    ASSERT_TRUE(state.set_str(response));
    EXPECT_EQ(state.get_int_v("/Response/TaskRunState", -1), 0);

    EXPECT_TRUE(Call("StopIPSpeakerBroadcast", "", response)) << "nothing running: the stop is a success";
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
    EXPECT_TRUE(log.Contains("Receive stop broadcast request.", 3));

    EXPECT_FALSE(Call("UploadRecordFile", "not json", response));
    EXPECT_TRUE(log.Contains("Parse upload record file json failed. json: not json", 5));
    EXPECT_TRUE(
        Call("UploadRecordFile",
             R"({"Data":{"RecordDevice":"1","RecordFilePath":"/r.wav","RecordStartTime":"t","Mode":0}})",
             response));
    EXPECT_TRUE(Call("CleanCache", "", response));
    EXPECT_EQ(Result(response), std::make_pair(0, 0));
}

TEST(ProtocalFactory, TerminalListUsesOneBasedElementsAndNotificationKeys) {
    BroadcastTerminal a;
    a.ID = 3;
    a.Name = "Gate";
    a.AreaID = 1;
    a.AreaName = "North";
    a.TerminalStatus = 1;
    a.PartitionIDList = {7, 8};
    BroadcastTerminal outside;
    outside.ID = 4;
    CRapidJsonProto doc;
    ASSERT_TRUE(doc.set_str(CProtocalFactory::BuildTerminalsResponse({a, outside})));
    EXPECT_EQ(doc.get_cnt("/BroadcastTerminalList/BroadcastTerminal"), 2);
    EXPECT_EQ(doc.get_int_v("/BroadcastTerminalList/BroadcastTerminal[1]/ID", -1), 3);
    EXPECT_EQ(doc.get_v("/BroadcastTerminalList/BroadcastTerminal[1]/AreaName"), "North");
    EXPECT_EQ(doc.get_int_v("/BroadcastTerminalList/BroadcastTerminal[1]/WorkStatus", -1), 1);
    EXPECT_EQ(doc.get_int_v("/BroadcastTerminalList/BroadcastTerminal[1]/PartitionIDList/PartitionID[2]", -1),
              8);
    EXPECT_EQ(doc.get_int_v("/BroadcastTerminalList/BroadcastTerminal[2]/PartitionIDList/PartitionID[1]", 0),
              -1)
        << "a terminal outside every partition lists -1";

    CRapidJsonProto listen;
    ASSERT_TRUE(listen.set_str(CProtocalFactory::BuildBroadcastListeningResult(9, ErrorCode())));
    EXPECT_EQ(listen.get_v("/Method"), "BroadcastListeningResult");
    EXPECT_EQ(listen.get_int_v("/Data/Result", -1), 1);
    ASSERT_TRUE(listen.set_str(CProtocalFactory::BuildBroadcastListeningResult(9, ErrorCode(0, 0, 5))));
    EXPECT_EQ(listen.get_int_v("/Data/Result", -1), 0);

    std::vector<int32_t> ids;
    EXPECT_TRUE(CProtocalFactory::ParseElementIDs("", ids));
    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(CProtocalFactory::ParseElementIDs(" 1, 22 ,-3", ids));
    EXPECT_EQ(ids, (std::vector<int32_t>{1, 22, -3}));
    EXPECT_FALSE(CProtocalFactory::ParseElementIDs("1,,2", ids));
    EXPECT_FALSE(CProtocalFactory::ParseElementIDs("99999999999", ids));
    EXPECT_FALSE(CProtocalFactory::ParseElementIDs("1.5", ids));

    RecordTaskParam record;
    record.mode = 0;
    record.recordFilePath = "/a/b.wav";
    CRapidJsonProto upload;
    ASSERT_TRUE(upload.set_str(CProtocalFactory::BuildUploadRecordNotification(record)));
    EXPECT_EQ(upload.get_v("/Method"), "UploadRecordFile");
    EXPECT_EQ(upload.get_v("/Data/RecordFilePath"), "/a/b.wav");
    EXPECT_EQ(upload.get_int_v("/Data/MediaFileID", 0), -1);
}
