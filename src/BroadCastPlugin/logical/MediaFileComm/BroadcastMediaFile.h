#pragma once
// Media files of the platform: the local cache of media records and the transfers between the local audio
// cache and the platform's storage.

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

class CMediaFileManager {
public:
    static CMediaFileManager* Instance();

    /// Fetches the whole directory tree; a failure keeps the previous one.
    bool DownloadAllMediaDirectorys();
    /// Fetches every media file record into the cache.
    bool DownloadAllMediaFiles();
    /// Media files whose name matches the filter text, as the platform searches them; found records are cached.
    bool SearchMediaFiles(const std::string& filter, std::vector<MediaFile>& files);
    std::vector<MediaDirectory> GetMediaDirectories() const;
    std::vector<MediaFile> GetMediaFiles() const;
    bool DownloadMediaFileToLocal(std::string& localPath, int32_t fileID);
    bool UploadRecordFile(const RecordTaskParam& param);
    bool UpdateMediaRecord(const RecordTaskParam& param);

    /// Stores a record in the cache, replacing the one with the same id; a record with id -1 is refused.
    bool UpdateMediaFile(const MediaFile& file);
    /// Copies the cached record out; false when the id is not cached.
    bool GetMediaFile(int32_t fileID, MediaFile& file) const;
    void ClearCache();

private:
    mutable std::mutex mutex_;
    std::map<int32_t, MediaFile> files_;
    std::vector<MediaDirectory> directories_;
};

}  // namespace BroadCastPlugin
