// A live broadcast reaches the simulated speakers on all three transports, sent with the project's own
// client libraries: the streaming client to the streaming server, the device network interface to the
// simulated devices, RTP over UDP to the other makers' speakers. Each speaker reports through the push
// link and writes what it played to <speaker dir>/<element id>.wav, which sox decodes independently.

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <thread>

#include "support/SpeakerFixture.h"
#include "support/SpeakerPeers.h"

using namespace PlatformTest;

namespace {

constexpr double kToneHz = 1000.0;
constexpr double kTalkSeconds = 2.0;
constexpr std::size_t kFrameBytes = 320;  // 40 ms of G.711, as the client sends it
}  // namespace

class SpeakerTransportTest : public SpeakerFixture {
protected:
    /// A number from the arrival-lateness figures of the pole's UDP speaker (device 301).
    double PoleLateness(const char* key) {
        RestReply devices = Control("GET", "/devices");
        const rapidjson::Value* list = devices.Node("/ResponseStatus/Data/Devices");
        if (list != nullptr) {
            for (const rapidjson::Value& d : list->GetArray()) {
                if (d["DeviceID"].GetInt() == 301 && d.HasMember(key)) {
                    return d[key].GetDouble();
                }
            }
        }
        return -1;
    }
};

TEST_F(SpeakerTransportTest, StreamingServerTalkPlaysOnEveryGroupSpeakerUntilTheTeardown) {
    std::vector<GroupAddress> groups = RequestGroups("1001,1002");
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress& g = groups[0];
    ASSERT_EQ(g.url.rfind(platform_.StreamingUrl() + "/broadcast/" + g.guid, 0), 0u) << g.url;
    ASSERT_EQ(g.token.size(), 32u);
    EXPECT_EQ(WaitStatus(1001, 0, 5000, g.guid).resourceStatus, 1) << "connecting once the addresses are out";
    EXPECT_EQ(WaitStatus(1002, 0, 5000, g.guid).status, 0);

    CZpsSession talk;
    int error = 0;
    // The module's credentials, literally.
    ASSERT_TRUE(talk.Start(g.url, g.token, "username", "password", error))
        << "streaming client error " << error;
    EXPECT_EQ(WaitStatus(1001, 1, 5000, g.guid).status, 1)
        << "the client's stream reaches the group's speakers";
    EXPECT_EQ(WaitStatus(1002, 1, 5000, g.guid).status, 1);

    const std::vector<uint8_t> tone = G711Tone(kToneHz, kTalkSeconds);
    EXPECT_EQ(
        SendPaced(tone, kFrameBytes, [&talk](const uint8_t* d, std::size_t n) { return talk.Send(d, n); }),
        50);
    // The server's jitter buffer holds the last 200 ms: let it play out before the teardown.
    Pump(700);
    std::string at;
    RestReply during = SpeakerState(1001, at);
    EXPECT_EQ(during.Str((at + "Phase").c_str()), "playing");
    EXPECT_EQ(during.Int((at + "BytesReceived").c_str()), 16000) << during.body;
    EXPECT_EQ(during.Str((at + "LastTransport").c_str()), "rtsp");
    EXPECT_EQ(during.Str((at + "LastSource").c_str()).rfind("127.0.0.1:", 0), 0u);
    // Readable while the talk runs: the header is always up to date.
    EXPECT_NEAR(static_cast<double>(Recording(1001).size()), 16000.0, 1.0);
    talk.Stop();

    const StatusItem stopped = WaitStatus(1001, 3, 5000, g.guid);
    EXPECT_EQ(stopped.status, 3) << "the teardown stops the speakers";
    EXPECT_EQ(stopped.resourceStatus, 3);
    EXPECT_EQ(WaitStatus(1002, 3, 5000, g.guid).status, 3);
    EXPECT_EQ(StatusesOf(1001, g.guid), (std::vector<int>{0, 1, 3}));
    ExpectTone(Recording(1001), kToneHz, kTalkSeconds, 0.1, "1001.wav");
    ExpectTone(Recording(1002), kToneHz, kTalkSeconds, 0.1, "1002.wav");
    RestReply after = SpeakerState(1002, at);
    EXPECT_EQ(after.Str((at + "Phase").c_str()), "stopped");
    EXPECT_EQ(after.Str((at + "WavPath").c_str()), WavPath(1002));
    ASSERT_NE(after.Node((at + "SecondsPlayed").c_str()), nullptr);
    EXPECT_NEAR(after.Node((at + "SecondsPlayed").c_str())->GetDouble(), kTalkSeconds, 0.01);
    EXPECT_EQ(Control("GET", "/streaming").Int("/ResponseStatus/Data/TalkStreams"), 0);
}

TEST_F(SpeakerTransportTest, StreamingServerPlaysATalkFromItsFirstPacketIntactAndInOrder) {
    CZpsSession talk;
    GroupAddress g;
    ASSERT_TRUE(StartStreamingTalk("1001", 0, talk, g));
    EXPECT_EQ(WaitStatus(1001, 1, 5000, g.guid).status, 1);

    // Every frame different: a byte lost, repeated or out of place shows in the recording.
    std::vector<uint8_t> sent(25 * kFrameBytes);
    uint32_t state = 12345;
    for (uint8_t& byte : sent) {
        state = state * 1103515245u + 12345u;
        byte = static_cast<uint8_t>(state >> 16);
    }
    // One packet alone reaches the speaker once the jitter buffer (the site's 200 ms) lets it go: the
    // server does not wait for a second packet before it accepts the client's stream.
    ASSERT_TRUE(talk.Send(sent.data(), kFrameBytes));
    std::string at;
    RestReply first = SpeakerState(1001, at);
    for (int waited = 0; waited < 3000 && first.Int((at + "BytesReceived").c_str()) == 0; waited += 50) {
        Pump(50);
        first = SpeakerState(1001, at);
    }
    EXPECT_EQ(first.Int((at + "BytesReceived").c_str()), static_cast<int>(kFrameBytes)) << first.body;

    const std::vector<uint8_t> rest(sent.begin() + kFrameBytes, sent.end());
    EXPECT_EQ(
        SendPaced(rest, kFrameBytes, [&talk](const uint8_t* d, std::size_t n) { return talk.Send(d, n); }),
        24);
    Pump(700);
    talk.Stop();
    EXPECT_EQ(WaitStatus(1001, 3, 5000, g.guid).status, 3);
    const std::vector<int16_t> recording = Recording(1001);
    ASSERT_EQ(recording.size(), sent.size());
    EXPECT_TRUE(recording == DecodeUlaw(sent)) << "the speaker played other samples than were sent";
}

TEST_F(SpeakerTransportTest, StreamingServerTakesTheBackchannelOverUdpToo) {
    std::vector<GroupAddress> groups = RequestGroups("1002");
    ASSERT_EQ(groups.size(), 1u);
    CZpsSession talk;
    int error = 0;
    ASSERT_TRUE(talk.Start(groups[0].url, groups[0].token, "username", "password", error, true)) << error;
    const std::vector<uint8_t> tone = G711Tone(700.0, 1.0);
    EXPECT_EQ(
        SendPaced(tone, kFrameBytes, [&talk](const uint8_t* d, std::size_t n) { return talk.Send(d, n); }),
        25);
    Pump(700);
    talk.Stop();
    EXPECT_EQ(WaitStatus(1002, 3, 5000, groups[0].guid).status, 3);
    ExpectTone(Recording(1002), 700.0, 1.0, 0.1, "1002.wav over UDP");
}

TEST_F(SpeakerTransportTest, StreamingServerRefusesWrongTokensCredentialsAndAddresses) {
    std::vector<GroupAddress> groups = RequestGroups("1001");
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress& g = groups[0];
    std::vector<GroupAddress> other = RequestGroups("1002");
    ASSERT_EQ(other.size(), 1u);
    ASSERT_EQ(WaitStatus(1001, 0, 5000, g.guid).status, 0);
    struct Case {
        std::string url, token, user, password;
        int error;
        const char* what;
    };
    const std::string base = platform_.StreamingUrl() + "/broadcast/";
    for (const Case& c : std::vector<Case>{
             {g.url, "", "username", "password", 6, "no token"},
             {g.url, other[0].token, "username", "password", 6, "another group's token"},
             {g.url, g.token, "username", "wrong", 6, "wrong password"},
             {g.url, g.token, "someone", "password", 6, "another user"},
             {base + "00000000-0000-4000-8000-000000000000", g.token, "username", "password", 7,
              "no such group"},
         }) {
        CZpsSession talk;
        int error = 0;
        EXPECT_FALSE(talk.Start(c.url, c.token, c.user, c.password, error)) << c.what;
        EXPECT_EQ(error, c.error) << c.what;
    }
    RestReply state = Control("GET", "/streaming");
    EXPECT_GE(state.Int("/ResponseStatus/Data/Refused"), 2) << state.body;
    EXPECT_EQ(state.Int("/ResponseStatus/Data/TalkStreams"), 0);
    Pump(300);
    EXPECT_EQ(StatusesOf(1001, g.guid), (std::vector<int>{0})) << "refused clients never reach a speaker";

    // A server that refuses sessions: the client gets no stream at all.
    ASSERT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":true,"RefuseStatus":503})").ErrorCode(), 0);
    {
        CZpsSession talk;
        int error = 0;
        EXPECT_FALSE(talk.Start(g.url, g.token, "username", "password", error));
        EXPECT_NE(error, 0);
    }
    RestReply refusing = Control("GET", "/streaming");
    EXPECT_TRUE(refusing.Node("/ResponseStatus/Data/Refusing")->GetBool());
    const rapidjson::Value* recent = refusing.Node("/ResponseStatus/Data/Recent");
    ASSERT_NE(recent, nullptr);
    EXPECT_EQ((*recent)[recent->Size() - 1]["RefusedWith"].GetInt(), 503);
    EXPECT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":true,"RefuseStatus":200})").ErrorCode(), 2);
    ASSERT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":false})").ErrorCode(), 0);
    CZpsSession talk;
    int error = 0;
    EXPECT_TRUE(talk.Start(g.url, g.token, "username", "password", error)) << "accepted again: " << error;
    talk.Stop();
}

TEST_F(SpeakerTransportTest, DeviceTalkPlaysOnTheElementOfItsChannel) {
    std::vector<GroupAddress> groups = RequestGroups("1003,1004,1005");
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress& g = groups[0];
    const GroupAddress::Device lobby = g.resources.at(1003);
    const GroupAddress::Device gate = g.resources.at(1005);
    ASSERT_EQ(lobby.deviceId, 103);
    ASSERT_EQ(gate.deviceId, 201);
    for (int id : {1003, 1004, 1005}) {
        EXPECT_EQ(WaitStatus(id, 0, 5000, g.guid).status, 0) << id;
    }

    CDevnetTalk toLobby;
    CDevnetTalk toGate;
    uint32_t error = 0;
    ASSERT_TRUE(toLobby.Login(lobby.ip, lobby.port, lobby.user, lobby.password, error))
        << "login error " << error;
    ASSERT_TRUE(toLobby.Open(1, error)) << "talk error " << error;
    ASSERT_TRUE(toGate.Login(gate.ip, gate.port, gate.user, gate.password, error)) << "login error " << error;
    // 1002 is the broadcast alias of the encoder's channel 2: element 1005.
    ASSERT_TRUE(toGate.Open(1002, error)) << "talk error " << error;
    const std::vector<uint8_t> high = G711Tone(kToneHz, kTalkSeconds);
    const std::vector<uint8_t> low = G711Tone(600.0, kTalkSeconds);
    std::size_t at = 0;
    EXPECT_EQ(SendPaced(high, kFrameBytes,
                        [&](const uint8_t* d, std::size_t n) {
                            const bool ok = toLobby.Send(d, n) && toGate.Send(low.data() + at, n);
                            at += n;
                            return ok;
                        }),
              50);
    toLobby.Close();
    toGate.Close();
    EXPECT_EQ(WaitStatus(1003, 1, 5000, g.guid).resourceStatus, 1) << "the first audio makes a speaker play";
    EXPECT_EQ(WaitStatus(1005, 1, 5000, g.guid).status, 1);

    RestReply report =
        Put(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus"),
            R"({"ResourceGuid":")" + g.guid + R"(","ResourceIDs":"","ResourceType":1027,"Status":3})");
    ASSERT_EQ(report.ErrorCode(), 0) << report.Describe();
    for (int id : {1003, 1004, 1005}) {
        EXPECT_EQ(WaitStatus(id, 3, 5000, g.guid).status, 3) << id;
    }
    EXPECT_EQ(StatusesOf(1003, g.guid), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(StatusesOf(1004, g.guid), (std::vector<int>{0, 3}))
        << "nothing reached channel 1 of the encoder";
    ExpectTone(Recording(1003), kToneHz, kTalkSeconds, 0.05, "1003.wav");
    ExpectTone(Recording(1005), 600.0, kTalkSeconds, 0.05, "1005.wav");
    EXPECT_TRUE(Recording(1004).empty()) << "an element that heard nothing recorded nothing";

    RestReply devices = Control("GET", "/devices");
    EXPECT_EQ(devices.Int("/ResponseStatus/Data/Devices/0/DeviceID"), 103);
    EXPECT_EQ(devices.Int("/ResponseStatus/Data/Devices/0/Logins"), 1);
    EXPECT_EQ(devices.Int("/ResponseStatus/Data/Devices/0/Bytes"), 16000);
    std::string prefix;
    RestReply speaker = SpeakerState(1003, prefix);
    EXPECT_EQ(speaker.Str((prefix + "LastTransport").c_str()), "sdk");
}

TEST_F(SpeakerTransportTest, DevicesRefuseLoginsAndChannelsWhenTold) {
    std::vector<GroupAddress> groups = RequestGroups("1003,1004");
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress::Device lobby = groups[0].resources.at(1003);
    const GroupAddress::Device gate = groups[0].resources.at(1004);
    ASSERT_EQ(Control("POST", "/device/103", R"({"RefuseLogin":true})").ErrorCode(), 0);
    ASSERT_EQ(Control("POST", "/device/201", R"({"RefusedChannels":[1,1001]})").ErrorCode(), 0);
    uint32_t error = 0;
    {
        CDevnetTalk talk;
        EXPECT_FALSE(talk.Login(lobby.ip, lobby.port, lobby.user, lobby.password, error));
        EXPECT_EQ(error, 52u) << "DEVNET_LOGIN_REFUSED";
        EXPECT_FALSE(talk.Login(lobby.ip, lobby.port, lobby.user, "wrong", error));
        EXPECT_EQ(error, 1u) << "DEVNET_PASSWORD_ERROR";
    }
    {
        CDevnetTalk talk;
        ASSERT_TRUE(talk.Login(gate.ip, gate.port, gate.user, gate.password, error)) << error;
        EXPECT_FALSE(talk.Open(1, error));
        EXPECT_EQ(error, 4u) << "DEVNET_CHANNEL_ERROR";
        EXPECT_TRUE(talk.Open(2, error)) << "channel 2 is not refused: " << error;
    }
    RestReply devices = Control("GET", "/devices");
    EXPECT_TRUE(devices.Node("/ResponseStatus/Data/Devices/0/RefuseLogin")->GetBool());
    EXPECT_EQ(devices.Int("/ResponseStatus/Data/Devices/1/TalksRefused"), 1);
    EXPECT_EQ(Control("POST", "/device/301", R"({"RefuseLogin":true})").ErrorCode(), 4) << "a UDP speaker";
    EXPECT_EQ(Control("POST", "/device/999", R"({"RefuseLogin":true})").ErrorCode(), 3);
    EXPECT_EQ(Control("POST", "/device/103", R"({"RefuseLogin":"yes"})").ErrorCode(), 2);

    ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
    CDevnetTalk again;
    EXPECT_TRUE(again.Login(lobby.ip, lobby.port, lobby.user, lobby.password, error))
        << "reset lifts it: " << error;
}

TEST_F(SpeakerTransportTest, UdpSpeakersPlayRtpAndAnOfflineOneFailsAndRecordsNothing) {
    std::vector<GroupAddress> groups = RequestGroups("1006,1007");
    ASSERT_EQ(groups.size(), 1u);
    const GroupAddress& g = groups[0];
    const int pole = g.resources.at(1006).port;
    const int horn = g.resources.at(1007).port;
    EXPECT_EQ(WaitStatus(1006, 0, 5000, g.guid).status, 0);
    const StatusItem failed = WaitStatus(1007, 2, 5000, g.guid);
    EXPECT_EQ(failed.status, 2) << "the terminal is offline";
    EXPECT_EQ(failed.errorModule, 30);
    EXPECT_EQ(failed.errorCode, 7);
    EXPECT_EQ(failed.resourceStatus, 4);

    CRtpSender toPole(pole, 0);
    CRtpSender toHorn(horn, 0);
    const std::vector<uint8_t> tone = G711Tone(kToneHz, kTalkSeconds);
    EXPECT_EQ(
        SendPaced(tone, kFrameBytes,
                  [&](const uint8_t* d, std::size_t n) { return toPole.Send(d, n) && toHorn.Send(d, n); }),
        50);
    EXPECT_EQ(WaitStatus(1006, 1, 5000, g.guid).status, 1);
    ASSERT_EQ(Put(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus"),
                  R"({"ResourceGuid":")" + g.guid +
                      R"(","ResourceIDs":"1006,1007","ResourceType":1027,"Status":3})")
                  .ErrorCode(),
              0);
    EXPECT_EQ(WaitStatus(1006, 3, 5000, g.guid).status, 3);
    EXPECT_EQ(StatusesOf(1006, g.guid), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(StatusesOf(1007, g.guid), (std::vector<int>{2, 3})) << "failed, then the broadcast is over";
    ExpectTone(Recording(1006), kToneHz, kTalkSeconds, 0.05, "1006.wav");
    EXPECT_FALSE(std::ifstream(WavPath(1007)).good()) << "an offline speaker records nothing";

    RestReply devices = Control("GET", "/devices");
    const rapidjson::Value* list = devices.Node("/ResponseStatus/Data/Devices");
    ASSERT_NE(list, nullptr);
    bool sawPole = false;
    for (const rapidjson::Value& d : list->GetArray()) {
        if (d["DeviceID"].GetInt() == 301) {
            sawPole = true;
            EXPECT_EQ(d["Packets"].GetInt(), 50);
            EXPECT_EQ(d["Lost"].GetInt(), 0);
            EXPECT_EQ(std::string(d["Codec"].GetString()), "PCMU");
            EXPECT_EQ(d["LatenessSamples"].GetInt(), 50) << "every packet's arrival is measured";
        }
    }
    EXPECT_TRUE(sawPole) << devices.body;
    {
        SCOPED_TRACE("a burst: 800 ms of audio in 20 packets at once, measured against the last one");
        ASSERT_EQ(Control("POST", "/devices/lateness/reset").ErrorCode(), 0);
        CRtpSender burst(pole, 0, 0x7777);
        const std::vector<uint8_t> frames = G711Tone(kToneHz, 0.8);  // 20 packets of 40 ms
        for (std::size_t at = 0; at + kFrameBytes <= frames.size(); at += kFrameBytes) {
            ASSERT_TRUE(burst.Send(frames.data() + at, kFrameBytes));
        }
        for (int waited = 0; PoleLateness("LatenessSamples") < 20 && waited < 5000; waited += 50) {
            Pump(50);
        }
        EXPECT_GT(PoleLateness("LatenessMaxMs"), 700.0) << "the first packet came 760 ms before the last";
        EXPECT_LT(PoleLateness("LatenessMaxMs"), 800.0);
        EXPECT_EQ(PoleLateness("LatenessSamples"), 20) << "the reset dropped the talk's samples";
    }
    std::string prefix;
    RestReply horns = SpeakerState(1007, prefix);
    EXPECT_EQ(horns.Int((prefix + "DroppedBytes").c_str()), 16000) << "received but not played";
    EXPECT_EQ(horns.Int((prefix + "SamplesPlayed").c_str()), 0);

    // A new talk to the same speaker starts a new recording: A-law this time.
    std::vector<GroupAddress> next = RequestGroups("1006");
    ASSERT_EQ(next.size(), 1u);
    EXPECT_EQ(WaitStatus(1006, 0, 5000, next[0].guid).status, 0);
    CRtpSender alaw(pole, 8, 0x5555);
    const std::vector<uint8_t> low = G711Tone(500.0, 1.0, true);
    EXPECT_EQ(SendPaced(low, kFrameBytes, [&](const uint8_t* d, std::size_t n) { return alaw.Send(d, n); }),
              25);
    EXPECT_EQ(WaitStatus(1006, 1, 5000, next[0].guid).status, 1);
    ExpectTone(Recording(1006), 500.0, 1.0, 0.05, "1006.wav after the second talk");
}
