// Listening to a speaker: the address the client framework asks for (VoiceTalk/Url) streams, through the
// streaming server, what the speaker device plays, and its own idle tone while it plays nothing, so a
// listener can tell that it hears the right speaker. Pulled with the streaming client in listen mode.

#include <gtest/gtest.h>

#include <thread>

#include "support/SpeakerFixture.h"
#include "support/SpeakerPeers.h"

using namespace PlatformTest;

namespace {

struct ListenAddress {
    std::string url;
    std::string user;
    std::string password;
    std::string token;
};

}  // namespace

class ListenTest : public SpeakerFixture {
protected:
    RestReply AskListen(const std::string& body) { return Post(PlatformV1("/VoiceTalk/Url"), body); }

    ListenAddress Listen(int deviceId) {
        RestReply reply = AskListen(R"({"DeviceID":)" + std::to_string(deviceId) +
                                    R"(,"DeviceType":2020,"Channel":0,"Listen":true,"EncodeType":1})");
        EXPECT_EQ(reply.ErrorCode(), 0) << reply.Describe();
        const int type = reply.Int("/ResponseStatus/Data/SecureEncryptType");
        ListenAddress a;
        a.url = reply.Str("/ResponseStatus/Data/Url");
        a.user = reply.Str("/ResponseStatus/Data/UserName");
        a.password = Decrypt(type, reply.Str("/ResponseStatus/Data/Password"));
        a.token = Decrypt(type, reply.Str("/ResponseStatus/Data/Token"));
        return a;
    }

    double IdleToneOf(int elementId) {
        std::string at;
        RestReply state = SpeakerState(elementId, at);
        const rapidjson::Value* hz = state.Node((at + "IdleToneHz").c_str());
        return hz != nullptr ? hz->GetDouble() : -1.0;
    }

    /// Listens for `ms` and returns the dominant frequency of the second half of what came down.
    double HeardFrequency(CZpsSession& session, int ms) {
        session.ClearReceived();
        Pump(ms);
        const std::vector<int16_t> heard = DecodeUlaw(session.Received());
        EXPECT_GT(heard.size(), static_cast<std::size_t>(ms) * 8 / 2) << "too little audio came down";
        const std::vector<int16_t> tail(heard.begin() + static_cast<std::ptrdiff_t>(heard.size() / 2),
                                        heard.end());
        return BcastTest::DominantFrequency(tail, 8000);
    }
};

TEST_F(ListenTest, TheListenAddressStreamsTheSpeakersIdleToneThenWhatItPlays) {
    const ListenAddress pole = Listen(301);
    EXPECT_EQ(pole.url, platform_.StreamingUrl() + "/broadcast/listen/301");
    EXPECT_EQ(pole.user, "username");
    EXPECT_EQ(pole.password, "password");
    EXPECT_EQ(pole.token.size(), 32u);
    // The demo site gives no tones of its own: 440 Hz + 10 Hz x the device's place in the fixture.
    EXPECT_EQ(IdleToneOf(1006), 480.0);
    EXPECT_EQ(IdleToneOf(1003), 460.0);

    CZpsSession listenPole;
    int error = 0;
    ASSERT_TRUE(listenPole.Start(pole.url, pole.token, pole.user, pole.password, error)) << "error " << error;
    uint32_t codec = 0;
    uint32_t rate = 0;
    ASSERT_TRUE(listenPole.AudioInfo(codec, rate));
    EXPECT_EQ(codec, 0xC001u) << "G.711 µ-law";
    EXPECT_EQ(rate, 8000u);
    EXPECT_NEAR(HeardFrequency(listenPole, 1500), 480.0, 3.0);

    const ListenAddress lobby = Listen(103);
    EXPECT_NE(lobby.token, pole.token) << "a fresh token per address";
    CZpsSession listenLobby;
    ASSERT_TRUE(listenLobby.Start(lobby.url, lobby.token, lobby.user, lobby.password, error))
        << "error " << error;
    EXPECT_NEAR(HeardFrequency(listenLobby, 1500), 460.0, 3.0) << "another speaker, another tone";
    EXPECT_EQ(Control("GET", "/streaming").Int("/ResponseStatus/Data/ListenStreams"), 2);
    listenLobby.Stop();

    SCOPED_TRACE("a talk on the speaker: the listener hears the talk instead of the idle tone, live");
    std::vector<GroupAddress> groups = RequestGroups("1006");
    ASSERT_EQ(groups.size(), 1u);
    std::thread talk([port = groups[0].resources.at(1006).port] {
        CRtpSender sender(port, 0);
        const std::vector<uint8_t> tone = G711Tone(1000.0, 3.0);
        SendPaced(tone, 320, [&sender](const uint8_t* d, std::size_t n) { return sender.Send(d, n); });
    });
    Pump(500);
    EXPECT_NEAR(HeardFrequency(listenPole, 2000), 1000.0, 3.0) << "during the talk";
    talk.join();
    Pump(1000);
    EXPECT_NEAR(HeardFrequency(listenPole, 1000), 480.0, 3.0) << "idle again after the talk";
    listenPole.Stop();
}

TEST_F(ListenTest, ListenRequestsWithoutTheRightTokenOrAccountAreRefused) {
    const ListenAddress pole = Listen(301);
    const ListenAddress lobby = Listen(103);
    struct Case {
        std::string token, user, password;
        const char* what;
    };
    for (const Case& c : std::vector<Case>{
             {"", pole.user, pole.password, "no token"},
             {lobby.token, pole.user, pole.password, "a token for another device"},
             {"0123456789abcdef0123456789abcdef", pole.user, pole.password, "a token never issued"},
             {pole.token, pole.user, "wrong", "wrong password"},
         }) {
        CZpsSession session;
        int error = 0;
        EXPECT_FALSE(session.Start(pole.url, c.token, c.user, c.password, error)) << c.what;
        EXPECT_EQ(error, 6) << c.what << ": ZPS_ERR_AUTH";
    }
    EXPECT_EQ(Control("GET", "/streaming").Int("/ResponseStatus/Data/ListenStreams"), 0);

    RestReply unknown = AskListen(R"({"DeviceID":4242,"DeviceType":2020,"Channel":0,"Listen":true})");
    EXPECT_EQ(unknown.ErrorModule(), 30);
    EXPECT_EQ(unknown.ErrorCode(), 3);
    EXPECT_EQ(AskListen(R"({"DeviceID":301,"Listen":false})").ErrorCode(), 4)
        << "talk addresses are not served";
    EXPECT_EQ(AskListen(R"({"DeviceType":2020})").ErrorCode(), 2);
    EXPECT_EQ(AskListen(R"({"DeviceID":301,"Channel":"one"})").ErrorCode(), 2);
    CRestClient anonymous(platform_.RestUrl());
    EXPECT_EQ(anonymous.Send("POST", PlatformV1("/VoiceTalk/Url"), R"({"DeviceID":301})").status, 401);
}
