// Live broadcasts: the addresses to send audio to, what clients report about them, prompt tones and
// text-to-speech. Recordings are in RecordHandlers.cpp.

#include <algorithm>
#include <set>

#include "framework/base/FormatLog.h"
#include "framework/business/secret/SecretCipher.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/speakers/SpeakerSim.h"

namespace Platform {

namespace {

// One checked entry of an address request.
struct UrlRequest {
    int audioSource = 1;
    int adaptiveNetWork = 0;
    bool promptInFront = false;
    std::vector<const Element*> sms;
    std::vector<const Element*> sdk;
};

bool ReadUrlRequest(const rapidjson::Value& item, const std::string& where, const Fixture& fixture,
                    UrlRequest& out, RestResponse& error) {
    if (!item.IsObject()) {
        error = PlatformError(kErrBadRequest, where + " is no object");
        return false;
    }
    const int resourceType = static_cast<int>(Json::GetInt(item, "ResourceType", -1));
    if (resourceType != kSourceTypeBroadcastElement) {
        error = PlatformError(kErrUnsupported, where + ": \"ResourceType\" " + std::to_string(resourceType) +
                                                   " is not served (1027 only)");
        return false;
    }
    const rapidjson::Value* idsNode = Json::Find(item, "ResourceIDs");
    std::vector<int> ids;
    if (idsNode == nullptr || !idsNode->IsString() || !ParseIdList(Json::ToString(idsNode), ids) ||
        ids.empty()) {
        error = PlatformError(kErrBadRequest,
                              where + ": \"ResourceIDs\" must be element ids separated by commas");
        return false;
    }
    out.audioSource = static_cast<int>(Json::GetInt(item, "AudioSource", 1));
    if (out.audioSource != 1 && out.audioSource != 2) {
        error = PlatformError(kErrBadRequest, where + ": \"AudioSource\" must be 1 (live) or 2 (file)");
        return false;
    }
    out.adaptiveNetWork = static_cast<int>(Json::GetInt(item, "AdaptiveNetWork", 0));
    static const std::set<int> kAccessTypes = {0, 2, 3, 20};
    if (kAccessTypes.count(out.adaptiveNetWork) == 0) {
        error = PlatformError(kErrBadRequest, where + ": \"AdaptiveNetWork\" must be 0, 2, 3 or 20");
        return false;
    }
    out.promptInFront = Json::GetBool(item, "IsPromptToneSupportedInFront", false);
    std::set<int> seen;
    for (int id : ids) {
        if (!seen.insert(id).second) {
            continue;
        }
        const Element* element = fixture.FindElement(id);
        if (element == nullptr) {
            error = PlatformError(kErrNotFound, where + ": no broadcast element " + std::to_string(id));
            return false;
        }
        (element->stream == StreamKind::kSms ? out.sms : out.sdk).push_back(element);
    }
    return true;
}

void WriteResource(Json::CWriter& w, const Element& element, const Device* device, bool withLogin,
                   const std::string& password) {
    w.BeginObject().Int("ID", element.id).BeginObject("DevcieInfo");
    if (withLogin && device != nullptr) {
        w.String("DeviceIP", device->ip).Int("DevicePort", device->port);
        w.String("DeviceUserName", device->userName).String("DevicePassword", password);
        w.Int("DeviceID", device->id);
    } else {
        // Through the streaming server the client never logs in to the device: -1 leaves its registry alone.
        w.Int("DeviceID", -1);
    }
    w.Int("DeviceType", device != nullptr ? device->deviceType : 0);
    w.BeginObject("Channelnfo").String("DeviceIndex", std::to_string(element.channel));
    w.Int("DeviceResourceID", element.id).EndObject();
    w.EndObject().EndObject();
}

// Request (GET with a body):
// {"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":"1001,1003","AudioSource":1,
//   "AdaptiveNetWork":0,"IsPromptToneSupportedInFront":1}]}
// Data:
// {"CommonUrlList":{"CommonUrl":[{"ResourceGuid":"..","Url":"[sms:1]rtsp://127.0.0.1:18654/broadcast/<guid>",
//   "SMSversion":1,"SecureEncryptType":1,"SMSToken":{"Enable":1,"Token":"<encrypted>"},"ResourceType":1027,
//   "ResourceList":[{"ID":1001,"DevcieInfo":{"DeviceID":-1,"DeviceType":2020,"Channelnfo":{"DeviceIndex":"1",
//   "DeviceResourceID":1001}}}]},{"ResourceGuid":"..","Url":"[sdk:1]sdk://127.0.0.1/broadcast/<guid>",
//   "SecureEncryptType":1,"ResourceType":1027,"ResourceList":[{"ID":1003,"DevcieInfo":{"DeviceIP":"..",
//   "DevicePort":..,"DeviceUserName":"..","DevicePassword":"<encrypted>","DeviceID":103,"DeviceType":2020,
//   "Channelnfo":{"DeviceIndex":"1","DeviceResourceID":1003}}}]}]}}
// Every request entry gives one streaming-server group and one device group, each when it has elements.
// Live talk (AudioSource 1) needs the user's RealBroadcastHasAuthority, files (2) BroadcastHasAuthority.
// The requests of a CommonUrlList body (an array, or one under "CommonUrlRequest"), each allowed for the
// user.
bool ReadUrlRequests(const RestRequest& request, const PlatformContext& context,
                     std::vector<UrlRequest>& requests, RestResponse& error) {
    rapidjson::Document body;
    if (!ParseBody(request, body, error)) {
        return false;
    }
    const rapidjson::Value* list = body.IsArray() ? &body : Json::Find(body, "CommonUrlRequest");
    if (list == nullptr || !list->IsArray() || list->Empty()) {
        error = PlatformError(kErrBadRequest, "\"CommonUrlRequest\" must be a non-empty array");
        return false;
    }
    for (rapidjson::SizeType i = 0; i < list->Size(); ++i) {
        UrlRequest r;
        if (!ReadUrlRequest((*list)[i], "CommonUrlRequest[" + std::to_string(i + 1) + "]", context.fixture, r,
                            error)) {
            return false;
        }
        requests.push_back(r);
    }
    const User* user = context.fixture.FindUser(request.session.userName);
    for (size_t i = 0; i < requests.size(); ++i) {
        const bool live = requests[i].audioSource == 1;
        if (user == nullptr || !(live ? user->realBroadcastRight : user->broadcastRight)) {
            error = PlatformError(kErrNoRight, "CommonUrlRequest[" + std::to_string(i + 1) + "]: user \"" +
                                                   request.session.userName + "\" may not " +
                                                   (live ? "talk live" : "broadcast files"));
            return false;
        }
    }
    return true;
}

// The streaming server's address of a group, with its token when the server asks for one.
bool WriteSmsAddress(Json::CWriter& w, const RestRequest& request, const PlatformContext& context,
                     BroadcastGroup& g, RestResponse& error) {
    const StreamingServer& sms = context.fixture.streamingServer;
    const int secureType = context.registry.SecureEncryptType();
    const std::string smsHost = sms.host.empty() ? PublicHost(request, context) : sms.host;
    g.url = "[sms:" + std::to_string(sms.smsVersion) + "]rtsp://" + smsHost + ":" +
            std::to_string(sms.rtspPort) + "/" + sms.pathPrefix + "/" + g.guid;
    w.String("Url", g.url).Int("SMSversion", sms.smsVersion).Int("SecureEncryptType", secureType);
    if (!sms.tokenEnabled) {
        w.BeginObject("SMSToken").Int("Enable", 0).String("Token", "").EndObject();
        return true;
    }
    std::string raw;
    std::string encrypted;
    if (!BusinessCommon::SecretPrimitives::RandomBytes(16, raw)) {
        error = PlatformError(kErrInternal, "cannot draw a token", 500);
        return false;
    }
    g.token = BusinessCommon::SecretPrimitives::ToHex(raw);
    if (!EncryptForSession(request, secureType, g.token, encrypted)) {
        error = PlatformError(kErrInternal, "cannot encrypt the token", 500);
        return false;
    }
    w.BeginObject("SMSToken").Int("Enable", 1).String("Token", encrypted).EndObject();
    return true;
}

// One group of a request's elements on one transport: its address and resources, written as a CommonUrl.
bool WriteGroup(Json::CWriter& w, const RestRequest& request, const PlatformContext& context,
                const UrlRequest& r, GroupTransport transport, BroadcastGroup& g, RestResponse& error) {
    const std::vector<const Element*>& elements = transport == GroupTransport::kSms ? r.sms : r.sdk;
    const int secureType = context.registry.SecureEncryptType();
    g.guid = NewGuid();
    if (g.guid.empty()) {
        error = PlatformError(kErrInternal, "cannot draw a GUID", 500);
        return false;
    }
    g.transport = transport;
    g.audioSource = r.audioSource;
    g.adaptiveNetWork = r.adaptiveNetWork;
    g.promptInFront = r.promptInFront;
    g.userName = request.session.userName;
    g.createdMs = NowMs();
    for (const Element* e : elements) {
        g.elementIds.push_back(e->id);
    }
    w.BeginObject().String("ResourceGuid", g.guid);
    if (transport == GroupTransport::kSms) {
        if (!WriteSmsAddress(w, request, context, g, error)) {
            return false;
        }
    } else {
        g.url = "[sdk:1]sdk://" + PublicHost(request, context) + "/broadcast/" + g.guid;
        w.String("Url", g.url).Int("SecureEncryptType", secureType);
    }
    w.Int("ResourceType", kSourceTypeBroadcastElement);
    w.BeginArray("ResourceList");
    for (const Element* e : elements) {
        const Device* device = context.fixture.FindDevice(e->deviceId);
        std::string password;
        if (transport == GroupTransport::kSdk && device != nullptr &&
            !EncryptForSession(request, secureType, device->password, password)) {
            error = PlatformError(kErrInternal, "cannot encrypt a device password", 500);
            return false;
        }
        WriteResource(w, *e, device, transport == GroupTransport::kSdk, password);
    }
    w.EndArray().EndObject();
    return true;
}

RestResponse CommonUrlList(const RestRequest& request, PlatformContext& context) {
    std::vector<UrlRequest> requests;
    RestResponse error;
    if (!ReadUrlRequests(request, context, requests, error)) {
        return error;
    }
    std::vector<BroadcastGroup> groups;
    Json::CWriter w;
    w.BeginObject().BeginObject("CommonUrlList").BeginArray("CommonUrl");
    for (const UrlRequest& r : requests) {
        for (GroupTransport transport : {GroupTransport::kSms, GroupTransport::kSdk}) {
            if ((transport == GroupTransport::kSms ? r.sms : r.sdk).empty()) {
                continue;
            }
            BroadcastGroup g;
            if (!WriteGroup(w, request, context, r, transport, g, error)) {
                return error;
            }
            groups.push_back(g);
        }
    }
    w.EndArray().EndObject().EndObject();

    for (const BroadcastGroup& g : groups) {
        context.registry.AddGroup(g);
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]broadcast group %s for %d elements: %s[%s(%d)]",
                g.guid.c_str(), static_cast<int>(g.elementIds.size()), g.url.c_str());
        context.site.OnGroupCreated(g);
    }
    return Ok(w.Text());
}

// Request: {"ResourceGuid":"..","ResourceIDs":"1003,1004","ResourceType":1027,"Status":1,"ErrorModule":0,
//   "ErrorCode":0}; Status 1 started, 2 start failed, 3 stopped.
RestResponse UpdateBroadcastStatus(const RestRequest&, const rapidjson::Document& body,
                                   PlatformContext& context) {
    const std::string guid = Json::GetString(body, "ResourceGuid");
    if (guid.empty()) {
        return PlatformError(kErrBadRequest, "\"ResourceGuid\" is required");
    }
    const rapidjson::Value* typeNode = Json::Find(body, "ResourceType");
    if (typeNode != nullptr && Json::ToInt(typeNode, -1) != kSourceTypeBroadcastElement) {
        return PlatformError(kErrUnsupported, "\"ResourceType\" must be 1027");
    }
    const rapidjson::Value* statusNode = Json::Find(body, "Status");
    const int status = static_cast<int>(Json::ToInt(statusNode, -1));
    if (status != kReportedStarted && status != kReportedFailed && status != kReportedStopped) {
        return PlatformError(kErrBadRequest, "\"Status\" must be 1 (started), 2 (failed) or 3 (stopped)");
    }
    std::vector<int> ids;
    if (!ParseIdList(Json::GetString(body, "ResourceIDs"), ids)) {
        return PlatformError(kErrBadRequest, "\"ResourceIDs\" must be element ids separated by commas");
    }
    BroadcastGroup group;
    if (!context.registry.FindGroup(guid, group)) {
        return PlatformError(kErrNotFound, "no broadcast group " + guid);
    }
    for (int id : ids) {
        if (std::find(group.elementIds.begin(), group.elementIds.end(), id) == group.elementIds.end()) {
            return PlatformError(kErrBadRequest,
                                 "element " + std::to_string(id) + " is not in group " + guid);
        }
    }
    context.site.Speakers().OnBroadcastStatus(guid, ids, status,
                                              static_cast<int>(Json::GetInt(body, "ErrorModule", 0)),
                                              static_cast<int>(Json::GetInt(body, "ErrorCode", 0)));
    return Ok();
}

bool ReadGuids(const rapidjson::Document& body, const PlatformContext& context,
               std::vector<std::string>& guids, RestResponse& error) {
    const rapidjson::Value* list = Json::Find(body, "Request/ResourceGuids");
    if (list == nullptr || !list->IsArray() || list->Empty()) {
        error = PlatformError(kErrBadRequest, "\"Request/ResourceGuids\" must be a non-empty array of GUIDs");
        return false;
    }
    for (const rapidjson::Value& v : list->GetArray()) {
        if (!v.IsString()) {
            error = PlatformError(kErrBadRequest, "\"Request/ResourceGuids\" must hold texts");
            return false;
        }
        BroadcastGroup group;
        if (!context.registry.FindGroup(Json::ToString(&v), group)) {
            error = PlatformError(kErrNotFound, "no broadcast group " + Json::ToString(&v));
            return false;
        }
        guids.push_back(Json::ToString(&v));
    }
    return true;
}

// Request: {"Request":{"ResourceGuids":["<guid>"]}}
RestResponse PromptTone(const RestRequest& request, PlatformContext& context, bool start) {
    rapidjson::Document body;
    RestResponse error;
    std::vector<std::string> guids;
    if (!ParseBody(request, body, error) || !ReadGuids(body, context, guids, error)) {
        return error;
    }
    if (start) {
        context.site.Speakers().OnPromptToneStart(guids);
    } else {
        context.site.Speakers().OnPromptToneStop(guids);
    }
    return Ok();
}

// Request: {"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[{"ID":1001}]},"PlayMode":0,
//   "AssignPlaybackDuration":"","CustomContent":"text","PlayType":true,"Language":"en-US"}}
// "PlayType" true starts, false stops; an explicit "Start" flag wins over it. A start needs the user's
// BroadcastHasAuthority; a stop is always taken.
// Data: {"ErrorList":[{"ElementID":1007,"ElementName":"Yard horn","ErrorModule":30,"ErrorCode":7}]}
RestResponse Tts(const RestRequest& request, const rapidjson::Document& body, PlatformContext& context) {
    RestResponse error;
    const rapidjson::Value* root = Json::Find(body, "RealTimeBroadcastTTSRequest");
    if (root == nullptr || !root->IsObject()) {
        return PlatformError(kErrBadRequest, "\"RealTimeBroadcastTTSRequest\" is required");
    }
    std::vector<int> ids;
    if (!ReadElementList(*root, "ElementList/Element", ids, error)) {
        return error;
    }
    const bool start = Json::GetBool(*root, "Start", Json::GetBool(*root, "PlayType", true));
    const std::string content = Json::GetString(*root, "CustomContent");
    const std::string language = Json::GetString(*root, "Language");
    if (start) {
        const User* user = context.fixture.FindUser(request.session.userName);
        if (user == nullptr || !user->broadcastRight) {
            return PlatformError(kErrNoRight,
                                 "user \"" + request.session.userName + "\" may not broadcast texts");
        }
        if (content.empty()) {
            return PlatformError(kErrBadRequest, "\"CustomContent\" must hold the text to speak");
        }
        bool known = context.fixture.ttsLanguages.empty();
        for (const TtsLanguage& l : context.fixture.ttsLanguages) {
            known = known || l.key == language;
        }
        if (!known) {
            return PlatformError(kErrUnsupported, "TTS language \"" + language + "\" is not offered");
        }
    }
    Json::CWriter w;
    w.BeginObject().BeginArray("ErrorList");
    std::vector<TtsPlay> plays;
    std::vector<int> valid;
    for (int id : ids) {
        const Element* e = context.fixture.FindElement(id);
        int code = 0;
        if (e == nullptr) {
            code = kErrNotFound;
        } else if (start && !context.site.Speakers().IsOnline(id)) {
            code = kErrTerminalOffline;
        }
        if (code != 0) {
            w.BeginObject().Int("ElementID", id).String("ElementName", e != nullptr ? e->name : "");
            w.Int("ErrorModule", kPlatformErrorModule).Int("ErrorCode", code).EndObject();
            continue;
        }
        valid.push_back(id);
        TtsPlay play;
        play.elementId = id;
        play.content = content;
        play.language = language;
        play.playMode = static_cast<int>(Json::GetInt(*root, "PlayMode", 0));
        play.assignPlaybackDuration = Json::GetString(*root, "AssignPlaybackDuration");
        play.userName = request.session.userName;
        play.startedMs = NowMs();
        plays.push_back(play);
    }
    w.EndArray().EndObject();
    if (start) {
        context.registry.StartTts(plays);
        context.site.Speakers().StartTts(valid, content, language);
    } else {
        context.site.Speakers().StopTts(valid);
        context.registry.StopTts(valid);
    }
    return Ok(w.Text());
}

}  // namespace

void AddRealtimeRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"GET", PluginPath("/RealTimeBroadcast/CommonUrlList"), RouteAccess::kSession, CommonUrlList},
               {"PUT", PluginPath("/RealTimeBroadcast/UpdateBroadcastStatus"), RouteAccess::kSession,
                WithBody<UpdateBroadcastStatus>},
               {"POST", PluginPath("/RealTimeBroadcast/StartPromptTone"), RouteAccess::kSession,
                [](const RestRequest& r, PlatformContext& c) { return PromptTone(r, c, true); }},
               {"POST", PluginPath("/RealTimeBroadcast/StopPromptTone"), RouteAccess::kSession,
                [](const RestRequest& r, PlatformContext& c) { return PromptTone(r, c, false); }},
               {"POST", PluginPath("/RealTimeBroadcast/TTS"), RouteAccess::kSession, WithBody<Tts>}});
}

}  // namespace Platform
