// What the platform plays itself (the prompt-tone chime, text-to-speech), speakers that are offline or never
// connect, and simulated peers on the fixture's own ports.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <thread>

#include "framework/media/codec/AudioCodec.h"

#include "TestProcess.h"
#include "support/SpeakerFixture.h"
#include "support/SpeakerPeers.h"

using namespace PlatformTest;

class SpeakerPlayTest : public SpeakerFixture {
protected:
    RestReply Tts(const std::string& elements, bool play, const std::string& text) {
        return Post(Plugin("/RealTimeBroadcast/TTS"),
                    R"({"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[)" + elements +
                        R"(]},"PlayMode":0,"AssignPlaybackDuration":"","CustomContent":")" + text +
                        R"(","PlayType":)" + (play ? "true" : "false") + R"(,"Language":"en-US"}})");
    }

    RestReply ReportStatus(const std::string& guid, int status) {
        return Put(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus"),
                   R"({"ResourceGuid":")" + guid + R"(","ResourceIDs":"","ResourceType":1027,"Status":)" +
                       std::to_string(status) + "}");
    }
};

TEST_F(SpeakerPlayTest, PromptToneIsPlayedIntoTheSpeakersBeforeTheTalk) {
    std::vector<GroupAddress> groups = RequestGroups("1003,1004", 1);
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress& g = groups[0];
    ASSERT_EQ(WaitStatus(1003, 0, 5000, g.guid).status, 0);
    ASSERT_EQ(Post(Plugin("/RealTimeBroadcast/StartPromptTone"),
                   R"({"Request":{"ResourceGuids":[")" + g.guid + R"("]}})")
                  .ErrorCode(),
              0);
    const StatusItem preparing = WaitStatus(1003, 102, 5000, g.guid);
    EXPECT_EQ(preparing.promptBeginEnd, 0);
    EXPECT_EQ(preparing.resourceStatus, 1);
    EXPECT_EQ(WaitStatus(1003, 103, 5000, g.guid).promptBeginEnd, 0);
    // While the chime plays, talk audio does not reach the speaker.
    const GroupAddress::Device lobby = g.resources.at(1003);
    CDevnetTalk talk;
    uint32_t error = 0;
    ASSERT_TRUE(talk.Login(lobby.ip, lobby.port, lobby.user, lobby.password, error)) << error;
    ASSERT_TRUE(talk.Open(1, error)) << error;
    const std::vector<uint8_t> early = G711Tone(1000.0, 0.4);
    EXPECT_TRUE(talk.Send(early.data(), early.size()));
    const StatusItem finished = WaitStatus(1003, 100, 10000, g.guid);
    EXPECT_EQ(finished.promptBeginEnd, 1) << "the chime played to its end";
    EXPECT_EQ(WaitStatus(1004, 100, 1000, g.guid).promptBeginEnd, 1);
    EXPECT_EQ(Control("GET", "/broadcasts").Str("/ResponseStatus/Data/Groups/0/PromptState"), "finished");
    EXPECT_EQ(StatusesOf(1003, g.guid), (std::vector<int>{0, 102, 103, 100})) << "no talk during the chime";

    const std::vector<uint8_t> tone = G711Tone(1000.0, 1.0);
    EXPECT_EQ(SendPaced(tone, 320, [&talk](const uint8_t* d, std::size_t n) { return talk.Send(d, n); }), 25);
    talk.Close();
    EXPECT_EQ(WaitStatus(1003, 1, 5000, g.guid).status, 1) << "the talk after the chime plays";
    ASSERT_EQ(ReportStatus(g.guid, 3).ErrorCode(), 0);
    EXPECT_EQ(WaitStatus(1003, 3, 5000, g.guid).status, 3);

    // The recording: two seconds of the 880 Hz chime, then one second of the talk.
    const std::vector<int16_t> recording = Recording(1003);
    EXPECT_NEAR(static_cast<double>(recording.size()) / 8000.0, 3.0, 0.05);
    const std::vector<int16_t> chime(recording.begin() + 2000, recording.begin() + 14000);
    EXPECT_NEAR(BcastTest::DominantFrequency(chime, 8000), 880.0, 5.0);
    const std::vector<int16_t> after(recording.end() - 6000, recording.end());
    EXPECT_NEAR(BcastTest::DominantFrequency(after, 8000), 1000.0, 5.0);
    EXPECT_NEAR(static_cast<double>(BcastTest::TrimSilence(Recording(1004)).size()) / 8000.0, 2.0, 0.05)
        << "the other speaker played the chime only";
}

TEST_F(SpeakerPlayTest, StreamingGroupWithThePromptInFrontPlaysOnceTheChimeIsOver) {
    CZpsSession talk;
    GroupAddress g;
    ASSERT_TRUE(StartStreamingTalk("1001", 1, talk, g));
    ASSERT_EQ(WaitStatus(1001, 100, 10000, g.guid).status, 100);
    EXPECT_EQ(WaitStatus(1001, 1, 5000, g.guid).status, 1)
        << "the stream already plays: the speaker goes on with it";
    EXPECT_EQ(StatusesOf(1001, g.guid), (std::vector<int>{0, 102, 103, 100, 1}));
    ASSERT_EQ(Post(Plugin("/RealTimeBroadcast/StopPromptTone"),
                   R"({"Request":{"ResourceGuids":[")" + g.guid + R"("]}})")
                  .ErrorCode(),
              0);
    EXPECT_EQ(WaitStatus(1001, 3, 5000, g.guid).status, 3)
        << "a prompt-tone stop ends the broadcast on the speaker";
    talk.Stop();
    Pump(300);
    EXPECT_EQ(StatusesOf(1001, g.guid), (std::vector<int>{0, 102, 103, 100, 1, 3}))
        << "no 101 after the chime's end";
}

TEST_F(SpeakerPlayTest, TextToSpeechIsSpokenIntoTheSpeakersAndCanBeStopped) {
    RestReply start = Tts(R"({"ID":1003},{"ID":1007})", true, "Store closes in ten minutes.");
    ASSERT_EQ(start.ErrorCode(), 0) << start.Describe();
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/0/ElementID"), 1007) << "offline";
    const StatusItem playing = WaitStatus(1003, 1, 15000);
    ASSERT_EQ(playing.status, 1) << "no speech started";
    EXPECT_EQ(playing.guid, "") << "TTS pushes carry no group";
    EXPECT_EQ(WaitStatus(1003, 3, 20000).status, 3) << "the speech ended by itself";
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/TtsPlays")->Size(), 0u);
    const std::vector<int16_t> speech = BcastTest::TrimSilence(Recording(1003));
    EXPECT_GT(speech.size(), 8000u) << "more than a second of speech";
    EXPECT_LT(speech.size(), 8u * 8000u);
    EXPECT_GT(BcastTest::Rms(speech), 0.02);
    std::string at;
    RestReply state = SpeakerState(1003, at);
    EXPECT_EQ(state.Str((at + "LastTransport").c_str()), "tts");
    EXPECT_TRUE(StatusesOf(1007).empty()) << "the offline speaker is not spoken to";

    // A long text stopped after it started: 3 at once, and the recording ends there.
    const std::string longText =
        "This is a long announcement that goes on for quite a while, so that it can be stopped in the middle "
        "of a sentence, long before it would have ended by itself.";
    ASSERT_EQ(Tts(R"({"ID":1001})", true, longText).ErrorCode(), 0);
    ASSERT_EQ(WaitStatus(1001, 1, 15000).status, 1);
    Pump(1000);
    ASSERT_EQ(Tts(R"({"ID":1001})", false, longText).ErrorCode(), 0);
    EXPECT_EQ(WaitStatus(1001, 3, 5000).status, 3);
    const double played = static_cast<double>(Recording(1001).size()) / 8000.0;
    EXPECT_GT(played, 0.5);
    EXPECT_LT(played, 3.0) << "the speech stopped when asked";
}

TEST_F(SpeakerPlayTest, OfflineSpeakersFailAndSpeakersThatNeverConnectStayConnecting) {
    ASSERT_EQ(Control("POST", "/speaker/1003", R"({"Online":false})").ErrorCode(), 0);
    RestReply terminals =
        Get(Plugin("/TerminalManagement/BroadcastTerminals"),
            R"({"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":true}}})");
    const rapidjson::Value* list =
        terminals.Node("/ResponseStatus/Data/BroadcastTerminalsList/BroadcastTerminal");
    ASSERT_NE(list, nullptr);
    for (const rapidjson::Value& t : list->GetArray()) {
        if (t["ID"].GetInt() == 1003) {
            EXPECT_EQ(t["TerminalStatus"].GetInt(), 0) << "the terminal list shows it offline";
        }
    }
    std::vector<GroupAddress> groups = RequestGroups("1003");
    ASSERT_EQ(groups.size(), 1u);
    const StatusItem failed = WaitStatus(1003, 2, 5000, groups[0].guid);
    EXPECT_EQ(failed.errorModule, 30);
    EXPECT_EQ(failed.errorCode, 7);
    EXPECT_EQ(Tts(R"({"ID":1003})", true, "hello").Int("/ResponseStatus/Data/ErrorList/0/ErrorCode"), 7);

    // A speaker that never connects: it says "connecting" and plays nothing, whatever arrives.
    ASSERT_EQ(Control("POST", "/speaker/1006", R"({"Connects":false})").ErrorCode(), 0);
    std::vector<GroupAddress> udp = RequestGroups("1006");
    ASSERT_EQ(udp.size(), 1u);
    EXPECT_EQ(WaitStatus(1006, 0, 5000, udp[0].guid).status, 0);
    CRtpSender sender(udp[0].resources.at(1006).port, 0);
    const std::vector<uint8_t> tone = G711Tone(1000.0, 0.8);
    SendPaced(tone, 320, [&sender](const uint8_t* d, std::size_t n) { return sender.Send(d, n); });
    Pump(500);
    EXPECT_EQ(StatusesOf(1006, udp[0].guid), (std::vector<int>{0}));
    std::string at;
    RestReply state = SpeakerState(1006, at);
    EXPECT_EQ(state.Str((at + "Phase").c_str()), "connecting");
    EXPECT_EQ(state.Int((at + "DroppedBytes").c_str()), 6400);
    EXPECT_EQ(state.Int((at + "SamplesPlayed").c_str()), 0);

    // Connecting again: the next audio plays.
    ASSERT_EQ(Control("POST", "/speaker/1006", R"({"Connects":true})").ErrorCode(), 0);
    SendPaced(tone, 320, [&sender](const uint8_t* d, std::size_t n) { return sender.Send(d, n); });
    EXPECT_EQ(WaitStatus(1006, 1, 5000, udp[0].guid).status, 1);

    // Offline in the middle of a play: the speaker fails at once.
    ASSERT_EQ(Control("POST", "/speaker/1006", R"({"Online":false})").ErrorCode(), 0);
    const StatusItem dropped = WaitStatus(1006, 2, 5000, udp[0].guid);
    EXPECT_EQ(dropped.errorCode, 7);
    EXPECT_EQ(dropped.resourceStatus, 4);
    EXPECT_EQ(Control("POST", "/speaker/4242", R"({"Online":false})").ErrorCode(), 3);
    EXPECT_EQ(Control("POST", "/speaker/1006", R"({"Online":"no"})").ErrorCode(), 2);
    EXPECT_EQ(Control("POST", "/speaker/1006", R"({})").ErrorCode(), 2);

    ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
    RestReply reset = SpeakerState(1003, at);
    EXPECT_TRUE(reset.Node((at + "Online").c_str())->GetBool()) << "reset restores the fixture's state";
}

// The simulated peers on the fixture's own ports (free ones, picked by the test and written into a copy).
class FixturePortsTest : public SpeakerFixture {
protected:
    void SetUp() override {
        rtsp_ = BcastTest::FreeLoopbackPort(SOCK_STREAM);
        lobby_ = BcastTest::FreeLoopbackPort(SOCK_STREAM);
        pole_ = BcastTest::FreeLoopbackPort(SOCK_DGRAM);
        std::string text = ReadFile(DemoFixture());
        auto replace = [&text](const std::string& from, const std::string& to) {
            const std::size_t at = text.find(from);
            ASSERT_NE(at, std::string::npos) << from;
            text.replace(at, from.size(), to);
        };
        replace("\"RtspPort\": 18654", "\"RtspPort\": " + std::to_string(rtsp_));
        replace("\"Port\": 18663", "\"Port\": " + std::to_string(lobby_));
        replace("\"Port\": 18670", "\"Port\": " + std::to_string(pole_));
        replace("\"Port\": 18664", "\"Port\": 0");
        replace("\"Port\": 18672", "\"Port\": 0");
        dir_ = MakeTempDir("fixture-ports");
        fixture_ = dir_ + "/site.json";
        std::ofstream(fixture_) << text;
        SpeakerFixture::SetUp();
    }
    std::vector<std::string> ExtraArgs() const override {
        return {"--fixture", fixture_, "--sim-ports", "fixture"};
    }

    int rtsp_ = 0;
    int lobby_ = 0;
    int pole_ = 0;
    std::string dir_;
    std::string fixture_;
};

TEST_F(FixturePortsTest, PeersListenOnTheFixturePortsAndPortZeroPicksAFreeOne) {
    EXPECT_EQ(platform_.StreamingUrl(), "rtsp://127.0.0.1:" + std::to_string(rtsp_));
    std::vector<GroupAddress> groups = RequestGroups("1001,1003,1004,1006");
    ASSERT_EQ(groups.size(), 2u);
    EXPECT_EQ(groups[0].url.rfind("rtsp://127.0.0.1:" + std::to_string(rtsp_) + "/broadcast/", 0), 0u);
    EXPECT_EQ(groups[1].resources.at(1003).port, lobby_);
    EXPECT_EQ(groups[1].resources.at(1006).port, pole_);
    const int encoder = groups[1].resources.at(1004).port;
    EXPECT_GT(encoder, 0) << "port 0 in the fixture: a free port, handed out as it is";
    CDevnetTalk talk;
    uint32_t error = 0;
    EXPECT_TRUE(talk.Login("127.0.0.1", encoder, "admin", "Gate#Encoder1", error)) << error;
}

// A site whose streaming server takes MP3 on the backchannel (file broadcasts encoded as MP3).
class Mp3StreamingTest : public SpeakerFixture {
protected:
    void SetUp() override {
        std::string text = ReadFile(DemoFixture());
        const std::string from = "\"SMSversion\": 1,";
        const std::size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, from.size(), from + " \"BackchannelCodec\": \"MPA\",");
        fixture_ = MakeTempDir("mp3-site") + "/site.json";
        std::ofstream(fixture_) << text;
        SpeakerFixture::SetUp();
    }
    std::vector<std::string> ExtraArgs() const override { return {"--fixture", fixture_}; }
    std::string fixture_;
};

TEST_F(Mp3StreamingTest, Mp3FramesUpTheBackchannelPlayAsEightKilohertzAudio) {
    std::vector<std::vector<uint8_t>> frames;
    auto encoder = Tal::MediaCodec::CreateEncoder(Tal::MediaCodec::CodecId::kMp3);
    Tal::MediaCodec::AudioFormat format;
    format.sampleRate = 48000;
    format.channels = 1;
    format.bitRate = 64000;
    ASSERT_EQ(encoder->Open(format), Tal::MediaCodec::kCodecOk);
    std::vector<int16_t> pcm(48000 * 2);
    for (std::size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = static_cast<int16_t>(std::lround(16000 * std::sin(2 * M_PI * 1000.0 * i / 48000)));
    }
    const auto sink = [&frames](const uint8_t* d, std::size_t n) { frames.emplace_back(d, d + n); };
    for (std::size_t at = 0; at + 1152 <= pcm.size(); at += 1152) {
        encoder->Encode(pcm.data() + at, sink);
    }
    encoder->Flush(sink);
    ASSERT_GT(frames.size(), 70u);

    std::vector<GroupAddress> groups = RequestGroups("1001");
    ASSERT_EQ(groups.size(), 1u);
    CZpsSession talk;
    int error = 0;
    ASSERT_TRUE(talk.Start(groups[0].url, groups[0].token, "username", "password", error)) << error;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < frames.size(); ++i) {
        std::this_thread::sleep_until(start + std::chrono::milliseconds(24 * i));
        ASSERT_TRUE(talk.Send(frames[i].data(), frames[i].size())) << "frame " << i;
    }
    Pump(700);
    talk.Stop();
    ASSERT_EQ(WaitStatus(1001, 3, 5000, groups[0].guid).status, 3);
    const std::vector<int16_t> sound = BcastTest::TrimSilence(Recording(1001));
    EXPECT_NEAR(static_cast<double>(sound.size()) / 8000.0, 2.0, 0.15);
    EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(sound, 8000), 8000), 1000.0, 5.0);
    EXPECT_EQ(Control("GET", "/streaming").Int("/ResponseStatus/Data/DecodeErrors"), 0);
}
