#include "framework/business/PlatformLogin.h"

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/SessionKeeper.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/business/UserCommonManager.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/PlatformRequest.h"

namespace BusinessCommon {

namespace {

using NetworkCommunication::CNetCommManager;
using Tal::Base::Error::ErrorCode;

const char kPathLogin[] = "/DXAPI/Galewing/Platform/V1/Session/Login";
const char kPathLogout[] = "/DXAPI/Galewing/Platform/V1/Session/Logout";
constexpr int kLogoutTimeoutMs = 3000;
constexpr int kCodeBadCredentials = 5;

bool Refuse(const std::string& text, std::string& error) {
    error = text;
    TAL_LOG(5, "Business", "[%s]Login failed: %s[%s(%d)]", text.c_str());
    return false;
}

// One line for a failed login call.
std::string Explain(const ErrorCode& code, const std::string& base) {
    const std::string detail = NetworkCommunication::DescribeError(code);
    if (code.GetMainErrorCode() == NetworkCommunication::kPlatformModule &&
        code.GetSubErrorCode() == kCodeBadCredentials) {
        return "the platform at " + base + " refused the user name or password (" + detail + ")";
    }
    if (code.GetMainErrorCode() == NetworkCommunication::kModuleTransport) {
        return "cannot reach the platform at " + base + ": " + detail;
    }
    if (code.GetMainErrorCode() == NetworkCommunication::kModuleHttp) {
        return "the platform at " + base + " answered " + detail;
    }
    if (code.GetMainErrorCode() == Tal::Base::Error::kModuleFramework &&
        code.GetSubErrorCode() == Tal::Base::Error::kCodeBadServerAnswer) {
        return "the platform at " + base + " sent a " + detail;
    }
    return "the platform at " + base + " refused the login (" + detail + ")";
}

// The user's rights in the login answer's "BroadcastRights". A platform that does not manage rights sends
// none, and a right it leaves out is granted (docs/DECISIONS.md). Flags may come as true/false or 1/0.
BroadcastRights ReadBroadcastRights(const NetworkCommunication::CRapidJsonProto& answer,
                                    const std::string& data) {
    auto read = [&answer, &data](const char* key) {
        const std::string path = data + "BroadcastRights/" + key;
        return answer.get_int_v(path, answer.get_bool_v(path, true) ? 1 : 0) != 0;
    };
    BroadcastRights rights;
    rights.broadcast = read("BroadcastHasAuthority");
    rights.realBroadcast = read("RealBroadcastHasAuthority");
    return rights;
}

CSessionKeeper& Keeper() {
    // The framework is created first so that it is destroyed after the keeper, whose destructor uses it.
    TalClientFrameWork::CFrameworkManagerInterface::Instance();
    static CSessionKeeper keeper;
    return keeper;
}

// Logs in and sets the session up: network session, login information, push link. The login goes to the
// platform directly, so a failure leaves the current session as it was (a renewal that fails keeps trying
// with it).
// Request: {"UserName":"operator","Password":"..."}
// Data:
// {"Token":"..","SessionKey":"..","UserID":1,"UserName":"operator","PushUrl":"ws://127.0.0.1:18651/push",
//        "ServerTime":1767225600000,"SiteName":"Demo site","SecureEncryptType":1,
//        "BroadcastRights":{"BroadcastHasAuthority":true,"RealBroadcastHasAuthority":true}}
bool OpenSession(const PlatformLoginRequest& request, std::string& error, PlatformLoginResult* result) {
    NetworkCommunication::ServerSession session;
    session.scheme = request.https ? "https" : "http";
    session.host = request.address;
    session.port = request.port;
    session.caFile = request.caFile;
    const std::string base = session.BaseUrl();

    NetworkCommunication::CRapidJsonProto body;
    body.set_v("/UserName", request.user);
    body.set_v("/Password", request.password);
    NetworkCommunication::CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatformAt(session, "POST", kPathLogin, body.get_str(0), answer)) {
        return Refuse(Explain(Tal::Base::Error::GetLastError(), base), error);
    }
    const std::string data = std::string(NetworkCommunication::kEnvelopeData) + "/";
    LoginInfo info;
    info.address = request.address;
    info.port = request.port;
    info.userName = request.user;
    info.token = answer.get_v(data + "Token", "");
    info.sessionKey = answer.get_v(data + "SessionKey", "");
    info.loginLanguage = request.language.empty() ? GetLanguage() : request.language;
    info.broadcastRights = ReadBroadcastRights(answer, data);
    const std::string pushUrl = answer.get_v(data + "PushUrl", "");
    if (info.token.empty() || info.sessionKey.empty() || pushUrl.empty()) {
        ErrorCode code(Tal::Base::Error::kSubSystemServer, Tal::Base::Error::kModuleFramework,
                       Tal::Base::Error::kCodeBadServerAnswer);
        code.SetCasadingErrorInfo("the login answer lacks Token, SessionKey or PushUrl");
        Tal::Base::Error::SetLastError(code);
        return Refuse(Explain(code, base), error);
    }
    session.token = info.token;
    CNetCommManager::Instance()->SetSession(session);
    CUserCommonManager::Instance()->SetLoginInfo(info);
    if (!TalClientFrameWork::CFrameworkManagerInterface::Instance()->StartPushLink(pushUrl, info.token,
                                                                                   request.caFile)) {
        // The session is useless to a client that hears no pushes: close it on the platform too.
        NetworkCommunication::CRapidJsonProto ignored;
        NetworkCommunication::CallPlatform("POST", kPathLogout, "", ignored, kLogoutTimeoutMs);
        CNetCommManager::Instance()->ClearSession();
        CUserCommonManager::Instance()->ClearLoginInfo();
        Tal::Base::Error::SetLastError(
            ErrorCode(Tal::Base::Error::kModuleFramework, Tal::Base::Error::kCodeInvalidInput));
        return Refuse("the push link to " + pushUrl + " cannot be started (see the log)", error);
    }
    if (result != nullptr) {
        result->pushUrl = pushUrl;
        result->userId = answer.get_int_v(data + "UserID", -1);
        result->siteName = answer.get_v(data + "SiteName", "");
        result->secureEncryptType = answer.get_int_v(data + "SecureEncryptType", -1);
        result->serverTimeMs = answer.get_int64_v(data + "ServerTime", 0);
    }
    error.clear();
    TAL_LOG(3, "Business", "[%s]Logged in to %s as %s; push link to %s.[%s(%d)]", base.c_str(),
            request.user.c_str(), pushUrl.c_str());
    if (!info.broadcastRights.broadcast || !info.broadcastRights.realBroadcast) {
        TAL_LOG(3, "Business", "[%s]User %s may broadcast files and texts: %s; may talk live: %s.[%s(%d)]",
                request.user.c_str(), info.broadcastRights.broadcast ? "yes" : "no",
                info.broadcastRights.realBroadcast ? "yes" : "no");
    }
    return true;
}

}  // namespace

bool LoginToPlatform(const PlatformLoginRequest& request, std::string& error, PlatformLoginResult* result) {
    if (request.address.empty() || request.port <= 0 || request.port > 65535 || request.user.empty()) {
        Tal::Base::Error::SetLastError(
            ErrorCode(Tal::Base::Error::kModuleFramework, Tal::Base::Error::kCodeInvalidInput));
        return Refuse("the platform address, a port between 1 and 65535 and a user name are required", error);
    }
    if (TalClientFrameWork::CFrameworkManagerInterface::Instance()->IsPushLinkThread()) {
        Tal::Base::Error::SetLastError(
            ErrorCode(Tal::Base::Error::kModuleFramework, Tal::Base::Error::kCodeInvalidInput));
        return Refuse("logging in from the push link's own thread would stop the link under itself", error);
    }
    if (CUserCommonManager::Instance()->IsLogin() || CNetCommManager::Instance()->GetSession().IsValid()) {
        TAL_LOG(3, "Business", "[%s]Replacing the current login.[%s(%d)]");
        LogoutFromPlatform();
    }
    if (!OpenSession(request, error, result)) {
        return false;
    }
    if (request.renewSession) {
        Keeper().Arm(
            [request] {
                std::string ignored;
                return OpenSession(request, ignored, nullptr);
            },
            [] { return CUserCommonManager::Instance()->GetLogin().token; });
    }
    return true;
}

int SessionRenewalCount() {
    return Keeper().RenewalCount();
}

bool LogoutFromPlatform() {
    if (TalClientFrameWork::CFrameworkManagerInterface::Instance()->IsPushLinkThread()) {
        TAL_LOG(5, "Business",
                "[%s]Logging out from the push link's own thread is refused: it would stop the "
                "link under itself.[%s(%d)]");
        return false;
    }
    Keeper().Disarm();
    TalClientFrameWork::CFrameworkManagerInterface::Instance()->StopPushLink();
    bool acknowledged = true;
    const NetworkCommunication::ServerSession session = CNetCommManager::Instance()->GetSession();
    if (session.IsValid() && !session.token.empty()) {
        NetworkCommunication::CRapidJsonProto answer;
        acknowledged = NetworkCommunication::CallPlatform("POST", kPathLogout, "", answer, kLogoutTimeoutMs);
        if (!acknowledged) {
            TAL_LOG(4, "Business",
                    "[%s]The platform did not acknowledge the logout; the session is dropped "
                    "anyway.[%s(%d)]");
        }
    }
    CNetCommManager::Instance()->ClearSession();
    CUserCommonManager::Instance()->ClearLoginInfo();
    CStreamConfigManager::Instance()->ClearStreamAccessTypes();
    TAL_LOG(3, "Business", "[%s]Logged out.[%s(%d)]");
    return acknowledged;
}

}  // namespace BusinessCommon
