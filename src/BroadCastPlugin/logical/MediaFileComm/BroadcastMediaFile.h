#pragma once
// Media files of the platform: the local cache of media records and the transfers between the local audio
// cache and the platform's storage (the local cloud storage or a storage server).

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"
#include "framework/media/objectclient/ObjectClient.h"

namespace BroadCastPlugin {

/// Storage types of media files and recordings.
enum StorageType { kStorageLocalCloud = 0, kStorageServer = 1 };

/// Where recordings go: the recording storage of the broadcast configuration.
struct RecordStorage {
    int32_t RecordStorageType = kStorageLocalCloud;
    int32_t RecordStorageServerID = -1;
    std::string RecordPoolID;
};

/// How far the download of a media file has come, for a progress display.
struct MediaDownloadProgress {
    int32_t fileID = -1;  ///< -1 when no download runs
    uint64_t done = 0;    ///< bytes received
    uint64_t total = 0;   ///< bytes expected; 0 while unknown
};

class CMediaFileManager {
public:
    static CMediaFileManager* Instance();

    /// Fetches the whole directory tree; a failure keeps the previous one.
    bool DownloadAllMediaDirectorys();
    /// Fetches every media file record into the cache.
    bool DownloadAllMediaFiles();
    /// Media files whose name matches the filter text, as the platform searches them; found records are
    /// cached.
    bool SearchMediaFiles(const std::string& filter, std::vector<MediaFile>& files);
    std::vector<MediaDirectory> GetMediaDirectories() const;
    std::vector<MediaFile> GetMediaFiles() const;

    /// Makes a complete local copy of a media file in the audio cache; a file already there is not fetched
    /// again. On failure no partial file is left.
    bool DownloadMediaFileToLocal(std::string& localPath, int32_t fileID);
    /// The download in progress (the worker runs one at a time).
    MediaDownloadProgress GetDownloadProgress() const;
    /// Uploads a live talk's recording (`param`: the speakers, the file, the start time) to the recording
    /// storage of the broadcast configuration and registers it with the platform. The local file stays.
    bool UploadRecordFile(const RecordTaskParam& param);
    bool UploadRecordFile(const std::vector<int32_t>& elementIDs, const std::string& localFilePath,
                          const std::string& startTime, int32_t broadcastMode, const RecordStorage& storage);
    /// Registers a played media file as the broadcast's record: the media record is the one of
    /// `param.mediaFileID`, or else the one whose local copy is `param.recordFilePath`.
    bool UpdateMediaRecord(const RecordTaskParam& param);

    /// An address a browser plays the recording from: the record's StoreUrl presigned (GET, valid for
    /// `expirySeconds`, 1..604800) on the address and download port of the record's storage, reached as a
    /// download reaches it. No request goes to the store. On failure the thread's last error says why (module
    /// 60: the object client's code).
    bool GetRecordPlayUrl(const BroadcastRecordEntry& record, int expirySeconds, std::string& url);

    /// Stores a record in the cache, replacing the one with the same id; a record with id -1 is refused.
    bool UpdateMediaFile(const MediaFile& file);
    /// Copies the cached record out; false when the id is not cached.
    bool GetMediaFile(int32_t fileID, MediaFile& file) const;
    void ClearCache();

    /// How to reach a storage: type 0 the platform's local cloud storage, type 1 the storage server
    /// `storageServerID` through the framework's device-access routing.
    bool GetSStorageServerConfig(CloudStorage::SStorageServerConfig& config, int32_t storageServerID,
                                 int32_t storageType);
    /// Byte size of a local file (0 when it cannot be examined).
    static uint32_t GetLocalFileSize(const std::string& path);

private:
    bool FindMediaFileByPath(const std::string& path, MediaFile& file) const;

    mutable std::mutex mutex_;
    std::map<int32_t, MediaFile> files_;
    std::vector<MediaDirectory> directories_;
    MediaDownloadProgress download_;
};

}  // namespace BroadCastPlugin
