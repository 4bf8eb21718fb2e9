#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"

#include <sstream>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/base/FileSystem.h"
#include "framework/base/Singleton.h"
#include "framework/business/AccessWayManager.h"

namespace BroadCastPlugin {

using CloudStorage::CObjectClient;
using CloudStorage::SStorageServerConfig;
using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

namespace {

/// Module of the storage client's own error codes.
constexpr int kModuleObjectClient = 60;
/// Storage server device type of the device-access routing.
constexpr int kDeviceTypeStorageServer = 2;
constexpr int kAccessByDeviceIp = 0;
constexpr int kAccessByPath = 1;

std::vector<int32_t> ParseElementIDs(const std::string& joined) {
    std::vector<int32_t> ids;
    std::stringstream in(joined);
    std::string item;
    while (std::getline(in, item, ',')) {
        try {
            std::size_t used = 0;
            const int value = std::stoi(item, &used);
            if (item.find_first_not_of(" \t", used) == std::string::npos) {
                ids.push_back(value);
            }
        } catch (const std::exception&) {
            // not a number: not an element
        }
    }
    return ids;
}

std::string AfterLast(const std::string& text, char separator) {
    const std::size_t at = text.find_last_of(separator);
    return at == std::string::npos ? std::string() : text.substr(at + 1);
}

std::string BaseName(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// A client that does not start: logged with its configuration, and the client's own code replaced by
// `userCode`, one the user interface has a message for.
void FailClientStart(const CObjectClient& client, const SStorageServerConfig& config, int storageType,
                     int storageServerID, int userCode) {
    int code = 0;
    std::string message;
    client.GetLastError(code, message);
    BCAST_LOG(
        5,
        "[%s]CObjectClient Init failed! storage type: %d, id: %d, ip: [%s], download port: %d, upload port: "
        "%d, pool name: [%s], error code: [%d],msg:[%s][%s(%d)]",
        storageType, storageServerID, config.ServerIp.c_str(), config.DownloadPort, config.UploadPort,
        config.PoolName.c_str(), code, message.c_str());
    SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleBroadcast, userCode));
    BCAST_LOG(5, "[%s]Reset error code to: %d, in order to give tips to user.[%s(%d)]", userCode);
}

// A failed transfer keeps the client's own code (module 60) as the thread's last error.
void SetClientError(const CObjectClient& client, int& code, std::string& message) {
    client.GetLastError(code, message);
    SetLastError(ErrorCode(kModuleObjectClient, code));
}

// Logs a long download's progress in quarters.
CObjectClient::ProgressCallback QuarterProgressLog(const std::string& url) {
    auto logged = std::make_shared<int>(0);
    return [url, logged](uint64_t done, uint64_t total) {
        if (total == 0) {
            return;
        }
        const int quarter = static_cast<int>(done * 4 / total);
        if (quarter > *logged && quarter < 4) {
            *logged = quarter;
            BCAST_LOG(3, "[%s]Download %s: %d%%.[%s(%d)]", url.c_str(), quarter * 25);
        }
    };
}

}  // namespace

CMediaFileManager* CMediaFileManager::Instance() {
    return Tal::Base::CSingleton<CMediaFileManager>::Instance();
}

bool CMediaFileManager::DownloadAllMediaDirectorys() {
    std::vector<MediaDirectory> directories;
    if (!CBroadcastSession::GetMediaDirectorys(-1, directories)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    directories_ = std::move(directories);
    return true;
}

bool CMediaFileManager::DownloadAllMediaFiles() {
    std::vector<MediaFile> files;
    return SearchMediaFiles(std::string(), files);
}

bool CMediaFileManager::SearchMediaFiles(const std::string& filter, std::vector<MediaFile>& files) {
    files.clear();
    // Directory -1: every directory.
    if (!CBroadcastSession::GetMediaFiles(-1, filter, files)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (const MediaFile& file : files) {
        if (file.ID != -1) {
            files_[file.ID] = file;
        }
    }
    return true;
}

std::vector<MediaDirectory> CMediaFileManager::GetMediaDirectories() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return directories_;
}

std::vector<MediaFile> CMediaFileManager::GetMediaFiles() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<MediaFile> all;
    for (const auto& entry : files_) {
        all.push_back(entry.second);
    }
    return all;
}

MediaDownloadProgress CMediaFileManager::GetDownloadProgress() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return download_;
}

bool CMediaFileManager::DownloadMediaFileToLocal(std::string& localPath, int32_t fileID) {
    MediaFile file;
    if (!GetMediaFile(fileID, file)) {
        if (!CBroadcastSession::GetMediaFileByID(fileID, file)) {
            const ErrorCode error = GetLastError();
            BCAST_LOG(5, "[%s]DownloadShoutFile failed. file_id: %u. error code [%d][%d][%s(%d)]",
                      static_cast<unsigned>(fileID), error.GetMainErrorCode(), error.GetSubErrorCode());
            return false;
        }
        UpdateMediaFile(file);
    }
    localPath = file.LocalPath;
    if (Tal::Base::FileSystem::FileExists(localPath)) {
        BCAST_LOG(3, "[%s]Get download file path: %s.[%s(%d)]", localPath.c_str());
        return true;
    }
    SStorageServerConfig config;
    if (!GetSStorageServerConfig(config, file.StorageServerID, file.StorageType)) {
        BCAST_LOG(5, "[%s]Get storage server config failed.[%s(%d)]");
        return false;
    }
    CObjectClient client(config);
    if (!client.Init()) {
        FailClientStart(client, config, file.StorageType, file.StorageServerID, kErrorDownloadClientStart);
        return false;
    }
    BCAST_LOG(
        3,
        "[%s]CObjectClient Init Success! StorageServerConfig IP: [%s], download port: [%ld], upload port: "
        "[%ld], pool name: %s.[%s(%d)]",
        config.ServerIp.c_str(), static_cast<long>(config.DownloadPort), static_cast<long>(config.UploadPort),
        config.PoolName.c_str());
    BCAST_LOG(3, "[%s]Start download file, url: %s, save path: %s[%s(%d)]", file.StoreUrl.c_str(),
              localPath.c_str());
    CObjectClient::ProgressCallback log = QuarterProgressLog(file.StoreUrl);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        download_ = MediaDownloadProgress{fileID, 0, 0};
    }
    client.SetProgressCallback([this, log, fileID](uint64_t done, uint64_t total) {
        log(done, total);
        std::lock_guard<std::mutex> lock(mutex_);
        download_ = MediaDownloadProgress{fileID, done, total};
    });
    // Whatever the outcome, no download runs any more once this returns.
    struct ProgressReset {
        CMediaFileManager* self;
        ~ProgressReset() {
            std::lock_guard<std::mutex> lock(self->mutex_);
            self->download_ = MediaDownloadProgress();
        }
    } reset{this};
    // The client writes beside the file and renames it when complete: a failure leaves nothing behind.
    if (client.DownloadFile(file.StoreUrl, localPath)) {
        BCAST_LOG(3, "[%s]download file Succ, url: %s, save path: %s[%s(%d)]", file.StoreUrl.c_str(),
                  localPath.c_str());
        return true;
    }
    int code = 0;
    std::string message;
    SetClientError(client, code, message);
    BCAST_LOG(5, "[%s]DownloadFile failed!,error code: [%d],msg:[%s],local_path:[%s][%s(%d)]", code,
              message.c_str(), localPath.c_str());
    return false;
}

bool CMediaFileManager::GetSStorageServerConfig(SStorageServerConfig& config, int32_t storageServerID,
                                                int32_t storageType) {
    if (storageType == kStorageLocalCloud) {
        LocalCloudStorageConfig local;
        if (!CBroadcastSession::GetLocalCloudStorageConfig(local)) {
            return false;
        }
        config.EnableHttps = local.EnableHttps;
        config.UploadPort = local.ObjectUploadPort;
        config.DownloadPort = local.ObjectDownloadPort;
        config.PoolName = local.PoolName;
        config.ServerIp = local.ServerIp;
        config.AccessKey = local.AccessKey;
        config.SecretKey = local.SecretKey;
        return true;
    }
    if (storageType != kStorageServer) {
        BCAST_LOG(5, "[%s]intput storage_type is: %d, cannot support.[%s(%d)]", storageType);
        return false;
    }
    AccessWayManager::CDeviceAccessRouteParam route;
    route.SetValid_site(0);
    route.SetValdevice_id_(storageServerID);
    route.SetValdevice_type_(kDeviceTypeStorageServer);
    AccessWayManager::CCmsDeviceAccessPage page;
    if (!AccessWayManager::QueryDeviceAccessWay(page, route)) {
        const ErrorCode& error = page.GetValerror_code();
        BCAST_LOG(5, "[%s]QueryDeviceAccessWay failed, device id:%d ,error code: [%d][%d][%s(%d)]",
                  route.GetValdevice_id_(), error.GetMainErrorCode(), error.GetSubErrorCode());
        SetLastError(error);
        return false;
    }
    if (page.GetValaccess_type_() == kAccessByPath) {
        config.EnableHttps = page.GetValprotocal_type() == "https";
        config.ServerIp = page.GetValaccess_path_();
    } else if (page.GetValaccess_type_() == kAccessByDeviceIp) {
        config.EnableHttps = false;
        config.ServerIp = page.GetValdevice_ip();
    } else {
        BCAST_LOG(5, "[%s]Access type is not support. type: %d., device id: %d[%s(%d)]",
                  page.GetValaccess_type_(), storageServerID);
        return false;
    }
    config.AccessKey = page.GetValaccess_key();
    config.SecretKey = page.GetValsecret_key();
    // A storage server has one object port for both directions.
    config.UploadPort = page.GetValobject_port();
    config.DownloadPort = page.GetValobject_port();
    config.PoolName = CBroadcastSession::GetFilePoolName(storageServerID);
    BCAST_LOG(
        3,
        "[%s]Get  pstor config param. downlod port: %ld, upload port: %ld, pool name: %s, server_ip_: %s, "
        "enable https:%d, device id:%d.[%s(%d)]",
        static_cast<long>(config.DownloadPort), static_cast<long>(config.UploadPort), config.PoolName.c_str(),
        config.ServerIp.c_str(), config.EnableHttps ? 1 : 0, storageServerID);
    return true;
}

bool CMediaFileManager::UploadRecordFile(const RecordTaskParam& param) {
    const BroadcastBaseConfig config = CIPSpeakerConfigManager::Instance()->GetConfig();
    RecordStorage storage;
    storage.RecordStorageType = config.RecordStorageType;
    storage.RecordStorageServerID = config.RecordStorageServerID;
    storage.RecordPoolID = config.RecordPoolID;
    return UploadRecordFile(ParseElementIDs(param.recordDevice), param.recordFilePath, param.recordStartTime,
                            param.mode, storage);
}

bool CMediaFileManager::UploadRecordFile(const std::vector<int32_t>& elementIDs,
                                         const std::string& localFilePath, const std::string& startTime,
                                         int32_t broadcastMode, const RecordStorage& storage) {
    BCAST_LOG(3, "[%s]Upload Record File:[%s], start time: %s, element id size: %d[%s(%d)]",
              localFilePath.c_str(), startTime.c_str(), static_cast<int>(elementIDs.size()));
    if (elementIDs.empty() || localFilePath.empty()) {
        BCAST_LOG(4, "[%s]No speakers or no recording: nothing to upload.[%s(%d)]");
        SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework,
                               Tal::Base::Error::kCodeInvalidInput));
        return false;
    }
    SStorageServerConfig config;
    if (!GetSStorageServerConfig(config, storage.RecordStorageServerID, storage.RecordStorageType)) {
        BCAST_LOG(5, "[%s]Get storage server config failed.[%s(%d)]");
        return false;
    }
    config.PoolName = storage.RecordPoolID;
    CObjectClient client(config);
    if (!client.Init()) {
        FailClientStart(client, config, storage.RecordStorageType, storage.RecordStorageServerID,
                        kErrorUploadClientStart);
        return false;
    }
    std::string url;
    if (!client.UploadFile(url, localFilePath)) {
        int code = 0;
        std::string message;
        SetClientError(client, code, message);
        BCAST_LOG(5, "[%s]UploadFile failed! error_code:[%d],error_msg:[%s][%s(%d)]", code, message.c_str());
        return false;
    }
    BroadcastRecordInfo record;
    record.ElementIDs = elementIDs;
    record.StartTime = startTime;
    record.StorageServerID = storage.RecordStorageServerID;
    record.StorageType = storage.RecordStorageType;
    record.StoreUrl = url;
    record.Format = AfterLast(localFilePath, '.');
    record.FileName = BaseName(localFilePath);
    record.Size = GetLocalFileSize(localFilePath);
    record.BroadcastMode = broadcastMode;
    if (!CBroadcastSession::UploadBroadcastRecord(record)) {
        BCAST_LOG(5, "[%s]Register broadcast record with the platform failed, url: %s.[%s(%d)]", url.c_str());
        return false;
    }
    return true;
}

bool CMediaFileManager::GetRecordPlayUrl(const BroadcastRecordEntry& record, int expirySeconds,
                                         std::string& url) {
    if (record.StorageType != kStorageLocalCloud && record.StorageType != kStorageServer) {
        BCAST_LOG(5, "[%s]Record %d: storage type %d is not supported.[%s(%d)]", record.RecordID,
                  record.StorageType);
        SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework,
                               Tal::Base::Error::kCodeInvalidInput));
        return false;
    }
    // Some refusals of GetSStorageServerConfig (an access type the module cannot use) only log: they leave
    // the error cleared here, and the play address then fails as a download from that storage would.
    SetLastError(ErrorCode());
    SStorageServerConfig config;
    if (!GetSStorageServerConfig(config, record.StorageServerID, record.StorageType)) {
        if (GetLastError().IsSucceed()) {
            SetLastError(
                ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleBroadcast, kErrorDownloadClientStart));
        }
        const ErrorCode error = GetLastError();
        BCAST_LOG(5,
                  "[%s]Get storage server config failed. record: %d, storage type: %d, id: %d, error code: "
                  "[%d][%d][%s(%d)]",
                  record.RecordID, record.StorageType, record.StorageServerID, error.GetMainErrorCode(),
                  error.GetSubErrorCode());
        return false;
    }
    CObjectClient client(config);
    std::string presigned;
    if (!client.PresignGetUrl(record.StoreUrl, expirySeconds, presigned)) {
        int code = 0;
        std::string message;
        SetClientError(client, code, message);
        BCAST_LOG(5, "[%s]Presign record %d failed! url: %s, error code: [%d],msg:[%s][%s(%d)]",
                  record.RecordID, record.StoreUrl.c_str(), code, message.c_str());
        return false;
    }
    url = presigned;
    BCAST_LOG(3, "[%s]Play address of record %d: %s for %d s.[%s(%d)]", record.RecordID,
              record.StoreUrl.c_str(), expirySeconds);
    return true;
}

bool CMediaFileManager::FindMediaFileByPath(const std::string& path, MediaFile& file) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& entry : files_) {
        if (!path.empty() && entry.second.LocalPath == path) {
            file = entry.second;
            return true;
        }
    }
    return false;
}

bool CMediaFileManager::UpdateMediaRecord(const RecordTaskParam& param) {
    BroadcastRecordInfo record;
    record.ElementIDs = ParseElementIDs(param.recordDevice);
    record.StartTime = param.recordStartTime;
    MediaFile file;
    const bool known = (param.mediaFileID != -1 && GetMediaFile(param.mediaFileID, file)) ||
                       FindMediaFileByPath(param.recordFilePath, file);
    if (!known) {
        BCAST_LOG(5, "[%s]Get media file by file path failed. path: %s[%s(%d)]",
                  param.recordFilePath.c_str());
        SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework,
                               Tal::Base::Error::kCodeResourceNotFound));
        return false;
    }
    record.FileName = file.Name + "." + file.Format;
    record.Format = file.Format;
    // The size the platform knows in kilobytes, unless the local copy tells it exactly.
    const uint32_t localSize = GetLocalFileSize(file.LocalPath);
    record.Size = localSize != 0 ? localSize : static_cast<uint32_t>(file.Size) * 1024u;
    record.StorageType = file.StorageType;
    record.StorageServerID = file.StorageServerID;
    record.StoreUrl = file.StoreUrl;
    record.BroadcastMode = param.mode;
    return CBroadcastSession::UploadBroadcastRecord(record);
}

uint32_t CMediaFileManager::GetLocalFileSize(const std::string& path) {
    const int handle = Tal::Base::FileSystem::OpenFile(path, Tal::Base::FileSystem::kOpenRead, 4096);
    Tal::Base::FileSystem::FileInfo info;
    if (handle == -1 || !Tal::Base::FileSystem::FileStat(handle, &info)) {
        BCAST_LOG(5, "[%s]Get local file size failed. file: %s[%s(%d)]", path.c_str());
        info.size = 0;
    }
    if (handle != -1) {
        Tal::Base::FileSystem::CloseFile(handle);
    }
    return static_cast<uint32_t>(info.size);
}

bool CMediaFileManager::UpdateMediaFile(const MediaFile& file) {
    if (file.ID == -1) {
        BCAST_LOG(5, "[%s]Invalid media file id.[%s(%d)]");
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    files_[file.ID] = file;
    return true;
}

bool CMediaFileManager::GetMediaFile(int32_t fileID, MediaFile& file) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = files_.find(fileID);
    if (it == files_.end()) {
        return false;
    }
    file = it->second;
    return true;
}

void CMediaFileManager::ClearCache() {
    std::lock_guard<std::mutex> lock(mutex_);
    files_.clear();
    directories_.clear();
}

}  // namespace BroadCastPlugin
