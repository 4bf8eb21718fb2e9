// File broadcasts end to end: the speaker manager of this process plays WAV and MP3 files to the platform's
// simulated speakers on all three transports, G.711 (the demo site) and MP3 (a site configured for it). Each
// speaker's recording must hold the whole file, head and tail; a stop ends the sending within a frame
// interval at every step of the start, and the next broadcast works.

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <memory>

#include "ManagerFixture.h"
#include "TestProcess.h"
#include "framework/base/FormatLog.h"
#include "support/QtWait.h"
#include "tool/audio/AudioCompare.h"

using namespace BroadCastPlugin;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;

namespace {

constexpr const char* kAnnouncement =
    "Good evening. The library closes in fifteen minutes. Please bring your books to the front desk.";
// 1001 through the streaming server, 1003 and 1004 through the device interface (two devices), 1006 by RTP.
const std::vector<int32_t> kAllTransports = {1001, 1003, 1004, 1006};

class FileBroadcastTest : public BroadcastTest::CManagerTest {
protected:
    static void SetUpTestSuite() { StartSuite(""); }
    static void TearDownTestSuite() { StopSuite(); }

    /// Starts the peers with `fixture` (empty: the demo site) and makes the source files: the announcement
    /// as a mono 22050 Hz WAV (espeak-ng) and as a stereo 44100 Hz MP3 (ffmpeg), a 60 s tone, and a
    /// 30 min tone whose frames exceed what the sender queues.
    static void StartSuite(const std::string& fixture) {
        StartPeers({}, fixture);
        files_ = new BcastTest::CTempDir("file-broadcast");
        reference_ = new BcastTool::PcmAudio();
        MakeSpeech(files_->File("announcement.wav"), kAnnouncement, *reference_);
        Convert({"ffmpeg", "-loglevel", "error", "-y", "-i", files_->File("announcement.wav"), "-ac", "2",
                 "-ar", "44100", "-b:a", "128k", files_->File("announcement.mp3")});
        Convert({"sox", "-n", "-r", "16000", "-c", "1", "-b", "16", files_->File("minute.wav"), "synth", "60",
                 "sine", "500", "vol", "0.5"});
        Convert({"sox", "-n", "-r", "8000", "-c", "1", "-b", "16", files_->File("half-hour.wav"), "synth",
                 "1800", "sine", "700", "vol", "0.5"});
    }
    static void StopSuite() {
        StopPeers();
        delete files_;
        delete reference_;
    }
    static void Convert(const std::vector<std::string>& argv) {
        const BcastTest::ProcessResult run = BcastTest::RunProcess(argv, 120000);
        ASSERT_EQ(run.exitCode, 0) << argv[0] << " (installed by scripts/setup.sh): " << run.output;
    }

    static std::unique_ptr<BroadcastTest::CStartCall> Play(std::vector<int32_t> ids, const std::string& path,
                                                           int64_t requestId) {
        return std::make_unique<BroadcastTest::CStartCall>([ids, path, requestId] {
            return CIPSpeakerManager::Instance()->StartPlayAudioFile(ids, path, requestId);
        });
    }
    /// Whole-broadcast events of one element with this stage.
    static int CountElementStage(int elementId, int stage) {
        int n = 0;
        for (const IPSpeakerNotifyParam& e : events_->All()) {
            n += e.type == 0 && e.elementID == elementId && e.broadcastStatus == stage ? 1 : 0;
        }
        return n;
    }
    /// The speaker's recording holds the whole reference: it matches, starts no later than the reference
    /// (no lost head) and goes on at least to its end (no lost tail).
    static void ExpectWholeFile(int elementId) {
        SCOPED_TRACE("speaker " + std::to_string(elementId));
        const BcastTool::AudioMatch match = MatchOf(elementId, *reference_);
        EXPECT_GE(match.correlation, 0.9) << "delay " << match.delayMs << " ms";
        EXPECT_GE(match.delayMs, -30.0) << "the head of the file is missing";
        // Resampling leaves out a last read shorter than a quarter of a second, by rule; a frame more may be
        // cut at the end of sending.
        EXPECT_GE(match.recordingSeconds * 1000.0, match.delayMs + match.referenceSeconds * 1000.0 - 310.0)
            << "the tail of the file is missing: recording " << match.recordingSeconds << " s, reference "
            << match.referenceSeconds << " s from " << match.delayMs << " ms";
    }
    /// A broadcast played completely: the start and the encoder's two states once, every element ended
    /// with "finished", none failed.
    static void ExpectFinishedEvents(const std::vector<int32_t>& ids) {
        EXPECT_EQ(events_->CountStage(0), 1);
        EXPECT_EQ(events_->CountStage(6), 1) << "encoding prepares";
        EXPECT_EQ(events_->CountStage(7), 1) << "encoding runs";
        EXPECT_EQ(events_->CountStage(2), 0);
        for (int32_t id : ids) {
            EXPECT_EQ(CountElementStage(id, 1), 1) << "element " << id << " finished once";
        }
    }
    /// Plays each source to every transport and checks what each speaker heard.
    void PlaysWholeFilesEverywhere() {
        for (const char* name : {"announcement.wav", "announcement.mp3"}) {
            SCOPED_TRACE(name);
            Control("POST", "/reset");
            events_->Clear();
            auto call = Play(kAllTransports, files_->File(name), 61);
            ASSERT_TRUE(call->Finish(60000)) << "the broadcast ends once the file is sent";
            EXPECT_TRUE(call->Result());
            ExpectFinishedEvents(kAllTransports);
            CIPSpeakerManager::Instance()->Stop();
            ExpectStartedThenStopped();
            for (int32_t id : kAllTransports) {
                EXPECT_TRUE(WaitFor([id] { return Phase(id) == "stopped"; }, 5000)) << id << " " << Phase(id);
                ExpectWholeFile(id);
            }
            EXPECT_EQ(OperationLogTypes(), (std::vector<int>{265001, 265002}));
        }
    }

    static BcastTest::CTempDir* files_;
    static BcastTool::PcmAudio* reference_;
};

BcastTest::CTempDir* FileBroadcastTest::files_ = nullptr;
BcastTool::PcmAudio* FileBroadcastTest::reference_ = nullptr;

// The same broadcasts on a site whose configured encoding is MP3 (24 ms frames).
class Mp3FileBroadcastTest : public FileBroadcastTest {
protected:
    static void SetUpTestSuite() {
        fixtureDir_ = new BcastTest::CTempDir("mp3-site");
        std::ifstream in(PlatformTest::DemoFixture());
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const std::string from = "\"AudioCompressionType\": \"G711_u\"";
        const std::size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << "the demo site names its encoding";
        text.replace(at, from.size(), "\"AudioCompressionType\": \"MP3\"");
        std::ofstream(fixtureDir_->File("site.json")) << text;
        StartSuite(fixtureDir_->File("site.json"));
    }
    static void TearDownTestSuite() {
        StopSuite();
        delete fixtureDir_;
    }
    static BcastTest::CTempDir* fixtureDir_;
};

BcastTest::CTempDir* Mp3FileBroadcastTest::fixtureDir_ = nullptr;

}  // namespace

TEST_F(FileBroadcastTest, WavAndMp3FilesAreHeardWholeOnEveryTransportAsG711) {
    PlaysWholeFilesEverywhere();
}

TEST_F(Mp3FileBroadcastTest, WavAndMp3FilesAreHeardWholeOnEveryTransportAsMp3) {
    PlaysWholeFilesEverywhere();
}

TEST_F(FileBroadcastTest, StreamingSpeakersAreWaitedForAndDeviceSpeakersAreNot) {
    {
        SCOPED_TRACE("only device and RTP speakers: no connect wait, no prompt tone");
        CLogCapture log;
        auto call = Play({1003, 1006}, files_->File("announcement.wav"), 62);
        ASSERT_TRUE(call->Finish(30000));
        EXPECT_TRUE(call->Result());
        EXPECT_FALSE(log.Contains("Start to wait all device connect finish by zps."));
        ExpectFinishedEvents({1003, 1006});
        CIPSpeakerManager::Instance()->Stop();
        ExpectWholeFile(1003);
        ExpectWholeFile(1006);
    }
    {
        SCOPED_TRACE("a streaming speaker that never connects beside one that does");
        Control("POST", "/reset");
        events_->Clear();
        ASSERT_EQ(Control("POST", "/speaker/1002", R"({"Connects":false})").ErrorCode(), 0);
        auto call = Play({1001, 1002, 1006}, files_->File("announcement.wav"), 63);
        ASSERT_TRUE(call->Finish(60000)) << "the platform gives the speaker up and the wait ends";
        EXPECT_TRUE(call->Result());
        EXPECT_GE(events_->CountSpeakerStatus(1002, 2), 1) << "1002 is reported failed";
        EXPECT_EQ(CountElementStage(1002, 2), 1) << "1002 ends failed with the platform's error";
        for (const IPSpeakerNotifyParam& e : events_->All()) {
            if (e.type == 0 && e.elementID == 1002 && e.broadcastStatus == 2) {
                EXPECT_EQ(e.error.GetMainErrorCode(), 30);
                EXPECT_EQ(e.error.GetSubErrorCode(), 9);
            }
        }
        EXPECT_EQ(CountElementStage(1001, 1), 1);
        EXPECT_EQ(CountElementStage(1006, 1), 1);
        CIPSpeakerManager::Instance()->Stop();
        ExpectWholeFile(1001);
        ExpectWholeFile(1006);
        EXPECT_EQ(SamplesPlayed(1002), 0);
    }
    {
        SCOPED_TRACE("every speaker offline");
        Control("POST", "/reset");
        events_->Clear();
        ASSERT_EQ(Control("POST", "/speaker/1001", R"({"Online":false})").ErrorCode(), 0);
        CLogCapture log;
        auto call = Play({1001}, files_->File("announcement.wav"), 64);
        ASSERT_TRUE(call->Finish(30000));
        EXPECT_FALSE(call->Result());
        EXPECT_TRUE(log.Contains("All device has connect failed.", 4));
        EXPECT_EQ(CountElementStage(1001, 2), 1);
        EXPECT_EQ(events_->CountStage(6), 0) << "nothing was encoded";
    }
}

TEST_F(FileBroadcastTest, AStopEndsTheSendingWithinAFrameAtEveryStepAndTheNextFilePlays) {
    const int threads = ThreadCount();
    struct Step {
        const char* name;
        std::vector<int32_t> ids;
        std::string file;
        const char* faultMethod;  ///< a slow platform answer holds the step; null: a running step
        std::string faultPath;
        bool timed;  ///< the stop must end it within a frame interval (the waits poll every 500 ms)
    };
    const std::vector<Step> steps = {
        {"element lookup",
         {1003, 1006},
         "minute.wav",
         "POST",
         "/DXAPI/Galewing/Platform/V1/Resource/IncrementalDownload",
         false},
        {"address request",
         {1003, 1006},
         "minute.wav",
         "GET",
         Plugin("/RealTimeBroadcast/CommonUrlList"),
         false},
        {"connect wait (the prompt tone plays)", {1001, 1006}, "minute.wav", nullptr, "", false},
        {"encoding (held back by the full send queue)", {1006}, "half-hour.wav", nullptr, "", true},
        {"sending", {1001, 1003, 1006}, "minute.wav", nullptr, "", true},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.name);
        Control("POST", "/reset");
        events_->Clear();
        if (step.faultMethod != nullptr) {
            ASSERT_GT(
                AddFault(step.faultMethod, step.faultPath, R"("Kind":"delay","DelayMs":1500,"Count":-1)"), 0);
        }
        CLogCapture log;
        auto call = Play(step.ids, files_->File(step.file), 71);
        if (step.faultMethod != nullptr) {
            ASSERT_TRUE(WaitFor(
                [&] { return Control("GET", "/faults").Int("/ResponseStatus/Data/Faults/0/Hits", 0) > 0; },
                15000))
                << "the start reached the step";
        } else if (step.ids.front() == 1001) {
            ASSERT_TRUE(WaitFor(
                [&] { return log.Contains("Start to wait all device connect finish by zps."); }, 15000));
        } else {
            ASSERT_TRUE(WaitFor([] { return SamplesPlayed(1006) > 2 * 8000; }, 15000))
                << "two seconds were heard";
        }
        // What the controller does for a stop request: the flag first, on the caller's thread.
        QElapsedTimer stopping;
        stopping.start();
        CIPSpeakerManager::Instance()->SetStopFlag(true);
        ASSERT_TRUE(call->Finish(5000));
        const qint64 stopMs = stopping.elapsed();
        EXPECT_TRUE(call->Result()) << "a stopped file broadcast is not a failure";
        if (step.timed) {
            // One frame interval plus the time to join the senders; a stop that waited for the file would
            // take the rest of its minute. The bound leaves room for a loaded machine.
            EXPECT_LE(stopMs, 2000) << "the start returns once its senders ended";
        }
        EXPECT_TRUE(log.Contains("Play audio file has stopped."));
        EXPECT_EQ(events_->CountStage(1), 0) << "no per-element events after a stop";
        EXPECT_EQ(events_->CountStage(2), 0);
        const int heard = SamplesPlayed(1006);
        BcastTest::Settle(300);
        EXPECT_EQ(SamplesPlayed(1006), heard) << "nothing is sent after the stop";
        CIPSpeakerManager::Instance()->Stop();
        EXPECT_EQ(CIPSpeakerManager::Instance()->GetBroadcastKind(), -1);
    }
    Control("POST", "/reset");
    BcastTest::Settle(500);
    EXPECT_LE(ThreadCount(), threads) << "the stopped broadcasts left threads behind";
    {
        SCOPED_TRACE("the next file");
        events_->Clear();
        auto call = Play({1006}, files_->File("announcement.wav"), 72);
        ASSERT_TRUE(call->Finish(30000));
        EXPECT_TRUE(call->Result());
        ExpectFinishedEvents({1006});
        CIPSpeakerManager::Instance()->Stop();
        ExpectWholeFile(1006);
    }
}

TEST_F(FileBroadcastTest, FilesThatAreNotAudioFailTheBroadcastWithItsEvents) {
    {
        std::ofstream(files_->File("notes.txt")) << "not audio at all";
        std::ofstream(files_->File("noise.mp3")) << std::string(64 * 1024, 'x');
    }
    for (const char* name : {"notes.txt", "noise.mp3", "missing.wav"}) {
        SCOPED_TRACE(name);
        Control("POST", "/reset");
        events_->Clear();
        auto call = Play({1003, 1006}, files_->File(name), 81);
        ASSERT_TRUE(call->Finish(30000));
        EXPECT_FALSE(call->Result());
        EXPECT_EQ(CountElementStage(1003, 2), 1);
        EXPECT_EQ(CountElementStage(1006, 2), 1);
        EXPECT_EQ(events_->CountStage(1), 0);
        const std::vector<int> statuses = ServerStatuses();
        EXPECT_FALSE(statuses.empty());
        EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 2), static_cast<long>(statuses.size()))
            << "the device groups heard that the start failed";
        CIPSpeakerManager::Instance()->Stop();
    }
}
