// The media library: directories and audio files.

#include <functional>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

constexpr int kDefaultPageSize = 20;

bool HasChildren(const Fixture& fixture, int id) {
    for (const MediaDirectory& d : fixture.directories) {
        if (d.parentId == id) {
            return true;
        }
    }
    return false;
}

// Request: {"FileDirectoryRequest":{"SearchCriteria":{"ParentFileDirectoryID":-1,"FileDirectoryName":"",
//   "DepthTraversal":1}}}. Parent -1 or 0 is the root; DepthTraversal 1 walks the whole subtree (pre-order),
//   0 gives the direct children only.
// Data: {"FileDirectoryList":{"FileDirectory":[{"ID":2,"BaseInfo":{"Name":"Announcements","ParentID":0,
//   "IsHaveChildDirectory":1}}]}}
RestResponse Directories(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const rapidjson::Value* parentNode =
        Json::Find(body, "FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID");
    if (parentNode != nullptr && !Json::IsInt(parentNode)) {
        return PlatformError(kErrBadRequest, "\"ParentFileDirectoryID\" must be an integer");
    }
    int parent = static_cast<int>(Json::ToInt(parentNode, -1));
    if (parent == -1) {
        parent = 0;
    }
    if (parent != 0 && context.fixture.FindDirectory(parent) == nullptr) {
        return PlatformError(kErrNotFound, "no media directory " + std::to_string(parent));
    }
    const bool deep = Json::GetInt(body, "FileDirectoryRequest/SearchCriteria/DepthTraversal", 0) == 1;
    const std::string name = Json::GetString(body, "FileDirectoryRequest/SearchCriteria/FileDirectoryName");

    Json::CWriter w;
    w.BeginObject().BeginObject("FileDirectoryList").BeginArray("FileDirectory");
    std::function<void(int, int)> walk = [&](int id, int depth) {
        for (const MediaDirectory& d : context.fixture.directories) {
            if (d.parentId != id) {
                continue;
            }
            if (ContainsNoCase(d.name, name)) {
                w.BeginObject().Int("ID", d.id).BeginObject("BaseInfo").String("Name", d.name);
                w.Int("ParentID", d.parentId)
                    .Int("IsHaveChildDirectory", HasChildren(context.fixture, d.id) ? 1 : 0);
                w.EndObject().EndObject();
            }
            // The fixture loader refuses cycles; the depth bound only guards against surprises.
            if (deep && depth < 64) {
                walk(d.id, depth + 1);
            }
        }
    };
    walk(parent, 0);
    w.EndArray().EndObject().EndObject();
    return Ok(w.Text());
}

void WriteMediaFile(Json::CWriter& w, const char* key, const MediaFileEntry& m) {
    w.BeginObject(key);
    w.Int("ID", m.id).String("Name", m.name).String("format", m.format).Int("size", m.size);
    w.String("StorageType", m.storageType).Int("StorageServerID", m.storageServerId);
    w.String("StoragePoolID", m.storagePoolId).String("StoreUrl", m.storeUrl).Int("duration", m.duration);
    w.Int("ParentID", m.parentId);
    w.EndObject();
}

// Request: {"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":3,"MediaFileName":""},
//   "PageIndex":-1}}. Directory -1: every directory. PageIndex -1: all files; from 1 with "PageSize"
//   (default 20): that page.
// Data: {"MediaFileList":{"MediaFile":[{"ID":2,"Name":"opening","format":"mp3","size":180,
//   "StorageType":"localStorage","StorageServerID":0,"StoragePoolID":"broadcast","StoreUrl":"..",
//   "duration":23,"ParentID":3}]},"TotalCount":2,"PageIndex":-1}
RestResponse Files(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const rapidjson::Value* dirNode =
        Json::Find(body, "MediaFilesListRequest/SearchCriteria/MediaFileDirectoryID");
    if (dirNode != nullptr && !Json::IsInt(dirNode)) {
        return PlatformError(kErrBadRequest, "\"MediaFileDirectoryID\" must be an integer");
    }
    const int directory = static_cast<int>(Json::ToInt(dirNode, -1));
    if (directory != -1 && context.fixture.FindDirectory(directory) == nullptr) {
        return PlatformError(kErrNotFound, "no media directory " + std::to_string(directory));
    }
    const std::string name = Json::GetString(body, "MediaFilesListRequest/SearchCriteria/MediaFileName");
    const int page = static_cast<int>(Json::GetInt(body, "MediaFilesListRequest/PageIndex", -1));
    const int pageSize =
        static_cast<int>(Json::GetInt(body, "MediaFilesListRequest/PageSize", kDefaultPageSize));
    if (page == 0 || page < -1 || pageSize <= 0) {
        return PlatformError(kErrBadRequest, "\"PageIndex\" must be -1 or from 1, \"PageSize\" positive");
    }
    std::vector<const MediaFileEntry*> matches;
    for (const MediaFileEntry& m : context.fixture.files) {
        if ((directory == -1 || m.parentId == directory) && ContainsNoCase(m.name, name)) {
            matches.push_back(&m);
        }
    }
    const PageRange range = PageOf(matches.size(), page, pageSize);
    Json::CWriter w;
    w.BeginObject().BeginObject("MediaFileList").BeginArray("MediaFile");
    for (size_t i = range.first; i < range.last; ++i) {
        WriteMediaFile(w, nullptr, *matches[i]);
    }
    w.EndArray().EndObject();
    w.Int("TotalCount", static_cast<int64_t>(matches.size())).Int("PageIndex", page);
    w.EndObject();
    return Ok(w.Text());
}

// Data: {"materialInfo":{...the keys of one media file...}}
RestResponse FileById(const RestRequest& request, PlatformContext& context) {
    RestResponse error;
    const MediaFileEntry* file = FindCaptured(
        request, "media file", [&context](int id) { return context.fixture.FindFile(id); }, error);
    if (file == nullptr) {
        return error;
    }
    Json::CWriter w;
    w.BeginObject();
    WriteMediaFile(w, "materialInfo", *file);
    w.EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddMediaRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(router, context,
              {{"POST", PluginPath("/MediaManagement/FileDirectorys"), RouteAccess::kSession,
                WithBody<Directories>},
               {"POST", PluginPath("/MediaManagement/MediaFiles"), RouteAccess::kSession, WithBody<Files>},
               {"POST", PluginPath("/MediaManagement/MediaFile/{int}"), RouteAccess::kSession, FileById}});
}

}  // namespace Platform
