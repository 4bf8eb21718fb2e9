// Login, session checks, routing errors, TLS and the program's start-up failures, against the real
// bcast-platform program over loopback.

#include <gtest/gtest.h>

#include <QFile>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <cstdlib>

#include "support/PlatformFixture.h"
#include "support/PushClient.h"

using namespace PlatformTest;

namespace {

const char kLoginPath[] = "/DXAPI/Galewing/Platform/V1/Session/Login";

}  // namespace

using SessionTest = PlatformFixture;

TEST_F(SessionTest, LoginHandsOutTokenSessionKeyAndPushUrlAndRefusesBadCredentials) {
    CRestClient anonymous(platform_.RestUrl());
    std::string error;
    RestReply reply;
    ASSERT_TRUE(anonymous.Login(kUser, kPassword, error, &reply)) << error;
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.ErrorModule(), 0);
    EXPECT_EQ(reply.Str("/ResponseStatus/CascadingErrorInfo"), "");
    EXPECT_EQ(reply.Str("/ResponseStatus/Data/UserName"), kUser);
    EXPECT_EQ(reply.Int("/ResponseStatus/Data/UserID"), 1);
    EXPECT_EQ(reply.Int("/ResponseStatus/Data/SecureEncryptType"), 1);
    for (const char* right : {"/ResponseStatus/Data/BroadcastRights/BroadcastHasAuthority",
                              "/ResponseStatus/Data/BroadcastRights/RealBroadcastHasAuthority"}) {
        const rapidjson::Value* node = reply.Node(right);
        ASSERT_NE(node, nullptr) << right;
        EXPECT_TRUE(node->IsBool() && node->GetBool()) << right << ": the operator has every right";
    }
    EXPECT_GE(reply.Str("/ResponseStatus/Data/Token").size(), 32u);
    EXPECT_GE(reply.Str("/ResponseStatus/Data/SessionKey").size(), 40u);
    EXPECT_NE(anonymous.Token(), client_->Token()) << "every login opens its own session";
    EXPECT_EQ(reply.Str("/ResponseStatus/Data/PushUrl"), platform_.PushUrl())
        << "the push address is announced as the client reached the platform";

    struct Case {
        const char* body;
        long status;
        int code;
    };
    for (const Case& c :
         {Case{R"({"UserName":"operator","Password":"wrong"})", 401, 5},
          Case{R"({"UserName":"nobody","Password":"Operator#2026"})", 401, 5},
          Case{R"({"UserName":"operator"})", 200, 2},
          Case{R"({"UserName":"operator","Password":12})", 200, 2}, Case{R"({"UserName":)", 200, 2}}) {
        RestReply r = anonymous.Send("POST", kLoginPath, c.body);
        EXPECT_EQ(r.status, c.status) << c.body << " " << r.Describe();
        EXPECT_EQ(r.ErrorModule(), 30) << c.body;
        EXPECT_EQ(r.ErrorCode(), c.code) << c.body;
        EXPECT_TRUE(r.Has("/ResponseStatus/Data")) << "every answer is a full envelope: " << r.body;
        EXPECT_FALSE(r.Has("/ResponseStatus/Data/Token")) << c.body;
    }
}

TEST_F(SessionTest, RequestsNeedALiveSessionAndLogoutEndsIt) {
    const std::string path = Plugin("/BaseConfig");
    CRestClient other(platform_.RestUrl());
    RestReply none = other.Send("GET", path);
    EXPECT_EQ(none.status, 401);
    EXPECT_EQ(none.ErrorModule(), 30);
    EXPECT_EQ(none.ErrorCode(), 1);
    EXPECT_FALSE(none.Has("/ResponseStatus/Data/BaseConfig"));

    RestReply basic = other.Send("GET", path, "", {"Authorization: Basic b3BlcmF0b3I6eA=="});
    EXPECT_EQ(basic.status, 401) << "only bearer tokens count";
    other.SetToken("0123456789abcdef0123456789abcdef0123456789abcdef");
    EXPECT_EQ(other.Send("GET", path).status, 401) << "an unknown token";

    EXPECT_EQ(Get(PlatformV1("/Session/Heartbeat")).Str("/ResponseStatus/Data/UserName"), kUser);
    RestReply ok = Get(path);
    EXPECT_EQ(ok.status, 200);
    EXPECT_TRUE(ok.Has("/ResponseStatus/Data/BaseConfig"));

    EXPECT_EQ(Post(PlatformV1("/Session/Logout")).ErrorCode(), 0);
    RestReply after = Get(path);
    EXPECT_EQ(after.status, 401) << "a closed session is refused";
    EXPECT_EQ(after.ErrorCode(), 1);
}

TEST_F(SessionTest, UnknownPathsAndMethodsAnswerWithEnvelopes) {
    RestReply unknown = Get(Plugin("/NoSuchThing"));
    EXPECT_EQ(unknown.status, 404);
    EXPECT_EQ(unknown.ErrorModule(), 30);
    EXPECT_EQ(unknown.ErrorCode(), 8);
    RestReply wrongMethod = Post(Plugin("/BaseConfig"), "{}");
    EXPECT_EQ(wrongMethod.status, 405);
    EXPECT_EQ(wrongMethod.ErrorCode(), 8);
    RestReply badId = Post(Plugin("/MediaManagement/MediaFile/abc"));
    EXPECT_EQ(badId.status, 404) << "an id segment takes integers only";
}

namespace {

class TlsTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = MakeTempDir("tls");
        ASSERT_FALSE(dir_.empty());
        cert_ = dir_ + "/cert.pem";
        key_ = dir_ + "/key.pem";
        // The same command as in docs/platform.md.
        const std::string command =
            "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
            "-addext subjectAltName=IP:127.0.0.1 -keyout " +
            key_ + " -out " + cert_ + " > " + dir_ + "/openssl.log 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0)
            << "openssl could not make a test certificate: " << ReadFile(dir_ + "/openssl.log");
    }

    std::string dir_;
    std::string cert_;
    std::string key_;
};

}  // namespace

TEST_F(TlsTest, HttpsAndWssServeWithTheGivenCertificate) {
    CPlatformProcess platform;
    ASSERT_TRUE(platform.Start({"--fixture", DemoFixture(), "--tls-cert", cert_, "--tls-key", key_}))
        << platform.Error();
    ASSERT_EQ(platform.RestUrl().rfind("https://127.0.0.1:", 0), 0u) << platform.RestUrl();
    ASSERT_EQ(platform.PushUrl().rfind("wss://127.0.0.1:", 0), 0u) << platform.PushUrl();

    CRestClient untrusting(platform.RestUrl());
    std::string error;
    EXPECT_FALSE(untrusting.Login(kUser, kPassword, error))
        << "the self-made certificate must not be trusted";

    CRestClient client(platform.RestUrl());
    client.SetCaFile(cert_);
    RestReply login;
    ASSERT_TRUE(client.Login(kUser, kPassword, error, &login)) << error;
    EXPECT_EQ(login.Str("/ResponseStatus/Data/PushUrl").rfind("wss://", 0), 0u);
    RestReply partitions =
        client.Send("GET", Plugin("/TerminalManagement/Partitions"),
                    R"({"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":""}}})");
    EXPECT_EQ(partitions.Int("/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition/0/ID"), 1)
        << partitions.Describe();

    CPushClient push;
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    ssl.setCaCertificates(QSslCertificate::fromPath(QString::fromStdString(cert_)));
    push.SetSslConfiguration(ssl);
    ASSERT_TRUE(push.Open(login.Str("/ResponseStatus/Data/PushUrl"), client.Token())) << push.LastError();
    EXPECT_TRUE(push.Subscribe({3}, {310001}));
    EXPECT_EQ(platform.Stop(), 0) << platform.Stderr().substr(0, 20000);
}

TEST(PlatformProgram, StartUpFailuresEndWithAReasonAndAnExitCode) {
    const std::string dir = MakeTempDir("badfixture");
    ASSERT_FALSE(dir.empty());
    const std::string bad = dir + "/bad.json";
    {
        FILE* f = std::fopen(bad.c_str(), "w");
        ASSERT_NE(f, nullptr);
        std::fputs(R"({"Users":[{"ID":1,"Name":"a","Password":"b"}],"Devices":[{"ID":1,"Name":"d",)"
                   R"("DeviceType":2020,"AccessProtocol":1}],"Elements":[{"ID":5,"Name":"e","DeviceID":7}]})",
                   f);
        std::fclose(f);
    }
    CPlatformProcess badFixture;
    EXPECT_EQ(badFixture.RunToExit({"--fixture", bad, "--listen", "127.0.0.1:0"}), 1);
    EXPECT_NE(badFixture.Stderr().find("element 5 names unknown device 7"), std::string::npos)
        << badFixture.Stderr();

    CPlatformProcess missing;
    EXPECT_EQ(missing.RunToExit({"--fixture", dir + "/none.json", "--listen", "127.0.0.1:0"}), 1);
    EXPECT_NE(missing.Stderr().find("cannot open"), std::string::npos) << missing.Stderr();

    CPlatformProcess badFlag;
    EXPECT_EQ(badFlag.RunToExit({"--frobnicate", "1"}), 2);
    EXPECT_NE(badFlag.Stderr().find("unknown option --frobnicate"), std::string::npos) << badFlag.Stderr();
    EXPECT_NE(badFlag.Stderr().find("usage: bcast-platform"), std::string::npos);

    CPlatformProcess first;
    ASSERT_TRUE(first.Start({"--fixture", DemoFixture()})) << first.Error();
    const std::string rest = first.RestUrl();
    const std::string port = rest.substr(rest.rfind(':') + 1);
    CPlatformProcess second;
    EXPECT_EQ(
        second.RunToExit({"--fixture", DemoFixture(), "--listen", "127.0.0.1:" + port, "--push-port", "0"}),
        1);
    EXPECT_NE(second.Stderr().find("cannot listen"), std::string::npos) << second.Stderr();
    EXPECT_EQ(first.Stop(), 0);
    EXPECT_NE(first.Stdout().find("bcast-platform: stopped"), std::string::npos) << first.Stdout();
}
