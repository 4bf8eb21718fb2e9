// Broadcast addresses, status reports, prompt tones, TTS and recordings, with the pushes they cause on the
// websocket link.

#include <gtest/gtest.h>

#include <rapidjson/pointer.h>

#include <cstdio>
#include <fstream>

#include "support/PlatformFixture.h"
#include "support/PushClient.h"

using namespace PlatformTest;

namespace {

const char kUrl[] = "/ResponseStatus/Data/CommonUrlList/CommonUrl";

std::string UrlRequest(const std::string& ids, int networkMode, int prompt, int audioSource = 1) {
    return R"({"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":")" + ids + R"(","AudioSource":)" +
           std::to_string(audioSource) + R"(,"AdaptiveNetWork":)" + std::to_string(networkMode) +
           R"(,"IsPromptToneSupportedInFront":)" + std::to_string(prompt) + "}]}";
}

std::string At(int urlIndex, const std::string& tail) {
    return std::string(kUrl) + "/" + std::to_string(urlIndex) + tail;
}

// The statuses of one status frame: (ResourceID, Status, PromptToneBeginEnd or -1).
std::vector<std::tuple<int, int, int>> Statuses(const std::string& frame) {
    std::vector<std::tuple<int, int, int>> out;
    rapidjson::Document doc;
    doc.Parse(frame.c_str());
    const rapidjson::Value* list = rapidjson::Pointer("/Msg/Data/Event/BroadcastStatusList").Get(doc);
    if (list == nullptr || !list->IsArray()) {
        return out;
    }
    for (const rapidjson::Value& s : list->GetArray()) {
        auto prompt = s.FindMember("PromptToneBeginEnd");
        out.emplace_back(s["ResourceID"].GetInt(), s["Status"].GetInt(),
                         prompt == s.MemberEnd() ? -1 : prompt->value.GetInt());
    }
    return out;
}

}  // namespace

class BroadcastTest : public PlatformFixture {
protected:
    RestReply UrlList(const std::string& body) {
        return Get(Plugin("/RealTimeBroadcast/CommonUrlList"), body);
    }

    void OpenPush(CPushClient& push) {
        ASSERT_TRUE(push.Open(pushUrl_, client_->Token())) << push.LastError();
        ASSERT_TRUE(push.Subscribe({3}, {310001}));
    }

    std::string WaitStatus(CPushClient& push, int status, int timeoutMs = 10000) {
        return push.WaitFor([status](const rapidjson::Document& d) { return IsStatusFrame(d, status); },
                            timeoutMs);
    }
};

TEST_F(BroadcastTest, CommonUrlListGivesStreamingServerAndDeviceEntriesWithDecryptableSecrets) {
    RestReply reply = UrlList(UrlRequest("1001,1003,1004,1005,1006", 0, 0));
    ASSERT_EQ(reply.ErrorCode(), 0) << reply.Describe();
    const rapidjson::Value* list = reply.Node(kUrl);
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->Size(), 2u) << reply.body;

    // Streaming-server entry.
    const std::string smsUrl = reply.Str(At(0, "/Url").c_str());
    const std::string guid = reply.Str(At(0, "/ResourceGuid").c_str());
    EXPECT_EQ(guid.size(), 36u);
    EXPECT_EQ(smsUrl.rfind("[sms:", 0), 0u) << smsUrl;
    // The streaming server listens where the platform says it does (a free port in tests).
    EXPECT_NE(smsUrl.find("]" + platform_.StreamingUrl() + "/broadcast/" + guid), std::string::npos)
        << smsUrl << " vs " << platform_.StreamingUrl();
    ExpectFields(
        reply, At(0, "/"),
        {{"SMSversion", 1}, {"SecureEncryptType", 1}, {"ResourceType", 1027}, {"SMSToken/Enable", 1}});
    const std::string token = Decrypt(sessionKey_, 1, reply.Str(At(0, "/SMSToken/Token").c_str()));
    EXPECT_EQ(token.size(), 32u) << token;
    // DeviceID -1: no device login through the streaming server.
    ExpectFields(
        reply, At(0, "/ResourceList/0/"),
        {{"ID", 1001}, {"DevcieInfo/DeviceID", -1}, {"DevcieInfo/Channelnfo/DeviceResourceID", 1001}});

    // Device entry: SDK devices (2020/1 and 2001/1) and the OEM UDP speaker (2020/23) alike.
    EXPECT_EQ(reply.Str(At(1, "/Url").c_str()).rfind("[sdk:", 0), 0u);
    EXPECT_FALSE(reply.Has(At(1, "/SMSToken").c_str()));
    const rapidjson::Value* resources = reply.Node(At(1, "/ResourceList").c_str());
    ASSERT_NE(resources, nullptr);
    ASSERT_EQ(resources->Size(), 4u);
    const std::string d = "/ResourceList/1/DevcieInfo/";
    ExpectFields(reply, At(1, "/ResourceList/"),
                 {{"1/ID", 1004},
                  {"1/DevcieInfo/DeviceID", 201},
                  {"1/DevcieInfo/DeviceType", 2001},
                  {"1/DevcieInfo/DeviceIP", "127.0.0.1"},
                  {"1/DevcieInfo/DeviceUserName", "admin"},
                  {"1/DevcieInfo/Channelnfo/DeviceIndex", "1"},
                  {"2/DevcieInfo/Channelnfo/DeviceIndex", "2"},
                  {"3/DevcieInfo/DeviceID", 301}});
    EXPECT_EQ(reply.Int(At(1, d + "DevicePort").c_str()),
              Control("GET", "/devices").Int("/ResponseStatus/Data/Devices/1/Port"));
    EXPECT_EQ(Decrypt(sessionKey_, 1, reply.Str(At(1, d + "DevicePassword").c_str())), "Gate#Encoder1");

    // The platform keeps the groups, with the token in plain text for its streaming server.
    RestReply state = Control("GET", "/broadcasts");
    ExpectFields(state, "/ResponseStatus/Data/Groups/",
                 {{"0/ResourceGuid", guid.c_str()}, {"0/Token", token.c_str()}, {"1/Transport", "sdk"}});
}

TEST_F(BroadcastTest, TheOlderSchemeIsUsedWhenSelected) {
    ASSERT_EQ(Control("POST", "/security", R"({"SecureEncryptType":0})").ErrorCode(), 0);
    RestReply reply = UrlList(UrlRequest("1001,1003", 3, 0));
    ASSERT_EQ(reply.ErrorCode(), 0) << reply.Describe();
    EXPECT_EQ(reply.Int(At(0, "/SecureEncryptType").c_str()), 0);
    const std::string token = reply.Str(At(0, "/SMSToken/Token").c_str());
    EXPECT_EQ(Decrypt(sessionKey_, 1, token), "<not decryptable>");
    EXPECT_EQ(Decrypt(sessionKey_, 0, token).size(), 32u);
    EXPECT_EQ(Decrypt(sessionKey_, 0, reply.Str(At(1, "/ResourceList/0/DevcieInfo/DevicePassword").c_str())),
              "Lobby#Speaker3");
    EXPECT_EQ(Control("POST", "/security", R"({"SecureEncryptType":3})").ErrorCode(), 2);
}

TEST_F(BroadcastTest, CommonUrlListRefusesRequestsItCannotServe) {
    struct Case {
        std::string body;
        int code;
    };
    for (const Case& c : std::vector<Case>{
             {R"({"CommonUrlRequest":[]})", 2},
             {R"({"CommonUrlRequest":{"ResourceType":1027}})", 2},
             {R"({"CommonUrlRequest":[{"ResourceType":1,"ResourceIDs":"1001"}]})", 4},
             {UrlRequest("1001,9999", 0, 0), 3},
             {UrlRequest("1001,,1002", 0, 0), 2},
             {UrlRequest("", 0, 0), 2},
             {UrlRequest("1001", 4, 0), 2},
             {UrlRequest("1001", 0, 0, 3), 2},
             {"", 2},
         }) {
        RestReply reply = UrlList(c.body);
        EXPECT_EQ(reply.status, 200) << c.body;
        EXPECT_EQ(reply.ErrorModule(), 30) << c.body;
        EXPECT_EQ(reply.ErrorCode(), c.code) << c.body << " -> " << reply.body;
        EXPECT_FALSE(reply.Str("/ResponseStatus/CascadingErrorInfo").empty()) << c.body;
    }
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/Groups")->Size(), 0u)
        << "a refused request creates no group";

    // Two request entries, as the client sends one per access type.
    RestReply two =
        UrlList(R"({"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":"1002","AudioSource":2,)"
                R"("AdaptiveNetWork":0,"IsPromptToneSupportedInFront":0},{"ResourceType":1027,)"
                R"("ResourceIDs":"1007","AudioSource":2,"AdaptiveNetWork":20,)"
                R"("IsPromptToneSupportedInFront":0}]})");
    ASSERT_EQ(two.ErrorCode(), 0) << two.Describe();
    EXPECT_EQ(two.Node(kUrl)->Size(), 2u);
    EXPECT_EQ(two.Int(At(0, "/ResourceList/0/ID").c_str()), 1002);
    EXPECT_EQ(two.Int(At(1, "/ResourceList/0/ID").c_str()), 1007);
    EXPECT_NE(two.Str(At(0, "/ResourceGuid").c_str()), two.Str(At(1, "/ResourceGuid").c_str()));
}

// A device group's chime played to its end, with what the speakers record, is in test_platform_speakers
// (SpeakerPlayTest); here the frames' envelope, the streaming server's chime in front, a stop that cuts a
// device group's chime short, and the refusals.
TEST_F(BroadcastTest, PromptTonesPushTheirStatusesAndAStopCutsThemShort) {
    CPushClient push;
    OpenPush(push);
    RestReply sms = UrlList(UrlRequest("1001,1002", 2, 1));
    ASSERT_EQ(sms.ErrorCode(), 0) << sms.Describe();
    EXPECT_EQ(Statuses(WaitStatus(push, 102)),
              (std::vector<std::tuple<int, int, int>>{{1001, 102, 0}, {1002, 102, 0}}));
    EXPECT_EQ(Statuses(WaitStatus(push, 103)),
              (std::vector<std::tuple<int, int, int>>{{1001, 103, 0}, {1002, 103, 0}}));
    const std::string finished = WaitStatus(push, 100, 15000);
    ASSERT_FALSE(finished.empty()) << "the streaming server's prompt tone never finished";
    EXPECT_EQ(Statuses(finished), (std::vector<std::tuple<int, int, int>>{{1001, 100, 1}, {1002, 100, 1}}));

    RestReply sdk = UrlList(UrlRequest("1005", 3, 1));
    const std::string sdkGuid = sdk.Str(At(0, "/ResourceGuid").c_str());
    ASSERT_FALSE(sdkGuid.empty()) << sdk.Describe();
    EXPECT_TRUE(WaitStatus(push, 102, 2000).empty()) << "device groups wait for StartPromptTone";
    ASSERT_EQ(Post(Plugin("/RealTimeBroadcast/StartPromptTone"),
                   R"({"Request":{"ResourceGuids":[")" + sdkGuid + R"("]}})")
                  .ErrorCode(),
              0);
    const std::string preparing = WaitStatus(push, 102);
    ASSERT_FALSE(preparing.empty()) << "no 102 frame";
    {
        SCOPED_TRACE("the envelope of a status frame");
        rapidjson::Document frame;
        frame.Parse(preparing.c_str());
        EXPECT_EQ(FrameInt(frame, "/MessageType"), 3);
        EXPECT_EQ(FrameInt(frame, "/EventType"), 310001);
        EXPECT_EQ(FrameInt(frame, "/Msg/ProtocolType"), 1);
        EXPECT_EQ(FrameInt(frame, "/Msg/Module"), 0);
        const std::string item = "/Msg/Data/Event/BroadcastStatusList/0/";
        EXPECT_EQ(FrameStr(frame, (item + "BoardcastGroupGUID").c_str()), sdkGuid);
        EXPECT_EQ(FrameInt(frame, (item + "ResourceType").c_str()), 1027);
        EXPECT_EQ(FrameInt(frame, (item + "ErrorCode").c_str()), 0);
        EXPECT_EQ(FrameInt(frame, (item + "ErrorModule").c_str()), 0);
        EXPECT_EQ(FrameInt(frame, (item + "ResourceStatus").c_str()), 1);
        EXPECT_EQ(Statuses(preparing), (std::vector<std::tuple<int, int, int>>{{1005, 102, 0}}));
    }
    ASSERT_FALSE(WaitStatus(push, 103).empty());
    ASSERT_EQ(Post(Plugin("/RealTimeBroadcast/StopPromptTone"),
                   R"({"Request":{"ResourceGuids":[")" + sdkGuid + R"("]}})")
                  .ErrorCode(),
              0);
    const std::string interrupted = WaitStatus(push, 101);
    EXPECT_EQ(Statuses(interrupted), (std::vector<std::tuple<int, int, int>>{{1005, 101, 1}}));
    // Past the prompt tone's length: the stopped tone must not report a finish.
    push.Pump(3000);
    EXPECT_TRUE(WaitStatus(push, 100, 10).empty()) << "a stopped prompt tone reported 100";
    RestReply state = Control("GET", "/broadcasts");
    EXPECT_EQ(state.Str("/ResponseStatus/Data/Groups/1/PromptState"), "interrupted");

    RestReply unknown = Post(Plugin("/RealTimeBroadcast/StartPromptTone"),
                             R"({"Request":{"ResourceGuids":[")" + sdkGuid + R"(","no-such-guid"]}})");
    EXPECT_EQ(unknown.ErrorCode(), 3);
    EXPECT_EQ(
        Post(Plugin("/RealTimeBroadcast/StopPromptTone"), R"({"Request":{"ResourceGuids":[]}})").ErrorCode(),
        2);
}

TEST_F(BroadcastTest, UpdateBroadcastStatusFailsAndStopsSpeakersButPlayingComesFromTheSpeakers) {
    CPushClient push;
    OpenPush(push);
    CPushClient idle;
    ASSERT_TRUE(idle.Open(pushUrl_, client_->Token(), 10000, true)) << idle.LastError();
    RestReply urls = UrlList(UrlRequest("1003,1006", 3, 0));
    const std::string guid = urls.Str(At(0, "/ResourceGuid").c_str());
    const std::string path = Plugin("/RealTimeBroadcast/UpdateBroadcastStatus");
    auto body = [&guid](const std::string& ids, int status, int module, int code) {
        return R"({"ResourceGuid":")" + guid + R"(","ResourceIDs":")" + ids +
               R"(","ResourceType":1027,"Status":)" + std::to_string(status) + R"(,"ErrorModule":)" +
               std::to_string(module) + R"(,"ErrorCode":)" + std::to_string(code) + "}";
    };
    EXPECT_EQ(Statuses(WaitStatus(push, 0)),
              (std::vector<std::tuple<int, int, int>>{{1003, 0, -1}, {1006, 0, -1}}))
        << "the speakers connect once the addresses are out";
    ASSERT_EQ(Put(path, body("1003,1006", 1, 0, 0)).ErrorCode(), 0);
    EXPECT_TRUE(WaitStatus(push, 1, 1000).empty())
        << "no audio reached the speakers: the client's report alone does not make them play";

    ASSERT_EQ(Put(path, body("1006", 2, 20, 2001)).ErrorCode(), 0);
    const std::string failed = WaitStatus(push, 2);
    rapidjson::Document doc;
    doc.Parse(failed.c_str());
    EXPECT_EQ(FrameInt(doc, "/Msg/Data/Event/BroadcastStatusList/0/ResourceID"), 1006);
    EXPECT_EQ(FrameInt(doc, "/Msg/Data/Event/BroadcastStatusList/0/ErrorModule"), 20);
    EXPECT_EQ(FrameInt(doc, "/Msg/Data/Event/BroadcastStatusList/0/ErrorCode"), 2001);
    EXPECT_EQ(FrameInt(doc, "/Msg/Data/Event/BroadcastStatusList/0/ResourceStatus"), 3);

    ASSERT_EQ(Put(path, body("", 3, 0, 0)).ErrorCode(), 0);
    EXPECT_EQ(Statuses(WaitStatus(push, 3)),
              (std::vector<std::tuple<int, int, int>>{{1003, 3, -1}, {1006, 3, -1}}))
        << "no ids: the whole group stopped";
    EXPECT_EQ(Control("GET", "/broadcasts").Int("/ResponseStatus/Data/Groups/0/ReportedStatus"), 3);

    EXPECT_EQ(Put(path, body("1003", 7, 0, 0)).ErrorCode(), 2);
    EXPECT_EQ(Put(path, body("1001", 3, 0, 0)).ErrorCode(), 2) << "an element outside the group";
    EXPECT_EQ(Put(path, R"({"ResourceGuid":"nope","ResourceIDs":"1003","ResourceType":1027,"Status":3})")
                  .ErrorCode(),
              3);
    EXPECT_EQ(Put(path, R"({"ResourceIDs":"1003","Status":3})").ErrorCode(), 2);

    idle.Pump(200);
    EXPECT_TRUE(idle.Messages().empty()) << "a link without subscription gets no frames";
}

TEST_F(BroadcastTest, SubscriptionsByEventTypeOnlyAndUnsubscribeWork) {
    CPushClient byEvent;
    ASSERT_TRUE(byEvent.Open(pushUrl_, client_->Token()));
    ASSERT_TRUE(byEvent.Subscribe({}, {310001}));
    CPushClient leaving;
    OpenPush(leaving);
    ASSERT_TRUE(leaving.Unsubscribe({3}, {310001}));
    RestReply clients = Control("GET", "/push/clients");
    ASSERT_EQ(clients.Node("/ResponseStatus/Data/Links")->Size(), 2u) << clients.body;
    EXPECT_EQ(clients.Int("/ResponseStatus/Data/Links/0/Events/0/EventType"), 310001);
    EXPECT_EQ(clients.Node("/ResponseStatus/Data/Links/0/MessageTypes")->Size(), 0u);
    EXPECT_EQ(clients.Node("/ResponseStatus/Data/Links/1/MessageTypes")->Size(), 0u) << "unsubscribed";
    EXPECT_EQ(clients.Str("/ResponseStatus/Data/Links/1/UserName"), kUser);

    ASSERT_EQ(Control("POST", "/push/send",
                      R"({"MessageType":3,"EventType":310001,"Data":{"Event":{"BroadcastStatusList":[)"
                      R"({"BoardcastGroupGUID":"g","ResourceID":1,"Status":1}]}}})")
                  .ErrorCode(),
              0);
    EXPECT_FALSE(WaitStatus(byEvent, 1).empty());
    leaving.Pump(300);
    EXPECT_TRUE(WaitStatus(leaving, 1, 10).empty()) << "an unsubscribed link got a frame";

    byEvent.SendText("not json");
    EXPECT_FALSE(
        byEvent.WaitFor([](const rapidjson::Document& d) { return FrameStr(d, "/Action") == "Error"; }, 5000)
            .empty());
    byEvent.SendText(R"({"Action":"Ping"})");
    EXPECT_FALSE(
        byEvent.WaitFor([](const rapidjson::Document& d) { return FrameStr(d, "/Action") == "Pong"; }, 5000)
            .empty());
}

TEST_F(BroadcastTest, TtsStartsOnlineKnownSpeakersAndStopsThem) {
    CPushClient push;
    OpenPush(push);
    const std::string path = Plugin("/RealTimeBroadcast/TTS");
    auto body = [](const std::string& elements, bool play, const std::string& text,
                   const std::string& language) {
        return R"({"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[)" + elements +
               R"(]},"PlayMode":0,"AssignPlaybackDuration":"","CustomContent":")" + text +
               R"(","PlayType":)" + (play ? "true" : "false") + R"(,"Language":")" + language + R"("}})";
    };
    RestReply start =
        Post(path, body(R"({"ID":1001},{"ID":1007},{"ID":9999})", true, "Store closes soon", "en-US"));
    ASSERT_EQ(start.ErrorCode(), 0) << start.Describe();
    const rapidjson::Value* errors = start.Node("/ResponseStatus/Data/ErrorList");
    ASSERT_NE(errors, nullptr);
    ASSERT_EQ(errors->Size(), 2u) << start.body;
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/0/ElementID"), 1007);
    EXPECT_EQ(start.Str("/ResponseStatus/Data/ErrorList/0/ElementName"), "Yard horn");
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/0/ErrorModule"), 30);
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/0/ErrorCode"), 7) << "offline terminal";
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/1/ElementID"), 9999);
    EXPECT_EQ(start.Int("/ResponseStatus/Data/ErrorList/1/ErrorCode"), 3);
    const std::string playing = WaitStatus(push, 1);
    EXPECT_EQ(Statuses(playing), (std::vector<std::tuple<int, int, int>>{{1001, 1, -1}}));
    rapidjson::Document doc;
    doc.Parse(playing.c_str());
    EXPECT_EQ(FrameStr(doc, "/Msg/Data/Event/BroadcastStatusList/0/BoardcastGroupGUID"), "");
    EXPECT_EQ(Control("GET", "/broadcasts").Str("/ResponseStatus/Data/TtsPlays/0/CustomContent"),
              "Store closes soon");

    RestReply stop = Post(path, body(R"({"ID":1001})", false, "Store closes soon", "en-US"));
    EXPECT_EQ(stop.ErrorCode(), 0);
    EXPECT_EQ(Statuses(WaitStatus(push, 3)), (std::vector<std::tuple<int, int, int>>{{1001, 3, -1}}));
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/TtsPlays")->Size(), 0u);

    EXPECT_EQ(Post(path, body(R"({"ID":1001})", true, "x", "xx-XX")).ErrorCode(), 4);
    EXPECT_EQ(Post(path, body(R"({"ID":1001})", true, "", "en-US")).ErrorCode(), 2);
    EXPECT_EQ(Post(path, R"({"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[]}}})").ErrorCode(), 2);
}

namespace {

// A login answer's right; "<absent>" or "<not a flag>" otherwise.
std::string Right(const RestReply& login, const std::string& key) {
    const rapidjson::Value* node = login.Node(("/ResponseStatus/Data/BroadcastRights/" + key).c_str());
    if (node == nullptr) {
        return "<absent>";
    }
    return node->IsBool() ? (node->GetBool() ? "true" : "false") : "<not a flag>";
}

std::string TtsStart(int element) {
    return R"({"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[{"ID":)" + std::to_string(element) +
           R"(}]},"PlayMode":0,"AssignPlaybackDuration":"","CustomContent":"Hello","PlayType":true,)"
           R"("Language":"en-US"}})";
}

}  // namespace

TEST_F(BroadcastTest, LiveTalkAddressesNeedTheUsersLiveRight) {
    CRestClient guard(platform_.RestUrl());
    std::string error;
    RestReply login;
    ASSERT_TRUE(guard.Login("guard", "Guard#2026", error, &login)) << error;
    EXPECT_EQ(login.Int("/ResponseStatus/Data/UserID"), 3);
    EXPECT_EQ(Right(login, "BroadcastHasAuthority"), "true");
    EXPECT_EQ(Right(login, "RealBroadcastHasAuthority"), "false");

    const std::string path = Plugin("/RealTimeBroadcast/CommonUrlList");
    RestReply live = guard.Send("GET", path, UrlRequest("1001,1003", 0, 0, 1));
    EXPECT_EQ(live.status, 200);
    EXPECT_EQ(live.ErrorModule(), 30);
    EXPECT_EQ(live.ErrorCode(), 10) << live.Describe();
    EXPECT_EQ(live.Str("/ResponseStatus/CascadingErrorInfo"),
              "CommonUrlRequest[1]: user \"guard\" may not talk live");
    EXPECT_FALSE(live.Has(kUrl));
    // A live entry behind a file entry refuses the whole call.
    RestReply mixed = guard.Send(
        "GET", path,
        R"({"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":"1002","AudioSource":2,"AdaptiveNetWork":0},)"
        R"({"ResourceType":1027,"ResourceIDs":"1006","AudioSource":1,"AdaptiveNetWork":0}]})");
    EXPECT_EQ(mixed.ErrorCode(), 10) << mixed.Describe();
    EXPECT_EQ(mixed.Str("/ResponseStatus/CascadingErrorInfo").rfind("CommonUrlRequest[2]: ", 0), 0u);
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/Groups")->Size(), 0u)
        << "a refused request creates no group";

    // Files are the guard's to play; the operator may do both.
    RestReply file = guard.Send("GET", path, UrlRequest("1001,1003", 0, 0, 2));
    ASSERT_EQ(file.ErrorCode(), 0) << file.Describe();
    EXPECT_EQ(file.Node(kUrl)->Size(), 2u);
    EXPECT_EQ(UrlList(UrlRequest("1006", 0, 0, 1)).ErrorCode(), 0);
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/Groups")->Size(), 3u);
}

// A site whose guard may neither talk nor play: the demo site with the guard's file right taken away.
class NoBroadcastRightTest : public BroadcastTest {
protected:
    NoBroadcastRightTest() : fixturePath_(MakeTempDir("rights") + "/site.json") {
        std::string text = ReadFile(DemoFixture());
        const std::string from = R"("BroadcastHasAuthority": true, "RealBroadcastHasAuthority": false)";
        const size_t at = text.find(from);
        if (at != std::string::npos) {
            text.replace(at, from.size(),
                         R"("BroadcastHasAuthority": false, "RealBroadcastHasAuthority": false)");
        }
        std::ofstream(fixturePath_) << text;
    }
    ~NoBroadcastRightTest() override { std::remove(fixturePath_.c_str()); }
    std::vector<std::string> ExtraArgs() const override {
        return {"--fixture", fixturePath_, "--object-store", "off"};
    }
    std::string fixturePath_;
};

TEST_F(NoBroadcastRightTest, FilesAndTextsNeedTheUsersBroadcastRightAndStopsAreAlwaysTaken) {
    CRestClient guard(platform_.RestUrl());
    std::string error;
    RestReply login;
    ASSERT_TRUE(guard.Login("guard", "Guard#2026", error, &login)) << error;
    ASSERT_EQ(Right(login, "BroadcastHasAuthority"), "false") << "the site was changed: " << login.body;
    EXPECT_EQ(Right(login, "RealBroadcastHasAuthority"), "false");

    RestReply file =
        guard.Send("GET", Plugin("/RealTimeBroadcast/CommonUrlList"), UrlRequest("1002", 0, 0, 2));
    EXPECT_EQ(file.ErrorCode(), 10) << file.Describe();
    EXPECT_EQ(file.Str("/ResponseStatus/CascadingErrorInfo"),
              "CommonUrlRequest[1]: user \"guard\" may not broadcast files");

    const std::string tts = Plugin("/RealTimeBroadcast/TTS");
    RestReply text = guard.Send("POST", tts, TtsStart(1001));
    EXPECT_EQ(text.ErrorCode(), 10) << text.Describe();
    EXPECT_EQ(text.Str("/ResponseStatus/CascadingErrorInfo"), "user \"guard\" may not broadcast texts");
    RestReply state = Control("GET", "/broadcasts");
    EXPECT_EQ(state.Node("/ResponseStatus/Data/Groups")->Size(), 0u);
    EXPECT_EQ(state.Node("/ResponseStatus/Data/TtsPlays")->Size(), 0u);
    // Stopping a text someone else started is not a broadcast of one's own.
    ASSERT_EQ(Post(tts, TtsStart(1001)).ErrorCode(), 0);
    RestReply stop = guard.Send(
        "POST", tts,
        R"({"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[{"ID":1001}]},"PlayType":false}})");
    EXPECT_EQ(stop.ErrorCode(), 0) << stop.Describe();
    EXPECT_EQ(Control("GET", "/broadcasts").Node("/ResponseStatus/Data/TtsPlays")->Size(), 0u);
}

// Without object stores the platform checks what it can without the object (the storage suite checks
// registrations against the stores).
class RecordWithoutStoresTest : public BroadcastTest {
protected:
    std::vector<std::string> ExtraArgs() const override {
        return {"--fixture", DemoFixture(), "--object-store", "off"};
    }
};

TEST_F(RecordWithoutStoresTest, RecordingsAreRegistered) {
    const std::string path = Plugin("/RealTimeBroadcast/Record");
    RestReply ok = Post(
        path, R"({"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":1001},{"ID":1003}]},)"
              R"("StartTime":"2026-01-02 10:00:00","MediaFile":{"Name":"rec.2024","format":"wav",)"
              R"("size":4,"StorageServerID":501,"StorageType":1,"StoreUrl":"http://s/pool-records/rec.wav"},)"
              R"("BroadcastMode":0}})");
    ASSERT_EQ(ok.ErrorCode(), 0) << ok.Describe();
    EXPECT_EQ(ok.Int("/ResponseStatus/Data/RecordID"), 1);
    RestReply state = Control("GET", "/broadcasts");
    EXPECT_EQ(state.Str("/ResponseStatus/Data/Records/0/Name"), "rec.2024");
    EXPECT_EQ(state.Int("/ResponseStatus/Data/Records/0/size"), 4);
    EXPECT_EQ(state.Str("/ResponseStatus/Data/Records/0/StorageType"), "1");
    EXPECT_EQ(state.Int("/ResponseStatus/Data/Records/0/ElementIDs/1"), 1003);
    EXPECT_EQ(state.Str("/ResponseStatus/Data/Records/0/UserName"), kUser);

    EXPECT_EQ(Post(path, R"({"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":1001}]},)"
                         R"("MediaFile":{"StoreUrl":"u"}}})")
                  .ErrorCode(),
              2);
    EXPECT_EQ(Post(path, R"({"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":5}]},)"
                         R"("MediaFile":{"Name":"n","StoreUrl":"u"}}})")
                  .ErrorCode(),
              3);
}
