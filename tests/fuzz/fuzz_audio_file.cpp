// libFuzzer target: audio files as the module inspects and decodes them before a file broadcast. The input
// is the file's content. It is written to a temporary file and read by the file type check, the ID3v2 and
// ID3v1 tag readers, the WAV header reader and duration, the tool's file inspection, the mono conversion and
// resampling of WAV input, and the MP3 path (tags cut off, then mpg123 through the project's decoder into a
// WAV file); in memory, by the MP3 frame header parser and frame splitter and by the decoder fed in pieces.
// Besides crashes, leaks and hangs, the target traps when a reader answers outside what it promises: a frame
// handed out that is not a whole frame, a tag longer than the file, PCM that is not whole sample frames, a
// decoded WAV without a usable header.

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "FuzzSupport.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Frame.h"
#include "tool/voice/AudioDuration.h"

using namespace BroadCastPlugin;
using FuzzSupport::Check;
namespace MC = Tal::MediaCodec;

namespace {

std::string g_dir;

bool Setup() {
    FuzzSupport::QuietLogs();
    g_dir = FuzzSupport::ScratchDir("fuzz_audio_file");
    return true;
}
const bool g_ready = Setup();

bool WriteWhole(const std::string& path, const uint8_t* data, size_t size) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

void InspectFile(const std::string& path, size_t size) {
    const int type = CheckAudioFileType(path);
    Check(type >= AudioFileMP3 && type <= AudioFileUnknown);

    const int fd = ::open(path.c_str(), O_RDONLY);
    Check(fd >= 0);
    const int id3v2 = GetID3V2HeaderLength(fd);
    Check(id3v2 >= 0);
    ::lseek(fd, 0, SEEK_SET);
    const bool id3v1 = CheckID3V1(fd);
    Check(!id3v1 || size >= 128);
    Check(::lseek(fd, 0, SEEK_CUR) == 0);
    WavHeader header;
    uint32_t read = 0;
    const bool haveHeader = ReadWavHeader(fd, &header, &read);
    Check(read <= WavHeader::kSize);
    Check(haveHeader == (size >= WavHeader::kSize));
    ::close(fd);

    Check(GetWavDuration(path) >= 0);

    BcastTool::AudioFileFacts facts;
    std::string error;
    Check(BcastTool::InspectAudioFile(path, &facts, &error));
    Check(facts.size == static_cast<int64_t>(size));
    Check(facts.mp3Frames >= 0);
}

// What the file broadcast does with a file: WAV to mono and 8000 Hz, MP3 through the decoder into WAV.
void ConvertFile(const std::string& path) {
    CVoiceFileEncode encoder;
    const std::string mono = g_dir + "/mono.wav";
    const std::string resampled = g_dir + "/resampled.wav";
    encoder.Convert2SingleChannel(path, mono);
    encoder.ReSample(8000, path, resampled);

    const std::string raw = g_dir + "/raw.mp3";
    const std::string wav = g_dir + "/decoded.wav";
    if (encoder.SaveMP3ToRawAudio(path, raw) && encoder.EncodeWavFromMP3(raw, wav)) {
        const int fd = ::open(wav.c_str(), O_RDONLY);
        Check(fd >= 0);
        WavHeader header;
        Check(ReadWavHeader(fd, &header));
        ::close(fd);
        Check(header.Channels() >= 1 && header.SampleRate() > 0);
        Check(header.BitsPerSample() == 16);
    }
    ::unlink(mono.c_str());
    ::unlink(resampled.c_str());
    ::unlink(raw.c_str());
    ::unlink(wav.c_str());
}

void SplitFrames(const uint8_t* data, size_t size) {
    MC::CMp3FrameSplitter splitter;
    size_t handedOut = 0;
    auto whole = [&](const uint8_t* frame, size_t frameSize) {
        MC::Mp3FrameInfo info;
        Check(MC::ParseMp3FrameHeader(frame, frameSize, &info));
        Check(info.frameBytes == frameSize);
        handedOut += frameSize;
    };
    const size_t half = size / 2;
    splitter.Push(data, half, whole);
    splitter.Push(data + half, size - half, whole);
    Check(handedOut <= size);
    splitter.Drain([&](const uint8_t*, size_t rest) { handedOut += rest; });
    Check(handedOut <= size);
}

void DecodeInPieces(const uint8_t* data, size_t size) {
    MC::CMp3Decoder decoder;
    Check(decoder.Open(MC::AudioFormat()) == MC::kCodecOk);
    std::vector<int16_t> pcm;
    size_t pos = 0;
    size_t piece = 1 + (size > 0 ? data[0] % 64 : 0) * 16;
    while (pos < size) {
        const size_t n = std::min(piece, size - pos);
        const int result = decoder.Decode(data + pos, n, &pcm);
        const MC::AudioFormat format = decoder.OutputFormat();
        if (!pcm.empty()) {
            Check(format.sampleRate > 0 && format.channels >= 1);
            Check(pcm.size() % static_cast<size_t>(format.channels) == 0);
        }
        if (result != MC::kCodecOk) {
            break;
        }
        pos += n;
        pcm.clear();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::string path = g_dir + "/input";
    Check(WriteWhole(path, data, size));
    InspectFile(path, size);
    ConvertFile(path);
    SplitFrames(data, size);
    DecodeInPieces(data, size);
    return 0;
}
