// Broadcast elements with the devices behind them, and how each speaker device is streamed to.

#include <set>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

// Request: {"SourceType":1027,"ExtraIDs":[1001,1003],"ExtraRequestType":4,"PageIndex":0}; no or empty
//   "ExtraIDs": every element.
// Data: {"SourceType":1027,"SecureEncryptType":1,
//   "ElementList":[{"ID":1001,"Name":"Hall A","SourceType":1027,"Channel":1,"EncodeDeviceID":101}],
//   "DeviceList":[{"ID":101,"Name":"Hall speaker","DeviceType":2020,"AccessProtocol":1,"IP":"127.0.0.1",
//   "Port":18661,"UserName":"admin","Password":"<encrypted>"}],"NotFoundIDList":[]}
RestResponse IncrementalDownload(const RestRequest& request, const rapidjson::Document& body,
                                 PlatformContext& context) {
    const int sourceType = static_cast<int>(Json::GetInt(body, "SourceType", -1));
    if (sourceType != kSourceTypeBroadcastElement) {
        return PlatformError(kErrUnsupported,
                             "source type " + std::to_string(sourceType) + " is not served (1027 only)");
    }
    std::vector<int> ids;
    if (const rapidjson::Value* list = Json::Find(body, "ExtraIDs")) {
        if (!list->IsArray()) {
            return PlatformError(kErrBadRequest, "\"ExtraIDs\" must be an array of element ids");
        }
        for (const rapidjson::Value& v : list->GetArray()) {
            if (!Json::IsInt(&v)) {
                return PlatformError(kErrBadRequest, "\"ExtraIDs\" must be an array of element ids");
            }
            ids.push_back(static_cast<int>(Json::ToInt(&v, 0)));
        }
    }
    if (ids.empty()) {
        for (const Element& e : context.fixture.elements) {
            ids.push_back(e.id);
        }
    }
    const int secureType = context.registry.SecureEncryptType();
    std::vector<const Element*> elements;
    std::vector<int> missing;
    std::vector<const Device*> devices;
    std::set<int> seenElements;
    std::set<int> seenDevices;
    for (int id : ids) {
        if (!seenElements.insert(id).second) {
            continue;
        }
        const Element* e = context.fixture.FindElement(id);
        if (e == nullptr) {
            missing.push_back(id);
            continue;
        }
        elements.push_back(e);
        const Device* d = context.fixture.FindDevice(e->deviceId);
        if (d != nullptr && seenDevices.insert(d->id).second) {
            devices.push_back(d);
        }
    }
    Json::CWriter w;
    w.BeginObject().Int("SourceType", sourceType).Int("SecureEncryptType", secureType);
    w.BeginArray("ElementList");
    for (const Element* e : elements) {
        w.BeginObject()
            .Int("ID", e->id)
            .String("Name", e->name)
            .Int("SourceType", kSourceTypeBroadcastElement);
        w.Int("Channel", e->channel).Int("EncodeDeviceID", e->deviceId).EndObject();
    }
    w.EndArray().BeginArray("DeviceList");
    for (const Device* d : devices) {
        std::string password;
        if (!EncryptForSession(request, secureType, d->password, password)) {
            return PlatformError(kErrInternal, "cannot encrypt a device password", 500);
        }
        w.BeginObject().Int("ID", d->id).String("Name", d->name).Int("DeviceType", d->deviceType);
        w.Int("AccessProtocol", d->accessProtocol).String("IP", d->ip).Int("Port", d->port);
        w.String("UserName", d->userName).String("Password", password).EndObject();
    }
    w.EndArray().IntArray("NotFoundIDList", missing).EndObject();
    return Ok(w.Text());
}

// Data: {"DeviceID":101,"StreamAccessType":2}
RestResponse AccessType(const RestRequest& request, PlatformContext& context) {
    RestResponse error;
    const Device* d = FindCaptured(
        request, "device", [&context](int id) { return context.fixture.FindDevice(id); }, error);
    if (d == nullptr) {
        return error;
    }
    Json::CWriter w;
    w.BeginObject().Int("DeviceID", d->id).Int("StreamAccessType", d->streamAccessType).EndObject();
    return Ok(w.Text());
}

// Data: {"AccessTypeList":[{"DeviceID":101,"StreamAccessType":2},...]}
RestResponse AccessTypes(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().BeginArray("AccessTypeList");
    for (const Device& d : context.fixture.devices) {
        w.BeginObject().Int("DeviceID", d.id).Int("StreamAccessType", d.streamAccessType).EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddResourceRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(
        router, context,
        {{"POST", PlatformPath("/Resource/IncrementalDownload"), RouteAccess::kSession,
          WithBody<IncrementalDownload>},
         {"GET", PlatformPath("/StreamConfig/IPSpeakerAccessType/{int}"), RouteAccess::kSession, AccessType},
         {"GET", PlatformPath("/StreamConfig/IPSpeakerAccessTypes"), RouteAccess::kSession, AccessTypes}});
}

}  // namespace Platform
