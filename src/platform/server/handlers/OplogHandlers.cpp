// The operation log clients write business actions to.

#include "framework/base/FormatLog.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

// Request: {"OperationLogList":[{"LogType":265001,"OccurTime":1767225600,"ElementName":"Hall A,Lobby"}]}
//   "OccurTime": seconds since the epoch.
// Data: {"Count":1}
RestResponse AddOperationLog(const RestRequest& request, const rapidjson::Document& body,
                             PlatformContext& context) {
    const rapidjson::Value* list = Json::Find(body, "OperationLogList");
    if (list == nullptr || !list->IsArray() || list->Empty()) {
        return PlatformError(kErrBadRequest, "\"OperationLogList\" must be a non-empty array");
    }
    std::vector<OperationLogEntry> entries;
    for (const rapidjson::Value& item : list->GetArray()) {
        const rapidjson::Value* type = Json::Find(item, "LogType");
        const rapidjson::Value* time = Json::Find(item, "OccurTime");
        const rapidjson::Value* name = Json::Find(item, "ElementName");
        if (!Json::IsInt(type) || !Json::IsInt(time) || (name != nullptr && !name->IsString())) {
            return PlatformError(
                kErrBadRequest,
                "each entry needs an integer \"LogType\" and \"OccurTime\" and a text \"ElementName\"");
        }
        OperationLogEntry entry;
        entry.logType = static_cast<int>(Json::ToInt(type, 0));
        entry.occurTime = Json::ToInt(time, 0);
        entry.elementName = Json::ToString(name);
        entry.userName = request.session.userName;
        entry.receivedMs = NowMs();
        entries.push_back(entry);
    }
    for (OperationLogEntry& entry : entries) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]operation log %d by %s: %s[%s(%d)]", entry.logType,
                entry.userName.c_str(), entry.elementName.c_str());
        context.oplog.Add(std::move(entry));
    }
    Json::CWriter w;
    w.BeginObject().Int("Count", static_cast<int64_t>(entries.size())).EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddOplogRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PlatformPath("/OperationLog"), RouteAccess::kSession, WithBody<AddOperationLog>}});
}

}  // namespace Platform
