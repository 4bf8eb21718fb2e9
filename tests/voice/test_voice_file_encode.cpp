// The file encoding pipeline: what it emits, checked by decoding with sox and ffmpeg; its dispatch rules,
// bad input, stopping from another thread and its intermediate files.

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <optional>
#include <thread>

#include "AudioCheck.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "FileSizeLimit.h"
#include "TestProcess.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/media/codec/Mp3Frame.h"

using namespace BroadCastPlugin;
using namespace BcastTest;
namespace FS = Tal::Base::FileSystem;

namespace {

struct Frames {
    std::vector<std::vector<uint8_t>> list;
    std::vector<uint8_t> Stream() const {
        std::vector<uint8_t> all;
        for (const auto& f : list) {
            all.insert(all.end(), f.begin(), f.end());
        }
        return all;
    }
};

class VoiceFileEncodeTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(work_.Path().empty());
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(work_.Path());
        encode_.SetDataCallback(
            [this](const uint8_t* data, int size) { frames_.list.emplace_back(data, data + size); });
        encode_.SetStateCallback([this](EncodeState state) { states_.push_back(state); });
    }
    void TearDown() override { BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(""); }

    std::string Tone(const std::string& name, int rate, const std::vector<double>& frequencies,
                     double seconds, int bits = 16) {
        std::string path = input_.File(name);
        std::string error = MakeToneWav(path, rate, frequencies, seconds, bits);
        EXPECT_TRUE(error.empty()) << error;
        return path;
    }
    // An MP3 made by ffmpeg, with the ID3v2 tag ffmpeg writes and an ID3v1 tag appended.
    std::string Mp3(const std::string& name, double seconds, bool id3v1 = true) {
        std::string path = input_.File(name);
        ProcessResult made =
            RunProcess({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                        "sine=frequency=1000:sample_rate=44100:duration=" + std::to_string(seconds), "-ac",
                        "2", "-c:a", "libmp3lame", "-b:a", "128k", "-f", "mp3", path},
                       60000);
        EXPECT_EQ(made.exitCode, 0) << made.output;
        if (id3v1) {
            std::vector<uint8_t> bytes = ReadBytes(path);
            std::vector<uint8_t> tag(128, 0);
            std::copy_n("TAGbroadcast test", 17, tag.begin());
            bytes.insert(bytes.end(), tag.begin(), tag.end());
            WriteBytes(path, bytes);
        }
        return path;
    }
    std::string Temp(const char* name) const { return work_.File(name); }
    std::vector<int16_t> DecodeUlaw(const std::string& name) {
        std::string path = input_.File(name);
        WriteBytes(path, frames_.Stream());
        std::string error;
        std::vector<int16_t> pcm = DecodeWithSox(path, 8000, {"-t", "ul", "-r", "8000", "-c", "1"}, &error);
        EXPECT_FALSE(pcm.empty()) << error;
        return pcm;
    }
    std::vector<int16_t> DecodeMp3(const std::string& name, const std::string& filter = "") {
        std::string path = input_.File(name);
        WriteBytes(path, frames_.Stream());
        std::string error;
        std::vector<int16_t> pcm = DecodeWithFfmpeg(path, 48000, {"-f", "mp3"}, &error, filter);
        EXPECT_FALSE(pcm.empty()) << error;
        return pcm;
    }

    CTempDir work_{"bcast-encode-work"};
    CTempDir input_{"bcast-encode-input"};
    CVoiceFileEncode encode_;
    Frames frames_;
    std::vector<EncodeState> states_;
    Tal::Base::CLogCapture log_;
};

// A WAV file written byte by byte: mono 8000 Hz 16-bit, header + `dataBytes` of a 1 kHz tone.
std::string WriteMonoWav(const std::string& path, uint32_t dataBytes, int bits = 16) {
    std::vector<uint8_t> file(44 + dataBytes, 0);
    for (uint32_t i = 0; i + 1 < dataBytes; i += 2) {
        auto sample = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 1000.0 * (i / 2) / 8000.0));
        file[44 + i] = static_cast<uint8_t>(static_cast<uint16_t>(sample) & 0xFF);
        file[44 + i + 1] = static_cast<uint8_t>(static_cast<uint16_t>(sample) >> 8);
    }
    WriteBytes(path, file);
    int handle = FS::OpenFile(path, FS::kOpenReadWrite);
    WavAudioInfo info;
    info.channels = 1;
    info.sampleRate = 8000;
    write_wav_header(handle, info);
    if (bits != 16) {
        FS::FileSeek(handle, 34, FS::kSeekBegin);
        uint8_t field[2] = {static_cast<uint8_t>(bits), 0};
        FS::WriteFile(handle, field, 2);
    }
    FS::CloseFile(handle);
    return path;
}

}  // namespace

TEST_F(VoiceFileEncodeTest, G711FromStereoWavIsTheLeftChannelAt8kHz) {
    // Left 1 kHz, right 2.5 kHz: only the first channel may come out.
    std::string wav = Tone("stereo.wav", 44100, {1000.0, 2500.0}, 3.0);
    ASSERT_TRUE(encode_.StartEncode(wav, 1));
    EXPECT_EQ(states_, (std::vector<EncodeState>{EncodePrepare, EncodeRunning}));
    ASSERT_FALSE(frames_.list.empty());
    for (const auto& frame : frames_.list) {
        ASSERT_EQ(frame.size(), 320u);
    }
    std::vector<int16_t> pcm = DecodeUlaw("out.ul");
    // 3 s, plus at most the padded last frame.
    EXPECT_GE(pcm.size(), 24000u);
    EXPECT_LE(pcm.size(), 24000u + 320u);
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 1000.0, 2.0);
    EXPECT_GT(SineSnrDb(Middle(pcm, 8000), 8000, 1000.0), 30.0);
    // The intermediate files are where the client keeps its data, and are complete WAV files.
    EXPECT_EQ(GetWavDuration(Temp(CVoiceFileEncode::kSingleFile)), GetWavDuration(wav))
        << "byte rate left as it was";
    EXPECT_TRUE(FS::FileExists(Temp(CVoiceFileEncode::kResampleFile)));
    CVoiceFileEncode::DeleteTempFiles();
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kSingleFile)));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kResampleFile)));
}

TEST_F(VoiceFileEncodeTest, WholeFramesOfDataGiveOneExtraSilentFrame) {
    // 640 × 10 bytes of mono 8000 Hz: read directly, 10 frames of tone and one of silence.
    ASSERT_TRUE(encode_.StartEncode(WriteMonoWav(input_.File("exact.wav"), 640 * 10), 1));
    ASSERT_EQ(frames_.list.size(), 11u);
    EXPECT_TRUE(
        std::all_of(frames_.list[10].begin(), frames_.list[10].end(), [](uint8_t b) { return b == 0xFF; }));
    EXPECT_FALSE(
        std::all_of(frames_.list[9].begin(), frames_.list[9].end(), [](uint8_t b) { return b == 0xFF; }));
    EXPECT_TRUE(log_.Contains("]File is single source, do not need to convert.", 3));
    EXPECT_TRUE(log_.Contains("]File is src_rate == des_rate, do not need to convert.", 3));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kSingleFile)));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kResampleFile)));

    // 100 bytes more: the 11th frame holds 50 samples of tone and is padded with silence.
    frames_.list.clear();
    ASSERT_TRUE(encode_.StartEncode(WriteMonoWav(input_.File("tail.wav"), 640 * 10 + 100), 1));
    ASSERT_EQ(frames_.list.size(), 11u);
    const auto& last = frames_.list[10];
    EXPECT_FALSE(std::all_of(last.begin(), last.begin() + 50, [](uint8_t b) { return b == 0xFF; }));
    EXPECT_TRUE(std::all_of(last.begin() + 50, last.end(), [](uint8_t b) { return b == 0xFF; }));
}

TEST_F(VoiceFileEncodeTest, Mp3FromStereoWavIsMono48kAt192k) {
    std::string wav = Tone("stereo.wav", 44100, {1000.0, 3000.0}, 3.0);
    ASSERT_TRUE(encode_.StartEncode(wav, 15));
    ASSERT_FALSE(frames_.list.empty());
    for (const auto& frame : frames_.list) {
        Tal::MediaCodec::Mp3FrameInfo info;
        ASSERT_TRUE(Tal::MediaCodec::ParseMp3FrameHeader(frame.data(), frame.size(), &info));
        ASSERT_EQ(frame.size(), info.frameBytes) << "one whole frame per callback";
        EXPECT_EQ(info.sampleRate, 48000);
        EXPECT_EQ(info.bitRate, 192000);  // above 24000 Hz: not 160000
        EXPECT_EQ(info.channels, 1);
        EXPECT_EQ(info.samplesPerFrame, 1152);
    }
    std::vector<int16_t> pcm = DecodeMp3("out.mp3");
    EXPECT_NEAR(static_cast<double>(pcm.size()), 3.0 * 48000, 3 * 1152.0);
    EXPECT_NEAR(DominantFrequency(pcm, 48000), 1000.0, 2.0);
    EXPECT_GT(SineSnrDb(Middle(pcm, 48000), 48000, 1000.0), 25.0) << "the right channel must not be mixed in";
    EXPECT_TRUE(log_.Contains(
        "]RESAMPLE_FILE_out_file_name. file name: [" + Temp(CVoiceFileEncode::kResampleFile), 5));
}

TEST_F(VoiceFileEncodeTest, Mp3InputLosesItsTagsAndBecomesG711OrMp3) {
    std::string mp3 = Mp3("tagged.mp3", 3.0);
    std::vector<uint8_t> original = ReadBytes(mp3);
    ASSERT_EQ(std::string(original.begin(), original.begin() + 3), "ID3");

    ASSERT_TRUE(encode_.StartEncode(mp3, 1));
    std::vector<uint8_t> raw = ReadBytes(Temp(CVoiceFileEncode::kRawMp3File));
    int id3v2 = ((original[6] & 0x7F) << 21 | (original[7] & 0x7F) << 14 | (original[8] & 0x7F) << 7 |
                 (original[9] & 0x7F)) +
                10;
    ASSERT_EQ(raw.size(), original.size() - id3v2 - 128);
    EXPECT_TRUE(std::equal(raw.begin(), raw.end(), original.begin() + id3v2));
    EXPECT_EQ(CheckAudioFileType(Temp(CVoiceFileEncode::kMp3ToWavFile)), AudioFileWAV);

    std::vector<int16_t> pcm = DecodeUlaw("mp3.ul");
    EXPECT_NEAR(static_cast<double>(pcm.size()), 3.0 * 8000, 0.1 * 8000);
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 1000.0, 2.0);
    EXPECT_GT(SineSnrDb(Middle(pcm, 8000), 8000, 1000.0), 25.0);

    frames_.list.clear();
    ASSERT_TRUE(encode_.StartEncode(mp3, 15));
    std::vector<int16_t> again = DecodeMp3("mp3.mp3");
    EXPECT_NEAR(static_cast<double>(again.size()), 3.0 * 48000, 0.1 * 48000);
    EXPECT_NEAR(DominantFrequency(again, 48000), 1000.0, 2.0);
}

TEST_F(VoiceFileEncodeTest, SuffixAndContentMustAgree) {
    std::string mp3 = Mp3("tone.mp3", 1.0, false);
    std::string wav = Tone("tone.wav", 8000, {1000.0}, 1.0);
    auto copy = [this](const std::string& from, const std::string& name) {
        std::string to = input_.File(name);
        WriteBytes(to, ReadBytes(from));
        return to;
    };

    // Recognised content with the other suffix, or a suffix the broadcast does not take: refused.
    struct Refusal {
        std::string path;
        const char* message;
    };
    std::string flac = input_.File("tone.flac");
    ASSERT_EQ(RunProcess({"sox", wav, flac}, 30000).exitCode, 0);
    for (const Refusal& refusal :
         {Refusal{copy(mp3, "mp3data.wav"), "]file suffix cannot equal to file type.["},
          Refusal{copy(wav, "wavdata.mp3"), "]file suffix cannot equal to file type.["},
          Refusal{copy(flac, "flacdata.wav"), "]file suffix cannot equal to file type.["},
          Refusal{flac, "]Cannot support this file suffix["},
          Refusal{copy(wav, "tone.ogg"), "]Cannot support this file suffix["},
          Refusal{copy(wav, "noext"), "]Cannot support this file suffix["}}) {
        log_.Clear();
        frames_.list.clear();
        EXPECT_FALSE(encode_.StartEncode(refusal.path, 1)) << refusal.path;
        EXPECT_TRUE(log_.Contains(refusal.message, 5)) << refusal.path;
        EXPECT_TRUE(frames_.list.empty()) << refusal.path;
    }

    // Unknown content (junk before the first frame) with the mp3 suffix is decoded as MP3.
    std::vector<uint8_t> junk(100, 0x00);
    std::vector<uint8_t> bytes = ReadBytes(mp3);
    junk.insert(junk.end(), bytes.begin(), bytes.end());
    std::string prefixed = input_.File("prefixed.mp3");
    WriteBytes(prefixed, junk);
    ASSERT_EQ(CheckAudioFileType(prefixed), AudioFileUnknown);
    frames_.list.clear();
    ASSERT_TRUE(encode_.StartEncode(prefixed, 1));
    EXPECT_NEAR(DominantFrequency(DecodeUlaw("prefixed.ul"), 8000), 1000.0, 2.0);

    // The suffix is not case-sensitive.
    frames_.list.clear();
    EXPECT_TRUE(encode_.StartEncode(copy(wav, "UPPER.WAV"), 1));
    EXPECT_EQ(frames_.list.size(), 26u);
}

TEST_F(VoiceFileEncodeTest, BadInputIsRefusedOrHandledWithoutLeftovers) {
    auto run = [this](const std::string& path, int type) {
        frames_.list.clear();
        log_.Clear();
        return encode_.StartEncode(path, type);
    };
    auto write = [this](const std::string& name, const std::vector<uint8_t>& bytes) {
        std::string path = input_.File(name);
        WriteBytes(path, bytes);
        return path;
    };
    auto silentFrameOnly = [this] {
        return frames_.list.size() == 1u && std::all_of(frames_.list[0].begin(), frames_.list[0].end(),
                                                        [](uint8_t b) { return b == 0xFF; });
    };

    EXPECT_FALSE(run(input_.File("missing.wav"), 1));
    EXPECT_TRUE(
        log_.Contains("]Read audio file failed. file name: [" + input_.File("missing.wav") + "][", 5));
    EXPECT_FALSE(run(input_.File("missing.mp3"), 15));
    EXPECT_TRUE(log_.Contains("]Save mp3 file to raw audio file failed.", 5));

    // No header to read: the encoder goes on with what there is, one padded frame of silence.
    for (const std::vector<uint8_t>& content :
         {std::vector<uint8_t>{}, std::vector<uint8_t>{'R', 'I', 'F', 'F', 4, 0, 0, 0, 'W', 'A', 'V', 'E'},
          std::vector<uint8_t>(42, 'x')}) {
        EXPECT_TRUE(run(write("short.wav", content), 1));
        EXPECT_TRUE(silentFrameOnly()) << content.size() << " bytes";
        EXPECT_TRUE(log_.Contains("]read wav file header failed. file name: [", 5));
    }

    // 8-bit samples would be read as loud noise: refused, also where resampling would be needed.
    EXPECT_FALSE(run(WriteMonoWav(input_.File("eight.wav"), 1600, 8), 1));
    EXPECT_TRUE(log_.Contains("] is not 16 bits per sample (8), cannot encode it.", 5));
    EXPECT_TRUE(frames_.list.empty());
    EXPECT_FALSE(run(Tone("eight44.wav", 44100, {1000.0, 1000.0}, 0.5, 8), 15));
    EXPECT_TRUE(log_.Contains("] is not 16short type, resample dll cannot support this type.", 5));
    EXPECT_TRUE(frames_.list.empty());

    // Empty MP3, and an ID3 size field pointing far past the end: nothing to decode.
    EXPECT_FALSE(run(write("empty.mp3", {}), 1));
    EXPECT_TRUE(log_.Contains("]No audio data after the tags.", 5));
    std::vector<uint8_t> huge = {'I', 'D', '3', 4, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F};
    huge.resize(5000, 0xAA);
    EXPECT_FALSE(run(write("huge.mp3", huge), 15));
    EXPECT_TRUE(log_.Contains("id3v2 length: 268435465", 5));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kRawMp3File)));

    // Text behind an mp3 suffix decodes to nothing: refused, no WAV left behind.
    EXPECT_FALSE(run(write("text.mp3", std::vector<uint8_t>(10000, 'a')), 1));
    EXPECT_TRUE(log_.Contains("]No audio decoded from mp3 file:", 5));
    EXPECT_TRUE(log_.Contains("]encode mp3 file to wav file failed.", 5));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kMp3ToWavFile)));

    // A name that is not UTF-8.
    std::string latin1 = input_.File("caf\xE9.wav");
    WriteMonoWav(latin1, 640);
    EXPECT_FALSE(run(latin1, 1));
    EXPECT_TRUE(log_.Contains("]Input param is not utf-8 format. file name:", 5));
    EXPECT_TRUE(frames_.list.empty());
    // The same name in UTF-8 is fine.
    EXPECT_TRUE(run(WriteMonoWav(input_.File("caf\xC3\xA9.wav"), 640), 1));
}

TEST_F(VoiceFileEncodeTest, StopFromAnotherThreadEndsWithinAChunk) {
    std::string wav = Tone("long.wav", 44100, {1000.0, 1000.0}, 20.0);
    // The stop comes from another thread while the 10th frame is handed out; the loop sees it at the
    // next chunk, so exactly 10 frames come out.
    for (int type : {1, 15}) {
        frames_.list.clear();
        log_.Clear();
        encode_.SetDataCallback([this](const uint8_t* data, int size) {
            frames_.list.emplace_back(data, data + size);
            if (frames_.list.size() == 10) {
                std::thread([this] { encode_.StopEncode(); }).join();
            }
        });
        EXPECT_TRUE(encode_.StartEncode(wav, type)) << "a stop inside the frame loop is no failure";
        EXPECT_EQ(frames_.list.size(), 10u) << "type " << type;
        EXPECT_TRUE(log_.Contains("]stop encode for outside ...[", type == 15 ? 4 : 5)) << "type " << type;
    }

    // A stop before the first chunk: the preparation steps leave nothing half-written behind.
    encode_.SetDataCallback(
        [this](const uint8_t* data, int size) { frames_.list.emplace_back(data, data + size); });
    encode_.SetStateCallback([this](EncodeState state) {
        if (state == EncodePrepare) {
            std::thread([this] { encode_.StopEncode(); }).join();
        }
    });
    CVoiceFileEncode::DeleteTempFiles();
    frames_.list.clear();
    log_.Clear();
    std::string big = Tone("big.wav", 44100, {1000.0, 1000.0}, 30.0);  // more than one 4 MiB chunk
    encode_.StartEncode(big, 1);
    EXPECT_TRUE(frames_.list.empty());
    EXPECT_TRUE(log_.Contains("]Has stop convert to single file.[", 3));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kSingleFile)));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kResampleFile)));
    EXPECT_FALSE(encode_.StartEncode(Mp3("stop.mp3", 2.0), 1));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kRawMp3File)));
    EXPECT_FALSE(FS::FileExists(Temp(CVoiceFileEncode::kMp3ToWavFile)));

    // The next encoding starts afresh.
    encode_.SetStateCallback(nullptr);
    frames_.list.clear();
    EXPECT_TRUE(encode_.StartEncode(WriteMonoWav(input_.File("next.wav"), 640 * 3), 1));
    EXPECT_EQ(frames_.list.size(), 4u);
}

TEST_F(VoiceFileEncodeTest, OnlyOneEncodingRunsAtATime) {
    std::string wav = Tone("one.wav", 8000, {1000.0}, 2.0);
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    bool first = true;
    encode_.SetDataCallback([&](const uint8_t*, int) {
        if (first) {
            first = false;
            entered.set_value();
            released.wait();
        }
    });
    auto running = std::async(std::launch::async, [&] { return encode_.StartEncode(wav, 1); });
    entered.get_future().wait();
    CVoiceFileEncode other;
    EXPECT_FALSE(other.StartEncode(wav, 1));
    EXPECT_TRUE(log_.Contains("]Another file is being encoded, cannot encode", 5));
    release.set_value();
    EXPECT_TRUE(running.get());
    EXPECT_TRUE(other.StartEncode(wav, 1)) << "free again once the first one is done";
}

TEST_F(VoiceFileEncodeTest, FailedWritesLeaveNoIntermediateFile) {
    // Files may not grow past 100 KB for the length of this test: writes fail as on a full disk.
    std::string mp3 = Mp3("limit.mp3", 3.0);
    std::string wav = Tone("limit.wav", 44100, {1000.0, 1000.0}, 3.0);
    std::optional<CFileSizeLimit> limit(std::in_place, 100 * 1024);
    ASSERT_TRUE(limit->IsActive());

    bool fromMp3 = encode_.StartEncode(mp3, 1);
    bool mp3Decoded = FS::FileExists(Temp(CVoiceFileEncode::kMp3ToWavFile));
    bool fromWav = encode_.StartEncode(wav, 1);
    bool monoLeft = FS::FileExists(Temp(CVoiceFileEncode::kSingleFile));

    limit.reset();
    EXPECT_FALSE(fromMp3);
    EXPECT_FALSE(mp3Decoded);
    EXPECT_TRUE(log_.Contains("]Write WAV file failed. file name: [", 5));
    EXPECT_FALSE(fromWav) << "a stereo file whose mono copy failed must not go out as it is";
    EXPECT_FALSE(monoLeft);
    EXPECT_TRUE(log_.Contains("]Prepare wav file failed, stop encoding.", 5));
}

TEST(VoiceFileEncodeTempFiles, WithoutClientDataPathAPrivateTempDirectoryIsUsed) {
    CTempDir tmp("bcast-tmpdir");
    const char* oldTmp = std::getenv("TMPDIR");
    std::string saved = oldTmp != nullptr ? oldTmp : "";
    ::setenv("TMPDIR", tmp.Path().c_str(), 1);
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath("");
    std::string path = CVoiceFileEncode::TempFilePath(CVoiceFileEncode::kSingleFile);
    if (oldTmp != nullptr) {
        ::setenv("TMPDIR", saved.c_str(), 1);
    } else {
        ::unsetenv("TMPDIR");
    }
    EXPECT_EQ(path.rfind(tmp.Path() + "/bcast-voice-", 0), 0u) << path;
    EXPECT_EQ(path.substr(path.size() - std::string("/broadcast_single_file.wav").size()),
              "/broadcast_single_file.wav");
    EXPECT_TRUE(FS::DirectoryExists(path.substr(0, path.rfind('/'))));
}
