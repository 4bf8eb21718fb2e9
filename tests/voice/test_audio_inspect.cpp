// File type by content, ID3 tag lengths, the canonical WAV header and the WAV playing time, byte by byte.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AudioCheck.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "TestProcess.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"

using namespace BroadCastPlugin;
using namespace BcastTest;
namespace FS = Tal::Base::FileSystem;

namespace {

class AudioFileInspectTest : public ::testing::Test {
protected:
    std::string Write(const std::string& name, const std::vector<uint8_t>& bytes) {
        std::string path = dir_.File(name);
        EXPECT_TRUE(WriteBytes(path, bytes));
        return path;
    }
    std::string Write(const std::string& name, const std::string& text) {
        return Write(name, std::vector<uint8_t>(text.begin(), text.end()));
    }
    CTempDir dir_{"bcast-inspect"};
    Tal::Base::CLogCapture log_;
};

// Opens for reading and closes at the end of the scope.
struct OpenRead {
    explicit OpenRead(const std::string& path) : handle(FS::OpenFile(path, FS::kOpenRead)) {}
    ~OpenRead() { FS::CloseFile(handle); }
    int handle;
};

std::vector<uint8_t> U32(uint32_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}

std::vector<uint8_t> Concat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> all;
    for (const auto& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::vector<uint8_t> Text(const std::string& text) {
    return std::vector<uint8_t>(text.begin(), text.end());
}

}  // namespace

TEST_F(AudioFileInspectTest, TypeComesFromTheFirstTwelveBytes) {
    EXPECT_EQ(CheckAudioFileType(Write("a", Concat({Text("RIFF"), U32(36), Text("WAVE")}))), AudioFileWAV);
    EXPECT_EQ(CheckAudioFileType(Write("b", Concat({Text("RIFF"), U32(36), Text("AVI ")}))),
              AudioFileUnknown);
    EXPECT_EQ(CheckAudioFileType(Write("c", Text("fLaC"))), AudioFileFLAC);
    EXPECT_EQ(CheckAudioFileType(Write("d", Text("ID3"))), AudioFileMP3);
    EXPECT_EQ(CheckAudioFileType(Write("e", std::vector<uint8_t>{0xFF, 0xFB, 0x90, 0x64})), AudioFileMP3);
    EXPECT_EQ(CheckAudioFileType(Write("f", std::vector<uint8_t>{0xFF, 0xE0})), AudioFileMP3);
    EXPECT_EQ(CheckAudioFileType(Write("g", std::vector<uint8_t>{0xFF, 0xDF, 0x00})), AudioFileUnknown);
    EXPECT_EQ(CheckAudioFileType(Write("h", std::vector<uint8_t>{})), AudioFileUnknown);
    EXPECT_EQ(CheckAudioFileType(Write("i", Text("hello, world\n"))), AudioFileUnknown);
    // "RIFF" alone, the rest cut off: a short read is tested as it is.
    EXPECT_EQ(CheckAudioFileType(Write("j", Concat({Text("RIFF"), U32(36), Text("WAV")}))), AudioFileUnknown);

    log_.Clear();
    EXPECT_EQ(CheckAudioFileType(dir_.File("missing.wav")), AudioFileUnknown);
    EXPECT_TRUE(log_.Contains("]infile open error. file path: " + dir_.File("missing.wav") + "[", 5));
}

TEST_F(AudioFileInspectTest, Id3v2LengthIsTheSynchSafeSizePlusHeader) {
    auto length = [this](const std::vector<uint8_t>& bytes) {
        OpenRead file(Write("tag.mp3", bytes));
        return GetID3V2HeaderLength(file.handle);
    };
    std::vector<uint8_t> tail(300, 0);
    EXPECT_EQ(length(Concat({Text("ID3"), {4, 0, 0}, {0x00, 0x00, 0x02, 0x01}, tail})), 267);
    EXPECT_EQ(length(Concat({Text("ID3"), {4, 0, 0}, {0x00, 0x00, 0x00, 0x00}, tail})), 0);
    // The top bit of each size byte is not part of the number.
    EXPECT_EQ(length(Concat({Text("ID3"), {4, 0, 0}, {0xFF, 0xFF, 0xFF, 0xFF}, tail})), 0x0FFFFFFF + 10);
    EXPECT_EQ(length(Concat({{0xFF, 0xFB, 0x90, 0x64}, tail})), 0);

    log_.Clear();
    EXPECT_EQ(length(Concat({Text("ID3"), {4, 0}})), 0);
    EXPECT_TRUE(log_.Contains("]Read file failed.[", 5));
}

TEST_F(AudioFileInspectTest, Id3v1IsLookedForOnlyPast128Bytes) {
    std::vector<uint8_t> tag = Concat({Text("TAG"), std::vector<uint8_t>(125, ' ')});
    {
        // Exactly 128 bytes, a tag at the start: not examined.
        OpenRead file(Write("small.mp3", tag));
        log_.Clear();
        EXPECT_FALSE(CheckID3V1(file.handle));
        EXPECT_TRUE(log_.Contains("]File size[128] is less than 128, do not need to check id3v1.[", 4));
    }
    {
        OpenRead file(Write("tagged.mp3", Concat({{0xAB}, tag})));
        log_.Clear();
        EXPECT_TRUE(CheckID3V1(file.handle));
        EXPECT_TRUE(log_.Contains("]Has found this file has tag label, this is id3v1 file.[", 4));
        uint8_t first = 0;
        uint32_t read = 0;
        ASSERT_TRUE(FS::ReadFile(file.handle, &first, 1, &read));
        EXPECT_EQ(first, 0xAB) << "the file must be back at offset 0";
    }
    {
        OpenRead file(Write("plain.mp3", std::vector<uint8_t>(4000, 0x55)));
        EXPECT_FALSE(CheckID3V1(file.handle));
        int64_t position = -1;
        ASSERT_TRUE(FS::FileSeek(file.handle, 0, FS::kSeekCurrent, &position));
        EXPECT_EQ(position, 0);
    }
    log_.Clear();
    EXPECT_FALSE(CheckID3V1(-1));
    EXPECT_TRUE(log_.Contains("]Get file info failed.[", 5));
}

TEST_F(AudioFileInspectTest, WavHeaderTakesItsSizesFromTheFile) {
    const uint32_t n = 1000;
    std::string path = Write("out.wav", std::vector<uint8_t>(44 + n, 0xEE));
    int file = FS::OpenFile(path, FS::kOpenReadWrite);
    ASSERT_GE(file, 0);
    WavAudioInfo info;
    info.channels = 2;
    info.sampleRate = 44100;
    write_wav_header(file, info);
    FS::CloseFile(file);

    std::vector<uint8_t> expected = Concat({Text("RIFF"),
                                            U32(36 + n),
                                            Text("WAVEfmt "),
                                            U32(16),
                                            {1, 0},
                                            {2, 0},
                                            U32(44100),
                                            U32(44100 * 4),
                                            {4, 0},
                                            {16, 0},
                                            Text("data"),
                                            U32(n)});
    std::vector<uint8_t> written = ReadBytes(path);
    ASSERT_EQ(written.size(), 44u + n);
    EXPECT_EQ(std::vector<uint8_t>(written.begin(), written.begin() + 44), expected);
    EXPECT_EQ(written[44], 0xEE) << "the data behind the header is untouched";

    log_.Clear();
    write_wav_header(-1, info);
    EXPECT_TRUE(log_.Contains("]Write file failed.[", 5));
}

TEST_F(AudioFileInspectTest, DurationUsesTheRiffSizeOverTheByteRate) {
    auto header = [](uint32_t riffSize, uint32_t byteRate) {
        return Concat({Text("RIFF"),
                       U32(riffSize),
                       Text("WAVEfmt "),
                       U32(16),
                       {1, 0},
                       {1, 0},
                       U32(8000),
                       U32(byteRate),
                       {2, 0},
                       {16, 0},
                       Text("data"),
                       U32(riffSize - 36)});
    };
    EXPECT_EQ(GetWavDuration(Write("a.wav", header(15964, 16000))), 997);
    EXPECT_EQ(GetWavDuration(Write("b.wav", header(16036, 16000))), 1002);
    EXPECT_EQ(GetWavDuration(Write("c.wav", header(15964, 0))), 0);
    // A tiny byte rate in a damaged header gives a long time, not an overflow.
    EXPECT_EQ(GetWavDuration(Write("d.wav", header(0xFFFFFFF0u, 1))), INT32_MAX);

    log_.Clear();
    std::string shortPath = Write("short.wav", Concat({Text("RIFF"), U32(36), Text("WAVEfmt ")}));
    EXPECT_EQ(GetWavDuration(shortPath), 0);
    EXPECT_TRUE(
        log_.Contains("]read wav file header failed. file name: [" + shortPath + "], read size: 16[", 5));
    EXPECT_EQ(GetWavDuration(dir_.File("none.wav")), 0);
    EXPECT_TRUE(log_.Contains("]Read audio file failed. file name: [" + dir_.File("none.wav") + "][", 5));
}
