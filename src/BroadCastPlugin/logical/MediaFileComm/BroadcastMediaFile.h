#pragma once
// Media files of the platform: the local cache of media records and the transfers between the local audio
// cache and the platform's storage.

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"

namespace BroadCastPlugin {

class CMediaFileManager {
public:
    static CMediaFileManager* Instance();

    bool DownloadAllMediaDirectorys();
    bool DownloadAllMediaFiles();
    /// Media files whose name contains the filter text.
    bool SearchMediaFiles(const std::string& filter, std::vector<MediaFile>& files);
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
};

}  // namespace BroadCastPlugin
