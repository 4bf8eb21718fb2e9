#pragma once
// Recording of the live talk to a local WAV file, fed with the captured PCM.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "framework/media/pcmstorage/PCMStorage.h"

namespace BroadCastPlugin {

class CVoiceRecord {
public:
    CVoiceRecord();
    /// Takes the storage object to write with (null: recording is refused).
    explicit CVoiceRecord(std::unique_ptr<Tal::MultimediaComm::CPCMStorage> storage);

    /// Starts recording to `path`; `audioType` is the capture's encode type. Returns the storage's result.
    bool StartRecord(const std::string& path, int audioType);
    /// Completes the file when a recording runs.
    void StopRecord();
    /// Captured PCM; dropped when no recording runs.
    void InputData(const uint8_t* data, int size);
    /// Path of the recording started last, empty when it failed to start.
    std::string RecordFilePath() const;
    /// Forgets the path of the last recording (the file stays).
    void ClearRecordFilePath();

private:
    std::unique_ptr<Tal::MultimediaComm::CPCMStorage> storage_;
    std::string recordFilePath_;
    mutable std::mutex pathMutex_;
};

}  // namespace BroadCastPlugin
