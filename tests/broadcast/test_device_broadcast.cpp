// Live talk to devices that are not IP speakers, through the device broadcast manager in this process: the
// real platform hands out the group and pushes the devices' states, the simulated devices receive the talk
// over the device protocol and record it, and a PulseAudio virtual microphone speaks.

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "DeviceStatusLog.h"
#include "ManagerFixture.h"
#include "QtWait.h"
#include "TestProcess.h"
#include "framework/base/ErrorCode.h"
#include "framework/media/videotool/DeviceStateBoard.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/RapidJsonProto.h"

using BcastTest::CBackgroundProcess;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::ErrorCode;
using TOOL::CBroadcastBusinessManager;

namespace {

constexpr const char* kSentence = "Visitor at the gate. Please open the barrier.";

using CStatusLog = BroadcastTest::CDeviceStatusLog;

class DeviceBroadcastTest : public BroadcastTest::CSentenceTest {
protected:
    static void SetUpTestSuite() {
        StartWithSentence(kSentence, "device-speech");
        // Every push goes to the device broadcast manager too, as the controller hands it on.
        BroadCastPlugin::CFrameMessageMgr::Instance()->SetMessageCallback(
            [](const BroadCastPlugin::PushMessage& message, int) {
                CBroadcastBusinessManager::PushBroadcastState(message.data);
                BroadCastPlugin::CIPSpeakerManager::Instance()->HandleWebsocketMessage(message);
            });
    }
    static void TearDownTestSuite() { StopWithSentence(); }
    void SetUp() override {
        CManagerTest::SetUp();
        log_.Clear();
        ASSERT_TRUE(CBroadcastBusinessManager::InitManager());
        CBroadcastBusinessManager::SetBroadcastResoluteCallback(&CStatusLog::Collect, &log_);
    }
    void TearDown() override {
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        CBroadcastBusinessManager::UninitManager();
        CManagerTest::TearDown();
    }

    static bool Start(const std::string& ids) {
        TOOL::CRequestBroadcast request;
        request.device_ids = ids;
        return CBroadcastBusinessManager::StartBroadcast(request);
    }
    static CRapidJsonProto SimDevice(int deviceId) { return Device(deviceId); }
    static int TalksActive(int deviceId) { return SimDevice(deviceId).get_int_v("/TalksActive", -1); }
    static BcastTool::AudioMatch DeviceMatch(int deviceId) {
        BcastTool::PcmAudio recording;
        std::string error;
        const std::string path = SimDevice(deviceId).get_v("/WavPath", "");
        if (!BcastTool::ReadWavMono(path, recording, error)) {
            ADD_FAILURE() << "device " << deviceId << " (" << path << "): " << error;
            return {};
        }
        return BcastTool::CompareAudio(*sentence_, recording, 8.0);
    }
    static ErrorCode Framework(int code) {
        return ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework, code);
    }
    // A short talk to device 201 that the device hears: the broadcast after a fault still works.
    void ExpectAWorkingTalk() {
        SCOPED_TRACE("the next device broadcast");
        log_.Clear();
        const uint64_t before = static_cast<uint64_t>(SimDevice(201).get_int64_v("/Bytes", 0));
        ASSERT_TRUE(Start("201")) << Tal::Base::Error::GetLastError().ToString();
        EXPECT_TRUE(WaitFor(
            [&] { return static_cast<uint64_t>(SimDevice(201).get_int64_v("/Bytes", 0)) > before + 8000; },
            10000))
            << "the device hears the microphone";
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        EXPECT_EQ(log_.StatusesOf(201),
                  (std::vector<int>{TOOL::kDeviceConnecting, TOOL::kDevicePlaying, TOOL::kDeviceStopped}))
            << log_.Dump();
    }

    CStatusLog log_;
};

}  // namespace

TEST_F(DeviceBroadcastTest, TheSpokenSentenceReachesEveryDeviceAndEachStateComesOnceInOrder) {
    // 201 an encoder with a loudspeaker (a door station), 202 a camera, 4242 no device of the site.
    ASSERT_TRUE(Start("201,202,4242")) << Tal::Base::Error::GetLastError().ToString();
    CBackgroundProcess player;
    ASSERT_TRUE(pulse_->StartPlaying(SentenceWav(), &player));
    ASSERT_TRUE(player.Wait(20000)) << "paplay ends with the sentence";
    BcastTest::Settle(1000);  // the tail of the sentence is still on its way
    for (int id : {201, 202}) {
        EXPECT_EQ(TalksActive(id), 1) << "device " << id << " talks while the broadcast runs";
    }
    // The platform's pushes arrive while the talk runs: let them come before the stop.
    BcastTest::Settle(500);
    ASSERT_TRUE(CBroadcastBusinessManager::StopBroadcast());

    const std::vector<int> inOrder = {TOOL::kDeviceConnecting, TOOL::kDevicePlaying, TOOL::kDeviceStopped};
    for (int id : {201, 202}) {
        SCOPED_TRACE("device " + std::to_string(id));
        EXPECT_EQ(log_.StatusesOf(id), inOrder) << log_.Dump();
        EXPECT_EQ(TalksActive(id), 0) << "the stop ended the talk on the device";
        const BcastTool::AudioMatch match = DeviceMatch(id);
        EXPECT_GE(match.correlation, 0.9) << "delay " << match.delayMs << " ms";
        EXPECT_GT(match.delayMs, -1000.0) << "the recording cannot start much after the sentence";
    }
    // The unknown id failed with the platform's reason, and only that.
    EXPECT_EQ(log_.StatusesOf(4242), (std::vector<int>{TOOL::kDeviceFailed, TOOL::kDeviceStopped}))
        << log_.Dump();

    // Every status of the run belongs to one group, which the platform has ended.
    const std::vector<CRapidJsonProto> docs = log_.Docs();
    ASSERT_FALSE(docs.empty());
    const std::string group = docs.front().get_v("/GroupId", "");
    EXPECT_FALSE(group.empty());
    for (const CRapidJsonProto& doc : docs) {
        EXPECT_EQ(doc.get_v("/GroupId", ""), group);
        EXPECT_EQ(doc.get_int_v("/NotifyType", -1), 1);
    }
    EXPECT_EQ(Control("GET", "/device-broadcasts").body.find(R"("Active":true)"), std::string::npos)
        << "no group left open on the platform";
    EXPECT_EQ(Requests("/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Stop").size(), 1u);

    // Stopping again and pushes of the ended group change nothing.
    log_.Clear();
    EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
    EXPECT_FALSE(CBroadcastBusinessManager::PushBroadcastState(R"({"NotifyType":1,"GroupId":")" + group +
                                                               R"(","IndexCode":"201","Status":2})"));
    EXPECT_TRUE(log_.Docs().empty());
}

TEST_F(DeviceBroadcastTest, EachFaultFailsWhatItShouldAndTheNextBroadcastWorks) {
    ExpectAWorkingTalk();  // threads that live as long as the process are up from here on
    const int threads = ThreadCount();
    {
        SCOPED_TRACE("a device that is switched off");
        log_.Clear();
        ASSERT_EQ(Control("POST", "/device/202", R"({"Online":false})").Int("/ResponseStatus/ErrorCode"), 0);
        ASSERT_TRUE(Start("201,202")) << "the device that is on still talks";
        EXPECT_TRUE(WaitFor([&] { return log_.StatusesOf(201).size() >= 2; }, 10000)) << log_.Dump();
        const CRapidJsonProto off = log_.LastOf(202);
        EXPECT_EQ(off.get_int_v("/Status", -1), TOOL::kDeviceFailed) << log_.Dump();
        EXPECT_EQ(off.get_int_v("/ResourceStatus", -1), TOOL::kDeviceOffline);
        EXPECT_FALSE(off.get_v("/ErrorInfo", "").empty()) << "the failure says why";
        EXPECT_EQ(log_.StatusesOf(201).back(), TOOL::kDevicePlaying);
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        EXPECT_EQ(log_.StatusesOf(202).back(), TOOL::kDeviceStopped);
        Control("POST", "/device/202", R"({"Online":true})");
    }
    {
        SCOPED_TRACE("one device refuses the talk");
        log_.Clear();
        Control("POST", "/device/201", R"({"RefusedChannels":[1]})");
        ASSERT_TRUE(Start("201,202")) << Tal::Base::Error::GetLastError().ToString();
        EXPECT_TRUE(WaitFor([&] { return log_.StatusesOf(202).size() >= 2; }, 10000)) << log_.Dump();
        EXPECT_EQ(log_.StatusesOf(201), (std::vector<int>{TOOL::kDeviceConnecting, TOOL::kDeviceFailed}))
            << log_.Dump();
        EXPECT_FALSE(log_.LastOf(201).get_v("/ErrorInfo", "").empty());
        EXPECT_EQ(log_.StatusesOf(202).back(), TOOL::kDevicePlaying) << log_.Dump();
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        Control("POST", "/device/201", R"({"RefusedChannels":[]})");
    }
    {
        SCOPED_TRACE("the platform refuses the group");
        log_.Clear();
        AddFault("POST", "/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Start",
                 R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"Count":1)");
        EXPECT_FALSE(Start("201,202"));
        EXPECT_EQ(Tal::Base::Error::GetLastError().GetMainErrorCode(), 30);
        EXPECT_EQ(Tal::Base::Error::GetLastError().GetSubErrorCode(), 6);
        EXPECT_TRUE(log_.Docs().empty()) << "no device was tried";
    }
    {
        SCOPED_TRACE("a stop while the start waits for the platform");
        log_.Clear();
        AddFault("POST", "/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Start",
                 R"("Kind":"delay","DelayMs":1500,"Count":1)");
        BroadcastTest::CStartCall call([] { return Start("201,202"); });
        BcastTest::Settle(500);
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast()) << "the stop waits for the start to give up";
        ASSERT_TRUE(call.Finish());
        EXPECT_FALSE(call.Result());
        EXPECT_EQ(TalksActive(201), 0);
        EXPECT_EQ(TalksActive(202), 0);
        EXPECT_TRUE(WaitFor(
            [] {
                return Control("GET", "/device-broadcasts").body.find(R"("Active":true)") ==
                       std::string::npos;
            },
            5000))
            << "the group the platform made meanwhile is ended";
    }
    {
        SCOPED_TRACE("a second device broadcast, and a speaker broadcast beside it");
        log_.Clear();
        ASSERT_TRUE(Start("201"));
        EXPECT_FALSE(Start("202"));
        EXPECT_EQ(Tal::Base::Error::GetLastError(), Framework(Tal::Base::Error::kCodeBusy));
        auto talk = std::make_unique<BroadcastTest::CStartCall>(
            [] { return BroadCastPlugin::CIPSpeakerManager::Instance()->StartSpeakVoice({1006}, 77); });
        ASSERT_TRUE(talk->Finish());
        EXPECT_TRUE(talk->Result()) << "the speaker broadcast starts beside the device broadcast";
        const uint64_t bytes = static_cast<uint64_t>(SimDevice(201).get_int64_v("/Bytes", 0));
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1006) > 8000; }, 10000))
            << "the speaker hears the talk";
        EXPECT_TRUE(WaitFor(
            [&] { return static_cast<uint64_t>(SimDevice(201).get_int64_v("/Bytes", 0)) > bytes + 8000; },
            10000))
            << "and so does the device";
        BroadCastPlugin::CIPSpeakerManager::Instance()->Stop();
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        EXPECT_EQ(log_.StatusesOf(201).back(), TOOL::kDeviceStopped);
    }
    EXPECT_TRUE(WaitFor([threads] { return ThreadCount() <= threads; }, 5000))
        << "threads before: " << threads << ", now: " << ThreadCount();
    ExpectAWorkingTalk();
}
