// The control interface of the object stores: what they are (keys in plain text, for tests) and how many
// objects they hold, and switches that stop a store or make it refuse the keys the platform hands out.

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"
#include "platform/server/storage/ObjectProbe.h"
#include "platform/server/storage/ObjectStores.h"

namespace Platform {

namespace {

RestResponse NoStores() {
    return PlatformError(kErrUnsupported,
                         "the platform runs without object stores (--object-store off or "
                         "--no-peers)");
}

// Data: {"Enabled":true,"MediaCache":"/tmp/..","Stores":[{"Name":"local","StorageServerID":0,
//   "Url":"http://127.0.0.1:18655","Address":"127.0.0.1","Port":18655,"Pools":["broadcast"],"Running":true,
//   "AccessKey":"..","SecretKey":"..","FixtureKeys":true,"DataDir":"..","Log":"..",
//   "Objects":[{"Pool":"broadcast","Count":4,"More":false}]}],"NotServed":[{"Name":"502",
//   "StorageServerID":502,"Reason":".."}]}
// Counts come from the stores themselves (a signed listing with the keys each store accepts now); -1 when
// a store cannot be asked.
RestResponse Storage(const RestRequest&, PlatformContext& context) {
    Json::CWriter w;
    w.BeginObject().Bool("Enabled", context.stores != nullptr);
    if (context.stores == nullptr) {
        w.BeginArray("Stores").EndArray().BeginArray("NotServed").EndArray().EndObject();
        return Ok(w.Text());
    }
    const CObjectStores& stores = *context.stores;
    w.String("MediaCache", stores.MediaCacheDir()).BeginArray("Stores");
    for (const StoreState& s : stores.Snapshot()) {
        w.BeginObject().String("Name", s.planned.name).Int("StorageServerID", s.planned.storageServerId);
        w.String("Url", s.Url()).String("Address", s.planned.address).Int("Port", s.port).BeginArray("Pools");
        for (const std::string& pool : s.planned.pools) {
            w.String(nullptr, pool);
        }
        w.EndArray()
            .Bool("Running", s.running)
            .String("AccessKey", s.accessKey)
            .String("SecretKey", s.secretKey);
        w.Bool("FixtureKeys", s.accessKey == s.planned.accessKey && s.secretKey == s.planned.secretKey);
        w.String("DataDir", s.dataDir).String("Log", s.logPath).BeginArray("Objects");
        const StoreEndpoint endpoint{s.planned.address, s.port, s.accessKey, s.secretKey};
        for (const std::string& pool : s.planned.pools) {
            int64_t count = -1;
            bool more = false;
            std::string ignored;
            if (s.running && CountObjects(endpoint, pool, count, more, ignored) != ProbeResult::kFound) {
                count = -1;
            }
            w.BeginObject().String("Pool", pool).Int("Count", count).Bool("More", more).EndObject();
        }
        w.EndArray().EndObject();
    }
    w.EndArray().BeginArray("NotServed");
    for (const UnservedStorage& u : stores.NotServed()) {
        w.BeginObject().String("Name", u.name).Int("StorageServerID", u.storageServerId);
        w.String("Reason", u.reason).EndObject();
    }
    w.EndArray().EndObject();
    return Ok(w.Text());
}

// Request: {"Running":false} stops the store (its port stays taken), {"Running":true} starts it again on
// that port; {"AccessKey":"..","SecretKey":".."} restarts it accepting only these keys (the platform goes on
// handing out the fixture's, which the store then refuses).
RestResponse SetStore(const RestRequest& request, PlatformContext& context, const std::string& name) {
    rapidjson::Document body;
    RestResponse error;
    if (!ParseBody(request, body, error)) {
        return error;
    }
    if (context.stores == nullptr) {
        return NoStores();
    }
    const rapidjson::Value* running = Json::Find(body, "Running");
    const rapidjson::Value* accessKey = Json::Find(body, "AccessKey");
    const rapidjson::Value* secretKey = Json::Find(body, "SecretKey");
    const bool keys = accessKey != nullptr || secretKey != nullptr;
    if ((running != nullptr && !running->IsBool()) || (running == nullptr && !keys)) {
        return PlatformError(kErrBadRequest,
                             "give \"Running\" (true/false) and/or \"AccessKey\" and \"SecretKey\"");
    }
    if (keys &&
        (accessKey == nullptr || secretKey == nullptr || !accessKey->IsString() || !secretKey->IsString() ||
         accessKey->GetStringLength() == 0 || secretKey->GetStringLength() == 0)) {
        return PlatformError(kErrBadRequest,
                             "\"AccessKey\" and \"SecretKey\" go together, as non-empty texts");
    }
    std::string problem;
    CObjectStores::Control result = CObjectStores::Control::kDone;
    if (keys) {
        result = context.stores->SetKeys(name, accessKey->GetString(), secretKey->GetString(), problem);
    }
    if (result == CObjectStores::Control::kDone && running != nullptr) {
        result = context.stores->SetRunning(name, running->GetBool(), problem);
    }
    switch (result) {
        case CObjectStores::Control::kDone:
            return Ok();
        case CObjectStores::Control::kUnknownStore:
            return PlatformError(kErrNotFound, "no object store " + name);
        case CObjectStores::Control::kFailed:
            break;
    }
    return PlatformError(kErrInternal, problem, 500);
}

}  // namespace

void AddStorageControlRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"GET", ControlPath("/storage"), RouteAccess::kPublic, Storage},
               {"POST", ControlPath(std::string("/storage/") + kLocalStoreName), RouteAccess::kPublic,
                [](const RestRequest& r, PlatformContext& c) { return SetStore(r, c, kLocalStoreName); }},
               {"POST", ControlPath("/storage/{int}"), RouteAccess::kPublic,
                [](const RestRequest& r, PlatformContext& c) {
                    return SetStore(r, c, r.captures.empty() ? std::string() : r.captures[0]);
                }}});
}

}  // namespace Platform
