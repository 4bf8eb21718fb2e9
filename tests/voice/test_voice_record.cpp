// Recording captured PCM to WAV: the file appears complete or not at all.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "AudioCheck.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "FileSizeLimit.h"
#include "TestProcess.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/media/pcmstorage/PCMStorage.h"

using namespace BroadCastPlugin;
using namespace BcastTest;
using Tal::MultimediaComm::CPCMStorage;
namespace FS = Tal::Base::FileSystem;

namespace {

std::vector<uint8_t> ToneBytes(int rate, double seconds, double frequency) {
    std::vector<uint8_t> bytes;
    int count = static_cast<int>(rate * seconds);
    for (int i = 0; i < count; ++i) {
        auto s =
            static_cast<uint16_t>(static_cast<int16_t>(10000 * std::sin(2 * M_PI * frequency * i / rate)));
        bytes.push_back(static_cast<uint8_t>(s & 0xFF));
        bytes.push_back(static_cast<uint8_t>(s >> 8));
    }
    return bytes;
}

// What sox makes of a WAV file: rate, channels, samples.
struct SoxInfo {
    int rate = 0;
    int channels = 0;
    long samples = -1;
};

SoxInfo Probe(const std::string& path) {
    SoxInfo info;
    ProcessResult rate = RunProcess({"soxi", "-r", path}, 10000);
    ProcessResult channels = RunProcess({"soxi", "-c", path}, 10000);
    ProcessResult samples = RunProcess({"soxi", "-s", path}, 10000);
    if (rate.exitCode == 0 && channels.exitCode == 0 && samples.exitCode == 0) {
        info.rate = std::stoi(rate.output);
        info.channels = std::stoi(channels.output);
        info.samples = std::stol(samples.output);
    }
    return info;
}

}  // namespace

TEST(PCMStorage, WritesAWavThatSoxReadsBackAsRecorded) {
    CTempDir dir("bcast-storage");
    CPCMStorage storage;
    std::string path = dir.File("talk.wav");
    EXPECT_FALSE(storage.StartStorage(path, 3)) << "unknown audio type";
    ASSERT_TRUE(storage.StartStorage(path, 1));  // G.711 capture: 8000 Hz
    EXPECT_TRUE(storage.IsStorage());
    EXPECT_FALSE(storage.StartStorage(dir.File("second.wav"), 1)) << "one recording at a time";
    EXPECT_FALSE(FS::FileExists(path)) << "not in place before it is complete";
    std::vector<uint8_t> tone = ToneBytes(8000, 1.5, 1000.0);
    // Pieces that split samples, as a capture callback may deliver them.
    for (std::size_t i = 0; i < tone.size(); i += 321) {
        ASSERT_TRUE(storage.InputData(tone.data() + i,
                                      static_cast<uint32_t>(std::min<std::size_t>(321, tone.size() - i))));
    }
    ASSERT_TRUE(storage.StopStorage());
    EXPECT_FALSE(storage.IsStorage());
    EXPECT_FALSE(storage.InputData(tone.data(), 2));
    EXPECT_FALSE(FS::FileExists(path + ".part"));

    SoxInfo info = Probe(path);
    EXPECT_EQ(info.rate, 8000);
    EXPECT_EQ(info.channels, 1);
    EXPECT_EQ(info.samples, 12000);
    std::string error;
    std::vector<int16_t> pcm = DecodeWithSox(path, 8000, {}, &error);
    ASSERT_EQ(pcm.size(), 12000u) << error;
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 1000.0, 1.0);

    // Other encode types fix other rates.
    EXPECT_EQ(CPCMStorage::SampleRateOfAudioType(0), 16000);
    EXPECT_EQ(CPCMStorage::SampleRateOfAudioType(15), 48000);
    std::string wide = dir.File("wide.wav");
    ASSERT_TRUE(storage.StartStorage(wide, 15));
    ASSERT_TRUE(storage.InputData(tone.data(), 4800));
    ASSERT_TRUE(storage.StopStorage());
    EXPECT_EQ(Probe(wide).rate, 48000);
    EXPECT_EQ(Probe(wide).samples, 2400);
}

TEST(PCMStorage, AFullDiskKeepsWhatWasWrittenBeforeIt) {
    CTempDir dir("bcast-storage");
    std::string path = dir.File("full.wav");
    CPCMStorage storage;
    ASSERT_TRUE(storage.StartStorage(path, 1));
    std::vector<uint8_t> tone = ToneBytes(8000, 10.0, 440.0);  // 160 KB

    // The file may not grow past 64 KB: the write fails as on a full disk. Eight blocks of 8000 bytes fit
    // after the header; the ninth goes out in part and fails.
    bool written = true;
    std::size_t blocks = 0;
    {
        CFileSizeLimit limit(64 * 1024);
        ASSERT_TRUE(limit.IsActive());
        for (std::size_t i = 0; i < tone.size() && written; i += 8000) {
            written = storage.InputData(tone.data() + i, 8000);
            blocks += written ? 1 : 0;
        }
        EXPECT_FALSE(storage.InputData(tone.data(), 8000)) << "later data is dropped";
        EXPECT_TRUE(storage.IsStorage());
        EXPECT_TRUE(storage.StopStorage()) << "the header fits where it was";
    }
    EXPECT_FALSE(written);
    EXPECT_EQ(blocks, 8u);
    EXPECT_FALSE(FS::FileExists(path + ".part"));
    ASSERT_TRUE(FS::FileExists(path));
    EXPECT_EQ(Probe(path).rate, 8000);
    EXPECT_EQ(Probe(path).samples, 8 * 4000) << "the part of the failed write is left out";

    // A directory that does not exist: refused at the start.
    EXPECT_FALSE(storage.StartStorage(dir.File("no/such/dir.wav"), 1));
}

TEST(VoiceRecord, RecordsThroughTheStorageAndRemembersThePath) {
    CTempDir dir("bcast-record");
    Tal::Base::CLogCapture log;
    CVoiceRecord record;
    std::string path = dir.File("record.wav");
    ASSERT_TRUE(record.StartRecord(path, 1));
    EXPECT_TRUE(log.Contains("]Start to record file to save: " + path + ", audio type:1.[", 3));
    EXPECT_EQ(record.RecordFilePath(), path);
    std::vector<uint8_t> tone = ToneBytes(8000, 0.5, 800.0);
    record.InputData(tone.data(), static_cast<int>(tone.size()));
    record.StopRecord();
    record.InputData(tone.data(), static_cast<int>(tone.size()));  // after the stop: dropped
    EXPECT_EQ(Probe(path).samples, 4000);

    EXPECT_FALSE(record.StartRecord(dir.File("missing/dir.wav"), 1));
    EXPECT_EQ(record.RecordFilePath(), "");

    CVoiceRecord withoutStorage(nullptr);
    EXPECT_FALSE(withoutStorage.StartRecord(path, 1));
    EXPECT_TRUE(log.Contains("]pcm storage is nullptr, cannot to start to storage.[", 5));
    withoutStorage.InputData(tone.data(), 10);
    withoutStorage.StopRecord();
}
