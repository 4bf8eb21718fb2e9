// The media library and recording endpoints. Answers are shown by their "Data" member, inside the envelope
// that CPlatformCall checks.

#include <algorithm>
#include <map>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformCall.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformPaths.h"
#include "framework/base/FileSystem.h"
#include "framework/business/BusinessCommon.h"

namespace BroadCastPlugin {

using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::kSubSystemServer;
using Tal::Base::Error::SetLastError;

namespace {

constexpr int kPatternQuery = 2;

// As for every stored file: "pStorage" is a storage server, anything else the local cloud storage.
int32_t StorageTypeOf(const std::string& text) {
    return text == "pStorage" ? kStorageTypeServer : kStorageTypeLocal;
}

MediaFile ReadMediaFile(const CRapidJsonProto& doc, const std::string& p) {
    MediaFile file;
    file.ID = doc.get_int_v(p + "ID", -1);
    file.Name = doc.get_v(p + "Name", "");
    file.Format = doc.get_v(p + "format", "");
    file.Size = doc.get_int_v(p + "size", -1);
    file.StorageType = StorageTypeOf(doc.get_v(p + "StorageType", ""));
    file.StorageServerID = doc.get_int_v(p + "StorageServerID", -1);
    file.StoragePoolID = doc.get_v(p + "StoragePoolID", "");
    file.StoreUrl = doc.get_v(p + "StoreUrl", "");
    file.Duration = doc.get_int_v(p + "duration", -1);
    file.ParentID = doc.get_int_v(p + "ParentID", -1);
    // Computed afresh for every file: the directory may have been removed meanwhile.
    file.LocalPath = GetFileSavePath() + file.Name + "." + file.Format;
    return file;
}

// Every directory stays at top level and also carries its direct children.
void AttachChildren(std::vector<MediaDirectory>& read,
                    std::map<int32_t, std::vector<MediaDirectory>>& byParent) {
    for (MediaDirectory& directory : read) {
        if (byParent.empty()) {
            break;
        }
        auto children = byParent.find(directory.ID);
        if (children != byParent.end()) {
            directory.Children = children->second;
            byParent.erase(children);
        }
    }
}

// One entry of the record list; false when it has no integer RecordID.
bool ReadRecord(const CRapidJsonProto& response, const std::string& r, BroadcastRecordEntry& record) {
    // Two defaults tell a missing or non-integer id from any integer one.
    if (response.get_int_v(r + "RecordID", -1) == -1 && response.get_int_v(r + "RecordID", -2) == -2) {
        return false;
    }
    record.RecordID = response.get_int_v(r + "RecordID", -1);
    const std::string elements = r + "ElementList/Element";
    for (const std::string& e : Items(response, elements)) {
        BroadcastRecordElement element;
        element.ID = response.get_int_v(e + "ID", -1);
        element.Name = response.get_v(e + "Name", "");
        record.Elements.push_back(element);
    }
    record.StartTime = response.get_v(r + "StartTime", "");
    const std::string m = r + "MediaFile/";
    record.Name = response.get_v(m + "Name", "");
    record.Format = response.get_v(m + "format", "");
    record.Size = response.get_int_v(m + "size", -1);
    record.Bytes = response.get_int64_v(m + "Bytes", -1);
    record.StorageType = StorageTypeOf(response.get_v(m + "StorageType", ""));
    record.StorageServerID = response.get_int_v(m + "StorageServerID", -1);
    record.StoreUrl = response.get_v(m + "StoreUrl", "");
    record.BroadcastMode = response.get_int_v(r + "BroadcastMode", -1);
    record.UserName = response.get_v(r + "UserName", "");
    record.RegisterTime = response.get_v(r + "RegisterTime", "");
    return true;
}

std::string RecordQueryBody(const BroadcastRecordQuery& query) {
    const std::string p = "/RealTimeBroadcastRecordListRequest/";
    CRapidJsonProto body;
    body.set_node_str(p + "SearchCriteria", "{}");
    if (query.ElementID != -1) {
        body.set_v(p + "SearchCriteria/ElementID", query.ElementID);
    }
    if (!query.StartTimeFrom.empty()) {
        body.set_v(p + "SearchCriteria/StartTimeFrom", query.StartTimeFrom);
    }
    if (!query.StartTimeTo.empty()) {
        body.set_v(p + "SearchCriteria/StartTimeTo", query.StartTimeTo);
    }
    body.set_v(p + "PageIndex", query.PageIndex);
    body.set_v(p + "PageSize", query.PageSize);
    return body.get_str(0);
}

}  // namespace

std::string GetFileSavePath() {
    std::string dir = BusinessCommon::CFrameSystemConfigMgr::Instance()->GetVideoCaptureDataPath();
    std::replace(dir.begin(), dir.end(), '\\', '/');
    dir += "Audio/";
    if (!Tal::Base::FileSystem::MakeFullDir(dir)) {
        BCAST_LOG(5, "[%s]Tal::Base::FileSystem::MakeFullDir Failed,dir:[%s][%s(%d)]", dir.c_str());
        SetLastError(ErrorCode(2, 1));
        return std::string();
    }
    return dir;
}

// POST MediaManagement/FileDirectorys
// Request: {"FileDirectoryRequest":{"SearchCriteria":{"ParentFileDirectoryID":-1,"FileDirectoryName":"",
//   "DepthTraversal":1}}}; name and depth only for the whole tree (-1).
// Answer Data:
// {"FileDirectoryList":{"FileDirectory":[{"ID":2,"BaseInfo":{"Name":"Announcements","ParentID":0,
//   "IsHaveChildDirectory":1}}]}}
bool CBroadcastSession::GetMediaDirectorys(int32_t parentID, std::vector<MediaDirectory>& directories) {
    CRapidJsonProto body;
    body.set_v("/FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID", parentID);
    if (parentID == -1) {
        body.set_v("/FileDirectoryRequest/SearchCriteria/FileDirectoryName", "");
        body.set_v("/FileDirectoryRequest/SearchCriteria/DepthTraversal", 1);
    }
    CPlatformCall call("POST", PlatformPaths::kDirectories, body.get_str(0), kPatternQuery);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get media list error. request xml [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file list response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/FileDirectoryList/FileDirectory";
    std::vector<MediaDirectory> read;
    std::map<int32_t, std::vector<MediaDirectory>> byParent;
    for (const std::string& p : Items(response, list)) {
        MediaDirectory directory;
        directory.ID = response.get_int_v(p + "ID", -1);
        directory.Name = response.get_v(p + "BaseInfo/Name", "");
        directory.ParentID = response.get_int_v(p + "BaseInfo/ParentID", 0);
        directory.HasChildDirectory = response.get_int_v(p + "BaseInfo/IsHaveChildDirectory", 0) == 1;
        read.push_back(directory);
        byParent[directory.ParentID].push_back(directory);
    }
    AttachChildren(read, byParent);
    directories.insert(directories.end(), read.begin(), read.end());
    return true;
}

// POST MediaManagement/MediaFiles
// Request: {"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":3,"MediaFileName":""},
//   "PageIndex":-1}}
// Answer Data: {"MediaFileList":{"MediaFile":[{"ID":2,"Name":"opening","format":"mp3","size":180,
//   "StorageType":"localStorage","StorageServerID":0,"StoragePoolID":"broadcast","StoreUrl":"..",
//   "duration":23,"ParentID":3}]},"TotalCount":2,"PageIndex":-1}
bool CBroadcastSession::GetMediaFiles(int32_t directoryID, const std::string& filter,
                                      std::vector<MediaFile>& files) {
    CRapidJsonProto body;
    body.set_v("/MediaFilesListRequest/SearchCriteria/MediaFileDirectoryID", directoryID);
    body.set_v("/MediaFilesListRequest/SearchCriteria/MediaFileName", filter);
    body.set_v("/MediaFilesListRequest/PageIndex", -1);
    CPlatformCall call("POST", PlatformPaths::kMediaFiles, body.get_str(0), kPatternQuery);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get file list error. request xml [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file list response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/MediaFileList/MediaFile";
    for (const std::string& p : Items(call.Answer(), list)) {
        files.push_back(ReadMediaFile(call.Answer(), p));
    }
    return true;
}

// POST MediaManagement/MediaFile/<file id> (no body)
// Answer Data:
// {"materialInfo":{"ID":2,"Name":"opening","format":"mp3","size":180,"StorageType":"localStorage",
//   "StorageServerID":0,"StoragePoolID":"broadcast","StoreUrl":"..","duration":23,"ParentID":3}}
bool CBroadcastSession::GetMediaFileByID(int32_t fileID, MediaFile& file) {
    CPlatformCall call("POST", PlatformPaths::kMediaFile + std::to_string(fileID), std::string(),
                       kPatternQuery);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get file list error. request xml [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    file = ReadMediaFile(call.Answer(), "/ResponseStatus/Data/materialInfo/");
    return true;
}

// POST RealTimeBroadcast/Record
// Request: {"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":1001}]},"StartTime":"..",
//   "MediaFile":{"Name":"rec","format":"wav","size":4,"StorageServerID":501,"StorageType":1,"StoreUrl":".."},
//   "BroadcastMode":0}}; "size" in kilobytes, the name without its extension.
// Answer Data: {"RecordID":1}
bool CBroadcastSession::UploadBroadcastRecord(const BroadcastRecordInfo& record) {
    const std::string p = "/RealTimeBroadcastRecordsRequest/";
    CRapidJsonProto body;
    for (std::size_t i = 0; i < record.ElementIDs.size(); ++i) {
        body.set_v(p + "ElementList/Element[" + std::to_string(i + 1) + "]/ID", record.ElementIDs[i]);
    }
    body.set_v(p + "StartTime", record.StartTime);
    const std::size_t dot = record.FileName.rfind('.');
    body.set_v(p + "MediaFile/Name",
               dot == std::string::npos ? record.FileName : record.FileName.substr(0, dot));
    body.set_v(p + "MediaFile/format", record.Format);
    body.set_v(p + "MediaFile/size", static_cast<int>(record.Size / 1024));
    body.set_v(p + "MediaFile/StorageServerID", record.StorageServerID);
    body.set_v(p + "MediaFile/StorageType", record.StorageType);
    body.set_v(p + "MediaFile/StoreUrl", record.StoreUrl);
    body.set_v(p + "BroadcastMode", record.BroadcastMode);
    CPlatformCall call("POST", PlatformPaths::kRecord, body.get_str(0));
    BCAST_LOG(3, "[%s]upload broadcast record, request uri: %s, request body: %s.[%s(%d)]",
              call.Path().c_str(), call.Body().c_str());
    return call.Send([&](const ErrorCode& e) {
        BCAST_LOG(5, "[%s]send broadcast record error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
    });
}

// POST RealTimeBroadcast/Records
// Request: {"RealTimeBroadcastRecordListRequest":{"SearchCriteria":{"ElementID":1001,
//   "StartTimeFrom":"2026-01-02 00:00:00","StartTimeTo":"2026-01-02 23:59:59"},"PageIndex":1,"PageSize":20}}
// Answer Data:
// {"RealTimeBroadcastRecordList":{"RealTimeBroadcastRecord":[{"RecordID":1,"ElementList":{"Element":[
//   {"ID":1001,"Name":"Hall A"}]},"StartTime":"2026-01-02 10:00:00","MediaFile":{"Name":"talk-1001",
//   "format":"wav","size":24,"Bytes":24044,"StorageType":"pStorage","StorageServerID":501,
//   "StoreUrl":"http://127.0.0.1:18657/pool-records/talk-1001.wav"},"BroadcastMode":0,
//   "UserName":"operator","RegisterTime":"2026-11-24 10:18:40"}]},"TotalCount":1,"PageIndex":1}
// A criterion left at its default is not sent. An answer without the list, or with a record that has no
// integer RecordID, is malformed.
bool CBroadcastSession::GetBroadcastRecords(const BroadcastRecordQuery& query,
                                            std::vector<BroadcastRecordEntry>& records, int32_t* totalCount) {
    CPlatformCall call("POST", PlatformPaths::kRecords, RecordQueryBody(query));
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get broadcast records error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) { LogInPieces(raw, false); });
    if (!ok) {
        const ErrorCode error = Tal::Base::Error::GetLastError();
        BCAST_LOG(5, "[%s]Get broadcast records failed. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), error.GetMainErrorCode(), error.GetSubErrorCode());
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/RealTimeBroadcastRecordList/RealTimeBroadcastRecord";
    if (response.get_node_str(list).rfind('[', 0) != 0) {
        SetLastError(BadServerResponse(kSubSystemServer));
        BCAST_LOG(5, "[%s]Get broadcast records: the answer has no record list.[%s(%d)]");
        return false;
    }
    const int count = response.get_cnt(list);
    std::vector<BroadcastRecordEntry> read;
    for (int i = 1; i <= count; ++i) {
        BroadcastRecordEntry record;
        if (!ReadRecord(response, Item(list, i), record)) {
            SetLastError(BadServerResponse(kSubSystemServer));
            BCAST_LOG(5, "[%s]Get broadcast records: record %d has no RecordID.[%s(%d)]", i);
            return false;
        }
        read.push_back(record);
    }
    records.insert(records.end(), read.begin(), read.end());
    if (totalCount != nullptr) {
        *totalCount = response.get_int_v("/ResponseStatus/Data/TotalCount", count);
    }
    return true;
}

}  // namespace BroadCastPlugin
