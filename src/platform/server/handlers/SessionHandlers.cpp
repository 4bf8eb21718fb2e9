// Login, logout and heartbeat of client sessions.

#include "framework/base/FormatLog.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

std::string PushUrl(const RestRequest& request, const PlatformContext& context) {
    return std::string(context.push.IsTls() ? "wss://" : "ws://") + PublicHost(request, context) + ":" +
           std::to_string(context.push.Port()) + kPushPath;
}

// Request: {"UserName":"operator","Password":"Operator#2026"}
// Data:
// {"Token":"..","SessionKey":"..","UserID":1,"UserName":"operator","PushUrl":"ws://127.0.0.1:18651/push",
//        "ServerTime":1767225600000,"SiteName":"..","SecureEncryptType":1,
//        "BroadcastRights":{"BroadcastHasAuthority":true,"RealBroadcastHasAuthority":true}}
RestResponse Login(const RestRequest& request, const rapidjson::Document& body, PlatformContext& context) {
    const rapidjson::Value* userNode = Json::Find(body, "UserName");
    const rapidjson::Value* passwordNode = Json::Find(body, "Password");
    if (userNode == nullptr || !userNode->IsString() || passwordNode == nullptr ||
        !passwordNode->IsString()) {
        return PlatformError(kErrBadRequest, "\"UserName\" and \"Password\" texts are required");
    }
    const std::string userName = Json::ToString(userNode);
    const User* user = context.fixture.FindUser(userName);
    if (user == nullptr || user->password != Json::ToString(passwordNode)) {
        TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]login refused for user \"%s\" from %s[%s(%d)]",
                userName.c_str(), request.remote.c_str());
        return PlatformError(kErrBadCredentials, "wrong user name or password", 401);
    }
    SessionInfo session;
    if (!context.sessions.Open(user->name, user->id, session)) {
        return PlatformError(kErrInternal, "cannot create a session", 500);
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]user \"%s\" logged in from %s[%s(%d)]", user->name.c_str(),
            request.remote.c_str());
    Json::CWriter w;
    w.BeginObject();
    w.String("Token", session.token).String("SessionKey", session.sessionKey);
    w.Int("UserID", user->id).String("UserName", user->name);
    w.String("PushUrl", PushUrl(request, context));
    w.Int("ServerTime", NowMs()).String("SiteName", context.fixture.siteName);
    w.Int("SecureEncryptType", context.registry.SecureEncryptType());
    w.BeginObject("BroadcastRights");
    w.Bool("BroadcastHasAuthority", user->broadcastRight);
    w.Bool("RealBroadcastHasAuthority", user->realBroadcastRight);
    w.EndObject();
    w.EndObject();
    return Ok(w.Text());
}

RestResponse Logout(const RestRequest& request, PlatformContext& context) {
    context.sessions.Close(request.session.token);
    context.push.CloseSession(request.session.token);
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]user \"%s\" logged out[%s(%d)]",
            request.session.userName.c_str());
    return Ok();
}

RestResponse Heartbeat(const RestRequest& request, PlatformContext&) {
    Json::CWriter w;
    w.BeginObject().String("UserName", request.session.userName).Int("ServerTime", NowMs()).EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddSessionRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PlatformPath("/Session/Login"), RouteAccess::kPublic, WithBody<Login>},
               {"POST", PlatformPath("/Session/Logout"), RouteAccess::kSession, Logout},
               {"GET", PlatformPath("/Session/Heartbeat"), RouteAccess::kSession, Heartbeat}});
}

}  // namespace Platform
