#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"

#include "BroadCastPlugin/BroadcastConstants.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
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
    directories_.clear();
}

}  // namespace BroadCastPlugin
