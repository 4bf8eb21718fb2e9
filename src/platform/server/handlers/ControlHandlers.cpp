// The control interface: lets tests and integrators read what the platform saw and make it misbehave.
// Paths begin with /_control/; no session is needed; the answers use the same envelope as the rest.

#include "framework/base/EnumNames.h"
#include "framework/base/FormatLog.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/storage/ObjectStores.h"

namespace Platform {

namespace {

std::string Param(const RestRequest& request, const char* name) {
    auto it = request.params.find(name);
    return it == request.params.end() ? std::string() : it->second;
}

// Data: {"Requests":[{"Sequence":1,"Time":..,"Method":"GET","Path":"..","Query":"","Body":"..","Status":200,
//   "UserName":"operator","Remote":"127.0.0.1:40000","Fault":""}]}; ?method=..&path=.. filter exactly.
RestResponse Requests(const RestRequest& request, PlatformContext& context) {
    std::string text = "{\"Requests\":[";
    bool first = true;
    for (const RequestLogEntry& e :
         context.requests.Snapshot(Param(request, "method"), Param(request, "path"))) {
        text += (first ? "" : ",") + RequestLogEntryJson(e);
        first = false;
    }
    text += "]}";
    return Ok(text);
}

// Data: {"OperationLogList":[{"Sequence":1,"LogType":265001,"OccurTime":..,"ElementName":"..",
//   "UserName":"operator","ReceivedAt":..}]}
RestResponse Oplog(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().BeginArray("OperationLogList");
    for (const OperationLogEntry& e : context.oplog.Snapshot()) {
        w.BeginObject().Int("Sequence", e.sequence).Int("LogType", e.logType).Int("OccurTime", e.occurTime);
        w.String("ElementName", e.elementName).String("UserName", e.userName).Int("ReceivedAt", e.receivedMs);
        w.EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request (optional): {"Sessions":true} also closes every session. The simulated site goes back to the
// fixture's state (plays ended without pushes, talk addresses closed, refusals lifted), and so do the
// object stores (running, with the fixture's keys; their objects stay).
RestResponse Reset(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    context.faults.Clear();
    context.requests.Clear();
    context.oplog.Clear();
    context.registry.Reset();
    context.site.Reset();
    if (Json::GetBool(body, "Sessions", false)) {
        for (const SessionInfo& s : context.sessions.All()) {
            context.push.CloseSession(s.token);
        }
        context.sessions.Clear();
    }
    std::string storesProblem;
    if (context.stores != nullptr && !context.stores->Reset(storesProblem)) {
        return PlatformError(kErrInternal, "the object stores did not come back: " + storesProblem, 500);
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]state reset by the control interface[%s(%d)]");
    return Ok();
}

// Request: {"Method":"GET","Path":"/DXAPI/...","Kind":"error","ErrorModule":30,"ErrorCode":6,
//   "CascadingErrorInfo":"..","HttpStatus":0,"Body":"","DelayMs":0,"Count":-1}
// Data: {"FaultID":1}
RestResponse AddFault(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    FaultRule rule;
    std::string problem;
    if (!ParseFaultRule(body, rule, problem)) {
        return PlatformError(kErrBadRequest, problem);
    }
    const int id = context.faults.Add(rule);
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]fault %d installed: %s %s %s[%s(%d)]", id,
            rule.method.empty() ? "*" : rule.method.c_str(), rule.path.c_str(), FaultKindName(rule.kind));
    Json::CWriter w;
    w.BeginObject().Int("FaultID", id).EndObject();
    return Ok(w.Text());
}

RestResponse ListFaults(const RestRequest&, PlatformContext& context) {
    std::string text = "{\"Faults\":[";
    bool first = true;
    for (const FaultRule& rule : context.faults.Snapshot()) {
        text += (first ? "" : ",") + FaultRuleJson(rule);
        first = false;
    }
    return Ok(text + "]}");
}

RestResponse RemoveFault(const RestRequest& request, PlatformContext& context) {
    int id = 0;
    if (!CaptureInt(request, 0, id) || !context.faults.Remove(id)) {
        return PlatformError(kErrNotFound, "no such fault");
    }
    return Ok();
}

// Request: {"RefuseSeconds":3}
RestResponse DropPush(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const int seconds = static_cast<int>(Json::GetInt(body, "RefuseSeconds", 0));
    if (seconds < 0 || seconds > 3600) {
        return PlatformError(kErrBadRequest, "\"RefuseSeconds\" must be 0..3600");
    }
    if (!context.push.DropAll(seconds)) {
        return PlatformError(kErrInternal, "the push link did not respond", 500);
    }
    return Ok();
}

// Data: {"Accepting":true,"Links":[{"ID":1,"UserName":"operator","Peer":"127.0.0.1:40000","MessageTypes":[3],
//   "Events":[{"EventType":310001,"Type":0}],"ConnectedAt":..,"FramesSent":0}]}
RestResponse PushClients(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().Bool("Accepting", context.push.IsAccepting()).BeginArray("Links");
    for (const PushLinkInfo& link : context.push.Links()) {
        w.BeginObject().Int("ID", link.id).String("UserName", link.userName).String("Peer", link.peer);
        w.IntArray("MessageTypes", link.messageTypes).BeginArray("Events");
        for (const auto& e : link.events) {
            w.BeginObject().Int("EventType", e.first).Int("Type", e.second).EndObject();
        }
        w.EndArray().Int("ConnectedAt", link.connectedMs).Int("FramesSent", link.framesSent).EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request: {"MessageType":3,"EventType":310001,"ProtocolType":1,"Module":0,"Data":{...}}: pushes that frame.
RestResponse PushSend(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const rapidjson::Value* data = Json::Find(body, "Data");
    if (data == nullptr || !data->IsObject()) {
        return PlatformError(kErrBadRequest, "\"Data\" must be an object");
    }
    PushFrame frame;
    frame.messageType = static_cast<int>(Json::GetInt(body, "MessageType", kMessageTypeBroadcast));
    frame.eventType = static_cast<int>(Json::GetInt(body, "EventType", kEventTypeBroadcastStatus));
    frame.protocolType = static_cast<int>(Json::GetInt(body, "ProtocolType", 1));
    frame.module = static_cast<int>(Json::GetInt(body, "Module", 0));
    frame.dataJson = Json::Serialize(*data);
    context.push.Publish(frame);
    return Ok();
}

const char* TransportName(GroupTransport t) {
    return t == GroupTransport::kSms ? "sms" : "sdk";
}

const char* PromptName(PromptState p) {
    static constexpr Tal::Base::EnumName<PromptState> kNames[] = {{PromptState::kIdle, "idle"},
                                                                  {PromptState::kPlaying, "playing"},
                                                                  {PromptState::kFinished, "finished"},
                                                                  {PromptState::kInterrupted, "interrupted"}};
    return Tal::Base::NameOf(p, kNames, "unknown");
}

// Data: {"SecureEncryptType":1,"Groups":[...],"TtsPlays":[...],"Records":[...]}; tokens in plain text.
RestResponse Broadcasts(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().Int("SecureEncryptType", context.registry.SecureEncryptType()).BeginArray("Groups");
    for (const BroadcastGroup& g : context.registry.Groups()) {
        w.BeginObject().String("ResourceGuid", g.guid).String("Transport", TransportName(g.transport));
        w.IntArray("ElementIDs", g.elementIds).Int("AudioSource", g.audioSource);
        w.Int("AdaptiveNetWork", g.adaptiveNetWork).Bool("PromptInFront", g.promptInFront);
        w.String("PromptState", PromptName(g.prompt)).Int("ReportedStatus", g.reportedStatus);
        w.String("Url", g.url).String("Token", g.token).String("UserName", g.userName);
        w.Int("CreatedAt", g.createdMs).EndObject();
    }
    w.EndArray().BeginArray("TtsPlays");
    for (const TtsPlay& p : context.registry.TtsPlays()) {
        w.BeginObject().Int("ElementID", p.elementId).String("CustomContent", p.content);
        w.String("Language", p.language).Int("PlayMode", p.playMode);
        w.String("AssignPlaybackDuration", p.assignPlaybackDuration).String("UserName", p.userName);
        w.Int("StartedAt", p.startedMs).EndObject();
    }
    w.EndArray().BeginArray("Records");
    for (const BroadcastRecord& r : context.registry.Records()) {
        w.BeginObject().Int("RecordID", r.sequence).IntArray("ElementIDs", r.elementIds);
        w.String("StartTime", r.startTime)
            .String("Name", r.name)
            .String("format", r.format)
            .Int("size", r.size);
        w.Int("StorageServerID", r.storageServerId).String("StorageType", r.storageType);
        w.String("StoreUrl", r.storeUrl).Int("BroadcastMode", r.broadcastMode).String("UserName", r.userName);
        w.Int("ReceivedAt", r.receivedMs).String("Store", r.store).Int("Bytes", r.objectBytes).EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request: {"SecureEncryptType":0} switches the scheme of device passwords, tokens and access-way keys.
RestResponse Security(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const int type = static_cast<int>(Json::GetInt(body, "SecureEncryptType", -2));
    if (type != 0 && type != 1) {
        return PlatformError(kErrBadRequest, "\"SecureEncryptType\" must be 0 or 1");
    }
    context.registry.SetSecureEncryptType(type);
    return Ok();
}

}  // namespace

void AddControlRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"GET", ControlPath("/requests"), RouteAccess::kPublic, Requests},
               {"GET", ControlPath("/oplog"), RouteAccess::kPublic, Oplog},
               {"POST", ControlPath("/reset"), RouteAccess::kPublic, WithBody<Reset>},
               {"POST", ControlPath("/fault"), RouteAccess::kPublic, WithBody<AddFault>},
               {"GET", ControlPath("/faults"), RouteAccess::kPublic, ListFaults},
               {"DELETE", ControlPath("/fault/{int}"), RouteAccess::kPublic, RemoveFault},
               {"POST", ControlPath("/push/drop"), RouteAccess::kPublic, WithBody<DropPush>},
               {"GET", ControlPath("/push/clients"), RouteAccess::kPublic, PushClients},
               {"POST", ControlPath("/push/send"), RouteAccess::kPublic, WithBody<PushSend>},
               {"GET", ControlPath("/broadcasts"), RouteAccess::kPublic, Broadcasts},
               {"POST", ControlPath("/security"), RouteAccess::kPublic, WithBody<Security>}});
    AddSimulationControlRoutes(router, context);
    AddStorageControlRoutes(router, context);
}

}  // namespace Platform
