#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"

#include "BroadCastPlugin/BroadcastLog.h"

namespace BroadCastPlugin {

CVoiceRecord::CVoiceRecord() : storage_(std::make_unique<Tal::MultimediaComm::CPCMStorage>()) {}

CVoiceRecord::CVoiceRecord(std::unique_ptr<Tal::MultimediaComm::CPCMStorage> storage)
    : storage_(std::move(storage)) {}

bool CVoiceRecord::StartRecord(const std::string& path, int audioType) {
    BCAST_LOG(3, "[%s]Start to record file to save: %s, audio type:%d.[%s(%d)]", path.c_str(), audioType);
    if (!storage_) {
        BCAST_LOG(5, "[%s]pcm storage is nullptr, cannot to start to storage.[%s(%d)]");
        return false;
    }
    bool started = storage_->StartStorage(path, audioType);
    std::lock_guard<std::mutex> lock(pathMutex_);
    recordFilePath_ = started ? path : std::string();
    return started;
}

void CVoiceRecord::StopRecord() {
    if (storage_ && storage_->IsStorage()) {
        storage_->StopStorage();
    }
}

void CVoiceRecord::InputData(const uint8_t* data, int size) {
    if (storage_ && storage_->IsStorage() && data != nullptr && size > 0) {
        storage_->InputData(data, static_cast<uint32_t>(size));
    }
}

std::string CVoiceRecord::RecordFilePath() const {
    std::lock_guard<std::mutex> lock(pathMutex_);
    return recordFilePath_;
}

void CVoiceRecord::ClearRecordFilePath() {
    std::lock_guard<std::mutex> lock(pathMutex_);
    recordFilePath_.clear();
}

}  // namespace BroadCastPlugin
