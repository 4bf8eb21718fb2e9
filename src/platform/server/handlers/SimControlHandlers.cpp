// The control interface of the simulated site: what the speakers, devices, device broadcasts and streaming
// server did, and switches that make them misbehave (a speaker offline or never connecting, a device
// refusing or switched off, a streaming server refusing sessions).

#include <set>

#include "framework/base/FormatLog.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/devices/DeviceFarm.h"
#include "platform/server/sim/devices/DeviceGroups.h"
#include "platform/server/sim/oem/OemSpeakers.h"
#include "platform/server/sim/speakers/SpeakerSim.h"
#include "platform/server/sim/streaming/StreamingServer.h"

namespace Platform {

namespace {

constexpr double kSamplesPerSecond = 8000.0;

// Data: {"SpeakerDir":"/tmp/..","Speakers":[{"ElementID":1001,"DeviceID":101,"Name":"Hall
// A","Transport":"sms",
//   "Online":true,"Connects":true,"Phase":"playing","Status":1,"ResourceStatus":1,"GroupGUID":"..",
//   "BytesReceived":16000,"DroppedBytes":0,"SamplesPlayed":16000,"SecondsPlayed":2.0,"TotalSecondsPlayed":2.0,
//   "FirstAudioAt":1795000000000,"FirstAudioSample":0,"Sessions":1,"WavPath":"/tmp/../1001.wav","LastSource":"127.0.0.1:40000","LastTransport":"rtsp",
//   "IdleToneHz":440}]}
RestResponse Speakers(const RestRequest&, PlatformContext& context) {
    CSpeakerSim& sim = context.site.Speakers();
    Json::CWriter w;
    w.BeginObject().String("SpeakerDir", sim.SpeakerDir()).BeginArray("Speakers");
    for (const SpeakerInfo& s : sim.Snapshot()) {
        w.BeginObject().Int("ElementID", s.elementId).Int("DeviceID", s.deviceId).String("Name", s.name);
        w.String("Transport", s.transport).Bool("Online", s.online).Bool("Connects", s.connects);
        w.String("Phase", s.phase).Int("Status", s.status).Int("ResourceStatus", s.resourceStatus);
        w.String("GroupGUID", s.groupGuid).Int("BytesReceived", static_cast<int64_t>(s.bytesReceived));
        w.Int("DroppedBytes", static_cast<int64_t>(s.droppedBytes));
        w.Int("SamplesPlayed", static_cast<int64_t>(s.samplesPlayed));
        w.Raw("SecondsPlayed", std::to_string(static_cast<double>(s.samplesPlayed) / kSamplesPerSecond));
        w.Raw("TotalSecondsPlayed",
              std::to_string(static_cast<double>(s.totalSamplesPlayed) / kSamplesPerSecond));
        w.Int("FirstAudioAt", s.firstAudioAtMs)
            .Int("FirstAudioSample", static_cast<int64_t>(s.firstAudioSample));
        w.Int("Sessions", s.sessions).String("WavPath", s.wavPath).String("LastSource", s.lastSource);
        w.String("LastTransport", s.lastTransport).Raw("IdleToneHz", std::to_string(s.idleToneHz));
        w.EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request: {"Online":false,"Connects":false} (either key may be left out).
RestResponse SetSpeaker(const RestRequest& request, const rapidjson::Document& body,
                        PlatformContext& context) {
    int id = 0;
    CSpeakerSim& sim = context.site.Speakers();
    if (!CaptureInt(request, 0, id) || context.fixture.FindElement(id) == nullptr) {
        return PlatformError(kErrNotFound, "no speaker (broadcast element) " + request.captures.at(0));
    }
    const rapidjson::Value* online = Json::Find(body, "Online");
    const rapidjson::Value* connects = Json::Find(body, "Connects");
    if ((online != nullptr && !online->IsBool()) || (connects != nullptr && !connects->IsBool()) ||
        (online == nullptr && connects == nullptr)) {
        return PlatformError(kErrBadRequest, "give \"Online\" and/or \"Connects\" as true or false");
    }
    if (online != nullptr) {
        sim.SetOnline(id, online->GetBool());
    }
    if (connects != nullptr) {
        sim.SetConnects(id, connects->GetBool());
    }
    return Ok();
}

// Data: {"Devices":[{"DeviceID":103,"Kind":"sdk","Address":"127.0.0.1","Port":18663,"RefuseLogin":false,
//   "RefusedChannels":[],"Logins":1,"AuthFailures":0,"TalksOpened":1,"TalksRefused":0,"TalksActive":0,
//   "AudioType":"G.711ulaw","Bytes":16000,"Online":true,"WavPath":"/tmp/../device-103.wav"},{"DeviceID":301,"Kind":"udp","Address":"127.0.0.1","Port":18670,
//   "Packets":50,"PayloadBytes":16000,"Lost":0,"Late":0,"Malformed":0,"Unsupported":0,"Codec":"PCMU",
//   "LastSource":"127.0.0.1:50000","LatenessSamples":50,"LatenessP50Ms":0.05,"LatenessP99Ms":0.4,
//   "LatenessMaxMs":0.6}]}
RestResponse Devices(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().BeginArray("Devices");
    CDeviceGroups* groups = context.site.DeviceGroups();
    if (CDeviceFarm* farm = context.site.Devices()) {
        for (const SimDeviceStats& d : farm->Stats()) {
            w.BeginObject().Int("DeviceID", d.deviceId).String("Kind", "sdk").String("Address", d.address);
            w.Int("Port", d.port)
                .Bool("RefuseLogin", d.refuseLogin)
                .IntArray("RefusedChannels", d.refusedChannels);
            w.Int("Logins", d.logins).Int("AuthFailures", d.authFailures).Int("TalksOpened", d.talksOpened);
            w.Int("TalksRefused", d.talksRefused).Int("TalksActive", d.talksActive);
            w.String("AudioType", d.audioType).Int("Bytes", static_cast<int64_t>(d.bytes));
            w.Bool("Online", d.online)
                .String("WavPath", groups != nullptr ? groups->WavPathOf(d.deviceId) : "");
            w.EndObject();
        }
    }
    if (COemSpeakers* oem = context.site.Oem()) {
        for (const OemSpeakerStats& d : oem->Stats()) {
            w.BeginObject().Int("DeviceID", d.deviceId).String("Kind", "udp").String("Address", d.address);
            w.Int("Port", d.port).Int("Packets", static_cast<int64_t>(d.packets));
            w.Int("PayloadBytes", static_cast<int64_t>(d.payloadBytes))
                .Int("Lost", static_cast<int64_t>(d.lost));
            w.Int("Late", static_cast<int64_t>(d.late)).Int("Malformed", static_cast<int64_t>(d.malformed));
            w.Int("Unsupported", static_cast<int64_t>(d.unsupported)).String("Codec", d.codec);
            w.String("LastSource", d.lastSource)
                .Int("LatenessSamples", static_cast<int64_t>(d.latenessSamples));
            w.Double("LatenessP50Ms", d.latenessP50Ms).Double("LatenessP99Ms", d.latenessP99Ms);
            w.Double("LatenessMaxMs", d.latenessMaxMs).EndObject();
        }
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Starts a new measurement of the UDP speakers' arrival lateness. Request: {} (nothing).
RestResponse ResetLateness(const RestRequest&, PlatformContext& context) {
    if (COemSpeakers* oem = context.site.Oem()) {
        oem->ResetLateness();
    }
    return Ok();
}

// Request: {"RefuseLogin":true,"RefusedChannels":[1],"Online":false} (any of the keys): devices of the device
// network interface only. Offline stops the device's listener; online starts it again on the same port.
RestResponse SetDevice(const RestRequest& request, const rapidjson::Document& body,
                       PlatformContext& context) {
    int id = 0;
    if (!CaptureInt(request, 0, id) || context.fixture.FindDevice(id) == nullptr) {
        return PlatformError(kErrNotFound, "no device " + request.captures.at(0));
    }
    CDeviceFarm* farm = context.site.Devices();
    if (farm == nullptr || !farm->Has(id)) {
        return PlatformError(kErrUnsupported,
                             "device " + std::to_string(id) + " is not a simulated device-interface device");
    }
    const rapidjson::Value* refuseLogin = Json::Find(body, "RefuseLogin");
    const rapidjson::Value* channels = Json::Find(body, "RefusedChannels");
    const rapidjson::Value* online = Json::Find(body, "Online");
    if ((refuseLogin != nullptr && !refuseLogin->IsBool()) || (channels != nullptr && !channels->IsArray()) ||
        (online != nullptr && !online->IsBool()) ||
        (refuseLogin == nullptr && channels == nullptr && online == nullptr)) {
        return PlatformError(
            kErrBadRequest,
            "give \"RefuseLogin\" (true/false), \"RefusedChannels\" (array) and/or \"Online\" (true/false)");
    }
    std::set<int> refused;
    if (channels != nullptr) {
        for (const rapidjson::Value& c : channels->GetArray()) {
            if (!c.IsInt()) {
                return PlatformError(kErrBadRequest, "\"RefusedChannels\" must hold channel numbers");
            }
            refused.insert(c.GetInt());
        }
        farm->SetRefusedChannels(id, refused);
    }
    if (refuseLogin != nullptr) {
        farm->SetRefuseLogin(id, refuseLogin->GetBool());
    }
    if (online != nullptr && !farm->SetOnline(id, online->GetBool())) {
        return PlatformError(kErrInternal,
                             "device " + std::to_string(id) + " cannot listen on its port again", 500);
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d: login %s, %d channels refused[%s(%d)]", id,
            refuseLogin != nullptr && refuseLogin->GetBool() ? "refused" : "unchanged or accepted",
            static_cast<int>(refused.size()));
    return Ok();
}

// Data: {"Groups":[{"GroupId":"..","DeviceIDs":[201,202],"Type":0,"Record":0,"FilePath":"","Active":true,
//   "Devices":[{"DeviceID":201,"Status":2,"ResourceStatus":1,"ErrorInfo":"","BytesReceived":16000,
//   "WavPath":"/tmp/../device-201.wav"}]}]}: active groups, then the last ended ones.
RestResponse DeviceBroadcasts(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().BeginArray("Groups");
    if (CDeviceGroups* groups = context.site.DeviceGroups()) {
        for (const DeviceGroupInfo& g : groups->Snapshot()) {
            w.BeginObject().String("GroupId", g.setup.guid).IntArray("DeviceIDs", g.setup.requestedIds);
            w.Int("Type", g.setup.type).Int("Record", g.setup.record).String("FilePath", g.setup.filePath);
            w.Bool("Active", g.active).BeginArray("Devices");
            for (const DeviceMemberInfo& m : g.members) {
                w.BeginObject().Int("DeviceID", m.deviceId).Int("Status", m.status);
                w.Int("ResourceStatus", m.resourceStatus).String("ErrorInfo", m.errorInfo);
                w.Int("BytesReceived", static_cast<int64_t>(m.bytesReceived)).String("WavPath", m.wavPath);
                w.EndObject();
            }
            w.EndArray().EndObject();
        }
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Data: {"Port":18654,"Refusing":false,"RefuseStatus":503,"TalkMounts":2,"ListenMounts":6,"TalkStreams":1,
//   "ListenStreams":0,"Requests":12,"Refused":1,"DecodeErrors":0,"Recent":[{"Time":..,"Method":"DESCRIBE",
//   "Path":"/broadcast/<guid>","Source":"127.0.0.1:40000","RefusedWith":401,"Reason":"no X-Token"}]}
RestResponse Streaming(const RestRequest&, PlatformContext& context) {
    CStreamingServer* streaming = context.site.Streaming();
    if (streaming == nullptr) {
        return PlatformError(kErrUnsupported, "the platform runs without its streaming server (--no-peers)");
    }
    const StreamingStats s = streaming->Stats();
    Json::CWriter w;
    w.BeginObject().Int("Port", s.port).Bool("Refusing", s.refusing).Int("RefuseStatus", s.refuseStatus);
    w.Int("TalkMounts", s.talkMounts).Int("ListenMounts", s.listenMounts).Int("TalkStreams", s.talkStreams);
    w.Int("ListenStreams", s.listenStreams).Int("Requests", static_cast<int64_t>(s.requests));
    w.Int("Refused", static_cast<int64_t>(s.refused))
        .Int("DecodeErrors", static_cast<int64_t>(s.decodeErrors));
    w.BeginArray("Recent");
    for (const StreamingRequest& r : s.recent) {
        w.BeginObject().Int("Time", r.timeMs).String("Method", r.method).String("Path", r.path);
        w.String("Source", r.source).Int("RefusedWith", r.refusedWith).String("Reason", r.reason).EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request: {"RefuseSessions":true,"RefuseStatus":503}
RestResponse SetStreaming(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    RestResponse error;
    CStreamingServer* streaming = context.site.Streaming();
    if (streaming == nullptr) {
        return PlatformError(kErrUnsupported, "the platform runs without its streaming server (--no-peers)");
    }
    const rapidjson::Value* refuse = Json::Find(body, "RefuseSessions");
    if (refuse == nullptr || !refuse->IsBool()) {
        return PlatformError(kErrBadRequest, "\"RefuseSessions\" must be true or false");
    }
    const int status = static_cast<int>(Json::GetInt(body, "RefuseStatus", 503));
    if (status < 400 || status > 599) {
        return PlatformError(kErrBadRequest, "\"RefuseStatus\" must be an RTSP error status (400..599)");
    }
    streaming->SetRefusal(refuse->GetBool(), status);
    return Ok();
}

// Closes every connection and session of the streaming server (a server that tears the talk down).
RestResponse DropStreaming(const RestRequest&, PlatformContext& context) {
    CStreamingServer* streaming = context.site.Streaming();
    if (streaming == nullptr) {
        return PlatformError(kErrUnsupported, "the platform runs without its streaming server (--no-peers)");
    }
    if (!streaming->DropSessions()) {
        return PlatformError(kErrInternal, "the streaming server is not running", 500);
    }
    return Ok();
}

}  // namespace

void AddSimulationControlRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"GET", ControlPath("/speakers"), RouteAccess::kPublic, Speakers},
               {"POST", ControlPath("/speaker/{int}"), RouteAccess::kPublic, WithBody<SetSpeaker>},
               {"GET", ControlPath("/devices"), RouteAccess::kPublic, Devices},
               {"POST", ControlPath("/devices/lateness/reset"), RouteAccess::kPublic, ResetLateness},
               {"POST", ControlPath("/device/{int}"), RouteAccess::kPublic, WithBody<SetDevice>},
               {"GET", ControlPath("/device-broadcasts"), RouteAccess::kPublic, DeviceBroadcasts},
               {"GET", ControlPath("/streaming"), RouteAccess::kPublic, Streaming},
               {"POST", ControlPath("/streaming"), RouteAccess::kPublic, WithBody<SetStreaming>},
               {"POST", ControlPath("/streaming/drop"), RouteAccess::kPublic, DropStreaming}});
}

}  // namespace Platform
