// libFuzzer target: the REST requests the reference platform reads. Input fields are separated by 0x01:
//   body 0x01 path
// The path is dispatched by a router holding the platform's own route patterns, and the body is read with the
// helpers every handler uses: the body parser, then the lenient readers at each path the handlers read, the
// element lists and the comma-separated id lists. Besides crashes, hangs and undefined behaviour, the target
// traps when a refused body is not answered with an error envelope, a reader disagrees with its own test, a
// route capture is not an integer, or an accepted id list does not read back the same.

#include <rapidjson/document.h>

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/http/Router.h"
#include "platform/server/json/Json.h"

using FuzzSupport::Check;
using namespace Platform;

namespace {

// Paths the handlers read in request bodies.
const char* const kPaths[] = {"AccessKey",
                              "AdaptiveNetWork",
                              "AssignPlaybackDuration",
                              "AudioSource",
                              "BroadcastMode",
                              "BroadcastPatitionRequest/SearchCriteria/BroadcastPatitionName",
                              "BroadcastTerminalsListRequest/SearchCriteria/AllPartition",
                              "BroadcastTerminalsListRequest/SearchCriteria/BroadcastPatitionID",
                              "Channel",
                              "CommonUrlRequest",
                              "CustomContent",
                              "Data",
                              "DeviceID",
                              "DeviceIDs",
                              "DeviceType",
                              "ElementName",
                              "ErrorCode",
                              "ErrorModule",
                              "EventType",
                              "FileDirectoryRequest/SearchCriteria/DepthTraversal",
                              "FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID",
                              "GroupId",
                              "ID",
                              "IsPromptToneSupportedInFront",
                              "Language",
                              "LogInLanguage",
                              "MediaFile/Name",
                              "MediaFile/StorageServerID",
                              "MediaFile/StorageType",
                              "MediaFile/size",
                              "MediaFilesListRequest/PageIndex",
                              "MediaFilesListRequest/PageSize",
                              "MediaFilesListRequest/SearchCriteria/MediaFileDirectoryID",
                              "MessageType",
                              "Module",
                              "OccurTime",
                              "Password",
                              "PlayMode",
                              "PlayType",
                              "ResourceGuid",
                              "ResourceIDs",
                              "ResourceType",
                              "SecureEncryptType",
                              "Status",
                              "Type",
                              "UserName",
                              "RealTimeBroadcastRecordListRequest/PageIndex",
                              "RealTimeBroadcastRecordListRequest/SearchCriteria/ElementID"};

// Lists of {"ID":..} objects the handlers read.
const char* const kElementLists[] = {"ElementList/Element", "RealTimeBroadcastTTSRequest/ElementList/Element",
                                     "RealTimeBroadcastRecordsRequest/ElementList/Element"};

CRouter* MakeRouter() {
    auto* router = new CRouter();
    const RestHandler none = [](const RestRequest&) { return RestResponse(); };
    for (const char* pattern : {"/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig",
                                "/DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/{int}",
                                "/DXAPI/Galewing/BroadcastPlugin/V1/MediaManagement/MediaFile/{int}",
                                "/DXAPI/Galewing/Platform/V1/StreamConfig/IPSpeakerAccessType/{int}",
                                "/_control/storage/{int}", "/_control/sim/{int}/channel/{int}"}) {
        router->Add("POST", pattern, RouteAccess::kSession, none);
    }
    return router;
}
const CRouter* g_router = MakeRouter();

bool IsDecimal(const std::string& text) {
    std::size_t i = !text.empty() && text[0] == '-' ? 1 : 0;
    if (i >= text.size()) {
        return false;
    }
    for (; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    return true;
}

void ReadNode(const rapidjson::Value* node) {
    const bool isInt = Json::IsInt(node);
    const int64_t a = Json::ToInt(node, 1);
    const int64_t b = Json::ToInt(node, 2);
    Check(isInt || (a == 1 && b == 2));
    Check(!isInt || a == b);
    Json::ToString(node, "x");
    Json::ToBool(node, false);
    if (node == nullptr) {
        Check(Json::ToString(node, "x") == "x");
    }
}

void ReadIdList(const std::string& text) {
    std::vector<int> ids;
    if (!ParseIdList(text, ids)) {
        return;
    }
    std::string joined;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        joined += (i == 0 ? "" : ",") + std::to_string(ids[i]);
    }
    std::vector<int> again;
    Check(ParseIdList(joined, again) && again == ids);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> fields = FuzzSupport::SplitFields(data, size);
    RestRequest request;
    request.method = "POST";
    request.body = fields[0];
    request.path =
        fields.size() > 1 ? fields[1] : std::string("/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig");

    const CRouter::Route* route = nullptr;
    if (g_router->Find(request.method, request.path, route, request.captures) == CRouter::Match::kFound) {
        Check(route != nullptr);
        for (std::size_t i = 0; i < request.captures.size(); ++i) {
            Check(IsDecimal(request.captures[i]));
            int value = 0;
            CaptureInt(request, i, value);
        }
    }

    rapidjson::Document body;
    RestResponse error;
    if (!ParseBody(request, body, error)) {
        Check(!error.body.empty());
        rapidjson::Document envelope;
        envelope.Parse(error.body.c_str(), error.body.size());
        Check(!envelope.HasParseError() && envelope.IsObject() && envelope.HasMember("ResponseStatus"));
        return 0;
    }
    for (const char* path : kPaths) {
        const rapidjson::Value* node = Json::Find(body, path);
        ReadNode(node);
        Json::GetInt(body, path, 0);
        Json::GetBool(body, path, true);
        const std::string text = Json::GetString(body, path);
        ReadIdList(text);
        if (node != nullptr) {
            Json::Serialize(*node);
        }
    }
    for (const char* path : kElementLists) {
        std::vector<int> ids;
        RestResponse listError;
        if (!ReadElementList(body, path, ids, listError)) {
            Check(!listError.body.empty());
        } else {
            Check(!ids.empty());
        }
    }
    ReadIdList(fields[0]);
    return 0;
}
