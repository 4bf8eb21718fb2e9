// Device broadcasts: live talk to devices reached through the device network interface. The platform
// hands out the devices' login data; the client logs in to each device and talks to it itself.

#include <set>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/devices/DeviceFarm.h"
#include "platform/server/sim/devices/DeviceGroups.h"

namespace Platform {

namespace {

/// "EncodeType" of the answer: G.711 µ-law on voice channel 1.
constexpr int kEncodeTypeG711u = 1;

/// Module 30 codes of the "FailedList" entries.
constexpr int kFailedUnknownDevice = kErrNotFound;
constexpr int kFailedNoLoudspeaker = kErrUnsupported;

struct FailedDevice {
    int deviceId = 0;
    int code = 0;
    const char* info = "";
};

// Request: {"DeviceIDs":[201,202],"Type":0,"Record":0,"FilePath":""}
// Data: {"GroupId":"<guid>","SecureEncryptType":1,"DeviceList":[{"DeviceID":201,"Name":"Gate encoder",
//   "DeviceType":2001,"AccessProtocol":1,"IP":"127.0.0.1","Port":18664,"UserName":"admin",
//   "Password":"<encrypted>","Channel":1,"EncodeType":1,"Online":true}],
//   "FailedList":[{"DeviceID":4242,"ErrorCode":3,"ErrorModule":30,"ErrorInfo":"unknown device"}]}
RestResponse StartDeviceBroadcast(const RestRequest& request, const rapidjson::Document& body,
                                  PlatformContext& context) {
    const rapidjson::Value* ids = Json::Find(body, "DeviceIDs");
    if (ids == nullptr || !ids->IsArray() || ids->Empty()) {
        return PlatformError(kErrBadRequest, "\"DeviceIDs\" must be a non-empty array of device ids");
    }
    DeviceGroupSetup setup;
    for (const rapidjson::Value& v : ids->GetArray()) {
        if (!v.IsInt()) {
            return PlatformError(kErrBadRequest, "\"DeviceIDs\" must hold device ids (integers)");
        }
        setup.requestedIds.push_back(v.GetInt());
    }
    const rapidjson::Value* type = Json::Find(body, "Type");
    const rapidjson::Value* record = Json::Find(body, "Record");
    const rapidjson::Value* filePath = Json::Find(body, "FilePath");
    if ((type != nullptr && !type->IsInt()) || (record != nullptr && !record->IsInt()) ||
        (filePath != nullptr && !filePath->IsString())) {
        return PlatformError(kErrBadRequest, "\"Type\" and \"Record\" must be integers, \"FilePath\" a text");
    }
    setup.type = type != nullptr ? type->GetInt() : 0;
    setup.record = record != nullptr ? record->GetInt() : 0;
    setup.filePath = filePath != nullptr ? filePath->GetString() : "";

    CDeviceFarm* farm = context.site.Devices();
    CDeviceGroups* groups = context.site.DeviceGroups();
    if (farm == nullptr || groups == nullptr) {
        return PlatformError(kErrUnsupported, "the platform runs without its simulated devices (--no-peers)");
    }
    const int secureType = context.registry.SecureEncryptType();
    setup.guid = NewGuid();
    if (setup.guid.empty()) {
        return PlatformError(kErrInternal, "cannot make a group GUID", 500);
    }
    Json::CWriter w;
    w.BeginObject().String("GroupId", setup.guid).Int("SecureEncryptType", secureType);
    w.BeginArray("DeviceList");
    std::vector<FailedDevice> failed;
    std::set<int> seen;
    for (int id : setup.requestedIds) {
        if (!seen.insert(id).second) {
            continue;
        }
        const Device* d = context.fixture.FindDevice(id);
        if (d == nullptr) {
            failed.push_back({id, kFailedUnknownDevice, "unknown device"});
            continue;
        }
        if (!TakesDeviceBroadcast(context.fixture, *d) || !farm->Has(id)) {
            failed.push_back({id, kFailedNoLoudspeaker, "device has no loudspeaker on the device interface"});
            continue;
        }
        std::string password;
        if (!EncryptForSession(request, secureType, d->password, password)) {
            return PlatformError(kErrInternal, "cannot encrypt a device password", 500);
        }
        const bool online = farm->IsOnline(id);
        w.BeginObject().Int("DeviceID", d->id).String("Name", d->name).Int("DeviceType", d->deviceType);
        w.Int("AccessProtocol", d->accessProtocol).String("IP", d->ip).Int("Port", farm->PortOf(id));
        w.String("UserName", d->userName).String("Password", password);
        w.Int("Channel", CDeviceGroups::kVoiceChannel).Int("EncodeType", kEncodeTypeG711u);
        w.Bool("Online", online).EndObject();
        setup.members.push_back({id, online});
    }
    w.EndArray().BeginArray("FailedList");
    for (const FailedDevice& f : failed) {
        w.BeginObject()
            .Int("DeviceID", f.deviceId)
            .Int("ErrorCode", f.code)
            .Int("ErrorModule", kPlatformErrorModule);
        w.String("ErrorInfo", f.info).EndObject();
    }
    w.EndArray().EndObject();
    groups->Start(setup);
    return Ok(w.Text());
}

// Request: {"GroupId":"<guid>"}
// Data: {}
RestResponse StopDeviceBroadcast(const RestRequest&, const rapidjson::Document& body,
                                 PlatformContext& context) {
    const rapidjson::Value* guid = Json::Find(body, "GroupId");
    if (guid == nullptr || !guid->IsString()) {
        return PlatformError(kErrBadRequest, "\"GroupId\" must be the GUID of a device broadcast");
    }
    CDeviceGroups* groups = context.site.DeviceGroups();
    if (groups == nullptr || !groups->Stop(guid->GetString())) {
        return PlatformError(kErrNotFound, std::string("no active device broadcast ") + guid->GetString());
    }
    return Ok();
}

}  // namespace

void AddDeviceBroadcastRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PlatformPath("/DeviceBroadcast/Start"), RouteAccess::kSession,
                WithBody<StartDeviceBroadcast>},
               {"POST", PlatformPath("/DeviceBroadcast/Stop"), RouteAccess::kSession,
                WithBody<StopDeviceBroadcast>}});
}

}  // namespace Platform
