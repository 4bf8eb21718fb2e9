// The framework's REST clients against the real platform: login, incremental download of elements and
// devices, the operation log, stream access types and device access ways, with faults injected through the
// platform's control interface.

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "ClientNetFixture.h"
#include "framework/business/AccessWayManager.h"
#include "framework/business/OperatLogManager.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/business/UserCommonManager.h"
#include "framework/business/secret/SecretCipher.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/NetlibWrapper.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/ResourceManager.h"

namespace ClientNetTest {
namespace {

using AccessWayManager::CCmsDeviceAccessPage;
using AccessWayManager::CDeviceAccessRouteParam;
using BusinessCommon::CStreamConfigManager;
using BusinessCommon::CUserCommonManager;
using NetworkCommunication::CNetCommManager;
using NetworkCommunication::CRapidJsonProto;
using ResourceManager::CDeviceManager;
using ResourceManager::CElementManager;
using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::GetLastError;

const std::string kPlatformV1 = "/DXAPI/Galewing/Platform/V1";
const std::string kDownloadPath = kPlatformV1 + "/Resource/IncrementalDownload";

// The error's numbers as "[subsystem][module][code]", for compact checks.
std::string Numbers(const ErrorCode& e) {
    return "[" + std::to_string(e.GetSubSystemErrorCode()) + "][" + std::to_string(e.GetMainErrorCode()) +
           "][" + std::to_string(e.GetSubErrorCode()) + "]";
}

// A loopback port nothing listens on.
int ClosedPort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

bool Download(const std::vector<int>& ids, int sourceType = ResourceManager::kSourceTypeBroadcastElement) {
    ResourceManager::CDownloadLogicalResource request;
    request.SetVal_source_type(sourceType);
    request.SetVal_extra_ids(ids);
    request.SetVal_extra_request_type(4);
    request.SetVal_page_index(0);
    return ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
        request);
}

class LoginTest : public PlatformClientTest {};

class LoggedInTest : public PlatformClientTest {
protected:
    void SetUp() override {
        PlatformClientTest::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        CElementManager::Instance()->Clear();
        CDeviceManager::Instance()->Clear();
        ASSERT_TRUE(Login());
    }
    void TearDown() override {
        CElementManager::Instance()->Clear();
        CDeviceManager::Instance()->Clear();
        CStreamConfigManager::Instance()->ClearStreamAccessTypes();
        NetworkCommunication::NetlibWrapper::SetTimeoutFacotor(
            NetworkCommunication::NetlibWrapper::kTimeoutDefault);
        PlatformClientTest::TearDown();
    }

    void UseScheme(int scheme) {
        ASSERT_EQ(Control("POST", "/security", "{\"SecureEncryptType\":" + std::to_string(scheme) + "}")
                      .ErrorCode(),
                  0);
    }

    // The body of the last request the platform logged for a method and path, as a document.
    CRapidJsonProto LastBody(const std::string& method, const std::string& path) {
        PlatformTest::RestReply reply = Control("GET", "/requests?method=" + method + "&path=" + path);
        const rapidjson::Value* list = reply.Node("/ResponseStatus/Data/Requests");
        CRapidJsonProto body;
        if (list != nullptr && list->IsArray() && !list->Empty()) {
            const rapidjson::Value& last = (*list)[list->Size() - 1];
            body.set_str(last["Body"].GetString());
        }
        return body;
    }
};

TEST_F(LoginTest, ALoginSetsUpTheSessionTheUserAndThePushLinkAndASecondOneReplacesIt) {
    BusinessCommon::PlatformLoginResult result;
    std::string error = "unchanged";
    ASSERT_TRUE(BusinessCommon::LoginToPlatform(DemoLogin(), error, &result)) << error;
    EXPECT_TRUE(error.empty());

    const NetworkCommunication::ServerSession session = CNetCommManager::Instance()->GetSession();
    EXPECT_EQ(session.scheme, "http");
    EXPECT_EQ(session.host, "127.0.0.1");
    EXPECT_EQ(session.port, restPort_);
    EXPECT_EQ(session.token.size(), 48u);
    const BusinessCommon::LoginInfo login = CUserCommonManager::Instance()->GetLogin();
    EXPECT_TRUE(CUserCommonManager::Instance()->IsLogin());
    EXPECT_EQ(login.address, "127.0.0.1");
    EXPECT_EQ(login.port, restPort_);
    EXPECT_EQ(login.userName, "operator");
    EXPECT_EQ(login.token, session.token);
    EXPECT_FALSE(login.sessionKey.empty());
    EXPECT_EQ(login.loginLanguage, "en_US");
    EXPECT_EQ(result.pushUrl, platform_->PushUrl());
    EXPECT_EQ(result.userId, 1);
    EXPECT_EQ(result.siteName, "Demo site");
    EXPECT_EQ(result.secureEncryptType, 1);
    EXPECT_GT(result.serverTimeMs, 0);
    EXPECT_TRUE(WaitConnected());

    // The session key is the one the platform encrypts with: a secret it made decrypts.
    std::string plain;
    std::string text;
    ASSERT_TRUE(BusinessCommon::CSecretCipher(login.sessionKey).SensitiveEncrypt("probe", text));
    EXPECT_TRUE(CUserCommonManager::Instance()->SensitiveInforDecryption(plain, text, true));
    EXPECT_EQ(plain, "probe");

    // Logging in again closes the first session on the platform and opens a new one.
    ASSERT_TRUE(BusinessCommon::LoginToPlatform(DemoLogin(), error)) << error;
    EXPECT_NE(CUserCommonManager::Instance()->GetLogin().token, login.token);
    EXPECT_EQ(CountRequests("POST", kPlatformV1 + "/Session/Logout"), 1);
    EXPECT_TRUE(WaitConnected());
}

TEST_F(LoginTest, EachRefusalGivesOneClearLineAndLeavesNoSession) {
    auto expectNoSession = [] {
        EXPECT_FALSE(CUserCommonManager::Instance()->IsLogin());
        EXPECT_FALSE(CNetCommManager::Instance()->GetSession().IsValid());
        EXPECT_EQ(TalClientFrameWork::CFrameworkManagerInterface::Instance()->GetPushLinkState(),
                  TalClientFrameWork::PushLinkState::kStopped);
    };
    std::string error;
    {
        SCOPED_TRACE("wrong password");
        BusinessCommon::PlatformLoginRequest request = DemoLogin();
        request.password = "wrong";
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(request, error));
        EXPECT_NE(error.find("refused the user name or password"), std::string::npos) << error;
        EXPECT_EQ(Numbers(GetLastError()), "[1][30][5]");
        EXPECT_EQ(error.find('\n'), std::string::npos);
        expectNoSession();
    }
    {
        SCOPED_TRACE("nobody listening");
        BusinessCommon::PlatformLoginRequest request = DemoLogin();
        request.port = ClosedPort();
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(request, error));
        EXPECT_EQ(
            error.rfind("cannot reach the platform at http://127.0.0.1:" + std::to_string(request.port), 0),
            0u)
            << error;
        EXPECT_EQ(Numbers(GetLastError()), "[2][11][7]");
        expectNoSession();
    }
    {
        SCOPED_TRACE("cut-off answer");
        const int fault = Fault(
            R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/Session/Login","Kind":"malformed"})");
        ASSERT_GT(fault, 0);
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(DemoLogin(), error));
        EXPECT_NE(error.find("malformed answer"), std::string::npos) << error;
        EXPECT_EQ(Numbers(GetLastError()), "[1][10][3]");
        Control("DELETE", "/fault/" + std::to_string(fault));
        expectNoSession();
    }
    {
        SCOPED_TRACE("answer without a token");
        const int fault = Fault(
            R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/Session/Login","Kind":"malformed",)"
            R"("Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{\"UserName\":\"operator\"}}}"})");
        ASSERT_GT(fault, 0);
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(DemoLogin(), error));
        EXPECT_NE(error.find("lacks Token"), std::string::npos) << error;
        Control("DELETE", "/fault/" + std::to_string(fault));
        expectNoSession();
    }
    {
        SCOPED_TRACE("incomplete request");
        BusinessCommon::PlatformLoginRequest request = DemoLogin();
        request.address.clear();
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(request, error));
        EXPECT_NE(error.find("required"), std::string::npos) << error;
        request = DemoLogin();
        request.port = 70000;
        EXPECT_FALSE(BusinessCommon::LoginToPlatform(request, error));
        expectNoSession();
    }
    // None of these reached the platform as a session: the right password still works afterwards.
    EXPECT_TRUE(Login());
}

TEST_F(LoginTest, EachUserGetsTheBroadcastRightsThePlatformGivesAndALogoutClearsThem) {
    auto rights = [] {
        const BusinessCommon::BroadcastRights r = CUserCommonManager::Instance()->GetBroadcastRights();
        return std::string(r.broadcast ? "files" : "-") + "/" + (r.realBroadcast ? "live" : "-");
    };
    BusinessCommon::PlatformLoginRequest guard = DemoLogin();
    guard.user = "guard";
    guard.password = "Guard#2026";
    std::string error;
    ASSERT_TRUE(BusinessCommon::LoginToPlatform(guard, error)) << error;
    EXPECT_EQ(rights(), "files/-") << "the guard may play files and texts, not talk live";
    EXPECT_FALSE(CUserCommonManager::Instance()->GetLogin().broadcastRights.realBroadcast);

    ASSERT_TRUE(BusinessCommon::LoginToPlatform(DemoLogin(), error)) << error;
    EXPECT_EQ(rights(), "files/live") << "the operator's login replaces the guard's rights";

    ASSERT_TRUE(BusinessCommon::LoginToPlatform(guard, error)) << error;
    EXPECT_EQ(rights(), "files/-");
    EXPECT_TRUE(BusinessCommon::LogoutFromPlatform());
    EXPECT_FALSE(CUserCommonManager::Instance()->IsLogin());
    EXPECT_EQ(rights(), "files/live") << "the logout leaves nothing of the guard's rights";

    // A platform that does not manage rights, or leaves one out: the login answer of a real guard session
    // with its "BroadcastRights" replaced.
    struct Case {
        const char* rightsJson;  ///< nullptr: no "BroadcastRights" at all
        const char* expected;
    };
    for (const Case& c : {Case{nullptr, "files/live"}, Case{R"({"RealBroadcastHasAuthority":0})", "files/-"},
                          Case{R"({"BroadcastHasAuthority":false})", "-/live"}, Case{"{}", "files/live"}}) {
        SCOPED_TRACE(c.rightsJson != nullptr ? c.rightsJson : "no rights in the answer");
        PlatformTest::CRestClient session(platform_->RestUrl());
        PlatformTest::RestReply login;
        ASSERT_TRUE(session.Login("guard", "Guard#2026", error, &login)) << error;
        CRapidJsonProto answer;
        const std::string data = "/ResponseStatus/Data/";
        answer.set_v("/ResponseStatus/ErrorModule", 0);
        answer.set_v("/ResponseStatus/ErrorCode", 0);
        answer.set_v("/ResponseStatus/CascadingErrorInfo", "");
        for (const char* key : {"Token", "SessionKey", "UserName", "PushUrl", "SiteName"}) {
            answer.set_v(data + key, login.Str((data + key).c_str()));
        }
        answer.set_v(data + "UserID", login.Int((data + "UserID").c_str()));
        answer.set_v(data + "SecureEncryptType", login.Int((data + "SecureEncryptType").c_str()));
        if (c.rightsJson != nullptr) {
            ASSERT_TRUE(answer.set_node_str(data + "BroadcastRights", c.rightsJson));
        }
        CRapidJsonProto fault;
        fault.set_v("/Method", "POST");
        fault.set_v("/Path", kPlatformV1 + "/Session/Login");
        fault.set_v("/Kind", "malformed");
        fault.set_v("/Body", answer.get_str());
        fault.set_v("/Count", 1);
        ASSERT_GT(Fault(fault.get_str()), 0);
        guard.renewSession = false;
        ASSERT_TRUE(BusinessCommon::LoginToPlatform(guard, error)) << error;
        EXPECT_EQ(CUserCommonManager::Instance()->GetLogin().token, session.Token());
        EXPECT_EQ(rights(), c.expected);
        EXPECT_TRUE(BusinessCommon::LogoutFromPlatform());
    }
}

class ResourceDownloadTest : public LoggedInTest {};

TEST_F(ResourceDownloadTest, ElementsAndTheirDevicesArriveWithPasswordsDecryptedUnderEitherScheme) {
    for (int scheme : {1, 0}) {
        SCOPED_TRACE("SecureEncryptType " + std::to_string(scheme));
        UseScheme(scheme);
        CElementManager::Instance()->Clear();
        CDeviceManager::Instance()->Clear();
        ASSERT_TRUE(Download({1001, 1003, 1005, 1006})) << GetLastError().ToString();

        auto hall = CElementManager::Instance()->FindOtherElementByID(1001);
        ASSERT_TRUE(hall);
        EXPECT_EQ(hall->GetName(), "Hall A");
        EXPECT_EQ(hall->GetSourceType(), 1027);
        EXPECT_EQ(hall->GetChannel(), 1);
        EXPECT_EQ(hall->GetEncodeDeviceAttribute().GetDeviceID(), 101);
        auto gate = CElementManager::Instance()->FindOtherElementByID(1005);
        ASSERT_TRUE(gate);
        EXPECT_EQ(gate->GetChannel(), 2);
        EXPECT_EQ(gate->GetEncodeDeviceAttribute().GetDeviceID(), 201);
        EXPECT_FALSE(CElementManager::Instance()->FindOtherElementByID(1002)) << "only what was asked for";

        auto speaker = CDeviceManager::Instance()->FindDeviceByID(101);
        ASSERT_TRUE(speaker);
        const ResourceManager::DeviceInfo info = speaker->GetInfo();
        EXPECT_EQ(info.name, "Hall speaker");
        EXPECT_EQ(info.deviceType, 2020);
        EXPECT_EQ(info.accessProtocol, 1);
        EXPECT_EQ(info.ipAddress, "127.0.0.1");
        EXPECT_EQ(info.port, 18661);
        EXPECT_EQ(info.userName, "admin");
        EXPECT_EQ(info.password, "Hall#Speaker1");
        EXPECT_EQ(speaker->GetIPModeLoginParam().GetVal_strUserPwd(), "Hall#Speaker1");
        EXPECT_EQ(speaker->GetIPModeLoginParam().GetVal_uLoginPort(), 18661);
        EXPECT_EQ(CDeviceManager::Instance()->FindDeviceByID(103)->GetInfo().password, "Lobby#Speaker3");
        auto encoder = CDeviceManager::Instance()->FindDeviceByID(201);
        ASSERT_TRUE(encoder);
        EXPECT_EQ(encoder->GetDeviceType(), 2001);
        EXPECT_EQ(encoder->GetInfo().password, "Gate#Encoder1");
        auto udp = CDeviceManager::Instance()->FindDeviceByID(301);
        ASSERT_TRUE(udp);
        EXPECT_EQ(udp->GetAccessProtocol(), 23);
        EXPECT_EQ(udp->GetInfo().password, "") << "an empty secret stays empty";
        EXPECT_EQ(CDeviceManager::Instance()->GetAllDevices().size(), 4u);
    }
    // What the platform was asked.
    CRapidJsonProto body = LastBody("POST", kDownloadPath);
    EXPECT_EQ(body.get_int_v("/SourceType", -1), 1027);
    EXPECT_EQ(body.get_cnt("/ExtraIDs"), 4);
    EXPECT_EQ(body.get_int_v("/ExtraIDs[2]", -1), 1003);
    EXPECT_EQ(body.get_int_v("/ExtraRequestType", -1), 4);
    EXPECT_EQ(body.get_int_v("/PageIndex", -1), 0);
}

TEST_F(ResourceDownloadTest, UnknownIdsFailTheCallOnlyWhenNothingAskedForIsKnownAndStaleCopiesGo) {
    EXPECT_FALSE(Download({4242}));
    const ErrorCode error = GetLastError();
    EXPECT_EQ(Numbers(error), "[1][10][4]");
    EXPECT_NE(error.GetCasadingErrorInfo().find("4242"), std::string::npos) << error.ToString();

    // An element the platform no longer knows disappears from the registry; the known one arrives.
    ResourceManager::ElementInfo stale;
    stale.id = 4243;
    stale.name = "Removed speaker";
    CElementManager::Instance()->AddOrUpdateElement(stale);
    EXPECT_TRUE(Download({1002, 4243})) << GetLastError().ToString();
    EXPECT_TRUE(CElementManager::Instance()->FindOtherElementByID(1002));
    EXPECT_FALSE(CElementManager::Instance()->FindOtherElementByID(4243));

    // No ids: everything the platform has.
    EXPECT_TRUE(Download({}));
    EXPECT_EQ(CElementManager::Instance()->GetAllElements().size(), 7u);

    // A source type the platform does not serve is its refusal.
    EXPECT_FALSE(Download({1001}, 1));
    EXPECT_EQ(Numbers(GetLastError()), "[1][30][4]");
}

TEST_F(ResourceDownloadTest, EachFaultFailsWithItsOwnErrorAndLeavesTheRegistryAsItWas) {
    ASSERT_TRUE(Download({1001}));
    struct Case {
        const char* name;
        std::string fault;
        std::string numbers;
        std::string cascading;
    };
    const std::string match = R"("Method":"POST","Path":")" + kDownloadPath + R"(",)";
    // A well-formed secret of the newer scheme under another session's key.
    std::string foreign;
    ASSERT_TRUE(
        BusinessCommon::CSecretCipher("another session key").SensitiveEncrypt("Lobby#Speaker3", foreign));
    const std::vector<Case> cases = {
        {"error envelope",
         "{" + match + R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"CascadingErrorInfo":"injected"})",
         "[1][30][6]", "injected"},
        {"error envelope with HTTP 500",
         "{" + match + R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"HttpStatus":500})", "[1][30][6]",
         ""},
        {"HTTP 500 without envelope", "{" + match + R"("Kind":"http","HttpStatus":500})", "[2][12][500]", ""},
        {"cut-off body", "{" + match + R"("Kind":"malformed"})", "[1][10][3]", ""},
        {"empty body", "{" + match + R"("Kind":"empty"})", "[1][10][3]", ""},
        {"envelope without the element list",
         "{" + match +
             R"("Kind":"malformed","Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{}}}"})",
         "[1][10][3]", ""},
        {"password that does not decrypt",
         "{" + match +
             R"("Kind":"malformed","Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{\"SecureEncryptType\":1,)"
             R"(\"ElementList\":[{\"ID\":1003,\"Name\":\"Lobby\",\"EncodeDeviceID\":103}],)"
             R"(\"DeviceList\":[{\"ID\":103,\"Password\":\")" +
             foreign + R"(\"}]}}}"})",
         "[2][10][22]", ""},
        {"unknown secret scheme",
         "{" + match +
             R"("Kind":"malformed","Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{\"SecureEncryptType\":7,)"
             R"(\"ElementList\":[{\"ID\":1003}],\"DeviceList\":[{\"ID\":103,\"Password\":\"x\"}]}}}"})",
         "[1][10][3]", "SecureEncryptType 7"},
        {"an answer later than the short network level's 10 s",
         "{" + match + R"("Kind":"delay","DelayMs":12000})", "[2][11][28]", ""},
    };
    NetworkCommunication::NetlibWrapper::SetTimeoutFacotor(
        NetworkCommunication::NetlibWrapper::kTimeoutShort);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int fault = Fault(c.fault);
        ASSERT_GT(fault, 0) << c.fault;
        EXPECT_FALSE(Download({1003}));
        const ErrorCode error = GetLastError();
        EXPECT_EQ(Numbers(error), c.numbers) << error.ToString();
        EXPECT_NE(error.GetCasadingErrorInfo().find(c.cascading), std::string::npos) << error.ToString();
        EXPECT_FALSE(CElementManager::Instance()->FindOtherElementByID(1003));
        EXPECT_FALSE(CDeviceManager::Instance()->FindDeviceByID(103));
        EXPECT_TRUE(CElementManager::Instance()->FindOtherElementByID(1001));
        Control("DELETE", "/fault/" + std::to_string(fault));
    }
    // Without faults the same call works.
    EXPECT_TRUE(Download({1003})) << GetLastError().ToString();
}

class OperationLogTest : public LoggedInTest {};

TEST_F(OperationLogTest, EntriesReachThePlatformsLogWithTheSessionsUser) {
    BusinessCommon::COperationLogStruct start;
    start.SetVal_log_type(265001);
    start.SetVal_tmOccur(1767225600);
    start.SetVal_strElementName("Hall A,Lobby");
    ASSERT_TRUE(BusinessCommon::COperatLogManager::Instance()->AddOperationLog(start))
        << GetLastError().ToString();
    BusinessCommon::COperationLogStruct stop;
    stop.SetVal_log_type(265002);
    stop.SetVal_tmOccur(1767225660);
    stop.SetVal_strElementName("Hall A,Lobby");
    ASSERT_TRUE(BusinessCommon::COperatLogManager::Instance()->AddOperationLog(stop));

    PlatformTest::RestReply log = Control("GET", "/oplog");
    ASSERT_EQ(log.Int("/ResponseStatus/Data/OperationLogList/1/LogType"), 265002) << log.Describe();
    EXPECT_EQ(log.Int("/ResponseStatus/Data/OperationLogList/0/LogType"), 265001);
    EXPECT_EQ(log.Int("/ResponseStatus/Data/OperationLogList/0/OccurTime"), 1767225600);
    EXPECT_EQ(log.Str("/ResponseStatus/Data/OperationLogList/0/ElementName"), "Hall A,Lobby");
    EXPECT_EQ(log.Str("/ResponseStatus/Data/OperationLogList/0/UserName"), "operator");
    EXPECT_FALSE(log.Has("/ResponseStatus/Data/OperationLogList/2"));
    // One after the other, both went over one kept-alive connection: the same client port.
    PlatformTest::RestReply requests =
        Control("GET", "/requests?method=POST&path=/DXAPI/Galewing/Platform/V1/OperationLog");
    ASSERT_TRUE(requests.Has("/ResponseStatus/Data/Requests/1")) << requests.Describe();
    EXPECT_EQ(requests.Str("/ResponseStatus/Data/Requests/0/Remote"),
              requests.Str("/ResponseStatus/Data/Requests/1/Remote"));

    // Refused by the platform, then without a session: false, each with its reason.
    const int fault =
        Fault(R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/OperationLog","Kind":"error",)"
              R"("ErrorModule":30,"ErrorCode":6})");
    EXPECT_FALSE(BusinessCommon::COperatLogManager::Instance()->AddOperationLog(start));
    EXPECT_EQ(Numbers(GetLastError()), "[1][30][6]");
    Control("DELETE", "/fault/" + std::to_string(fault));
    BusinessCommon::LogoutFromPlatform();
    EXPECT_FALSE(BusinessCommon::COperatLogManager::Instance()->AddOperationLog(start));
    EXPECT_EQ(Numbers(GetLastError()), "[2][11][7]");
    EXPECT_FALSE(Control("GET", "/oplog").Has("/ResponseStatus/Data/OperationLogList/2"));
}

// Requests that run at once each take a kept handle; the pool keeps at most eight of them (each holds a
// connection and libcurl's wake-up descriptors), and later requests go over those same connections.
TEST_F(OperationLogTest, ParallelRequestsLeaveAtMostEightKeptHandlesWhoseConnectionsServeLaterOnes) {
    const std::string path = kPlatformV1 + "/OperationLog";
    const int fault = Fault(R"({"Method":"POST","Path":")" + path + R"(","Kind":"delay","DelayMs":500})");
    BusinessCommon::COperationLogStruct entry;
    entry.SetVal_log_type(265001);
    entry.SetVal_tmOccur(1767225600);
    entry.SetVal_strElementName("Hall A");
    constexpr int kParallel = 12;
    std::atomic<int> succeeded{0};
    std::vector<std::thread> callers;
    for (int i = 0; i < kParallel; ++i) {
        callers.emplace_back([&] {
            if (BusinessCommon::COperatLogManager::Instance()->AddOperationLog(entry)) {
                ++succeeded;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    Control("DELETE", "/fault/" + std::to_string(fault));
    EXPECT_EQ(succeeded.load(), kParallel);
    EXPECT_EQ(CNetCommManager::IdleRequestHandles(), 8u);

    PlatformTest::RestReply burst = Control("GET", "/requests?method=POST&path=" + path);
    std::set<std::string> burstRemotes;
    for (int i = 0; i < kParallel; ++i) {
        burstRemotes.insert(
            burst.Str(("/ResponseStatus/Data/Requests/" + std::to_string(i) + "/Remote").c_str()));
    }
    EXPECT_EQ(burstRemotes.size(), static_cast<std::size_t>(kParallel)) << burst.Describe();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(BusinessCommon::COperatLogManager::Instance()->AddOperationLog(entry));
    }
    EXPECT_EQ(CNetCommManager::IdleRequestHandles(), 8u);
    PlatformTest::RestReply all = Control("GET", "/requests?method=POST&path=" + path);
    for (int i = kParallel; i < kParallel + 4; ++i) {
        const std::string remote =
            all.Str(("/ResponseStatus/Data/Requests/" + std::to_string(i) + "/Remote").c_str());
        EXPECT_EQ(burstRemotes.count(remote), 1u)
            << "request " << i << " came from a new connection " << remote;
    }
}

class StreamConfigTest : public LoggedInTest {};

TEST_F(StreamConfigTest, AccessTypesPerDeviceWithTheSystemDefaultWhenUnknownAndAnOptionalCache) {
    CStreamConfigManager* config = CStreamConfigManager::Instance();
    const std::string single = kPlatformV1 + "/StreamConfig/IPSpeakerAccessType/";
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(101), 2);
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(102), 0);
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(103), 3);
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(302), 20);
    Tal::Base::Error::SetLastError(ErrorCode());
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(201), 4);
    EXPECT_TRUE(GetLastError().IsSucceed()) << "4 from the platform is an answer, not a failure";
    EXPECT_EQ(CountRequests("GET", single + "101"), 1);

    // Failures give the system default and say why.
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(999), 4);
    EXPECT_EQ(Numbers(GetLastError()), "[1][30][3]");
    const int fault = Fault(
        R"({"Method":"GET","Path":"/DXAPI/Galewing/Platform/V1/StreamConfig/*","Kind":"http","HttpStatus":500})");
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(101), 4);
    EXPECT_EQ(Numbers(GetLastError()), "[2][12][500]");
    EXPECT_FALSE(config->RefreshStreamAccessTypes());
    EXPECT_FALSE(config->IsCacheEnabled());
    Control("DELETE", "/fault/" + std::to_string(fault));

    // With the cache: one request for all, none per known device, one for a device it lacks.
    ASSERT_TRUE(config->RefreshStreamAccessTypes());
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(101), 2);
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(302), 20);
    EXPECT_EQ(CountRequests("GET", single + "101"), 2) << "the failed lookup above, nothing more";
    EXPECT_EQ(CountRequests("GET", single + "302"), 1);
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(998), 4);
    EXPECT_EQ(CountRequests("GET", single + "998"), 1);
    config->ClearStreamAccessTypes();
    EXPECT_EQ(config->GetStreamAccessTypeByIpspeakerID(101), 2);
    EXPECT_EQ(CountRequests("GET", single + "101"), 3);
}

class AccessWayTest : public LoggedInTest {
protected:
    // The fixture's object port is handed out only while no object store runs for the server.
    std::vector<std::string> ExtraArgs() const override { return {"--object-store", "off"}; }

    bool Query(int deviceId, int deviceType, CCmsDeviceAccessPage& page) {
        CDeviceAccessRouteParam route;
        route.SetValid_site(0);
        route.SetValdevice_id_(deviceId);
        route.SetValdevice_type_(deviceType);
        return AccessWayManager::QueryDeviceAccessWay(page, route);
    }
};

TEST_F(AccessWayTest, AccessWaysOfStorageServersUnderEitherSchemeOrTheFailureInThePage) {
    for (int scheme : {1, 0}) {
        SCOPED_TRACE("SecureEncryptType " + std::to_string(scheme));
        UseScheme(scheme);
        CCmsDeviceAccessPage page;
        ASSERT_TRUE(Query(501, 2, page)) << GetLastError().ToString();
        EXPECT_TRUE(page.GetValerror_code().IsSucceed());
        EXPECT_EQ(page.GetValaccess_type_(), 0);
        EXPECT_EQ(page.GetValprotocal_type(), "http");
        EXPECT_EQ(page.GetValaccess_path_(), "");
        EXPECT_EQ(page.GetValdevice_ip(), "127.0.0.1");
        EXPECT_EQ(page.GetValobject_port(), 18657);
        EXPECT_EQ(page.GetValaccess_key(), "RECORDSERVERKEY0501");
        EXPECT_EQ(page.GetValsecret_key(), "record/Secret/501");

        ASSERT_TRUE(Query(502, 2, page));
        EXPECT_EQ(page.GetValaccess_type_(), 1);
        EXPECT_EQ(page.GetValprotocal_type(), "https");
        EXPECT_EQ(page.GetValaccess_path_(), "archive.example.test");
        EXPECT_EQ(page.GetValobject_port(), 443);
        EXPECT_EQ(page.GetValsecret_key(), "archive/Secret/502");
    }
    CRapidJsonProto body = LastBody("POST", kPlatformV1 + "/DeviceAccessWay");
    EXPECT_EQ(body.get_int_v("/SiteID", -1), 0);
    EXPECT_EQ(body.get_int_v("/DeviceID", -1), 502);
    EXPECT_EQ(body.get_int_v("/DeviceType", -1), 2);

    SCOPED_TRACE("failures leave the same error in the page and as the last error");
    CCmsDeviceAccessPage page;
    EXPECT_FALSE(Query(999, 2, page));
    EXPECT_EQ(Numbers(page.GetValerror_code()), "[1][30][3]");
    EXPECT_EQ(page.GetValerror_code(), GetLastError());

    EXPECT_FALSE(Query(501, 5, page));
    EXPECT_EQ(Numbers(page.GetValerror_code()), "[1][30][4]");

    // An answer that reports its own error code.
    const int fault = Fault(
        R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/DeviceAccessWay","Kind":"malformed",)"
        R"("Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{\"ErrorCode\":3,\"AccessType\":0}}}"})");
    EXPECT_FALSE(Query(501, 2, page));
    EXPECT_EQ(Numbers(page.GetValerror_code()), "[1][30][3]");
    EXPECT_EQ(page.GetValaccess_key(), "");
    Control("DELETE", "/fault/" + std::to_string(fault));

    BusinessCommon::LogoutFromPlatform();
    EXPECT_FALSE(Query(501, 2, page));
    EXPECT_EQ(Numbers(page.GetValerror_code()), "[2][11][7]");
}

}  // namespace
}  // namespace ClientNetTest
