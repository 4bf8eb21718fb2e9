// Units of the platform inside one process: the fixture loader's checks, the command line, routing,
// fault rules and the small parsers the handlers rely on.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/server/PlatformOptions.h"
#include "platform/server/fault/FaultInjector.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/http/RestGateway.h"
#include "platform/server/http/Router.h"
#include "platform/server/json/Json.h"

using namespace Platform;

namespace {

std::string DemoPath() {
    const char* dir = std::getenv("BCAST_SOURCE_DIR");
    return std::string(dir != nullptr ? dir : ".") + "/fixtures/demo-site.json";
}

// A minimal valid fixture with one substitution applied to its text.
std::string MiniFixture(const std::string& extra = "") {
    return R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],)"
           R"("Partitions":[{"ID":1,"Name":"P"}],)"
           R"("Devices":[{"ID":10,"Name":"d","DeviceType":2020,"AccessProtocol":1}],)"
           R"("Elements":[{"ID":100,"Name":"e","DeviceID":10,"Partitions":[1]}],)"
           R"("MediaDirectories":[{"ID":1,"Name":"root","ParentID":0}],)"
           R"("MediaFiles":[{"ID":1,"Name":"f","format":"mp3","ParentID":1}])" +
           extra + "}";
}

}  // namespace

TEST(FixtureLoader, TheDemoSiteCoversEveryTransportAndDeviceKind) {
    Fixture f;
    std::string error;
    ASSERT_TRUE(LoadFixture(DemoPath(), f, error)) << error;
    ASSERT_NE(f.FindUser("operator"), nullptr);
    EXPECT_EQ(f.FindUser("operator")->password, "Operator#2026");
    EXPECT_TRUE(f.FindUser("operator")->broadcastRight && f.FindUser("operator")->realBroadcastRight)
        << "a user without rights in the site has them all";
    ASSERT_NE(f.FindUser("guard"), nullptr);
    EXPECT_EQ(f.FindUser("guard")->id, 3);
    EXPECT_EQ(f.FindUser("guard")->password, "Guard#2026");
    EXPECT_TRUE(f.FindUser("guard")->broadcastRight);
    EXPECT_FALSE(f.FindUser("guard")->realBroadcastRight);
    int outside = 0;
    bool sms = false;
    bool sdkSpeaker = false;
    bool sdkEncoder = false;
    bool udp = false;
    for (const Element& e : f.elements) {
        outside += e.partitionIds.empty() ? 1 : 0;
        const Device* d = f.FindDevice(e.deviceId);
        ASSERT_NE(d, nullptr);
        sms = sms || e.stream == StreamKind::kSms;
        if (e.stream == StreamKind::kSdk) {
            sdkSpeaker = sdkSpeaker || (d->deviceType == 2020 && d->accessProtocol == 1);
            sdkEncoder = sdkEncoder || (d->deviceType == 2001 && d->accessProtocol == 1);
            udp = udp || (d->deviceType == 2020 && d->accessProtocol == 23);
        }
    }
    EXPECT_EQ(outside, 1) << "one terminal outside every partition";
    EXPECT_TRUE(sms && sdkSpeaker && sdkEncoder && udp);
    EXPECT_EQ(f.baseConfig.audioCompressionType, "G711_u");
    EXPECT_FALSE(f.storage.accessKey.empty());
    EXPECT_FALSE(f.ttsLanguages.empty());
    EXPECT_GE(f.directories.size(), 3u);
}

TEST(FixtureLoader, RefusesInconsistentFixturesNamingTheEntry) {
    Fixture f;
    std::string error;
    ASSERT_TRUE(ParseFixture(MiniFixture(), f, error)) << error;

    struct Case {
        std::string text;
        std::string message;
    };
    const std::vector<Case> cases = {
        {"{", "malformed JSON"},
        {"[]", "must be a JSON object"},
        {R"({"Users":[]})", "at least one user"},
        {R"({"Users":[{"ID":1,"Name":"u"}]})", "Users[0]: \"Password\" must be a text"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"},{"ID":1,"Name":"v","Password":"p"}]})",
         "Users: ID 1 is used twice"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p","Rights":true}]})",
         "Users[0]: \"Rights\" must be an object"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p","Rights":{"RealBroadcastHasAuthority":"no"}}]})",
         "Users[0]/Rights: \"RealBroadcastHasAuthority\" must be true or false"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2001,)"
         R"("AccessProtocol":23}]})",
         "is not a broadcast device"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2020,)"
         R"("AccessProtocol":1,"StreamAccessType":5}]})",
         "\"StreamAccessType\" must be 0, 2, 3, 4 or 20"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2020,)"
         R"("AccessProtocol":1,"IP":"239.1.2.3"}]})",
         "a multicast \"IP\" is for speakers of access protocol 23"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2020,)"
         R"("AccessProtocol":1}],"Elements":[{"ID":2,"Name":"e","DeviceID":1,"Stream":"carrier pigeon"}]})",
         "\"Stream\" must be"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2020,)"
         R"("AccessProtocol":1}],"Elements":[{"ID":2,"Name":"e","DeviceID":1,"Partitions":[9]}]})",
         "element 2 names unknown partition 9"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"MediaDirectories":[{"ID":1,"Name":"a","ParentID":2},)"
         R"({"ID":2,"Name":"b","ParentID":1}]})",
         "cycle"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"MediaDirectories":[{"ID":1,"Name":"a","ParentID":0}],)"
         R"("MediaFiles":[{"ID":1,"Name":"f","format":"mp3","ParentID":1,"StorageType":"pStorage",)"
         R"("StorageServerID":5}]})",
         "unknown storage server 5"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Site":{"SecureEncryptType":2}})",
         "SecureEncryptType"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"BaseConfig":{"IsPromptToneActivated":"yes"}})",
         "\"IsPromptToneActivated\" must be true or false"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[{"ID":1,"Name":"d","DeviceType":2020,)"
         R"("AccessProtocol":23,"IdleToneHz":5000}]})",
         "\"IdleToneHz\" must be 50..3900"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"StreamingServer":{"BackchannelCodec":"OPUS"}})",
         "\"BackchannelCodec\" must be"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"StreamingServer":{"PathPrefix":"a/b"}})",
         "\"PathPrefix\" must be one path segment"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"StreamingServer":{"RtspPort":70000}})",
         "\"RtspPort\" is out of range"},
        {R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"StreamingServer":{"JitterBufferMs":-1}})",
         "\"JitterBufferMs\" must be 0 to 10000"},
    };
    for (const Case& c : cases) {
        Fixture out;
        out.siteName = "untouched";
        error.clear();
        EXPECT_FALSE(ParseFixture(c.text, out, error)) << c.text;
        EXPECT_NE(error.find(c.message), std::string::npos) << "got: " << error << "\nfor: " << c.text;
        EXPECT_EQ(out.siteName, "untouched") << "a refused fixture leaves the output alone";
    }
    EXPECT_FALSE(LoadFixture("/nonexistent/fixture.json", f, error));
    EXPECT_NE(error.find("cannot open /nonexistent/fixture.json"), std::string::npos);
}

TEST(PlatformOptions, CommandLineReadsEveryFlagAndRefusesBadValues) {
    PlatformOptions o;
    std::string error;
    ASSERT_TRUE(ParseCommandLine({}, o, error)) << error;
    EXPECT_EQ(o.listenAddress, "127.0.0.1");
    EXPECT_EQ(o.listenPort, 18650);
    EXPECT_EQ(o.EffectivePushPort(), 18651);

    PlatformOptions all;
    ASSERT_TRUE(ParseCommandLine(
        {"--fixture", "f.json", "--listen", "0.0.0.0:9000", "--push-port", "9100", "--tls-cert", "c.pem",
         "--tls-key", "k.pem", "--log-level", "5", "--request-log", "r.jsonl", "--threads", "4"},
        all, error))
        << error;
    EXPECT_EQ(all.fixturePath, "f.json");
    EXPECT_EQ(all.listenAddress, "0.0.0.0");
    EXPECT_EQ(all.listenPort, 9000);
    EXPECT_EQ(all.EffectivePushPort(), 9100);
    EXPECT_EQ(all.tlsCert, "c.pem");
    EXPECT_EQ(all.logLevel, 5);
    EXPECT_EQ(all.requestLogPath, "r.jsonl");
    EXPECT_EQ(all.workerThreads, 4u);
    EXPECT_TRUE(all.control);
    EXPECT_EQ(all.speakerDir, DefaultSpeakerDir()) << "speakers record somewhere even without the flag";
    EXPECT_FALSE(all.anySimPorts);
    EXPECT_TRUE(all.simPeers);
    PlatformOptions quiet;
    ASSERT_TRUE(ParseCommandLine(
        {"--no-control", "--speaker-dir", "/tmp/s", "--sim-ports", "any", "--no-peers"}, quiet, error))
        << error;
    EXPECT_FALSE(quiet.control);
    EXPECT_EQ(quiet.speakerDir, "/tmp/s");
    EXPECT_TRUE(quiet.anySimPorts);
    EXPECT_FALSE(quiet.simPeers);
    EXPECT_TRUE(all.objectStores) << "object stores run unless turned off";
    EXPECT_EQ(all.storageDir, DefaultStorageDir());
    EXPECT_EQ(all.nodeProgram, "node");
    EXPECT_NE(all.objectStoreScript.find("scripts/objectstore/s3rver.js"), std::string::npos);
    PlatformOptions stores;
    ASSERT_TRUE(ParseCommandLine({"--object-store", "off", "--storage-dir", "/tmp/st", "--node", "/opt/node",
                                  "--object-store-script", "/x/s3.js"},
                                 stores, error))
        << error;
    EXPECT_FALSE(stores.objectStores);
    EXPECT_EQ(stores.storageDir, "/tmp/st");
    EXPECT_EQ(stores.nodeProgram, "/opt/node");
    EXPECT_EQ(stores.objectStoreScript, "/x/s3.js");

    PlatformOptions any;
    ASSERT_TRUE(ParseCommandLine({"--listen", "[::1]:0"}, any, error)) << error;
    EXPECT_EQ(any.listenAddress, "::1");
    EXPECT_EQ(any.EffectivePushPort(), 0) << "port 0 asks for a free push port too";

    for (const std::vector<std::string>& bad :
         std::vector<std::vector<std::string>>{{"--listen", "127.0.0.1:70000"},
                                               {"--listen", ":80"},
                                               {"--push-port", "x"},
                                               {"--log-level", "9"},
                                               {"--tls-cert", "c.pem"},
                                               {"--listen", "127.0.0.1:5000", "--push-port", "5000"},
                                               {"--fixture"},
                                               {"--sim-ports", "some"},
                                               {"--speaker-dir", ""},
                                               {"--object-store", "on"},
                                               {"--storage-dir", ""},
                                               {"--node", ""},
                                               {"--bogus", "1"},
                                               {"stray"}}) {
        PlatformOptions out;
        error.clear();
        EXPECT_FALSE(ParseCommandLine(bad, out, error)) << bad[0];
        EXPECT_FALSE(error.empty());
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    error.clear();
    PlatformOptions bogus;
    EXPECT_FALSE(ParseCommandLine({"--listen", "127.0.0.1:0", "--bogus"}, bogus, error));
    EXPECT_EQ(error, "unknown option --bogus");
    EXPECT_FALSE(ParseCommandLine({"stray"}, bogus, error));
    EXPECT_EQ(error, "unexpected argument stray");

    PlatformOptions help;
    ASSERT_TRUE(ParseCommandLine({"--help"}, help, error)) << error;
    EXPECT_TRUE(help.help);
    EXPECT_FALSE(help.version);
    PlatformOptions version;
    ASSERT_TRUE(ParseCommandLine({"--version"}, version, error)) << error;
    EXPECT_TRUE(version.version);
}

TEST(Router, MatchesLiteralSegmentsAndIntegerCapturesAndTellsWrongMethodsApart) {
    CRouter router;
    int hits = 0;
    router.Add("POST", "/a/MediaFile/{int}", RouteAccess::kSession, [&hits](const RestRequest&) {
        ++hits;
        return Ok();
    });
    router.Add("GET", "/a/b", RouteAccess::kPublic, [](const RestRequest&) { return Ok(); });
    const CRouter::Route* route = nullptr;
    std::vector<std::string> captures;
    ASSERT_EQ(router.Find("POST", "/a/MediaFile/-12", route, captures), CRouter::Match::kFound);
    EXPECT_EQ(captures, (std::vector<std::string>{"-12"}));
    EXPECT_EQ(route->access, RouteAccess::kSession);
    route->handler(RestRequest());
    EXPECT_EQ(hits, 1);
    EXPECT_EQ(router.Find("GET", "/a/MediaFile/12", route, captures), CRouter::Match::kWrongMethod);
    EXPECT_EQ(router.Find("POST", "/a/MediaFile/1x", route, captures), CRouter::Match::kNoPath);
    EXPECT_EQ(router.Find("POST", "/a/MediaFile/", route, captures), CRouter::Match::kNoPath);
    EXPECT_EQ(router.Find("POST", "/a/MediaFile/-", route, captures), CRouter::Match::kNoPath);
    EXPECT_EQ(router.Find("GET", "/a/b/", route, captures), CRouter::Match::kNoPath) << "no trailing slash";
    EXPECT_EQ(router.Find("GET", "/a/b", route, captures), CRouter::Match::kFound);
}

TEST(HandlerParsers, IdListsAndBearerTokens) {
    std::vector<int> ids;
    ASSERT_TRUE(ParseIdList("1001, 1002,1003", ids));
    EXPECT_EQ(ids, (std::vector<int>{1001, 1002, 1003}));
    ASSERT_TRUE(ParseIdList("", ids));
    EXPECT_TRUE(ids.empty());
    for (const char* bad : {"1,", ",1", "1,,2", "a", "1 2", "99999999999", "1.5"}) {
        EXPECT_FALSE(ParseIdList(bad, ids)) << bad;
    }
    EXPECT_EQ(BearerToken("Bearer abc"), "abc");
    EXPECT_EQ(BearerToken("bearer   abc  "), "abc");
    EXPECT_EQ(BearerToken("Basic abc"), "");
    EXPECT_EQ(BearerToken("Bearer "), "");
    EXPECT_EQ(BearerToken(""), "");
}

TEST(FaultInjector, MatchesByMethodAndPathPrefixAndCountsUses) {
    CFaultInjector faults;
    rapidjson::Document doc;
    std::string error;
    FaultRule rule;
    ASSERT_TRUE(Json::Parse(R"({"Method":"GET","Path":"/x/*","Kind":"empty","Count":2})", doc, error));
    ASSERT_TRUE(ParseFaultRule(doc, rule, error)) << error;
    faults.Add(rule);
    ASSERT_TRUE(Json::Parse(R"({"Path":"/x/y","Kind":"error","ErrorModule":1,"ErrorCode":2})", doc, error));
    ASSERT_TRUE(ParseFaultRule(doc, rule, error)) << error;
    faults.Add(rule);

    FaultRule hit;
    EXPECT_FALSE(faults.Take("GET", "/x", hit)) << "the prefix is /x/";
    EXPECT_FALSE(faults.Take("GET", "/elsewhere", hit));
    ASSERT_TRUE(faults.Take("GET", "/x/y", hit));
    EXPECT_EQ(hit.kind, FaultKind::kEmpty) << "the first installed rule wins";
    ASSERT_TRUE(faults.Take("POST", "/x/y", hit));
    EXPECT_EQ(hit.kind, FaultKind::kError) << "the GET rule does not match POST";
    ASSERT_TRUE(faults.Take("GET", "/x/z", hit));
    EXPECT_EQ(hit.kind, FaultKind::kEmpty);
    EXPECT_EQ(faults.Snapshot().size(), 1u) << "the empty rule is used up after two uses";
    ASSERT_TRUE(faults.Take("GET", "/x/y", hit));
    EXPECT_EQ(hit.kind, FaultKind::kError);
    EXPECT_EQ(faults.Snapshot()[0].hits, 2);
}

TEST(FaultInjector, KindsAreReadAndShownByTheSameNames) {
    rapidjson::Document doc;
    std::string error;
    FaultRule rule;
    for (const std::string kind : {"error", "empty", "malformed", "http", "delay"}) {
        ASSERT_TRUE(
            Json::Parse(R"({"Path":"/x","ErrorCode":7,"DelayMs":5,"Kind":")" + kind + R"("})", doc, error));
        ASSERT_TRUE(ParseFaultRule(doc, rule, error)) << kind << ": " << error;
        EXPECT_STREQ(FaultKindName(rule.kind), kind.c_str());
    }
    for (const char* kind : {"Error", "", "error\\u0000x"}) {
        ASSERT_TRUE(Json::Parse(
            std::string(R"({"Path":"/x","ErrorCode":7,"DelayMs":5,"Kind":")") + kind + R"("})", doc, error));
        EXPECT_FALSE(ParseFaultRule(doc, rule, error)) << kind;
        EXPECT_EQ(error, "\"Kind\" must be error, empty, malformed, http or delay") << kind;
    }
}

TEST(Json, ReadersAreLenientWithNumbersAndStrictWithText) {
    rapidjson::Document doc;
    std::string error;
    ASSERT_TRUE(Json::Parse(R"({"a":{"b":"12","c":3.0,"d":true,"e":1,"f":"x"}})", doc, error));
    EXPECT_EQ(Json::GetInt(doc, "a/b", -1), 12);
    EXPECT_EQ(Json::GetInt(doc, "a/c", -1), 3);
    EXPECT_EQ(Json::GetInt(doc, "a/f", -1), -1);
    EXPECT_EQ(Json::GetInt(doc, "a/zz", -1), -1);
    EXPECT_TRUE(Json::GetBool(doc, "a/d", false));
    EXPECT_TRUE(Json::GetBool(doc, "a/e", false));
    EXPECT_EQ(Json::GetString(doc, "a/b"), "12");
    EXPECT_EQ(Json::GetString(doc, "a/c", "def"), "def");
    EXPECT_TRUE(Json::Parse("  ", doc, error));
    EXPECT_TRUE(doc.IsObject() && doc.ObjectEmpty());
    EXPECT_FALSE(Json::Parse(R"({"a":1} trailing)", doc, error));
    EXPECT_FALSE(error.empty());
    Json::CWriter w;
    w.BeginObject().String("s", "q\"\n").Int("i", -5).IntArray("l", {1, 2}).Raw("r", "{\"x\":1}").EndObject();
    EXPECT_EQ(w.Text(), R"({"s":"q\"\n","i":-5,"l":[1,2],"r":{"x":1}})");
}
