#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"

#include <climits>
#include <cstring>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/ScopedFile.h"
#include "framework/base/FileSystem.h"

namespace BroadCastPlugin {

namespace FS = Tal::Base::FileSystem;

namespace {
constexpr int kID3V1Size = 128;
constexpr int kID3V2HeaderSize = 10;
}  // namespace

void WavHeader::Fill(const WavAudioInfo& info, int64_t fileSize) {
    uint16_t channels = static_cast<uint16_t>(info.channels);
    uint16_t blockAlign = static_cast<uint16_t>(channels * 2);
    std::memcpy(bytes, "RIFF", 4);
    PutU32(4, static_cast<uint32_t>(fileSize > 8 ? fileSize - 8 : 0));
    std::memcpy(bytes + 8, "WAVE", 4);
    std::memcpy(bytes + 12, "fmt ", 4);
    PutU32(16, 16);
    PutU16(20, 1);
    PutU16(22, channels);
    PutU32(24, static_cast<uint32_t>(info.sampleRate));
    PutU32(28, static_cast<uint32_t>(info.sampleRate) * blockAlign);
    PutU16(32, blockAlign);
    PutU16(34, 16);
    std::memcpy(bytes + 36, "data", 4);
    PutU32(40, static_cast<uint32_t>(fileSize > kSize ? fileSize - kSize : 0));
}

int CheckAudioFileType(const std::string& path) {
    CScopedFile file(path, FS::kOpenRead);
    if (!file.IsOpen()) {
        BCAST_LOG(5, "[%s]infile open error. file path: %s[%s(%d)]", path.c_str());
        return AudioFileUnknown;
    }
    uint8_t head[12] = {};  // a shorter file is tested on what was read, the rest stays zero
    uint32_t read = 0;
    if (!FS::ReadFile(file.Get(), head, sizeof(head), &read)) {
        return AudioFileUnknown;
    }
    if (std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0) {
        return AudioFileWAV;
    }
    if (std::memcmp(head, "fLaC", 4) == 0) {
        return AudioFileFLAC;
    }
    if (std::memcmp(head, "ID3", 3) == 0) {
        return AudioFileMP3;
    }
    if (head[0] == 0xFF && (head[1] & 0xE0) == 0xE0) {  // MPEG frame sync
        return AudioFileMP3;
    }
    return AudioFileUnknown;
}

int GetID3V2HeaderLength(int file) {
    uint8_t header[kID3V2HeaderSize] = {};
    uint32_t read = 0;
    if (!FS::ReadFile(file, header, sizeof(header), &read) || read < sizeof(header)) {
        BCAST_LOG(5, "[%s]Read file failed.[%s(%d)]");
        return 0;
    }
    if (std::memcmp(header, "ID3", 3) != 0) {
        return 0;
    }
    // Synch-safe integer: seven bits per byte.
    int size =
        (header[6] & 0x7F) << 21 | (header[7] & 0x7F) << 14 | (header[8] & 0x7F) << 7 | (header[9] & 0x7F);
    return size < 1 ? 0 : size + kID3V2HeaderSize;
}

bool CheckID3V1(int file) {
    FS::FileInfo info;
    if (!FS::FileStat(file, &info)) {
        BCAST_LOG(5, "[%s]Get file info failed.[%s(%d)]");
        return false;
    }
    if (info.size <= kID3V1Size) {
        BCAST_LOG(4, "[%s]File size[%d] is less than 128, do not need to check id3v1.[%s(%d)]",
                  static_cast<int>(info.size));
        return false;
    }
    bool found = false;
    uint8_t tag[kID3V1Size] = {};
    uint32_t read = 0;
    if (!FS::FileSeek(file, info.size - kID3V1Size, FS::kSeekBegin) ||
        !FS::ReadFile(file, tag, sizeof(tag), &read) || read < sizeof(tag)) {
        BCAST_LOG(5, "[%s]Read file failed, file size:%d.[%s(%d)]", static_cast<int>(info.size));
    } else if (tag[0] == 'T' && tag[1] == 'A' && tag[2] == 'G') {
        BCAST_LOG(4, "[%s]Has found this file has tag label, this is id3v1 file.[%s(%d)]");
        found = true;
    }
    FS::FileSeek(file, 0, FS::kSeekBegin);
    return found;
}

bool WriteWavHeader(int file, const WavAudioInfo& info) {
    FS::FileInfo stat;
    WavHeader header;
    bool ok = FS::FileSeek(file, 0, FS::kSeekBegin) && FS::FileStat(file, &stat);
    if (ok) {
        header.Fill(info, stat.size);
        ok = FS::WriteFile(file, header.bytes, WavHeader::kSize);
    }
    if (!ok) {
        BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
    }
    return ok;
}

void write_wav_header(int file, const WavAudioInfo& info) {
    WriteWavHeader(file, info);
}

bool ReadWavHeader(int file, WavHeader* header, uint32_t* bytesRead) {
    uint32_t read = 0;
    bool ok = FS::ReadFile(file, header->bytes, WavHeader::kSize, &read);
    if (bytesRead != nullptr) {
        *bytesRead = read;
    }
    return ok && read == WavHeader::kSize;
}

int GetWavDuration(const std::string& path) {
    CScopedFile file(path, FS::kOpenRead);
    if (!file.IsOpen()) {
        BCAST_LOG(5, "[%s]Read audio file failed. file name: [%s][%s(%d)]", path.c_str());
        return 0;
    }
    WavHeader header;
    uint32_t read = 0;
    if (!ReadWavHeader(file.Get(), &header, &read)) {
        BCAST_LOG(5, "[%s]read wav file header failed. file name: [%s], read size: %u[%s(%d)]", path.c_str(),
                  read);
        return 0;
    }
    if (header.ByteRate() == 0) {
        return 0;
    }
    // The RIFF size, not the data size, on purpose: the 36 header bytes after it count as sound.
    float milliseconds =
        static_cast<float>(header.RiffSize()) / static_cast<float>(header.ByteRate()) * 1000.0f;
    // A corrupt header (tiny byte rate) must not overflow the conversion.
    return milliseconds >= static_cast<float>(INT_MAX) ? INT_MAX : static_cast<int>(milliseconds);
}

}  // namespace BroadCastPlugin
