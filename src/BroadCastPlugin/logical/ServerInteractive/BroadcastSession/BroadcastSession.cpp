#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/base/FileSystem.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/UserCommonManager.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

using NetworkCommunication::CClientRecvInfo;
using NetworkCommunication::CClientSendInfo;
using NetworkCommunication::CNetCommManager;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::kSubSystemClient;
using Tal::Base::Error::kSubSystemServer;
using Tal::Base::Error::SetLastError;

namespace {

const std::string kPluginApi = "/DXAPI/Galewing/BroadcastPlugin/V1/";
const std::string kPathPartitions = kPluginApi + "TerminalManagement/Partitions";
const std::string kPathTerminals = kPluginApi + "TerminalManagement/BroadcastTerminals";
const std::string kPathDirectories = kPluginApi + "MediaManagement/FileDirectorys";
const std::string kPathMediaFiles = kPluginApi + "MediaManagement/MediaFiles";
const std::string kPathMediaFile = kPluginApi + "MediaManagement/MediaFile/";
const std::string kPathBaseConfig = kPluginApi + "BaseConfig";
const std::string kPathStorageConfig = "/DXAPI/Galewing/Platform/V1/Storage/LocalCloudStorageConfig";
const std::string kPathRecordServerDisk = "/DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/";
const std::string kPathRecord = kPluginApi + "RealTimeBroadcast/Record";
const std::string kPathRecords = kPluginApi + "RealTimeBroadcast/Records";
const std::string kPathUpdateStatus = kPluginApi + "RealTimeBroadcast/UpdateBroadcastStatus";
const std::string kPathTTS = kPluginApi + "RealTimeBroadcast/TTS";
const std::string kPathLanguage = kPluginApi + "GetLanguage";
const std::string kPathUrlList = kPluginApi + "RealTimeBroadcast/CommonUrlList";
const std::string kPathStartPrompt = kPluginApi + "RealTimeBroadcast/StartPromptTone";
const std::string kPathStopPrompt = kPluginApi + "RealTimeBroadcast/StopPromptTone";

constexpr int kPatternQuery = 2;
constexpr int kStorageTypeLocal = 0;
constexpr int kStorageTypeServer = 1;

std::string Item(const std::string& list, int oneBasedIndex) {
    return list + "[" + std::to_string(oneBasedIndex) + "]/";
}

ErrorCode BadResponse(int subSystem) { return ErrorCode(subSystem, kModuleBroadcast, kErrorBadServerResponse); }

struct Request {
    std::string method;
    std::string path;
    std::string body;
    int pattern = 0;
};

using TransportLog = std::function<void(const ErrorCode& transport)>;
using AnswerLog = std::function<void(const std::string& raw)>;

// Sends a request and checks the "ResponseStatus" envelope; `response` holds the parsed answer. A failure
// leaves its reason as the thread's last error: the transport's error (after `onTransportFailure` has
// logged it), module 20 code 2001 for a body that does not parse, or the server's module and code with its
// cascading text. `onAnswer` sees every answer that arrived.
bool Exchange(const Request& request, CRapidJsonProto& response, const TransportLog& onTransportFailure,
              const AnswerLog& onAnswer = nullptr) {
    CClientSendInfo send;
    send.SetVal_Method(request.method);
    send.SetVal_URL(request.path);
    if (!request.body.empty()) {
        send.SetVal_send_data(request.body);
    }
    if (request.pattern != 0) {
        send.SetVal_Pattern(request.pattern);
    }
    CClientRecvInfo recv;
    if (!CNetCommManager::Instance()->ClientSynSend(recv, send, 0)) {
        onTransportFailure(recv.GetVal_Error_code());
        SetLastError(recv.GetVal_Error_code());
        return false;
    }
    if (onAnswer) {
        onAnswer(recv.GetVal_Receive_Data());
    }
    if (!response.set_str(recv.GetVal_Receive_Data())) {
        SetLastError(BadResponse(kSubSystemServer));
        return false;
    }
    ErrorCode status(kSubSystemServer, response.get_int_v("/ResponseStatus/ErrorModule", -1),
                     response.get_int_v("/ResponseStatus/ErrorCode", -1));
    status.SetCasadingErrorInfo(response.get_v("/ResponseStatus/CascadingErrorInfo", ""));
    if (status.GetSubErrorCode() != 0) {
        SetLastError(status);
        return false;
    }
    return true;
}

// Long answers are logged in pieces so that the logger does not cut them.
void LogInPieces(const std::string& text, bool terminals) {
    std::size_t pos = 0;
    do {
        const std::string piece = text.substr(pos, 1024);
        if (terminals) {
            BCAST_LOG(3, "[%s]Get all broadcast: %s[%s(%d)]", piece.c_str());
        } else {
            BCAST_LOG(3, "[%s]%s[%s(%d)]", piece.c_str());
        }
        pos += 1024;
    } while (pos < text.size());
}

int32_t StorageTypeOf(const std::string& text, int32_t fallback) {
    if (text == "pStorage") {
        return kStorageTypeServer;
    }
    if (text == "localStorage") {
        return kStorageTypeLocal;
    }
    return fallback;
}

MediaFile ReadMediaFile(const CRapidJsonProto& doc, const std::string& p) {
    MediaFile file;
    file.ID = doc.get_int_v(p + "ID", -1);
    file.Name = doc.get_v(p + "Name", "");
    file.Format = doc.get_v(p + "format", "");
    file.Size = doc.get_int_v(p + "size", -1);
    file.StorageType = doc.get_v(p + "StorageType", "") == "pStorage" ? kStorageTypeServer : kStorageTypeLocal;
    file.StorageServerID = doc.get_int_v(p + "StorageServerID", -1);
    file.StoragePoolID = doc.get_v(p + "StoragePoolID", "");
    file.StoreUrl = doc.get_v(p + "StoreUrl", "");
    file.Duration = doc.get_int_v(p + "duration", -1);
    file.ParentID = doc.get_int_v(p + "ParentID", -1);
    // Computed afresh for every file: the directory may have been removed meanwhile.
    file.LocalPath = GetFileSavePath() + file.Name + "." + file.Format;
    return file;
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

bool CBroadcastSession::GetBroadcastPartitionList(std::vector<BroadcastPartition>& partitions) {
    CRapidJsonProto body;
    body.set_v("/BroadcastPatitionRequest/SearchCriteria/BroadcastPatitionName", "");
    const Request request{"GET", kPathPartitions, body.get_str(0), kPatternQuery};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get partition list error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            LogInPieces(raw, false);
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        BroadcastPartition partition;
        partition.ID = response.get_int_v(Item(list, i) + "ID", -1);
        partition.Name = response.get_v(Item(list, i) + "BaseInfo/Name", "");
        partitions.push_back(partition);
    }
    return true;
}

bool CBroadcastSession::GetAllBroadcastTerminalList(std::vector<BroadcastTerminal>& terminals) {
    CRapidJsonProto body;
    body.set_bool_v("/BroadcastTerminalsListRequest/SearchCriteria/AllPartition", true);
    const Request request{"GET", kPathTerminals, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get terminal list error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            LogInPieces(raw, true);
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/BroadcastTerminalsList/BroadcastTerminal";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        const std::string p = Item(list, i);
        BroadcastTerminal terminal;
        terminal.ID = response.get_int_v(p + "ID", -1);
        terminal.Name = response.get_v(p + "BaseInfo/Name", "");
        const std::string partitionList = p + "BaseInfo/BroadcastPartitionIDList";
        const int partitionCount = response.get_cnt(partitionList);
        if (partitionCount > 0) {
            terminal.PartitionIDList.clear();
            for (int j = 1; j <= partitionCount; ++j) {
                terminal.PartitionIDList.push_back(
                    response.get_int_v(partitionList + "[" + std::to_string(j) + "]", -1));
            }
        }
        terminal.PeerTaskHandling = response.get_int_v(p + "Config/PeerTaskHandling", -1);
        terminal.AudioCount = response.get_int_v(p + "Config/AudioCount", -1);
        terminal.Volume = response.get_int_v(p + "Config/Volume", -1);
        terminal.TerminalStatus = response.get_int_v(p + "TerminalStatus", -1);
        terminal.AreaID = response.get_int_v(p + "Area/AreaID", -1);
        terminal.AreaName = response.get_v(p + "Area/AreaName", "");
        terminals.push_back(terminal);
    }
    return true;
}

bool CBroadcastSession::GetMediaDirectorys(int32_t parentID, std::vector<MediaDirectory>& directories) {
    CRapidJsonProto body;
    body.set_v("/FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID", parentID);
    if (parentID == -1) {
        body.set_v("/FileDirectoryRequest/SearchCriteria/FileDirectoryName", "");
        body.set_v("/FileDirectoryRequest/SearchCriteria/DepthTraversal", 1);
    }
    const Request request{"POST", kPathDirectories, body.get_str(0), kPatternQuery};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get media list error. request xml [%s]. error code: [%d][%d][%s(%d)]", request.body.c_str(),
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file list response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/FileDirectoryList/FileDirectory";
    const int count = response.get_cnt(list);
    std::vector<MediaDirectory> read;
    std::map<int32_t, std::vector<MediaDirectory>> byParent;
    for (int i = 1; i <= count; ++i) {
        const std::string p = Item(list, i);
        MediaDirectory directory;
        directory.ID = response.get_int_v(p + "ID", -1);
        directory.Name = response.get_v(p + "BaseInfo/Name", "");
        directory.ParentID = response.get_int_v(p + "BaseInfo/ParentID", 0);
        directory.HasChildDirectory = response.get_int_v(p + "BaseInfo/IsHaveChildDirectory", 0) == 1;
        read.push_back(directory);
        byParent[directory.ParentID].push_back(directory);
    }
    // Every directory stays at top level and also carries its direct children.
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
    directories.insert(directories.end(), read.begin(), read.end());
    return true;
}

bool CBroadcastSession::GetMediaFiles(int32_t directoryID, const std::string& filter, std::vector<MediaFile>& files) {
    CRapidJsonProto body;
    body.set_v("/MediaFilesListRequest/SearchCriteria/MediaFileDirectoryID", directoryID);
    body.set_v("/MediaFilesListRequest/SearchCriteria/MediaFileName", filter);
    body.set_v("/MediaFilesListRequest/PageIndex", -1);
    const Request request{"POST", kPathMediaFiles, body.get_str(0), kPatternQuery};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get file list error. request xml [%s]. error code: [%d][%d][%s(%d)]", request.body.c_str(),
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file list response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/MediaFileList/MediaFile";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        files.push_back(ReadMediaFile(response, Item(list, i)));
    }
    return true;
}

bool CBroadcastSession::GetMediaFileByID(int32_t fileID, MediaFile& file) {
    const Request request{"POST", kPathMediaFile + std::to_string(fileID), std::string(), kPatternQuery};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get file list error. request xml [%s]. error code: [%d][%d][%s(%d)]", request.body.c_str(),
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast media file response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    file = ReadMediaFile(response, "/ResponseStatus/Data/materialInfo/");
    return true;
}

bool CBroadcastSession::GetBaseConfig(BroadcastBaseConfig& config) {
    const Request request{"GET", kPathBaseConfig, std::string(), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get config error. error code: [%d][%d][%s(%d)]", e.GetMainErrorCode(),
                      e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast config info response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const std::string p = "/ResponseStatus/Data/BaseConfig/";
    config.Record = response.get_bool_v(p + "RealTimeBroadcastRecord/Record", false);
    config.RecordStorageType =
        StorageTypeOf(response.get_v(p + "RealTimeBroadcastRecord/RecordStorageType", ""), config.RecordStorageType);
    config.RecordStorageServerID = response.get_int_v(p + "RealTimeBroadcastRecord/RecordStorageServerID", -1);
    config.RecordPoolID = response.get_v(p + "RealTimeBroadcastRecord/RecordPoolID", "");
    config.StorageType = StorageTypeOf(response.get_v(p + "StorageServerInfo/StorageType", ""), config.StorageType);
    config.StorageServerID = response.get_int_v(p + "StorageServerInfo/StorageServerID", -1);
    config.PoolID = response.get_v(p + "StorageServerInfo/PoolID", "");
    const std::string codec = response.get_v(p + "AudioCompressionType", "");
    if (codec == "MP3") {
        config.AudioCompressionType = kEncodeMP3;
    } else if (codec == "AAC") {
        config.AudioCompressionType = kEncodeAAC;
    } else if (codec == "G711_u") {
        config.AudioCompressionType = kEncodeG711U;
    }
    config.BroadcastMode = response.get_int_v(p + "BroadcastMode", -1);
    config.SamplingRate = response.get_v(p + "SamplingRate", "");
    config.BitRate = response.get_v(p + "BitRate", "");
    config.IsPromptToneActivated = response.get_bool_v(p + "IsPromptToneActivated", false);
    config.PromptToneMediaID = response.get_int_v(p + "PromptToneMediaID", -1);
    config.PromptToneDuration = response.get_int_v(p + "PromptToneDuration", -1);
    config.IsTTSDelayedPlayActivated = response.get_bool_v(p + "IsTTSDelayedPlayActivated", false);
    config.IsMediaDelayedPlayActivated = response.get_bool_v(p + "IsMediaDelayedPlayActivated", false);
    config.TTSPlayDelayedTime = response.get_int_v(p + "TTSPlayDelayedTime", -1);
    return true;
}

bool CBroadcastSession::GetLocalCloudStorageConfig(LocalCloudStorageConfig& config) {
    const Request request{"GET", kPathStorageConfig, std::string(), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get local cloud storage config error. error code: [%d][%d][%s(%d)]",
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get local storage info: %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const std::string p = "/ResponseStatus/Data/StorageConfig/";
    config.EnableHttps = response.get_int_v(p + "EnableHttps", 0) == 1;
    const bool enableWan = response.get_int_v(p + "EnableWan", 0) == 1;

    auto* user = BusinessCommon::CUserCommonManager::Instance();
    std::string domain;
    user->GetClientDomain(domain);
    if (domain == "WAN" && !enableWan) {
        SetLastError(ErrorCode(kSubSystemClient, kModuleBroadcast, kErrorWanPortClosed));
        BCAST_LOG(5, "[%s]Client domain is on \"WAN\", but but the platform has not opened the wan port.[%s(%d)]");
        return false;
    }
    const std::string infix = domain == "WAN" ? "Wan" : "";

    const std::string accessKey = response.get_v(p + "AccessKey", "");
    const std::string secretKey = response.get_v(p + "SecretKey", "");
    const int secureType = response.get_int_v(p + "SecureEncryptType", -1);
    config.AccessKey.clear();
    config.SecretKey.clear();
    if (secureType == 0 || secureType == -1) {
        user->Decryption(config.AccessKey, accessKey, true);
        user->Decryption(config.SecretKey, secretKey, true);
    } else if (secureType == 1) {
        user->SensitiveInforDecryption(config.AccessKey, accessKey, false);
        user->SensitiveInforDecryption(config.SecretKey, secretKey, false);
    } else {
        BCAST_LOG(5, "[%s]Secure type is error.[%s(%d)]");
    }

    std::string address;
    int port = 0;
    std::string userName;
    if (user->GetLoginInfo(address, port, userName)) {
        config.ServerIp = address;
    } else {
        config.ServerIp = response.get_v(p + infix + "ServerIp", "");
    }
    if (!config.EnableHttps) {
        BCAST_LOG(3, "[%s]Enable http model to upload or download file to server local storage.[%s(%d)]");
        config.ObjectUploadPort = response.get_int_v(p + infix + "ObjectUploadPort", -1);
        config.ObjectDownloadPort = response.get_int_v(p + infix + "ObjectDownloadPort", -1);
    } else {
        BCAST_LOG(3, "[%s]Enable https model to upload or download file to server local storage.[%s(%d)]");
        config.ObjectUploadPort = response.get_int_v(p + "Https" + infix + "ObjectUploadPort", -1);
        config.ObjectDownloadPort = response.get_int_v(p + "Https" + infix + "ObjectDownloadPort", -1);
    }
    config.PoolName = response.get_v(p + "PoolName", "");
    return true;
}

std::string CBroadcastSession::GetFilePoolName(int32_t storageServerID) {
    const Request request{"GET", kPathRecordServerDisk + std::to_string(storageServerID), std::string(), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get record server disk error. error code: [%d][%d][%s(%d)]", e.GetMainErrorCode(),
                      e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get file pool name response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return std::string();
    }
    const std::string p = "/ResponseStatus/Data/HDDList/";
    // "Count" is what the platform says it lists; only disks it really lists are looked at, so that a
    // wrong count cannot keep the loop going.
    const int count = std::min(response.get_int_v(p + "Count", 0), response.get_cnt(p + "HDD"));
    for (int i = 1; i <= count; ++i) {
        if (response.get_int_v(Item(p + "HDD", i) + "PoolType", -1) == 4) {
            return response.get_v(Item(p + "HDD", i) + "PoolName", "");
        }
    }
    return std::string();
}

bool CBroadcastSession::UploadBroadcastRecord(const BroadcastRecordInfo& record) {
    const std::string p = "/RealTimeBroadcastRecordsRequest/";
    CRapidJsonProto body;
    for (std::size_t i = 0; i < record.ElementIDs.size(); ++i) {
        body.set_v(p + "ElementList/Element[" + std::to_string(i + 1) + "]/ID", record.ElementIDs[i]);
    }
    body.set_v(p + "StartTime", record.StartTime);
    const std::size_t dot = record.FileName.rfind('.');
    body.set_v(p + "MediaFile/Name", dot == std::string::npos ? record.FileName : record.FileName.substr(0, dot));
    body.set_v(p + "MediaFile/format", record.Format);
    body.set_v(p + "MediaFile/size", static_cast<int>(record.Size / 1024));
    body.set_v(p + "MediaFile/StorageServerID", record.StorageServerID);
    body.set_v(p + "MediaFile/StorageType", record.StorageType);
    body.set_v(p + "MediaFile/StoreUrl", record.StoreUrl);
    body.set_v(p + "BroadcastMode", record.BroadcastMode);
    const Request request{"POST", kPathRecord, body.get_str(0), 0};
    BCAST_LOG(3, "[%s]upload broadcast record, request uri: %s, request body: %s.[%s(%d)]", request.path.c_str(),
              request.body.c_str());
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]send broadcast record error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        });
    return ok;
}

// POST RealTimeBroadcast/Records
// Request: {"RealTimeBroadcastRecordListRequest":{"SearchCriteria":{"ElementID":1001,
//   "StartTimeFrom":"2026-01-02 00:00:00","StartTimeTo":"2026-01-02 23:59:59"},"PageIndex":1,"PageSize":20}}
// Answer: {"ResponseStatus":{"ErrorModule":0,"ErrorCode":0,"CascadingErrorInfo":"","Data":{
//   "RealTimeBroadcastRecordList":{"RealTimeBroadcastRecord":[{"RecordID":1,"ElementList":{"Element":[
//   {"ID":1001,"Name":"Hall A"}]},"StartTime":"2026-01-02 10:00:00","MediaFile":{"Name":"talk-1001",
//   "format":"wav","size":24,"Bytes":24044,"StorageType":"pStorage","StorageServerID":501,
//   "StoreUrl":"http://127.0.0.1:18657/pool-records/talk-1001.wav"},"BroadcastMode":0,
//   "UserName":"operator","RegisterTime":"2026-11-24 10:18:40"}]},"TotalCount":1,"PageIndex":1}}}
// A criterion left at its default is not sent. An answer without the list, or with a record that has no
// integer RecordID, is malformed.
bool CBroadcastSession::GetBroadcastRecords(const BroadcastRecordQuery& query,
                                            std::vector<BroadcastRecordEntry>& records, int32_t* totalCount) {
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
    const Request request{"POST", kPathRecords, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get broadcast records error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) { LogInPieces(raw, false); });
    if (!ok) {
        const ErrorCode error = Tal::Base::Error::GetLastError();
        BCAST_LOG(5, "[%s]Get broadcast records failed. request json [%s]. error code: [%d][%d][%s(%d)]",
                  request.body.c_str(), error.GetMainErrorCode(), error.GetSubErrorCode());
        return false;
    }
    const std::string list = "/ResponseStatus/Data/RealTimeBroadcastRecordList/RealTimeBroadcastRecord";
    if (response.get_node_str(list).rfind('[', 0) != 0) {
        SetLastError(BadResponse(kSubSystemServer));
        BCAST_LOG(5, "[%s]Get broadcast records: the answer has no record list.[%s(%d)]");
        return false;
    }
    const int count = response.get_cnt(list);
    std::vector<BroadcastRecordEntry> read;
    for (int i = 1; i <= count; ++i) {
        const std::string r = Item(list, i);
        // Two defaults tell a missing or non-integer id from any integer one.
        if (response.get_int_v(r + "RecordID", -1) == -1 && response.get_int_v(r + "RecordID", -2) == -2) {
            SetLastError(BadResponse(kSubSystemServer));
            BCAST_LOG(5, "[%s]Get broadcast records: record %d has no RecordID.[%s(%d)]", i);
            return false;
        }
        BroadcastRecordEntry record;
        record.RecordID = response.get_int_v(r + "RecordID", -1);
        const std::string elements = r + "ElementList/Element";
        const int elementCount = response.get_cnt(elements);
        for (int j = 1; j <= elementCount; ++j) {
            BroadcastRecordElement element;
            element.ID = response.get_int_v(Item(elements, j) + "ID", -1);
            element.Name = response.get_v(Item(elements, j) + "Name", "");
            record.Elements.push_back(element);
        }
        record.StartTime = response.get_v(r + "StartTime", "");
        const std::string m = r + "MediaFile/";
        record.Name = response.get_v(m + "Name", "");
        record.Format = response.get_v(m + "format", "");
        record.Size = response.get_int_v(m + "size", -1);
        record.Bytes = response.get_int64_v(m + "Bytes", -1);
        // As media files: "pStorage" is a storage server, anything else the local cloud storage.
        record.StorageType =
            response.get_v(m + "StorageType", "") == "pStorage" ? kStorageTypeServer : kStorageTypeLocal;
        record.StorageServerID = response.get_int_v(m + "StorageServerID", -1);
        record.StoreUrl = response.get_v(m + "StoreUrl", "");
        record.BroadcastMode = response.get_int_v(r + "BroadcastMode", -1);
        record.UserName = response.get_v(r + "UserName", "");
        record.RegisterTime = response.get_v(r + "RegisterTime", "");
        read.push_back(record);
    }
    records.insert(records.end(), read.begin(), read.end());
    if (totalCount != nullptr) {
        *totalCount = response.get_int_v("/ResponseStatus/Data/TotalCount", count);
    }
    return true;
}

bool CBroadcastSession::NotifyServerBroadcastStatus(int32_t status, const std::string& resourceGuid,
                                                    const std::vector<std::string>& resourceIDs,
                                                    const ErrorCode& error) {
    std::string ids;
    for (std::size_t i = 0; i < resourceIDs.size(); ++i) {
        ids += (i == 0 ? "" : ",") + resourceIDs[i];
    }
    CRapidJsonProto body;
    body.set_v("/ResourceGuid", resourceGuid);
    body.set_v("/ResourceIDs", ids);
    body.set_v("/ResourceType", ResourceManager::kSourceTypeBroadcastElement);
    body.set_v("/Status", status);
    body.set_v("/ErrorModule", error.GetMainErrorCode());
    body.set_v("/ErrorCode", error.GetSubErrorCode());
    const Request request{"PUT", kPathUpdateStatus, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]update broadcast status error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        });
    return ok;
}

bool CBroadcastSession::StartBroadcastByTTS(const TTSRequestParam& tts, std::vector<TTSResponseError>& errors) {
    const std::string p = "/RealTimeBroadcastTTSRequest/";
    CRapidJsonProto body;
    for (std::size_t i = 0; i < tts.elementIDs.size(); ++i) {
        body.set_v(p + "ElementList/Element[" + std::to_string(i + 1) + "]/ID", tts.elementIDs[i]);
    }
    body.set_v(p + "PlayMode", tts.PlayMode);
    body.set_v(p + "AssignPlaybackDuration", tts.AssignPlaybackDuration);
    body.set_v(p + "CustomContent", tts.CustomContent);
    body.set_bool_v(p + "PlayType", tts.PlayType);
    body.set_v(p + "Language", tts.Language);
    const Request request{"POST", kPathTTS, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]start broadcast by tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/ErrorList";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        const std::string e = Item(list, i);
        TTSResponseError failed;
        failed.ElementID = response.get_int_v(e + "ElementID", -1);
        failed.ElementName = response.get_v(e + "ElementName", "");
        failed.Error = ErrorCode(kSubSystemServer, response.get_int_v(e + "ErrorModule", -1),
                                 response.get_int_v(e + "ErrorCode", -1));
        errors.push_back(failed);
    }
    return static_cast<std::size_t>(count) < tts.elementIDs.size();
}

bool CBroadcastSession::GetBroadCastTTSLanuage(const std::string& loginLanguage, TTSLanguageInfo& languages) {
    CRapidJsonProto body;
    body.set_v("/LogInLanguage", loginLanguage);
    const Request request{"GET", kPathLanguage, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]GetBroadCastTTSLanuage tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        });
    if (!ok) {
        return false;
    }
    const std::string list = "/ResponseStatus/Data/SupportLanguage";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        languages.Languages[response.get_v(Item(list, i) + "LanguageKey", "")] =
            response.get_v(Item(list, i) + "LanguageValue", "");
    }
    languages.DisplayLanguageKey = response.get_v("/ResponseStatus/Data/DisplayLanguageKey", "");
    languages.DisplayLanguageValue = response.get_v("/ResponseStatus/Data/DisplayLanguageValue", "");
    return true;
}

int32_t MapAdaptiveNetwork(int32_t networkMode) {
    switch (networkMode) {
        case 0:
        case 2:
        case 3:
        case 20:
            return networkMode;
        default:
            return 0;  // 4 (system default) folds onto 0 on purpose
    }
}

bool CBroadcastSession::GetBroadcastUrl(const std::vector<BroadcastUrlRequest>& requests,
                                        BroadcastUrlResult& result) {
    CRapidJsonProto body;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const std::string p = Item("/CommonUrlRequest", static_cast<int>(i + 1));
        body.set_v(p + "ResourceType", requests[i].ResourceType);
        body.set_v(p + "ResourceIDs", requests[i].ResourceIDs);
        body.set_v(p + "AudioSource", requests[i].AudioSource);
        body.set_v(p + "AdaptiveNetWork", MapAdaptiveNetwork(requests[i].NetworkMode));
        body.set_v(p + "IsPromptToneSupportedInFront", requests[i].IsPromptToneSupportedInFront ? 1 : 0);
    }
    CClientSendInfo send;
    send.SetVal_Method("GET");
    send.SetVal_URL(kPathUrlList);
    send.SetVal_Request_Data(body.get_str(0));
    CClientRecvInfo recv;
    if (!CNetCommManager::Instance()->ClientSynSend(recv, send, 0)) {
        const ErrorCode& transport = recv.GetVal_Error_code();
        BCAST_LOG(5, "[%s]GetBroadCastTTSLanuage tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  send.GetVal_Request_Data().c_str(), transport.GetMainErrorCode(), transport.GetSubErrorCode());
        result.Error = transport;
        return false;
    }
    const std::string& raw = recv.GetVal_Receive_Data();
    if (raw.empty()) {
        result.Error = BadResponse(kSubSystemClient);
        BCAST_LOG(5, "[%s]empty strRawData![%s(%d)]");
        return false;
    }
    if (!ParseBroadUrlRawData(result.Error, result.Urls, raw)) {
        BCAST_LOG(5, "[%s]ParseRawData failed, [SubSystem: %d],[MainError: %d],[SubError: %d][%s(%d)]",
                  result.Error.GetSubSystemErrorCode(), result.Error.GetMainErrorCode(),
                  result.Error.GetSubErrorCode());
        return false;
    }
    return true;
}

void ParseBroadcastUrl(const std::string& url, BroadcastUrlInfo& info, bool isVersion1) {
    if (url.empty()) {
        return;
    }
    // The method sits between "[" and ":" in the form the server sends ("[sms:...]rtsp://..."). The length
    // is the colon's position minus one, which is the method's length only when "[" comes first.
    const std::size_t bracket = url.find('[');
    const std::size_t colon = url.find(':');
    std::string method;
    const std::size_t start = bracket == std::string::npos ? 0 : bracket + 1;
    if (colon != std::string::npos && colon >= 1 && start <= url.size()) {
        method = url.substr(start, colon - 1);
    } else if (start <= url.size()) {
        method = url.substr(start);
    }
    std::transform(method.begin(), method.end(), method.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (method == "sms") {
        info.Method = isVersion1 ? kMethodStreamingV1 : kMethodStreaming;
        info.Url = url;
    } else if (method == "sdk") {
        info.Method = kMethodDeviceSdk;
        info.Url = url;
    } else {
        BCAST_LOG(5, "[%s][CVoiceTalkBaseRequestImpl::ParseVoiceTalkUrl] Invalid Voice Talk Method %s[%s(%d)]",
                  method.c_str());
    }
}

bool ParseBroadUrlRawData(ErrorCode& error, std::vector<BroadcastUrlInfo>& urls, const std::string& rawData) {
    CRapidJsonProto response;
    if (!response.set_str(rawData)) {
        error = BadResponse(kSubSystemServer);
        return false;
    }
    error = ErrorCode(kSubSystemServer, response.get_int_v("/ResponseStatus/ErrorModule", -1),
                      response.get_int_v("/ResponseStatus/ErrorCode", -1));
    error.SetCasadingErrorInfo(response.get_v("/ResponseStatus/CascadingErrorInfo", ""));
    if (error.GetSubErrorCode() != 0) {
        return false;
    }
    auto* user = BusinessCommon::CUserCommonManager::Instance();
    const std::string list = "/ResponseStatus/Data/CommonUrlList/CommonUrl";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        const std::string p = Item(list, i);
        BroadcastUrlInfo info;
        const bool newMethod = response.get_int_v(p + "SecureEncryptType", -1) == 1;
        auto decrypt = [&](std::string& plain, const std::string& text) {
            return newMethod ? user->SensitiveInforDecryption(plain, text, false)
                             : user->Decryption(plain, text, false);
        };
        if (response.is_exist(p + "SMSToken") && response.get_int_v(p + "SMSToken/Enable", 0) == 1) {
            info.TokenEnabled = true;
            if (!decrypt(info.Token, response.get_v(p + "SMSToken/Token", ""))) {
                info.Token.clear();
                if (newMethod) {
                    BCAST_LOG(5, "[%s]Decrypt SMSToken password failed. using new decrypt method.[%s(%d)]");
                } else {
                    BCAST_LOG(5, "[%s]Decrypt SMSToken password failed. using old decrypt method.[%s(%d)]");
                }
            }
        }
        info.ResourceGuid = response.get_v(p + "ResourceGuid", "");
        const std::string address = response.get_v(p + "Url", "");
        BCAST_LOG(3, "[%s]Get broadcast play url:[%s], resource guid: %s[%s(%d)]", address.c_str(),
                  info.ResourceGuid.c_str());
        ParseBroadcastUrl(address, info, response.get_int_v(p + "SMSversion", -1) == 1);

        const std::string resources = p + "ResourceList";
        const int resourceCount = response.get_cnt(resources);
        for (int j = 1; j <= resourceCount; ++j) {
            const std::string q = Item(resources, j);
            const std::string d = q + "DevcieInfo/";
            BroadcastUrlResource resource;
            resource.ResourceType = response.get_int_v(p + "ResourceType", -1);
            resource.ID = response.get_int_v(q + "ID", -1);
            resource.DeviceIP = response.get_v(d + "DeviceIP", "");
            resource.DevicePort = response.get_int_v(d + "DevicePort", -1);
            resource.DeviceUserName = response.get_v(d + "DeviceUserName", "");
            const std::string password = response.get_v(d + "DevicePassword", "");
            resource.DeviceID = response.get_int_v(d + "DeviceID", -1);
            resource.DeviceType = response.get_int_v(d + "DeviceType", -1);
            resource.DeviceIndex = response.get_v(d + "Channelnfo/DeviceIndex", "");
            resource.DeviceResourceID = response.get_int_v(d + "Channelnfo/DeviceResourceID", -1);
            if (!password.empty() && !decrypt(resource.DevicePassword, password)) {
                resource.DevicePassword.clear();
                if (newMethod) {
                    BCAST_LOG(5, "[%s]Decrypt device password failed. using new decrypt method.[%s(%d)]");
                } else {
                    BCAST_LOG(5, "[%s]Decrypt device password failed. using old decrypt method.[%s(%d)]");
                }
            }
            info.Resources.push_back(resource);

            if (resource.DeviceID != -1) {
                ResourceManager::CLoginParam login;
                login.SetVal_enumLoginMode(0);
                login.SetVal_strLoginAddress(resource.DeviceIP);
                login.SetVal_uLoginPort(static_cast<uint16_t>(resource.DevicePort));
                login.SetVal_strUserName(resource.DeviceUserName);
                login.SetVal_strUserPwd(resource.DevicePassword);
                login.SetVal_strLoginServerID("");
                if (auto device = ResourceManager::CDeviceManager::Instance()->FindDeviceByID(resource.DeviceID)) {
                    device->SetIPModeLoginParam(login);
                }
            }
        }
        urls.push_back(info);
    }
    return true;
}

static bool SendPromptTone(const std::string& path, const std::vector<std::string>& guids, bool start) {
    CRapidJsonProto body;
    for (std::size_t i = 0; i < guids.size(); ++i) {
        body.set_v("/Request/ResourceGuids[" + std::to_string(i + 1) + "]", guids[i]);
    }
    const Request request{"POST", path, body.get_str(0), 0};
    CRapidJsonProto response;
    const bool ok = Exchange(
        request, response,
        [&](const ErrorCode& e) {
            if (start) {
                BCAST_LOG(5,
                          "[%s]StartPromptVoice:/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/StartPromptTone. "
                          "request json [%s]. error code: [%d][%d][%s(%d)]",
                          request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
            } else {
                BCAST_LOG(5,
                          "[%s]StopPromptVoice:/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/StopPromptTone. "
                          "request json [%s]. error code: [%d][%d][%s(%d)]",
                          request.body.c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
            }
        });
    return ok;
}

bool CBroadcastSession::StartPromptVoice(const std::vector<std::string>& resourceGuids) {
    return SendPromptTone(kPathStartPrompt, resourceGuids, true);
}

bool CBroadcastSession::StopPromptVoice(const std::vector<std::string>& resourceGuids) {
    return SendPromptTone(kPathStopPrompt, resourceGuids, false);
}

}  // namespace BroadCastPlugin
