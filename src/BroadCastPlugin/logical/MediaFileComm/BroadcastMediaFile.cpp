#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"

#include "BroadCastPlugin/BroadcastConstants.h"
#include "framework/base/Singleton.h"

namespace BroadCastPlugin {

namespace {
// Transfers with the platform's storage are not part of this build.
bool StorageNotAvailable(const char* what) {
    Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                             Tal::Base::Error::kModuleFramework,
                                             Tal::Base::Error::kCodeNotAvailable));
    BCAST_LOG(5, "[%s]%s is not available in this build.[%s(%d)]", what);
    return false;
}
}  // namespace

CMediaFileManager* CMediaFileManager::Instance() {
    return Tal::Base::CSingleton<CMediaFileManager>::Instance();
}

bool CMediaFileManager::DownloadAllMediaDirectorys() {
    return StorageNotAvailable("Media directory download");
}

bool CMediaFileManager::DownloadAllMediaFiles() {
    return StorageNotAvailable("Media file list download");
}

bool CMediaFileManager::SearchMediaFiles(const std::string& /*filter*/, std::vector<MediaFile>& files) {
    files.clear();
    return StorageNotAvailable("Media file search");
}

bool CMediaFileManager::DownloadMediaFileToLocal(std::string& localPath, int32_t /*fileID*/) {
    localPath.clear();
    return StorageNotAvailable("Media file download");
}

bool CMediaFileManager::UploadRecordFile(const RecordTaskParam& /*param*/) {
    return StorageNotAvailable("Record upload");
}

bool CMediaFileManager::UpdateMediaRecord(const RecordTaskParam& /*param*/) {
    return StorageNotAvailable("Media record registration");
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
}

}  // namespace BroadCastPlugin
