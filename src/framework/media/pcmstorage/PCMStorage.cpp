#include "framework/media/pcmstorage/PCMStorage.h"

#include <cstdio>

#include <unistd.h>

#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/media/mediakit/WavFile.h"

namespace Tal {
namespace MultimediaComm {

namespace FS = Tal::Base::FileSystem;

namespace {

constexpr uint32_t kHeaderBytes = Tal::MediaKit::kWavHeaderBytes;
// The RIFF sizes are 32-bit: stop taking data before they overflow.
constexpr uint64_t kMaxDataBytes = 0xFFFFFFFFull - kHeaderBytes;

}  // namespace

CPCMStorage::~CPCMStorage() {
    StopStorage();
}

int CPCMStorage::SampleRateOfAudioType(int audioType) {
    switch (audioType) {
        case 0:
        case 5:
        case 7:
            return 16000;
        case 1:
        case 2:
        case 6:
        case 8:
            return 8000;
        case 15:
            return 48000;
        default:
            return 0;
    }
}

bool CPCMStorage::StartStorage(const std::string& path, int audioType) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ >= 0) {
        TAL_LOG(5, "PCMStorage", "[%s]A recording to %s is running already.[%s(%d)]", path_.c_str());
        return false;
    }
    int rate = SampleRateOfAudioType(audioType);
    if (path.empty() || rate == 0) {
        TAL_LOG(5, "PCMStorage", "[%s]Cannot record to \"%s\" with audio type %d.[%s(%d)]", path.c_str(),
                audioType);
        return false;
    }
    std::string partPath = path + ".part";
    int file = FS::OpenFile(partPath, FS::kOpenWrite);
    uint8_t gap[kHeaderBytes] = {};  // zeros until the header is known: not a WAV file yet
    if (file < 0 || !FS::WriteFile(file, gap, kHeaderBytes)) {
        TAL_LOG(5, "PCMStorage", "[%s]Cannot create record file %s.[%s(%d)]", partPath.c_str());
        FS::CloseFile(file);
        FS::DeleteFileW(partPath);
        return false;
    }
    file_ = file;
    full_ = false;
    path_ = path;
    partPath_ = partPath;
    sampleRate_ = rate;
    dataBytes_ = 0;
    return true;
}

bool CPCMStorage::IsStorage() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return file_ >= 0;
}

bool CPCMStorage::InputData(const uint8_t* data, uint32_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ < 0 || full_ || (data == nullptr && size > 0)) {
        return false;
    }
    if (dataBytes_ + size > kMaxDataBytes) {
        TAL_LOG(4, "PCMStorage", "[%s]Record file %s is full, data dropped.[%s(%d)]", path_.c_str());
        return false;
    }
    if (!FS::WriteFile(file_, data, size)) {
        // A full disk: the recording keeps what was written before, without the part of this write that
        // may have gone out (shrinking a file needs no space), and the stop completes it.
        TAL_LOG(4, "PCMStorage", "[%s]Record file %s is full, data dropped.[%s(%d)]", path_.c_str());
        full_ = true;
        if (::ftruncate(file_, static_cast<off_t>(kHeaderBytes + dataBytes_)) != 0 ||
            !FS::FileSeek(file_, static_cast<int64_t>(kHeaderBytes + dataBytes_), FS::kSeekBegin)) {
            TAL_LOG(5, "PCMStorage", "[%s]Write record file %s failed, recording abandoned.[%s(%d)]",
                    partPath_.c_str());
            AbandonLocked();
        }
        return false;
    }
    dataBytes_ += size;
    return true;
}

bool CPCMStorage::StopStorage() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ < 0) {
        return false;
    }
    // A sample cut in half at the end is not sound: it is left out of the data size.
    uint64_t dataBytes = dataBytes_ & ~uint64_t{1};
    // Mono, 16 bits, the canonical 44 bytes.
    const auto header = Tal::MediaKit::CanonicalWavHeader(sampleRate_, 1, static_cast<uint32_t>(dataBytes));
    bool ok = FS::FileSeek(file_, 0, FS::kSeekBegin) && FS::WriteFile(file_, header.data(), kHeaderBytes) &&
              ::fsync(file_) == 0;
    if (!ok) {
        TAL_LOG(5, "PCMStorage", "[%s]Write record file header %s failed, recording abandoned.[%s(%d)]",
                partPath_.c_str());
        AbandonLocked();
        return false;
    }
    FS::CloseFile(file_);
    file_ = -1;
    if (std::rename(partPath_.c_str(), path_.c_str()) != 0) {
        TAL_LOG(5, "PCMStorage", "[%s]Move record file %s to %s failed.[%s(%d)]", partPath_.c_str(),
                path_.c_str());
        FS::DeleteFileW(partPath_);
        return false;
    }
    return true;
}

void CPCMStorage::AbandonLocked() {
    FS::CloseFile(file_);
    file_ = -1;
    FS::DeleteFileW(partPath_);
}

}  // namespace MultimediaComm
}  // namespace Tal
