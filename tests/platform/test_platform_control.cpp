// The control interface: injected faults, request and operation logs, reset, and a dropped push link
// that refuses reconnects for a while.

#include <gtest/gtest.h>

#include <chrono>

#include "support/PlatformFixture.h"
#include "support/PushClient.h"

using namespace PlatformTest;

using ControlTest = PlatformFixture;

TEST_F(ControlTest, InjectedFaultsShapeTheAnswerOfOnePathUntilUsedUpOrReset) {
    const std::string config = Plugin("/BaseConfig");
    RestReply add =
        Control("POST", "/fault",
                R"({"Method":"GET","Path":")" + config +
                    R"(","Kind":"error","ErrorModule":30,"ErrorCode":6,"CascadingErrorInfo":"disk full",)"
                    R"("Count":1})");
    ASSERT_EQ(add.ErrorCode(), 0) << add.Describe();
    EXPECT_EQ(add.Int("/ResponseStatus/Data/FaultID"), 1);
    RestReply other = Get(Plugin("/GetLanguage"), R"({"LogInLanguage":"en_US"})");
    EXPECT_EQ(other.ErrorCode(), 0) << "another path is untouched";
    RestReply faulted = Get(config);
    EXPECT_EQ(faulted.status, 200);
    EXPECT_EQ(faulted.ErrorModule(), 30);
    EXPECT_EQ(faulted.ErrorCode(), 6);
    EXPECT_EQ(faulted.Str("/ResponseStatus/CascadingErrorInfo"), "disk full");
    EXPECT_FALSE(faulted.Has("/ResponseStatus/Data/BaseConfig"));
    EXPECT_EQ(Get(config).ErrorCode(), 0) << "a fault with Count 1 is used up";

    ASSERT_EQ(Control("POST", "/fault", R"({"Path":")" + config + R"(","Kind":"empty"})").ErrorCode(), 0);
    RestReply empty = Get(config);
    EXPECT_EQ(empty.status, 200);
    EXPECT_EQ(empty.body, "");
    EXPECT_EQ(Get(config).body, "") << "without Count the fault stays";
    ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
    EXPECT_EQ(Get(config).ErrorCode(), 0) << "reset clears the faults";

    ASSERT_EQ(
        Control("POST", "/fault", R"({"Path":"/DXAPI/Galewing/BroadcastPlugin/V1/*","Kind":"malformed"})")
            .ErrorCode(),
        0);
    RestReply malformed = Get(config);
    EXPECT_EQ(malformed.status, 200);
    EXPECT_FALSE(malformed.body.empty());
    EXPECT_FALSE(malformed.jsonOk) << "a malformed body does not parse: " << malformed.body;
    EXPECT_EQ(Get(PlatformV1("/StreamConfig/IPSpeakerAccessTypes")).ErrorCode(), 0) << "outside the prefix";
    RestReply faults = Control("GET", "/faults");
    const int id = faults.Int("/ResponseStatus/Data/Faults/0/FaultID");
    EXPECT_EQ(faults.Int("/ResponseStatus/Data/Faults/0/Hits"), 1);
    EXPECT_EQ(Control("DELETE", "/fault/" + std::to_string(id)).ErrorCode(), 0);
    EXPECT_EQ(Control("DELETE", "/fault/" + std::to_string(id)).ErrorCode(), 3);

    ASSERT_EQ(
        Control("POST", "/fault",
                R"({"Method":"GET","Path":")" + config + R"(","Kind":"http","HttpStatus":503,"Count":1})")
            .ErrorCode(),
        0);
    RestReply unavailable = Get(config);
    EXPECT_TRUE(unavailable.transportOk);
    EXPECT_EQ(unavailable.status, 503);
    ASSERT_EQ(
        Control("POST", "/fault", R"({"Path":")" + config + R"(","Kind":"http","Count":1})").ErrorCode(), 0);
    EXPECT_EQ(Get(config).status, 500) << "the default status of an http fault";

    ASSERT_EQ(
        Control("POST", "/fault", R"({"Path":")" + config + R"(","Kind":"delay","DelayMs":700,"Count":1})")
            .ErrorCode(),
        0);
    const auto before = std::chrono::steady_clock::now();
    RestReply late = Get(config);
    const auto waited =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - before)
            .count();
    EXPECT_EQ(late.ErrorCode(), 0) << "a delayed answer is the normal one";
    EXPECT_TRUE(late.Has("/ResponseStatus/Data/BaseConfig"));
    EXPECT_GE(waited, 700) << "the platform answered before the injected delay ended";

    RestReply log = Control("GET", "/requests?path=" + config);
    const rapidjson::Value* entries = log.Node("/ResponseStatus/Data/Requests");
    ASSERT_NE(entries, nullptr);
    ASSERT_GE(entries->Size(), 3u);
    const rapidjson::Value& last = (*entries)[entries->Size() - 1];
    EXPECT_STREQ(last["Fault"].GetString(), "delay");
    EXPECT_STREQ((*entries)[entries->Size() - 2]["Fault"].GetString(), "http");
    EXPECT_EQ((*entries)[entries->Size() - 2]["Status"].GetInt(), 500);

    for (const char* bad :
         {R"({"Path":"x","Kind":"error","ErrorCode":1})", R"({"Path":"/a","Kind":"boom"})",
          R"({"Path":"/a","Kind":"error"})", R"({"Path":"/a","Kind":"delay"})",
          R"({"Path":"/a","Kind":"http","HttpStatus":99})", R"({"Path":"/_control/reset","Kind":"empty"})",
          R"({"Path":"/a","Kind":"empty","Count":0})"}) {
        RestReply r = Control("POST", "/fault", bad);
        EXPECT_EQ(r.ErrorCode(), 2) << bad << " -> " << r.body;
    }

    SCOPED_TRACE("faults apply to the login and other calls without a session too");
    ASSERT_EQ(Control("POST", "/fault",
                      R"({"Path":"/DXAPI/Galewing/Platform/V1/Session/Login","Kind":"http",)"
                      R"("HttpStatus":500,"Count":1})")
                  .ErrorCode(),
              0);
    CRestClient fresh(platform_.RestUrl());
    std::string error;
    EXPECT_FALSE(fresh.Login(kUser, kPassword, error));
    EXPECT_NE(error.find("HTTP 500"), std::string::npos) << error;
    EXPECT_TRUE(fresh.Login(kUser, kPassword, error)) << error;
}

TEST_F(ControlTest, RequestLogAndOperationLogReadBackAndReset) {
    const std::string oplog = PlatformV1("/OperationLog");
    RestReply added = Post(oplog, R"({"OperationLogList":[{"LogType":265001,"OccurTime":1767348000,)"
                                  R"("ElementName":"Hall A,Lobby"},{"LogType":203002,"OccurTime":1767348060,)"
                                  R"("ElementName":"Corridor"}]})");
    ASSERT_EQ(added.ErrorCode(), 0) << added.Describe();
    EXPECT_EQ(added.Int("/ResponseStatus/Data/Count"), 2);
    EXPECT_EQ(Post(oplog, R"({"OperationLogList":[{"OccurTime":1}]})").ErrorCode(), 2);
    EXPECT_EQ(Post(oplog, R"({"OperationLogList":[]})").ErrorCode(), 2);
    CRestClient anonymous(platform_.RestUrl());
    EXPECT_EQ(anonymous.Send("POST", oplog, R"({"OperationLogList":[{"LogType":1,"OccurTime":1}]})").status,
              401);

    RestReply read = Control("GET", "/oplog");
    const rapidjson::Value* entries = read.Node("/ResponseStatus/Data/OperationLogList");
    ASSERT_NE(entries, nullptr);
    ASSERT_EQ(entries->Size(), 2u) << "refused entries are not kept: " << read.body;
    EXPECT_EQ(read.Int("/ResponseStatus/Data/OperationLogList/0/LogType"), 265001);
    EXPECT_EQ(read.Int("/ResponseStatus/Data/OperationLogList/0/OccurTime"), 1767348000);
    EXPECT_EQ(read.Str("/ResponseStatus/Data/OperationLogList/0/ElementName"), "Hall A,Lobby");
    EXPECT_EQ(read.Str("/ResponseStatus/Data/OperationLogList/0/UserName"), kUser);
    EXPECT_EQ(read.Int("/ResponseStatus/Data/OperationLogList/1/LogType"), 203002);

    RestReply requests = Control("GET", "/requests?method=POST&path=" + oplog);
    const rapidjson::Value* list = requests.Node("/ResponseStatus/Data/Requests");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->Size(), 4u);
    EXPECT_EQ(requests.Int("/ResponseStatus/Data/Requests/0/Status"), 200);
    EXPECT_EQ(requests.Str("/ResponseStatus/Data/Requests/0/UserName"), kUser);
    EXPECT_NE(requests.Str("/ResponseStatus/Data/Requests/0/Body").find("Hall A,Lobby"), std::string::npos);
    EXPECT_EQ(requests.Int("/ResponseStatus/Data/Requests/3/Status"), 401);
    EXPECT_EQ(requests.Str("/ResponseStatus/Data/Requests/3/UserName"), "");
    RestReply everything = Control("GET", "/requests");
    EXPECT_EQ(everything.Str("/ResponseStatus/Data/Requests/0/Path"),
              "/DXAPI/Galewing/Platform/V1/Session/Login")
        << "the log starts with the fixture's login";
    for (const rapidjson::Value& e : everything.Node("/ResponseStatus/Data/Requests")->GetArray()) {
        EXPECT_NE(std::string(e["Path"].GetString()).rfind("/_control", 0), 0u)
            << "control calls are not logged";
    }

    // Huge bodies are kept cut short.
    const std::string huge(300 * 1024, 'x');
    EXPECT_EQ(
        Post(oplog, R"({"OperationLogList":[{"LogType":1,"OccurTime":1,"ElementName":")" + huge + R"("}]})")
            .ErrorCode(),
        0);
    RestReply cut = Control("GET", "/requests?path=" + oplog);
    const rapidjson::Value* cutList = cut.Node("/ResponseStatus/Data/Requests");
    ASSERT_NE(cutList, nullptr);
    const rapidjson::Value& lastEntry = (*cutList)[cutList->Size() - 1];
    EXPECT_TRUE(lastEntry["BodyTruncated"].GetBool());
    EXPECT_EQ(lastEntry["Body"].GetStringLength(), 256u * 1024u);

    ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
    EXPECT_EQ(Control("GET", "/oplog").Node("/ResponseStatus/Data/OperationLogList")->Size(), 0u);
    EXPECT_EQ(Control("GET", "/requests").Node("/ResponseStatus/Data/Requests")->Size(), 0u);
    EXPECT_EQ(Get(Plugin("/BaseConfig")).ErrorCode(), 0) << "a plain reset keeps the sessions";
    ASSERT_EQ(Control("POST", "/reset", R"({"Sessions":true})").ErrorCode(), 0);
    EXPECT_EQ(Get(Plugin("/BaseConfig")).status, 401);
}

class RequestLogFileTest : public PlatformFixture {
protected:
    std::vector<std::string> ExtraArgs() const override {
        return {"--fixture", DemoFixture(), "--request-log", File()};
    }
    std::string File() const {
        static const std::string dir = MakeTempDir("reqlog");
        return dir + "/requests.jsonl";
    }
};

TEST_F(RequestLogFileTest, EveryRequestIsAppendedAsAJsonLine) {
    ASSERT_EQ(Get(Plugin("/GetLanguage"), R"({"LogInLanguage":"zh_CN"})").ErrorCode(), 0);
    const std::string text = ReadFile(File());
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        lines.push_back(text.substr(start, end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    ASSERT_EQ(lines.size(), 2u) << text;
    rapidjson::Document doc;
    doc.Parse(lines[1].c_str());
    ASSERT_FALSE(doc.HasParseError()) << lines[1];
    EXPECT_STREQ(doc["Method"].GetString(), "GET");
    EXPECT_STREQ(doc["Path"].GetString(), "/DXAPI/Galewing/BroadcastPlugin/V1/GetLanguage");
    EXPECT_STREQ(doc["Body"].GetString(), R"({"LogInLanguage":"zh_CN"})");
    EXPECT_GT(doc["Time"].GetInt64(), 0);
}

TEST_F(ControlTest, PushLinkNeedsASessionAndTheRightPath) {
    // The platform accepts the handshake, then closes with its own code; the close may come before the
    // opening call returns.
    CPushClient anonymous;
    anonymous.Open(pushUrl_, "");
    EXPECT_TRUE(anonymous.WaitClosed(10000));
    EXPECT_EQ(anonymous.CloseCode(), 4401);

    CPushClient wrongPath;
    std::string url = pushUrl_.substr(0, pushUrl_.rfind('/')) + "/elsewhere";
    wrongPath.Open(url, client_->Token());
    EXPECT_TRUE(wrongPath.WaitClosed(10000));
    EXPECT_EQ(wrongPath.CloseCode(), 4404);

    CPushClient member;
    ASSERT_TRUE(member.Open(pushUrl_, client_->Token(), 10000, true)) << "the token may travel in the query";
    ASSERT_TRUE(member.Subscribe({3}, {}));
    ASSERT_EQ(Post(PlatformV1("/Session/Logout")).ErrorCode(), 0);
    EXPECT_TRUE(member.WaitClosed(10000)) << "logging out closes the session's push links";
    EXPECT_EQ(member.CloseCode(), 4410);
}

TEST_F(ControlTest, ADroppedPushLinkRefusesReconnectsForAWhileThenServesAgain) {
    CPushClient push;
    ASSERT_TRUE(push.Open(pushUrl_, client_->Token())) << push.LastError();
    ASSERT_TRUE(push.Subscribe({3}, {310001}));

    RestReply drop = Control("POST", "/push/drop", R"({"RefuseSeconds":4})");
    ASSERT_EQ(drop.ErrorCode(), 0) << drop.Describe();
    EXPECT_TRUE(push.WaitClosed(10000)) << "the link was not dropped";
    RestReply clients = Control("GET", "/push/clients");
    EXPECT_EQ(clients.Node("/ResponseStatus/Data/Links")->Size(), 0u);
    EXPECT_FALSE(clients.Node("/ResponseStatus/Data/Accepting")->GetBool());

    CPushClient refused;
    EXPECT_FALSE(refused.Open(pushUrl_, client_->Token(), 5000)) << "a reconnect while refusing succeeded";
    EXPECT_FALSE(refused.LastError().empty());

    // The refusal ends by itself; a reconnect then works and frames flow again.
    CPushClient again;
    bool connected = false;
    for (int attempt = 0; attempt < 40 && !connected; ++attempt) {
        connected = again.Open(pushUrl_, client_->Token(), 2000);
        if (!connected) {
            again.Pump(250);
        }
    }
    ASSERT_TRUE(connected) << "no reconnect within the bound: " << again.LastError();
    EXPECT_TRUE(Control("GET", "/push/clients").Node("/ResponseStatus/Data/Accepting")->GetBool());
    ASSERT_TRUE(again.Subscribe({3}, {310001}));
    ASSERT_EQ(Control("POST", "/push/send",
                      R"({"Data":{"Event":{"BroadcastStatusList":[{"ResourceID":1001,"Status":1}]}}})")
                  .ErrorCode(),
              0);
    EXPECT_FALSE(
        again.WaitFor([](const rapidjson::Document& d) { return IsStatusFrame(d, 1); }, 10000).empty());

    ASSERT_EQ(Control("POST", "/push/drop", "{}").ErrorCode(), 0);
    EXPECT_TRUE(again.WaitClosed(10000));
    CPushClient immediate;
    EXPECT_TRUE(immediate.Open(pushUrl_, client_->Token()))
        << "without RefuseSeconds reconnects work at once";
    EXPECT_EQ(Control("POST", "/push/drop", R"({"RefuseSeconds":-1})").ErrorCode(), 2);
}
