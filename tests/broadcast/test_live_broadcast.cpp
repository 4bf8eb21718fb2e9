// Live talks end to end: the speaker manager of this process, the platform's simulated speakers on all three
// transports, and a virtual microphone that really speaks. What each speaker recorded is compared with what
// was spoken; faults end in the events and server statuses the broadcast logic gives, leave no thread
// behind, and the next broadcast works.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "AudioCheck.h"
#include "ManagerFixture.h"
#include "PlatformProcess.h"
#include "SiteText.h"
#include "TestProcess.h"
#include "framework/base/FormatLog.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/resource/ResourceManager.h"
#include "support/QtWait.h"
#include "tool/audio/AudioCompare.h"

using namespace BroadCastPlugin;
using BcastTest::CBackgroundProcess;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;

namespace {

constexpr const char* kSentence = "Attention please. The building will close in ten minutes.";

class LiveBroadcastTest : public BroadcastTest::CSentenceTest {
protected:
    static void SetUpTestSuite() { StartWithSentence(kSentence, "live-speech"); }
    static void TearDownTestSuite() { StopWithSentence(); }

    // Starts a live talk on a thread of its own, the way the controller's worker runs it.
    static std::unique_ptr<BroadcastTest::CStartCall> Start(std::vector<int32_t> ids, int64_t requestId) {
        return std::make_unique<BroadcastTest::CStartCall>(
            [ids, requestId] { return CIPSpeakerManager::Instance()->StartSpeakVoice(ids, requestId); });
    }
    static bool SpeakOnce(CBackgroundProcess& player) { return pulse_->StartPlaying(SentenceWav(), &player); }
    static BcastTool::AudioMatch MatchOf(int elementId) {
        return CManagerTest::MatchOf(elementId, *sentence_);
    }
    // A talk to an RTP speaker that hears the microphone: the broadcast after a fault still works.
    static void ExpectAWorkingTalk() {
        SCOPED_TRACE("the next broadcast");
        events_->Clear();
        auto call = Start({1006}, 99);
        ASSERT_TRUE(call->Finish());
        EXPECT_TRUE(call->Result());
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1006) > 4000; }, 10000))
            << "the speaker hears the talk";
        EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1006, 1) > 0; }, 5000))
            << "pushes reach the manager";
        CIPSpeakerManager::Instance()->Stop();
        EXPECT_TRUE(WaitFor([] { return Phase(1006) == "stopped"; }, 5000)) << Phase(1006);
    }
};

}  // namespace

TEST_F(LiveBroadcastTest, TheSpokenSentenceReachesEverySpeakerOnAllThreeTransports) {
    // 1001 through the streaming server, 1003 and 1004 through the device interface (two devices), 1006 by
    // RTP over UDP.
    const std::vector<int32_t> ids = {1001, 1003, 1004, 1006};
    auto call = Start(ids, 21);
    ASSERT_TRUE(call->Finish()) << "the start waits for the streaming group's prompt tone, then returns";
    ASSERT_TRUE(call->Result());
    EXPECT_EQ(events_->CountStage(0), 1);
    EXPECT_EQ(events_->CountStage(3), 1) << "the prompt tone's end, once";
    EXPECT_EQ(events_->CountStage(5), 1);
    EXPECT_EQ(events_->CountStage(2), 0);

    CBackgroundProcess player;
    ASSERT_TRUE(SpeakOnce(player));
    // The microphone's meter moves with the sentence.
    float loudest = 0.0f;
    EXPECT_TRUE(WaitFor(
        [&] {
            loudest = std::max(loudest, CIPSpeakerManager::Instance()->GetCaptureLevel());
            return loudest > 0.05f;
        },
        10000))
        << "the capture level while the sentence is spoken: " << loudest;
    EXPECT_LE(loudest, 1.0f);
    EXPECT_EQ(CIPSpeakerManager::Instance()->GetListenLevel(), 0.0f) << "nobody listens";
    ASSERT_TRUE(player.Wait(20000)) << "paplay ends with the sentence";
    BcastTest::Settle(1000);  // the tail of the sentence is still on its way
    for (int id : ids) {
        EXPECT_GE(events_->CountSpeakerStatus(id, 1), 1) << "speaker " << id << " reported playing";
        EXPECT_EQ(Phase(id), "playing") << id;
    }
    CIPSpeakerManager::Instance()->Stop();
    EXPECT_EQ(CIPSpeakerManager::Instance()->GetBroadcastKind(), -1);
    EXPECT_EQ(CIPSpeakerManager::Instance()->GetCaptureLevel(), 0.0f) << "no live talk captures";

    for (int id : ids) {
        SCOPED_TRACE("speaker " + std::to_string(id));
        EXPECT_TRUE(WaitFor([id] { return Phase(id) == "stopped"; }, 5000)) << Phase(id);
        const BcastTool::AudioMatch match = MatchOf(id);
        EXPECT_GE(match.correlation, 0.7) << "delay " << match.delayMs << " ms";
        EXPECT_GT(match.delayMs, -1000.0) << "the recording cannot start much after the sentence";
    }
    ExpectStartedThenStopped();
    EXPECT_EQ(OperationLogTypes(), (std::vector<int>{265001, 265002}));
}

TEST_F(LiveBroadcastTest, EachFaultFailsWhatItShouldAndTheNextBroadcastWorks) {
    ExpectAWorkingTalk();  // threads that live as long as the process are up from here on
    const int threads = ThreadCount();
    {
        SCOPED_TRACE("a device that refuses the login");
        // The device sender logs in on its own thread: the start succeeds, that device stays silent and
        // says why in the log, the others play.
        ASSERT_EQ(Control("POST", "/device/103", R"({"RefuseLogin":true})").ErrorCode(), 0);
        // A login made by an earlier broadcast would still be good: start from a client logged out.
        auto device = ResourceManager::CDeviceManager::Instance()->FindDeviceByID(103);
        ASSERT_NE(device, nullptr);
        device->Logout();
        const CRapidJsonProto before = Device(103);
        events_->Clear();
        CLogCapture log;
        auto call = Start({1003, 1006}, 31);
        ASSERT_TRUE(call->Finish());
        EXPECT_TRUE(call->Result());
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1006) > 4000; }, 10000));
        EXPECT_TRUE(log.Contains("Login failed!", 5));
        const CRapidJsonProto after = Device(103);
        EXPECT_EQ(after.get_int_v("/TalksOpened", -1), before.get_int_v("/TalksOpened", -2))
            << "no talk reached the device";
        EXPECT_EQ(events_->CountSpeakerStatus(1003, 1, GroupOf(1003)), 0);
        EXPECT_EQ(events_->CountStage(2), 0);
        CIPSpeakerManager::Instance()->Stop();
        ExpectStartedThenStopped();
        Control("POST", "/reset");
    }
    {
        SCOPED_TRACE("a speaker that never connects");
        ASSERT_EQ(Control("POST", "/speaker/1006", R"({"Connects":false})").ErrorCode(), 0);
        events_->Clear();
        auto call = Start({1004, 1006}, 33);
        ASSERT_TRUE(call->Finish()) << "1004's prompt tone ends the wait";
        EXPECT_TRUE(call->Result()) << "the start does not wait for every speaker";
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1004) > 4000; }, 10000));
        EXPECT_EQ(SamplesPlayed(1006), 0);
        EXPECT_EQ(events_->CountSpeakerStatus(1006, 1, GroupOf(1006)), 0);
        EXPECT_EQ(events_->CountStage(2), 0);
        CIPSpeakerManager::Instance()->Stop();
        ExpectStartedThenStopped();
        Control("POST", "/reset");
    }
    BcastTest::Settle(500);
    EXPECT_LE(ThreadCount(), threads) << "the failed broadcasts left threads behind";
    ExpectAWorkingTalk();
    BcastTest::Settle(500);
    EXPECT_LE(ThreadCount(), threads);
}

TEST_F(LiveBroadcastTest, AStopDuringEachStepOfTheStartEndsItWithoutFailureOrLeftovers) {
    ExpectAWorkingTalk();
    const int threads = ThreadCount();
    struct Step {
        const char* name;
        const char* method;
        std::string path;
    };
    // Each step is held by a slow answer of the platform while the stop arrives from another thread.
    const std::vector<Step> steps = {
        {"configuration", "GET", Plugin("/BaseConfig")},
        {"element lookup", "POST", "/DXAPI/Galewing/Platform/V1/Resource/IncrementalDownload"},
        {"address request", "GET", Plugin("/RealTimeBroadcast/CommonUrlList")},
        {"prompt tone request", "POST", Plugin("/RealTimeBroadcast/StartPromptTone")},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        Control("POST", "/reset");
        events_->Clear();
        ASSERT_GT(AddFault(step.method, step.path, R"("Kind":"delay","DelayMs":1500,"Count":-1)"), 0);
        const double before1004 = TotalSeconds(1004);
        const double before1006 = TotalSeconds(1006);
        CLogCapture log;
        auto call = Start({1004, 1006}, 41);
        ASSERT_TRUE(WaitFor(
            [&] {
                PlatformTest::RestReply faults = Control("GET", "/faults");
                return faults.Int("/ResponseStatus/Data/Faults/0/Hits", 0) > 0;
            },
            15000))
            << "the start reached the step";
        CIPSpeakerManager::Instance()->Stop();
        ASSERT_TRUE(call->Finish());
        EXPECT_TRUE(call->Result()) << "a start stopped on the way is not a failure";
        EXPECT_EQ(events_->CountStage(2), 0);
        EXPECT_EQ(events_->CountStage(5), 0) << "the device transports never start";
        EXPECT_TRUE(log.Contains("Broadcast has already: ")) << "the end sees the stop";
        BcastTest::Settle(300);
        EXPECT_EQ(TotalSeconds(1004), before1004) << "nothing reached the speakers";
        EXPECT_EQ(TotalSeconds(1006), before1006);
        CIPSpeakerManager::Instance()->Stop();
    }
    Control("POST", "/reset");
    BcastTest::Settle(500);
    EXPECT_LE(ThreadCount(), threads);
    ExpectAWorkingTalk();
}

TEST_F(LiveBroadcastTest, ListeningPlaysTheSpeakersAudioAndAFailedListenLeavesNothingRunning) {
    auto* manager = CIPSpeakerManager::Instance();
    // Device 101 (element 1001) plays its idle tone while no broadcast reaches it.
    const double tone = Speaker(1001).get_double_v("/IdleToneHz", 0);
    ASSERT_GT(tone, 0);
    auto listen = [&](int id) {
        EXPECT_EQ(manager->GetListenLevel(), 0.0f);
        manager->StartBroadcastListen(id);
        ASSERT_TRUE(manager->IsListening());
        BcastTest::CTempDir dir("listen-out");
        CBackgroundProcess recorder;
        ASSERT_TRUE(pulse_->StartRecording(dir.File("out.raw"), 8000, &recorder));
        // The idle tone is a sine at 0.3 of full scale; the meter reads the peak of each decoded block.
        EXPECT_TRUE(WaitFor([&] { return manager->GetListenLevel() > 0.25f; }, 2500))
            << manager->GetListenLevel();
        EXPECT_LT(manager->GetListenLevel(), 0.35f);
        EXPECT_EQ(manager->GetCaptureLevel(), 0.0f) << "listening captures nothing";
        BcastTest::Settle(2500);
        recorder.Stop();
        EXPECT_TRUE(manager->StopBroadcastListen());
        EXPECT_FALSE(manager->IsListening());
        EXPECT_EQ(manager->GetListenLevel(), 0.0f);
        const std::vector<int16_t> played =
            BcastTest::TrimSilence(BcastTest::ReadRawPcm(dir.File("out.raw")));
        ASSERT_GT(played.size(), 8000u) << "at least a second of sound reached the output";
        EXPECT_NEAR(BcastTest::DominantFrequency(played, 8000), tone, 15.0);
        EXPECT_EQ(OperationLogTypes().back(), 203002);
    };
    {
        SCOPED_TRACE("a listen that works: what the speaker plays comes out of the default output");
        listen(101);
    }
    BcastTest::Settle(300);
    const int threads = ThreadCount();  // the media libraries keep a few threads once used
    {
        SCOPED_TRACE("the platform has no address for the listen");
        ASSERT_GT(AddFault("POST", "/DXAPI/Galewing/Platform/V1/VoiceTalk/Url",
                           R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"Count":1)"),
                  0);
        CLogCapture log;
        manager->StartBroadcastListen(101);
        EXPECT_FALSE(manager->IsListening());
        EXPECT_TRUE(log.Contains("Request voice talk url failed."));
    }
    {
        SCOPED_TRACE("the streaming server refuses the listen");
        ASSERT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":true,"RefuseStatus":503})").ErrorCode(),
                  0);
        CLogCapture log;
        manager->StartBroadcastListen(101);
        EXPECT_FALSE(manager->IsListening());
        EXPECT_TRUE(log.Contains("Start listen from zps failed."));
        ASSERT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":false})").ErrorCode(), 0);
    }
    // The media libraries' threads end shortly after their session: wait for them, bounded.
    EXPECT_TRUE(WaitFor([threads] { return ThreadCount() <= threads; }, 5000))
        << "a failed listen leaves nothing running: " << ThreadCount() << " threads, " << threads
        << " before";
    {
        SCOPED_TRACE("the next listen works, asked by the speaker's element id as the web page does");
        listen(1001);
    }
    EXPECT_TRUE(WaitFor([threads] { return ThreadCount() <= threads; }, 5000))
        << ThreadCount() << " threads, " << threads << " before";
}

namespace {

constexpr const char* kMulticastGroup = "239.255.42.7";

// The demo site with three pole speakers that a site made members of one multicast group.
class MulticastTalkTest : public BroadcastTest::CSentenceTest {
protected:
    static void SetUpTestSuite() {
        site_ = new BcastTest::CTempDir("multicast-site");
        CRapidJsonProto demo;
        ASSERT_TRUE(demo.set_str(PlatformTest::ReadFile(PlatformTest::DemoFixture())));
        std::string text = demo.get_str();
        ASSERT_TRUE(PlatformTest::AddUdpSpeakers(text, {{401, 1101, "Deck pole 1", kMulticastGroup},
                                                        {402, 1102, "Deck pole 2", kMulticastGroup},
                                                        {403, 1103, "Deck pole 3", kMulticastGroup}}));
        std::ofstream(site_->File("site.json")) << text;
        StartWithSentence(kSentence, "multicast-speech", site_->File("site.json"));
    }
    static void TearDownTestSuite() {
        StopWithSentence();
        delete site_;
        site_ = nullptr;
    }
    static BcastTest::CTempDir* site_;
};

BcastTest::CTempDir* MulticastTalkTest::site_ = nullptr;

}  // namespace

TEST_F(MulticastTalkTest, TheGroupsSpeakersHearOneStreamAndAUnicastSpeakerItsOwn) {
    const std::vector<int32_t> members = {1101, 1102, 1103};
    std::vector<int32_t> ids = members;
    ids.push_back(1006);
    auto call = std::make_unique<BroadcastTest::CStartCall>(
        [ids] { return CIPSpeakerManager::Instance()->StartSpeakVoice(ids, 31); });
    ASSERT_TRUE(call->Finish());
    ASSERT_TRUE(call->Result());
    CBackgroundProcess player;
    ASSERT_TRUE(pulse_->StartPlaying(SentenceWav(), &player));
    ASSERT_TRUE(player.Wait(20000)) << "paplay ends with the sentence";
    BcastTest::Settle(1000);
    CIPSpeakerManager::Instance()->Stop();

    for (int id : ids) {
        SCOPED_TRACE("speaker " + std::to_string(id));
        EXPECT_GE(events_->CountSpeakerStatus(id, 1), 1) << "reported playing";
        EXPECT_TRUE(WaitFor([id] { return Phase(id) == "stopped"; }, 5000)) << Phase(id);
        const BcastTool::AudioMatch match = MatchOf(id, *sentence_);
        EXPECT_GE(match.correlation, 0.7) << "delay " << match.delayMs << " ms";
    }
    // One stream for the group: every member got the same packets from the same socket, on the group's
    // shared port; the unicast speaker's stream came from elsewhere.
    const CRapidJsonProto first = Device(401);
    ASSERT_GT(first.get_int_v("/Packets", 0), 50) << first.get_str();
    EXPECT_EQ(first.get_v("/Address", ""), kMulticastGroup);
    for (int device : {402, 403}) {
        const CRapidJsonProto member = Device(device);
        EXPECT_EQ(member.get_v("/LastSource", ""), first.get_v("/LastSource", "?")) << device;
        EXPECT_EQ(member.get_int_v("/Port", 0), first.get_int_v("/Port", -1)) << device;
        EXPECT_EQ(member.get_int_v("/Packets", 0), first.get_int_v("/Packets", -1)) << device;
    }
    // The unicast speaker got the same frames, each once: so did every member, not once per member (the
    // speakers count a packet whose sequence number they already had as late).
    const CRapidJsonProto unicast = Device(301);
    EXPECT_NE(unicast.get_v("/LastSource", ""), first.get_v("/LastSource", "?"));
    for (int device : {401, 402, 403}) {
        const CRapidJsonProto member = Device(device);
        EXPECT_NEAR(member.get_int_v("/Packets", 0), unicast.get_int_v("/Packets", 0), 1) << device;
        EXPECT_EQ(member.get_int_v("/Late", -1), 0) << device;
        EXPECT_EQ(member.get_int_v("/Lost", -1), 0) << device;
    }
}
