// The framework's push link against the real platform (and, for faults the platform does not produce, a
// scripted websocket peer): subscription, delivery to observers, reconnection, session renewal after a
// platform restart, logout, and stopping when the peer is dead. No Qt event loop runs in this process.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>

#include "ClientNetFixture.h"
#include "FakePushServer.h"
#include "framework/business/UserCommonManager.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/PlatformRequest.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace ClientNetTest {
namespace {

using BusinessCommon::CUserCommonManager;
using NetworkCommunication::CRapidJsonProto;
using TalClientFrameWork::CEventParam;
using TalClientFrameWork::CFrameworkManagerInterface;
using TalClientFrameWork::PushLinkEvent;
using TalClientFrameWork::PushLinkState;

constexpr char kStatusData[] =
    R"({"Event":{"BroadcastStatusList":[{"BoardcastGroupGUID":"g-1","ResourceID":1003,"ErrorCode":0,)"
    R"("ErrorModule":0,"ResourceType":1027,"ResourceStatus":1,"Status":1}]}})";

CFrameworkManagerInterface* Framework() {
    return CFrameworkManagerInterface::Instance();
}

std::vector<int> RetryDelays(const std::vector<PushLinkEvent>& events, int closeCode = -1) {
    std::vector<int> delays;
    for (const PushLinkEvent& e : events) {
        if (e.state == PushLinkState::kWaiting && (closeCode < 0 || e.closeCode == closeCode)) {
            delays.push_back(e.retryInMs);
        }
    }
    return delays;
}

class PushLinkTest : public PlatformClientTest {
protected:
    std::shared_ptr<CRecordingObserver> Observe(const std::string& name, const std::vector<int>& messageTypes,
                                                const std::vector<std::pair<int, int>>& events) {
        auto observer = std::make_shared<CRecordingObserver>();
        EXPECT_TRUE(Framework()->RegisterWebsocketObserver(name, observer));
        observers_.push_back(name);
        if (!messageTypes.empty()) {
            EXPECT_TRUE(Framework()->Messages(messageTypes, name, true));
        }
        std::vector<CEventParam> params;
        for (const auto& e : events) {
            CEventParam p;
            p.SetVal_event_type(e.first);
            p.SetVal_type(e.second);
            params.push_back(p);
        }
        if (!params.empty()) {
            EXPECT_TRUE(Framework()->Events(params, name, true));
        }
        return observer;
    }

    // The platform's view of the single link: its message types and events ("type:sub" texts).
    bool PlatformSubscription(std::set<int>& types, std::set<std::string>& events) {
        PlatformTest::RestReply reply = PushClients();
        const rapidjson::Value* links = reply.Node("/ResponseStatus/Data/Links");
        if (links == nullptr || !links->IsArray() || links->Size() != 1) {
            return false;
        }
        types.clear();
        events.clear();
        for (const auto& t : (*links)[0]["MessageTypes"].GetArray()) {
            types.insert(t.GetInt());
        }
        for (const auto& e : (*links)[0]["Events"].GetArray()) {
            events.insert(std::to_string(e["EventType"].GetInt()) + ":" + std::to_string(e["Type"].GetInt()));
        }
        return true;
    }

    bool WaitPlatformSubscription(const std::set<int>& wantTypes, const std::set<std::string>& wantEvents) {
        return WaitUntil(
            [&] {
                std::set<int> types;
                std::set<std::string> events;
                return PlatformSubscription(types, events) && types == wantTypes && events == wantEvents;
            },
            10000);
    }

    int LinkCount() {
        const PlatformTest::RestReply reply = PushClients();
        const rapidjson::Value* links = reply.Node("/ResponseStatus/Data/Links");
        return links != nullptr && links->IsArray() ? static_cast<int>(links->Size()) : -1;
    }
};

TEST_F(PushLinkTest, DeliversFramesToTheirSubscribersOnTheLinkThreadUntilTheClientLogsOut) {
    CStateRecorder states;
    auto status = Observe("test.status", {3}, {{310001, 0}});
    auto other = Observe("test.other", {7}, {});
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());

    // The link asked for the union of what the observers want.
    EXPECT_TRUE(WaitPlatformSubscription({3, 7}, {"310001:0"}));
    EXPECT_EQ(LinkCount(), 1);
    // The listener hears of the connection just after the state changed.
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kConnected) == 1; }, 10000));
    const std::vector<PushLinkEvent> events = states.Events();
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[0].state, PushLinkState::kConnecting);
    EXPECT_EQ(events.back().state, PushLinkState::kConnected);

    // A broadcast status frame: passed on as it came, envelope at the top, with its message type.
    ASSERT_TRUE(Push(3, 310001, kStatusData));
    ASSERT_TRUE(status->WaitForCount(1, 10000));
    CRecordingObserver::Frame frame = status->Frames()[0];
    EXPECT_EQ(frame.msgType, 3);
    EXPECT_EQ(frame.websocketMsgType, 1);
    EXPECT_NE(frame.thread, std::this_thread::get_id()) << "frames arrive on the link's thread";
    CRapidJsonProto doc;
    ASSERT_TRUE(doc.set_str(frame.raw)) << frame.raw;
    EXPECT_EQ(doc.get_int_v("/MessageType", -1), 3);
    EXPECT_EQ(doc.get_int_v("/Msg/ProtocolType", -1), 1);
    EXPECT_EQ(doc.get_int_v("/Msg/Data/Event/BroadcastStatusList[1]/ResourceID", -1), 1003);

    // Another message type reaches the status observer through its event type only.
    ASSERT_TRUE(Push(5, 310001, R"({"n":2})"));
    ASSERT_TRUE(status->WaitForCount(2, 10000));
    EXPECT_EQ(status->Frames()[1].msgType, 5);

    // Type 7 is only the other observer's.
    ASSERT_TRUE(Push(7, 0, R"({"n":3})"));
    ASSERT_TRUE(other->WaitForCount(1, 10000));
    EXPECT_EQ(other->Frames()[0].msgType, 7);
    // Frames are delivered in order on one thread: once this one arrived, nothing else is on its way.
    ASSERT_TRUE(Push(3, 0, R"({"n":4})"));
    ASSERT_TRUE(status->WaitForCount(3, 10000));
    EXPECT_EQ(status->Count(), 3u);
    EXPECT_EQ(other->Count(), 1u);
    for (const auto& f : status->Frames()) {
        EXPECT_EQ(f.thread, frame.thread);
        EXPECT_NE(f.msgType, 7);
    }

    SCOPED_TRACE("a client logout stops the link and closes the session");
    EXPECT_TRUE(BusinessCommon::LogoutFromPlatform());
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
    EXPECT_TRUE(WaitUntil([&] { return LinkCount() == 0; }, 10000));
    EXPECT_EQ(CountRequests("POST", "/DXAPI/Galewing/Platform/V1/Session/Logout"), 1);
    EXPECT_FALSE(CUserCommonManager::Instance()->IsLogin());
    EXPECT_FALSE(NetworkCommunication::CNetCommManager::Instance()->GetSession().IsValid());
}

TEST_F(PushLinkTest, SubscriptionChangesWhileConnectedReachThePlatform) {
    auto status = Observe("test.status", {3}, {});
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());
    ASSERT_TRUE(WaitPlatformSubscription({3}, {}));

    // An observer that subscribes after the link is up.
    auto late = Observe("test.late", {8}, {{320001, 2}});
    ASSERT_TRUE(WaitPlatformSubscription({3, 8}, {"320001:2"}));
    ASSERT_TRUE(Push(8, 0, R"({"n":1})"));
    ASSERT_TRUE(Push(9, 320001, R"({"n":2})"));
    ASSERT_TRUE(late->WaitForCount(2, 10000));
    EXPECT_EQ(late->Frames()[0].msgType, 8);
    EXPECT_EQ(late->Frames()[1].msgType, 9);

    // Withdrawn piece by piece: first the message type, then the whole observer with its event.
    ASSERT_TRUE(Framework()->Messages({8}, "test.late", false));
    EXPECT_TRUE(WaitPlatformSubscription({3}, {"320001:2"}));
    ASSERT_TRUE(Framework()->UnRegisterWebsocketObserver("test.late"));
    EXPECT_TRUE(WaitPlatformSubscription({3}, {}));
    ASSERT_TRUE(Push(8, 320001, R"({"n":3})"));
    ASSERT_TRUE(Push(3, 0, R"({"n":4})"));
    ASSERT_TRUE(status->WaitForCount(1, 10000));
    EXPECT_EQ(late->Count(), 2u);
    EXPECT_EQ(status->Count(), 1u);
}

TEST_F(PushLinkTest, ReconnectsWithGrowingBackOffAfterTheLinkIsDroppedAndResubscribes) {
    auto status = Observe("test.status", {3}, {{310001, 0}});
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());
    CStateRecorder states;

    // The platform aborts the link and refuses connections for 3 s.
    ASSERT_EQ(Control("POST", "/push/drop", R"({"RefuseSeconds":3})").ErrorCode(), 0);
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kWaiting) >= 1; }, 10000))
        << "the link notices the drop";
    ASSERT_TRUE(WaitConnected(30000));
    const std::vector<int> delays = RetryDelays(states.Events());
    ASSERT_GE(delays.size(), 2u) << "attempts while the platform refused connections";
    EXPECT_EQ(delays[0], 500);
    EXPECT_EQ(delays[1], 1000);
    for (size_t i = 1; i < delays.size(); ++i) {
        EXPECT_GE(delays[i], delays[i - 1]);
    }
    EXPECT_TRUE(WaitPlatformSubscription({3}, {"310001:0"}));
    ASSERT_TRUE(Push(3, 310001, kStatusData));
    ASSERT_TRUE(status->WaitForCount(1, 10000));

    // A link that came back starts the back-off afresh.
    states.Clear();
    ASSERT_EQ(Control("POST", "/push/drop", R"({"RefuseSeconds":0})").ErrorCode(), 0);
    ASSERT_TRUE(WaitUntil([&] { return !RetryDelays(states.Events()).empty(); }, 10000));
    EXPECT_EQ(RetryDelays(states.Events())[0], 500);
    ASSERT_TRUE(WaitConnected(30000));
    ASSERT_TRUE(WaitPlatformSubscription({3}, {"310001:0"}));
    ASSERT_TRUE(Push(3, 310001, kStatusData));
    ASSERT_TRUE(status->WaitForCount(2, 10000));
}

TEST_F(PushLinkTest, SurvivesAPlatformRestartByRenewingTheSession) {
    auto status = Observe("test.status", {3}, {{310001, 0}});
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());
    const std::string oldToken = CUserCommonManager::Instance()->GetLogin().token;
    const int renewals = BusinessCommon::SessionRenewalCount();
    CStateRecorder states;

    ASSERT_TRUE(KillPlatform());
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kWaiting) >= 2; }, 20000))
        << "the link should notice the dead platform and keep trying";
    ASSERT_TRUE(RestartPlatformOnSamePorts());

    // The restarted platform knows no session: the link hears 4401 and the session is renewed.
    ASSERT_TRUE(WaitConnected(60000));
    EXPECT_GE(states.Count(PushLinkState::kWaiting, TalClientFrameWork::kPushCloseUnauthorized), 1);
    EXPECT_EQ(BusinessCommon::SessionRenewalCount(), renewals + 1);
    const std::string newToken = CUserCommonManager::Instance()->GetLogin().token;
    EXPECT_FALSE(newToken.empty());
    EXPECT_NE(newToken, oldToken);
    EXPECT_EQ(NetworkCommunication::CNetCommManager::Instance()->GetSession().token, newToken);

    // Frames flow again with the same subscription, and REST calls use the new session.
    EXPECT_TRUE(WaitPlatformSubscription({3}, {"310001:0"}));
    ASSERT_TRUE(Push(3, 310001, kStatusData));
    ASSERT_TRUE(status->WaitForCount(1, 10000));
    CRapidJsonProto answer;
    EXPECT_TRUE(NetworkCommunication::CallPlatform("GET", "/DXAPI/Galewing/Platform/V1/Session/Heartbeat", "",
                                                   answer))
        << Tal::Base::Error::GetLastError().ToString();
}

TEST_F(PushLinkTest, ARefusedSessionIsReportedAndRetriedWithBackOff) {
    CStateRecorder states;
    ASSERT_TRUE(Framework()->StartPushLink(platform_->PushUrl(), "not-a-session-token", ""));
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kWaiting, 4401) >= 3; }, 20000))
        << "each attempt is refused with 4401";
    const std::vector<int> delays = RetryDelays(states.Events(), 4401);
    EXPECT_EQ(delays[0], 500);
    EXPECT_EQ(delays[1], 1000);
    EXPECT_EQ(delays[2], 2000);
    EXPECT_EQ(states.Count(PushLinkState::kConnected), 0);
    EXPECT_FALSE(Framework()->IsPushLinkConnected());
    Framework()->StopPushLink();
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
}

TEST_F(PushLinkTest, APlatformSideLogoutClosesTheLinkWith4410AndItStaysDown) {
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());
    CStateRecorder states;

    // The session is logged out behind the client's back (by another part of the client, or an operator).
    PlatformTest::CRestClient other(platform_->RestUrl());
    other.SetToken(CUserCommonManager::Instance()->GetLogin().token);
    ASSERT_EQ(other.Send("POST", "/DXAPI/Galewing/Platform/V1/Session/Logout").status, 200);

    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kLoggedOut, 4410) == 1; }, 10000));
    // Well past several back-off delays: no attempt, no renewal.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kLoggedOut);
    EXPECT_EQ(states.Count(PushLinkState::kConnecting), 0);
    EXPECT_EQ(LinkCount(), 0);
    EXPECT_EQ(CountRequests("POST", "/DXAPI/Galewing/Platform/V1/Session/Login"), 1);

    // Logging out of a session the platform already closed still clears everything locally.
    EXPECT_FALSE(BusinessCommon::LogoutFromPlatform()) << "the platform no longer knows the session";
    EXPECT_FALSE(CUserCommonManager::Instance()->IsLogin());
    EXPECT_FALSE(NetworkCommunication::CNetCommManager::Instance()->GetSession().IsValid());
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
}

TEST_F(PushLinkTest, StopReturnsPromptlyWhileThePlatformIsDead) {
    ASSERT_TRUE(Login());
    ASSERT_TRUE(WaitConnected());
    CStateRecorder states;
    ASSERT_TRUE(KillPlatform());
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kWaiting) >= 3; }, 20000));

    // A generous bound: the link waits at most its close time-out (1 s) plus a margin, never a back-off or
    // connect time-out.
    const auto start = std::chrono::steady_clock::now();
    Framework()->StopPushLink();
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
    EXPECT_EQ(states.Events().back().state, PushLinkState::kStopped);
}

// The platform over https and wss, with a certificate the client verifies against its CA file.
class TlsPushLinkTest : public PushLinkTest {
protected:
    static void SetUpTestSuite() {
        dir_ = PlatformTest::MakeTempDir("clientnet-tls");
        ASSERT_FALSE(dir_.empty());
        for (const char* name : {"platform", "stranger"}) {
            const std::string command =
                "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 "
                "-addext subjectAltName=IP:127.0.0.1 -keyout " +
                dir_ + "/" + name + "-key.pem -out " + dir_ + "/" + name + ".pem > " + dir_ +
                "/openssl.log 2>&1";
            ASSERT_EQ(std::system(command.c_str()), 0) << "openssl could not make a test certificate: "
                                                       << PlatformTest::ReadFile(dir_ + "/openssl.log");
        }
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(dir_); }

    std::vector<std::string> ExtraArgs() const override {
        return {"--tls-cert", dir_ + "/platform.pem", "--tls-key", dir_ + "/platform-key.pem"};
    }
    std::string ControlCaFile() const override { return dir_ + "/platform.pem"; }
    BusinessCommon::PlatformLoginRequest TlsLogin(const std::string& caFile) const {
        BusinessCommon::PlatformLoginRequest request = DemoLogin();
        request.https = true;
        request.caFile = caFile;
        return request;
    }

    static std::string dir_;
};

std::string TlsPushLinkTest::dir_;

TEST_F(TlsPushLinkTest, LoginAndPushLinkTrustOnlyTheConfiguredAuthority) {
    const std::string trusted = dir_ + "/platform.pem";
    const std::string stranger = dir_ + "/stranger.pem";
    std::string error;
    {
        SCOPED_TRACE("a CA that did not sign the platform's certificate");
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(TlsLogin(stranger), error));
        EXPECT_EQ(error.rfind("cannot reach the platform at https://127.0.0.1:", 0), 0u) << error;
        EXPECT_NE(error.find("TLS"), std::string::npos) << error;
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(TlsLogin(""), error))
            << "nor do the system's authorities";
    }
    {
        SCOPED_TRACE("the right authority, but the certificate names another host");
        BusinessCommon::PlatformLoginRequest request = TlsLogin(trusted);
        request.address = "localhost";  // the certificate is for the address 127.0.0.1 only
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(request, error));
        EXPECT_NE(error.find("TLS"), std::string::npos) << error;
    }

    auto status = Observe("test.status", {3}, {{310001, 0}});
    BusinessCommon::PlatformLoginResult result;
    ASSERT_TRUE(BusinessCommon::LoginToPlatform(TlsLogin(trusted), error, &result)) << error;
    EXPECT_EQ(result.pushUrl.rfind("wss://", 0), 0u) << result.pushUrl;
    ASSERT_TRUE(WaitConnected());
    ASSERT_TRUE(Push(3, 310001, kStatusData));
    ASSERT_TRUE(status->WaitForCount(1, 10000));
    EXPECT_EQ(status->Frames()[0].msgType, 3);

    // The same link with the wrong authority never gets through the handshake.
    CStateRecorder states;
    ASSERT_TRUE(Framework()->StartPushLink(result.pushUrl, CUserCommonManager::Instance()->GetLogin().token,
                                           stranger));
    ASSERT_TRUE(WaitUntil([&] { return states.Count(PushLinkState::kWaiting) >= 2; }, 20000));
    EXPECT_EQ(states.Count(PushLinkState::kConnected), 0);
    EXPECT_EQ(LinkCount(), 0);
    Framework()->StopPushLink();
}

// Faults the platform does not produce, against a scripted peer.

TEST(PushLinkPeer, AHandshakeThatNeverCompletesIsAbandonedRetriedAndStoppable) {
    CFakePushServer server(CFakePushServer::Mode::kSilent);
    ASSERT_TRUE(server.Start()) << server.Error();
    CStateRecorder states;
    TalClientFrameWork::PushLinkOptions options;
    options.handshakeTimeoutMs = 300;
    ASSERT_TRUE(Framework()->StartPushLink(server.Url(), "token", "", options));
    ASSERT_TRUE(WaitUntil(
        [&] { return server.Connections() >= 2 && states.Count(PushLinkState::kWaiting) >= 2; }, 20000))
        << "connections " << server.Connections();
    EXPECT_EQ(states.Count(PushLinkState::kConnected), 0);

    // Stopped in the middle of a handshake or a back-off wait: bounded.
    const auto start = std::chrono::steady_clock::now();
    Framework()->StopPushLink();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
}

TEST(PushLinkPeer, AnswersPingsAndDropsALinkWhosePeerStopsAnswering) {
    CFakePushServer server(CFakePushServer::Mode::kMute);
    ASSERT_TRUE(server.Start()) << server.Error();
    CStateRecorder states;
    TalClientFrameWork::PushLinkOptions options;
    options.pingIntervalMs = 300;
    ASSERT_TRUE(Framework()->StartPushLink(server.Url(), "secret-token", "", options));

    // The peer sent a websocket ping and a protocol ping; both are answered.
    auto has = [&](int opcode, const std::string& payload) {
        for (const auto& f : server.Received()) {
            if (f.opcode == opcode && f.payload.find(payload) != std::string::npos) {
                return true;
            }
        }
        return false;
    };
    ASSERT_TRUE(WaitUntil([&] { return has(10, "hi") && has(1, "\"Pong\""); }, 10000));
    EXPECT_TRUE(has(1, "\"Subscribe\"")) << "the link subscribes as soon as it is open";
    EXPECT_NE(server.FirstRequest().find("Bearer secret-token"), std::string::npos) << server.FirstRequest();

    // The peer never answers the link's own pings: the link is taken for dead and opened again.
    ASSERT_TRUE(WaitUntil([&] { return server.Connections() >= 2; }, 20000));
    EXPECT_GE(states.Count(PushLinkState::kWaiting), 1);
    EXPECT_EQ(states.Count(PushLinkState::kConnected), 0) << "never acknowledged, never connected";
    Framework()->StopPushLink();
}

TEST(PushLinkPeer, RefusesAddressesThatAreNotWebsockets) {
    Framework()->StopPushLink();
    EXPECT_FALSE(Framework()->StartPushLink("http://127.0.0.1:1/push", "t", ""));
    EXPECT_FALSE(Framework()->StartPushLink("not a url", "t", ""));
    EXPECT_FALSE(Framework()->StartPushLink("wss://127.0.0.1:1/push", "t", "/nonexistent/ca.pem"));
    EXPECT_EQ(Framework()->GetPushLinkState(), PushLinkState::kStopped);
}

}  // namespace
}  // namespace ClientNetTest
