#pragma once
// Records mono 16-bit PCM into a WAV file. The file is written as "<path>.part" and moved to its name
// only once its header is complete, so a recording that failed or was cut off never looks finished.

#include <cstdint>
#include <mutex>
#include <string>

#include "framework/base/NonCopyable.h"

namespace Tal {
namespace MultimediaComm {

class CPCMStorage : private Base::CNonCopyable {
public:
    CPCMStorage() = default;
    /// Completes a recording still running.
    ~CPCMStorage();

    /// Starts a recording. `audioType` is the broadcast encode type the PCM was captured for, which
    /// fixes its sample rate (see SampleRateOfAudioType). False when a recording runs already, the type
    /// is unknown or the file cannot be created.
    bool StartStorage(const std::string& path, int audioType);
    bool IsStorage() const;
    /// Appends PCM bytes (whole samples). A failed write (a full disk) keeps what was written before it and
    /// drops later data: the stop completes the recording with that.
    bool InputData(const uint8_t* data, uint32_t size);
    /// Writes the header and puts the file in place; false when it could not be completed.
    bool StopStorage();

    /// 16000 Hz for encode types 0, 5 and 7, 8000 Hz for 1, 2, 6 and 8, 48000 Hz for 15; 0 otherwise.
    static int SampleRateOfAudioType(int audioType);

private:
    void AbandonLocked();

    mutable std::mutex mutex_;
    int file_ = -1;
    std::string path_;
    std::string partPath_;
    int sampleRate_ = 0;
    uint64_t dataBytes_ = 0;
    bool full_ = false;  ///< a write failed: later data is dropped
};

}  // namespace MultimediaComm
}  // namespace Tal
