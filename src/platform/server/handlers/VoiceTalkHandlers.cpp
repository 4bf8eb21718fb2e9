// Voice-talk addresses of the client framework: where a client listens to what a speaker device plays.

#include "framework/base/FormatLog.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/streaming/StreamingServer.h"

namespace Platform {

namespace {

/// Encode type of the listen stream: G.711 µ-law, 8000 Hz.
constexpr int kListenEncodeType = 1;
constexpr int kListenSampleRate = 8000;

// Request: {"DeviceID":301,"DeviceType":2020,"Channel":0,"Listen":true,"EncodeType":1}
// Data: {"Url":"rtsp://127.0.0.1:18654/broadcast/listen/301","UserName":"username","Password":"<encrypted>",
//   "Token":"<encrypted>","SecureEncryptType":1,"DeviceID":301,"EncodeType":1,"SampleRate":8000}
// The address streams what the device's speakers play (their idle tone while they play nothing); the
// token is fresh per answer and good for that device only.
RestResponse VoiceTalkUrl(const RestRequest& request, const rapidjson::Document& body,
                          PlatformContext& context) {
    const rapidjson::Value* idNode = Json::Find(body, "DeviceID");
    if (!Json::IsInt(idNode)) {
        return PlatformError(kErrBadRequest, "\"DeviceID\" must be a device id");
    }
    for (const char* key : {"DeviceType", "Channel", "EncodeType"}) {
        const rapidjson::Value* node = Json::Find(body, key);
        if (node != nullptr && !Json::IsInt(node)) {
            return PlatformError(kErrBadRequest, std::string("\"") + key + "\" must be an integer");
        }
    }
    if (Json::GetInt(body, "Channel", 0) < 0) {
        return PlatformError(kErrBadRequest, "\"Channel\" must be 0 (the device) or a channel number");
    }
    const int deviceId = static_cast<int>(Json::ToInt(idNode, -1));
    const Device* device = context.fixture.FindDevice(deviceId);
    if (device == nullptr) {
        return PlatformError(kErrNotFound, "no device " + std::to_string(deviceId));
    }
    if (!Json::GetBool(body, "Listen", true)) {
        return PlatformError(kErrUnsupported, "only listening addresses are served (\"Listen\":true)");
    }
    CStreamingServer* streaming = context.site.Streaming();
    if (streaming == nullptr) {
        return PlatformError(kErrUnsupported, "the platform runs without its streaming server (--no-peers)");
    }
    bool broadcasts = false;
    for (const Element& e : context.fixture.elements) {
        broadcasts = broadcasts || e.deviceId == deviceId;
    }
    if (!broadcasts) {
        return PlatformError(kErrUnsupported,
                             "device " + std::to_string(deviceId) + " plays no broadcast element");
    }
    const StreamingServer& sms = context.fixture.streamingServer;
    const int secureType = context.registry.SecureEncryptType();
    const std::string token = streaming->IssueListenToken(deviceId);
    if (sms.tokenEnabled && token.empty()) {
        return PlatformError(kErrInternal, "cannot draw a token", 500);
    }
    std::string encryptedToken;
    std::string encryptedPassword;
    if (!EncryptForSession(request, secureType, token, encryptedToken) ||
        !EncryptForSession(request, secureType, sms.password, encryptedPassword)) {
        return PlatformError(kErrInternal, "cannot encrypt the listen secrets", 500);
    }
    const std::string host = sms.host.empty() ? PublicHost(request, context) : sms.host;
    const std::string url =
        "rtsp://" + host + ":" + std::to_string(sms.rtspPort) + streaming->ListenPath(deviceId);
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]listen address for device %d: %s[%s(%d)]", deviceId,
            url.c_str());
    Json::CWriter w;
    w.BeginObject().String("Url", url).String("UserName", sms.userName).String("Password", encryptedPassword);
    w.String("Token", encryptedToken).Int("SecureEncryptType", secureType).Int("DeviceID", deviceId);
    w.Int("EncodeType", kListenEncodeType).Int("SampleRate", kListenSampleRate).EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddVoiceTalkRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PlatformPath("/VoiceTalk/Url"), RouteAccess::kSession, WithBody<VoiceTalkUrl>}});
}

}  // namespace Platform
