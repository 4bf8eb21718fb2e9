// The speaker manager's broadcast flows against the real platform over loopback, with a PulseAudio virtual
// microphone as the sound card.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ManagerFixture.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/resource/ResourceManager.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;

namespace {

class SpeakerManagerTest : public BroadcastTest::CManagerTest {};

}  // namespace

TEST(BroadcastTargets, EachAddressGoesToItsTransportAndDevicesGroupTheirChannels) {
    auto* devices = ResourceManager::CDeviceManager::Instance();
    auto* elements = ResourceManager::CElementManager::Instance();
    auto device = [&](int id, int type, int protocol, int port) {
        ResourceManager::DeviceInfo info;
        info.id = id;
        info.deviceType = type;
        info.accessProtocol = protocol;
        info.ipAddress = "10.0.0." + std::to_string(id % 250);
        info.port = port;
        devices->AddOrUpdateDevice(info);
    };
    auto element = [&](int id, int deviceId, int channel) {
        ResourceManager::ElementInfo info;
        info.id = id;
        info.name = "E" + std::to_string(id);
        info.deviceId = deviceId;
        info.channel = channel;
        elements->AddOrUpdateElement(info);
    };
    device(1, 2020, 23, 5004);  // RTP speaker
    device(2, 2001, 1, 8000);   // encoder on the device interface
    device(3, 2020, 1, 8001);   // speaker on the device interface
    device(4, 2001, 23, 9000);  // an encoder cannot take RTP
    element(11, 1, 1);
    element(21, 2, 1);
    element(22, 2, 2);
    element(31, 3, 1);
    element(41, 4, 1);
    auto address = [](int method, const std::string& url, std::vector<int> ids) {
        BroadcastUrlInfo info;
        info.Method = method;
        info.Url = url;
        info.Token = "tk";
        for (int id : ids) {
            BroadcastUrlResource r;
            r.ID = id;
            info.Resources.push_back(r);
        }
        return info;
    };
    const BroadcastTargets targets =
        CIPSpeakerManager::BuildTargets({address(kMethodStreamingV1, "[sms:9]rtsp://h:1/a]b", {99}),
                                         address(kMethodStreaming, "[sms:1]rtsp://x", {98}),
                                         address(kMethodDeviceSdk, "[sdk:1]d", {11, 21, 22, 31, 41, 77})},
                                        kEncodeG711U);
    ASSERT_EQ(targets.zps.size(), 1u) << "method 1 starts no transport";
    EXPECT_EQ(targets.zps[0].url, "rtsp://h:1/a]b") << "everything up to the first ] is removed";
    EXPECT_EQ(targets.zps[0].token, "tk");
    EXPECT_EQ(targets.zps[0].userName, "username");
    EXPECT_EQ(targets.zps[0].password, "password");
    ASSERT_EQ(targets.oem.size(), 1u) << "only the 2020/23 speaker goes by RTP";
    EXPECT_EQ(targets.oem[0].elementID, 11);
    EXPECT_EQ(targets.oem[0].port, 5004);
    ASSERT_EQ(targets.sdk.size(), 2u);
    EXPECT_EQ(targets.sdk[0].deviceID, 2);
    ASSERT_EQ(targets.sdk[0].channels.size(), 2u) << "two elements of one device: one target";
    EXPECT_EQ(targets.sdk[0].channels[1].channel, 2);
    EXPECT_EQ(targets.sdk[1].deviceID, 3);
    devices->Clear();
    elements->Clear();
}

TEST_F(SpeakerManagerTest, EmptyElementListSendsTheStartEventAndNoServerStatus) {
    CIPSpeakerManager::Instance()->StartSpeakVoice({}, 77);
    auto batches = events_->Batches();
    ASSERT_FALSE(batches.empty());
    ASSERT_EQ(batches[0].size(), 1u);
    EXPECT_EQ(batches[0][0].type, 0);
    EXPECT_EQ(batches[0][0].broadcastStatus, 0);
    EXPECT_EQ(batches[0][0].requestID, 77);
    EXPECT_EQ(events_->CountStage(2), 0) << "no element, no failure event";
    EXPECT_TRUE(Requests(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus")).empty());
    PlatformTest::RestReply oplog = Control("GET", "/oplog");
    EXPECT_EQ(oplog.Int("/ResponseStatus/Data/OperationLogList/0/LogType"), 265001);
    EXPECT_EQ(oplog.Str("/ResponseStatus/Data/OperationLogList/0/ElementName"), "");
}

TEST_F(SpeakerManagerTest, AutomaticAndDefaultAccessTypesUseTheConfiguredDefault) {
    // Device 102 has access type 0 and 201 (elements 1004, 1005) type 4: both take the configured
    // BroadcastMode 2; 1003's device has its own type 3.
    std::vector<BroadcastUrlInfo> urls;
    ASSERT_TRUE(CIPSpeakerManager::Instance()->RequestIPSPeakerUrl(urls, {1002, 1004, 1003}, false, 2, true));
    auto bodies = Requests(Plugin("/RealTimeBroadcast/CommonUrlList"));
    ASSERT_EQ(bodies.size(), 1u);
    EXPECT_EQ(bodies[0].get_cnt("/CommonUrlRequest"), 2);
    EXPECT_EQ(bodies[0].get_v("/CommonUrlRequest[1]/ResourceIDs"), "1002,1004");
    EXPECT_EQ(bodies[0].get_int_v("/CommonUrlRequest[1]/AdaptiveNetWork", -1), 2);
    EXPECT_EQ(bodies[0].get_v("/CommonUrlRequest[2]/ResourceIDs"), "1003");
    EXPECT_EQ(bodies[0].get_int_v("/CommonUrlRequest[2]/AdaptiveNetWork", -1), 3);
    EXPECT_EQ(bodies[0].get_int_v("/CommonUrlRequest[1]/AudioSource", -1), 1);
    EXPECT_EQ(bodies[0].get_int_v("/CommonUrlRequest[1]/IsPromptToneSupportedInFront", -1), 1);
    EXPECT_FALSE(urls.empty());
}

TEST_F(SpeakerManagerTest, AStopDuringThePromptToneWaitEndsTheStartWithoutFailureEvents) {
    CLogCapture log;
    std::atomic<bool> returned{false};
    bool result = false;
    // 1006 is an RTP speaker: no streaming-server target, so the prompt tone is requested and waited for.
    std::thread start([&] {
        result = CIPSpeakerManager::Instance()->StartSpeakVoice({1006}, 5);
        returned = true;
    });
    ASSERT_TRUE(
        BcastTest::WaitFor([&] { return log.Contains("Start to wait prompt voice play finish"); }, 15000));
    EXPECT_FALSE(returned.load()) << "the start waits for the prompt tone";
    CIPSpeakerManager::Instance()->SetStopFlag(true);
    ASSERT_TRUE(BcastTest::WaitFor([&] { return returned.load(); }, 5000)) << "the wait polls the stop flag";
    start.join();
    EXPECT_TRUE(result) << "a start stopped on the way is not a failure";
    EXPECT_EQ(events_->CountStage(2), 0);
    EXPECT_EQ(events_->CountStage(5), 0) << "the devices were never started";
    EXPECT_EQ(Requests(Plugin("/RealTimeBroadcast/StartPromptTone")).size(), 1u);
    EXPECT_TRUE(log.Contains("Broadcast has already: 0."));
}

TEST_F(SpeakerManagerTest, PromptToneFinishIsReportedOnceAndARecordingFailureDoesNotFailTheTalk) {
    // Recordings go below the capture directory: a file in its place makes the directory impossible.
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath("/proc/version/");
    CLogCapture log;
    g_promptToneReported = true;  // the live talk's start clears it
    ASSERT_TRUE(CIPSpeakerManager::Instance()->StartSpeakVoice({1006}, 9));
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(captureDir_);
    EXPECT_TRUE(log.Contains("Start voice record failed.", 5));
    EXPECT_EQ(events_->CountStage(2), 0);
    EXPECT_EQ(events_->CountStage(3), 1) << "the first status 100 reports the prompt tone's end";
    EXPECT_EQ(events_->CountStage(4), 1);
    EXPECT_EQ(events_->CountStage(5), 1);
    auto speakers = CIPSpeakerManager::Instance()->GetSpeakerStates();
    ASSERT_EQ(speakers.count(1006), 1u);
    const std::string guid = speakers.at(1006).groupGUID;

    // A second status 100 of the same broadcast sends no second prompt-tone event.
    CRapidJsonProto frame;
    frame.set_v("/MessageType", 3);
    frame.set_v("/EventType", 310001);
    frame.set_v("/Data/Event/BroadcastStatusList[1]/BoardcastGroupGUID", guid);
    frame.set_v("/Data/Event/BroadcastStatusList[1]/ResourceID", 1006);
    frame.set_v("/Data/Event/BroadcastStatusList[1]/Status", 100);
    frame.set_v("/Data/Event/BroadcastStatusList[1]/ErrorCode", 0);
    frame.set_v("/Data/Event/BroadcastStatusList[1]/ErrorModule", 0);
    const std::size_t before = events_->Batches().size();
    ASSERT_EQ(Control("POST", "/push/send", frame.get_str(0)).ErrorCode(), 0);
    ASSERT_TRUE(BcastTest::WaitFor([&] { return events_->Batches().size() > before; }, 5000));
    EXPECT_EQ(events_->CountStage(3), 1);

    // A push without the status list notifies an empty list.
    CRapidJsonProto empty;
    empty.set_v("/MessageType", 3);
    empty.set_node_str("/Data/Event", "{}");
    const std::size_t count = events_->Batches().size();
    ASSERT_EQ(Control("POST", "/push/send", empty.get_str(0)).ErrorCode(), 0);
    // The talk's own statuses may arrive meanwhile: look for the empty batch among those after the push.
    auto emptyBatchSince = [&] {
        const auto batches = events_->Batches();
        for (std::size_t i = count; i < batches.size(); ++i) {
            if (batches[i].empty()) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(BcastTest::WaitFor(emptyBatchSince, 5000));
}
