// Recordings of live broadcasts: the client uploads a talk it recorded into a store and registers it here;
// operators and the recording web page list what was registered.

#include <time.h>

#include <algorithm>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/storage/ObjectProbe.h"
#include "platform/server/storage/ObjectStores.h"

namespace Platform {

namespace {

constexpr int kDefaultPageSize = 20;

// "YYYY-MM-DD HH:MM:SS", the form the client writes start times in.
bool IsDateTime(const std::string& text) {
    static const char kPattern[] = "dddd-dd-dd dd:dd:dd";
    if (text.size() != sizeof(kPattern) - 1) {
        return false;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (kPattern[i] == 'd' ? !digit : text[i] != kPattern[i]) {
            return false;
        }
    }
    return true;
}

std::string LocalDateTime(int64_t ms) {
    const time_t seconds = static_cast<time_t>(ms / 1000);
    struct tm parts {};
    localtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

// The object a record names must be in a served store. Fills the record's store and size, or an envelope
// with code 3 saying what is wrong.
bool CheckStoredObject(CObjectStores& stores, BroadcastRecord& record, RestResponse& error) {
    ObjectUrl url;
    if (!ParseObjectUrl(record.storeUrl, url)) {
        error = PlatformError(kErrNotFound,
                              "\"StoreUrl\" " + record.storeUrl + " names no object (/<pool>/<key>)");
        return false;
    }
    const std::string name = stores.Locate(url);
    StoreEndpoint store;
    if (name.empty() || !stores.Endpoint(name, store)) {
        error = PlatformError(kErrNotFound, "\"StoreUrl\" " + record.storeUrl + " names pool \"" + url.pool +
                                                "\", which no object store of the platform holds");
        return false;
    }
    int64_t bytes = 0;
    std::string problem;
    switch (HeadObject(store, url.pool, url.key, bytes, problem)) {
        case ProbeResult::kFound:
            record.store = name;
            record.objectBytes = bytes;
            return true;
        case ProbeResult::kMissing:
            error =
                PlatformError(kErrNotFound, "no object " + url.pool + "/" + url.key + " in object store " +
                                                name + ": upload the recording before registering it");
            return false;
        default:
            error = PlatformError(kErrNotFound, "cannot find " + url.pool + "/" + url.key +
                                                    " in object store " + name + ": " + problem);
            return false;
    }
}

// Request: {"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":1001}]},"StartTime":"..",
//   "MediaFile":{"Name":"rec","format":"wav","size":4,"StorageServerID":501,"StorageType":1,"StoreUrl":".."},
//   "BroadcastMode":0}}
// Data: {"RecordID":1}
// With the object stores running, StoreUrl must name an object that is stored (a signed HEAD tells).
RestResponse Record(const RestRequest& request, const rapidjson::Document& body, PlatformContext& context) {
    RestResponse error;
    const rapidjson::Value* root = Json::Find(body, "RealTimeBroadcastRecordsRequest");
    if (root == nullptr || !root->IsObject()) {
        return PlatformError(kErrBadRequest, "\"RealTimeBroadcastRecordsRequest\" is required");
    }
    BroadcastRecord record;
    if (!ReadElementList(*root, "ElementList/Element", record.elementIds, error)) {
        return error;
    }
    for (int id : record.elementIds) {
        if (context.fixture.FindElement(id) == nullptr) {
            return PlatformError(kErrNotFound, "no broadcast element " + std::to_string(id));
        }
    }
    record.name = Json::GetString(*root, "MediaFile/Name");
    record.storeUrl = Json::GetString(*root, "MediaFile/StoreUrl");
    if (record.name.empty() || record.storeUrl.empty()) {
        return PlatformError(kErrBadRequest, "\"MediaFile/Name\" and \"MediaFile/StoreUrl\" are required");
    }
    record.startTime = Json::GetString(*root, "StartTime");
    record.format = Json::GetString(*root, "MediaFile/format");
    record.size = Json::GetInt(*root, "MediaFile/size", 0);
    record.storageServerId = static_cast<int>(Json::GetInt(*root, "MediaFile/StorageServerID", 0));
    const rapidjson::Value* storageType = Json::Find(*root, "MediaFile/StorageType");
    record.storageType = storageType == nullptr    ? ""
                         : storageType->IsString() ? Json::ToString(storageType)
                                                   : Json::Serialize(*storageType);
    record.broadcastMode = static_cast<int>(Json::GetInt(*root, "BroadcastMode", 0));
    if (context.stores != nullptr && !CheckStoredObject(*context.stores, record, error)) {
        return error;
    }
    record.userName = request.session.userName;
    record.receivedMs = NowMs();
    const int64_t id = context.registry.AddRecord(record);
    Json::CWriter w;
    w.BeginObject().Int("RecordID", id).EndObject();
    return Ok(w.Text());
}

// Where a record is stored: the store that holds it, else what the client said (0 local, 1 server).
void WriteStorage(Json::CWriter& w, const BroadcastRecord& r, const CObjectStores* stores) {
    std::string type = r.storageType;
    int serverId = r.storageServerId;
    const PlannedStore* planned =
        stores != nullptr && !r.store.empty() ? stores->Plan().Find(r.store) : nullptr;
    if (planned != nullptr) {
        type = planned->storageServerId == 0 ? "localStorage" : "pStorage";
        serverId = planned->storageServerId;
    } else if (type == "0") {
        type = "localStorage";
    } else if (type == "1") {
        type = "pStorage";
    }
    w.String("StorageType", type).Int("StorageServerID", serverId);
}

// Our own call, for operators and the recording web page.
// Request: {"RealTimeBroadcastRecordListRequest":{"SearchCriteria":{"ElementID":1001,
//   "StartTimeFrom":"2026-01-02 00:00:00","StartTimeTo":"2026-01-02 23:59:59"},"PageIndex":1,"PageSize":20}}
//   Every criterion is optional; the times bound StartTime inclusively. PageIndex -1: all, from 1 with
//   PageSize (default 20): that page.
// Data: {"RealTimeBroadcastRecordList":{"RealTimeBroadcastRecord":[{"RecordID":1,"ElementList":{"Element":[
//   {"ID":1001,"Name":"Hall A"}]},"StartTime":"2026-01-02 10:00:00","MediaFile":{"Name":"rec.2024",
//   "format":"wav","size":12,"Bytes":12288,"StorageType":"pStorage","StorageServerID":501,"StoreUrl":".."},
//   "BroadcastMode":0,"UserName":"operator","RegisterTime":"2026-11-24 10:18:40"}]},"TotalCount":1,
//   "PageIndex":1}
RestResponse Records(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const std::string base = "RealTimeBroadcastRecordListRequest/";
    const std::string criteria = base + "SearchCriteria/";
    const rapidjson::Value* elementNode = Json::Find(body, (criteria + "ElementID").c_str());
    if (elementNode != nullptr && !Json::IsInt(elementNode)) {
        return PlatformError(kErrBadRequest, "\"ElementID\" must be an integer");
    }
    const int element = static_cast<int>(Json::ToInt(elementNode, -1));
    const std::string from = Json::GetString(body, (criteria + "StartTimeFrom").c_str());
    const std::string to = Json::GetString(body, (criteria + "StartTimeTo").c_str());
    if ((!from.empty() && !IsDateTime(from)) || (!to.empty() && !IsDateTime(to))) {
        return PlatformError(kErrBadRequest,
                             "\"StartTimeFrom\" and \"StartTimeTo\" are \"YYYY-MM-DD HH:MM:SS\"");
    }
    const int page = static_cast<int>(Json::GetInt(body, (base + "PageIndex").c_str(), -1));
    const int pageSize = static_cast<int>(Json::GetInt(body, (base + "PageSize").c_str(), kDefaultPageSize));
    if (page == 0 || page < -1 || pageSize <= 0) {
        return PlatformError(kErrBadRequest, "\"PageIndex\" must be -1 or from 1, \"PageSize\" positive");
    }
    std::vector<BroadcastRecord> matches;
    for (BroadcastRecord& r : context.registry.Records()) {
        const bool hasElement = element == -1 || std::find(r.elementIds.begin(), r.elementIds.end(),
                                                           element) != r.elementIds.end();
        // A time range only keeps records whose start time is a time at all.
        const bool inRange = (from.empty() && to.empty()) ||
                             (IsDateTime(r.startTime) && (from.empty() || r.startTime >= from) &&
                              (to.empty() || r.startTime <= to));
        if (hasElement && inRange) {
            matches.push_back(std::move(r));
        }
    }
    const PageRange range = PageOf(matches.size(), page, pageSize);
    Json::CWriter w;
    w.BeginObject().BeginObject("RealTimeBroadcastRecordList").BeginArray("RealTimeBroadcastRecord");
    for (size_t i = range.first; i < range.last; ++i) {
        const BroadcastRecord& r = matches[i];
        w.BeginObject().Int("RecordID", r.sequence).BeginObject("ElementList").BeginArray("Element");
        for (int id : r.elementIds) {
            const Element* e = context.fixture.FindElement(id);
            w.BeginObject().Int("ID", id).String("Name", e != nullptr ? e->name : "").EndObject();
        }
        w.EndArray().EndObject().String("StartTime", r.startTime);
        w.BeginObject("MediaFile").String("Name", r.name).String("format", r.format);
        w.Int("size", r.objectBytes >= 0 ? (r.objectBytes + 1023) / 1024 : r.size)
            .Int("Bytes", r.objectBytes);
        WriteStorage(w, r, context.stores);
        w.String("StoreUrl", r.storeUrl).EndObject();
        w.Int("BroadcastMode", r.broadcastMode).String("UserName", r.userName);
        w.String("RegisterTime", LocalDateTime(r.receivedMs)).EndObject();
    }
    w.EndArray().EndObject();
    w.Int("TotalCount", static_cast<int64_t>(matches.size())).Int("PageIndex", page);
    w.EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddRecordRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PluginPath("/RealTimeBroadcast/Record"), RouteAccess::kSession, WithBody<Record>},
               {"POST", PluginPath("/RealTimeBroadcast/Records"), RouteAccess::kSession, WithBody<Records>}});
}

}  // namespace Platform
