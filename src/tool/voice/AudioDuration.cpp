#include "tool/voice/AudioDuration.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/ScopedFile.h"
#include "framework/base/FileSystem.h"
#include "framework/media/codec/Mp3Frame.h"

namespace BcastTool {

namespace FS = Tal::Base::FileSystem;
using namespace BroadCastPlugin;

namespace {

// MP3 files past this size are not walked frame by frame.
constexpr int64_t kMaxWalkBytes = 512ll * 1024 * 1024;

// A leading frame that carries a Xing or Info tag (encoder information) and no sound.
bool IsInfoFrame(const uint8_t* frame, std::size_t size) {
    const std::size_t end = std::min<std::size_t>(size, 64);
    for (std::size_t i = 4; i + 4 <= end; ++i) {
        if (std::memcmp(frame + i, "Xing", 4) == 0 || std::memcmp(frame + i, "Info", 4) == 0) {
            return true;
        }
    }
    return false;
}

void WalkMp3Frames(int file, int64_t begin, int64_t end, AudioFileFacts* facts) {
    if (end <= begin || end - begin > kMaxWalkBytes || !FS::FileSeek(file, begin, FS::kSeekBegin)) {
        return;
    }
    std::vector<uint8_t> data(static_cast<std::size_t>(end - begin));
    uint32_t read = 0;
    if (!FS::ReadFile(file, data.data(), static_cast<uint32_t>(data.size()), &read)) {
        return;
    }
    double seconds = 0.0;
    std::size_t pos = 0;
    bool first = true;
    while (pos + 4 <= read) {
        Tal::MediaCodec::Mp3FrameInfo info;
        if (!Tal::MediaCodec::ParseMp3FrameHeader(data.data() + pos, read - pos, &info)) {
            ++pos;  // junk between frames: look for the next sync
            continue;
        }
        if (!(first && IsInfoFrame(data.data() + pos, std::min<std::size_t>(info.frameBytes, read - pos)))) {
            seconds += static_cast<double>(info.samplesPerFrame) / info.sampleRate;
            ++facts->mp3Frames;
        }
        first = false;
        pos += info.frameBytes;
    }
    if (facts->mp3Frames > 0) {
        facts->playSeconds = seconds;
    }
}

}  // namespace

bool InspectAudioFile(const std::string& path, AudioFileFacts* facts, std::string* error) {
    CScopedFile file(path, FS::kOpenRead);
    FS::FileInfo info;
    if (!file.IsOpen() || !FS::FileStat(file.Get(), &info)) {
        *error = std::string("cannot open ") + path + ": " + std::strerror(errno);
        return false;
    }
    *facts = AudioFileFacts();
    facts->size = info.size;
    facts->type = CheckAudioFileType(path);
    facts->id3v2Length = GetID3V2HeaderLength(file.Get());
    facts->hasId3v1 = CheckID3V1(file.Get());
    if (facts->type == AudioFileWAV) {
        WavHeader header;
        FS::FileSeek(file.Get(), 0, FS::kSeekBegin);
        if (ReadWavHeader(file.Get(), &header)) {
            facts->channels = header.Channels();
            facts->sampleRate = static_cast<int>(header.SampleRate());
            facts->bitsPerSample = header.BitsPerSample();
            if (header.ByteRate() > 0) {
                facts->playSeconds = static_cast<double>(info.size - WavHeader::kSize) / header.ByteRate();
            }
        }
        facts->wavDurationMs = GetWavDuration(path);
    } else if (facts->type == AudioFileMP3) {
        WalkMp3Frames(file.Get(), facts->id3v2Length, info.size - (facts->hasId3v1 ? 128 : 0), facts);
    }
    return true;
}

}  // namespace BcastTool
