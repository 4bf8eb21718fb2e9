// bcast-tool inspect and encode, run as a program; outputs checked with sox and ffmpeg.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>

#include "AudioCheck.h"
#include "TestProcess.h"

using namespace BcastTest;

namespace {

class BcastToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        tool_ = Program("bcast-tool");
        ASSERT_TRUE(HasProgram(tool_)) << tool_ << " is not built (is BCAST_BINARY_DIR set by ctest?)";
    }
    ProcessResult Tool(std::vector<std::string> args) {
        args.insert(args.begin(), tool_);
        // Intermediate files go under a TMPDIR of the test's own, to see that none is left.
        return RunProcess(args, 120000, {"TMPDIR=" + work_.Path()});
    }
    // The number on the line that starts with "name: ", -999 when there is none.
    static long Field(const std::string& output, const std::string& name) {
        std::string key = name + ": ";
        for (std::size_t pos = 0; pos < output.size();) {
            std::size_t end = output.find('\n', pos);
            std::string line = output.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
            if (line.compare(0, key.size(), key) == 0) {
                return std::strtol(line.c_str() + key.size(), nullptr, 10);
            }
            if (end == std::string::npos) {
                break;
            }
            pos = end + 1;
        }
        return -999;
    }
    std::string Mp3(const std::string& name) {
        std::string path = files_.File(name);
        ProcessResult made = RunProcess({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                                         "sine=frequency=1000:duration=2", "-c:a", "libmp3lame", path},
                                        60000);
        EXPECT_EQ(made.exitCode, 0) << made.output;
        return path;
    }
    bool WorkDirEmpty() const { return std::filesystem::is_empty(work_.Path()); }

    std::string tool_;
    CTempDir files_{"bcast-tool-files"};
    CTempDir work_{"bcast-tool-work"};
};

}  // namespace

TEST_F(BcastToolTest, InspectGivesTheTypeCodeOfEachKind) {
    std::string wav = files_.File("tone.wav");
    ASSERT_EQ(MakeToneWav(wav, 16000, {1000.0}, 1.0), "");
    std::string flac = files_.File("tone.flac");
    ASSERT_EQ(RunProcess({"sox", wav, flac}, 30000).exitCode, 0);
    std::string text = files_.File("notes.txt");
    WriteBytes(text, {'h', 'e', 'l', 'l', 'o', '\n'});

    ProcessResult mp3 = Tool({"inspect", Mp3("tone.mp3")});
    EXPECT_EQ(mp3.exitCode, 0) << mp3.output;
    EXPECT_EQ(Field(mp3.output, "type"), 0) << mp3.output;
    EXPECT_GT(Field(mp3.output, "id3v2 length"), 10) << "ffmpeg writes an ID3v2 tag";
    // Whole frames: the encoder's delay and padding add up to two frames of 26 ms.
    EXPECT_NEAR(Field(mp3.output, "duration"), 2000, 60) << mp3.output;

    ProcessResult wavInfo = Tool({"inspect", wav});
    EXPECT_EQ(Field(wavInfo.output, "type"), 1) << wavInfo.output;
    EXPECT_EQ(Field(wavInfo.output, "wav duration"), 1001)
        << "RIFF size over byte rate counts 36 header bytes";
    EXPECT_EQ(Field(wavInfo.output, "duration"), 1000);

    EXPECT_EQ(Field(Tool({"inspect", flac}).output, "type"), 2);
    EXPECT_EQ(Field(Tool({"inspect", text}).output, "type"), 3);

    ProcessResult missing = Tool({"inspect", files_.File("missing.wav")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.output.find("cannot open"), std::string::npos) << missing.output;
    EXPECT_EQ(Tool({"inspect"}).exitCode, 2);
    EXPECT_EQ(Tool({"no-such-command"}).exitCode, 2);
}

TEST_F(BcastToolTest, EncodeToG711DecodesToTheSameToneAndLength) {
    std::string wav = files_.File("long.wav");
    ASSERT_EQ(MakeToneWav(wav, 44100, {1000.0, 1000.0}, 12.3), "");
    std::string out = files_.File("long.ul");
    ProcessResult run = Tool({"encode", wav, "--type", "1", "-o", out});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    long frames = Field(run.output, "frames");
    EXPECT_EQ(Field(run.output, "bytes"), frames * 320);
    EXPECT_NE(run.output.find("100%"), std::string::npos) << "progress on a long file: " << run.output;

    std::string error;
    std::vector<int16_t> pcm = DecodeWithSox(out, 8000, {"-t", "ul", "-r", "8000", "-c", "1"}, &error);
    ASSERT_EQ(static_cast<long>(pcm.size()), frames * 320) << error;
    // The same length as the source, plus at most one 40 ms frame.
    EXPECT_GE(pcm.size(), 12.3 * 8000);
    EXPECT_LE(pcm.size(), 12.3 * 8000 + 320);
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 1000.0, 1.0);
    EXPECT_GT(SineSnrDb(Middle(pcm, 8000), 8000, 1000.0), 30.0);
    EXPECT_FALSE(std::filesystem::exists(out + ".part"));
    EXPECT_TRUE(WorkDirEmpty()) << "intermediate files are removed";
}

TEST_F(BcastToolTest, EncodeToMp3GivesAPlayableStream) {
    std::string out = files_.File("tone15.mp3");
    ProcessResult run = Tool({"encode", Mp3("in.mp3"), "--type", "15", "-o", out});
    ASSERT_EQ(run.exitCode, 0) << run.output;
    ProcessResult probe =
        RunProcess({"ffprobe", "-v", "error", "-show_entries", "stream=sample_rate,channels,bit_rate", "-of",
                    "default=noprint_wrappers=1", out},
                   30000);
    EXPECT_NE(probe.output.find("sample_rate=48000"), std::string::npos) << probe.output;
    EXPECT_NE(probe.output.find("channels=1"), std::string::npos) << probe.output;
    EXPECT_NE(probe.output.find("bit_rate=192000"), std::string::npos) << probe.output;
    std::string error;
    std::vector<int16_t> pcm = DecodeWithFfmpeg(out, 48000, {}, &error);
    ASSERT_FALSE(pcm.empty()) << error;
    EXPECT_NEAR(DominantFrequency(pcm, 48000), 1000.0, 2.0);
    EXPECT_NEAR(static_cast<double>(pcm.size()), 2.0 * 48000, 0.1 * 48000);
    EXPECT_TRUE(WorkDirEmpty());
}

TEST_F(BcastToolTest, EncodeRefusalsLeaveNoOutput) {
    std::string mp3 = Mp3("content.mp3");
    std::string disguised = files_.File("disguised.wav");
    WriteBytes(disguised, ReadBytes(mp3));
    std::string out = files_.File("refused.ul");
    ProcessResult refused = Tool({"encode", disguised, "--type", "1", "-o", out});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.output.find("file suffix cannot equal to file type."), std::string::npos)
        << refused.output;
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(out + ".part"));

    EXPECT_EQ(Tool({"encode", mp3, "--type", "7", "-o", out}).exitCode, 2) << "only 1 and 15";
    EXPECT_EQ(Tool({"encode", mp3, "--type", "1"}).exitCode, 2) << "no output named";
    EXPECT_EQ(Tool({"encode", mp3, "--type", "1", "-o", files_.File("no/such/dir/out.ul")}).exitCode, 1);
    EXPECT_TRUE(WorkDirEmpty());
}

TEST_F(BcastToolTest, CompareFindsTheDelayAndIgnoresWhatLiesOutsideTheReference) {
    // Speech at 16 kHz, and a "speaker recording" of it at 8 kHz: a loud two-second tone first (a prompt
    // tone), then 300 ms of silence, then the speech, then silence.
    const std::string speech = files_.File("speech.wav");
    ASSERT_EQ(
        RunProcess({"espeak-ng", "-v", "en", "-w", speech, "The building will close in ten minutes."}, 60000)
            .exitCode,
        0)
        << "espeak-ng is installed by scripts/setup.sh";
    const std::string tone = files_.File("tone8k.wav");
    ASSERT_EQ(RunProcess({"sox", "-n", "-r", "8000", "-b", "16", "-c", "1", tone, "synth", "2", "sine",
                          "1000", "vol", "0.9"},
                         30000)
                  .exitCode,
              0);
    const std::string delayed = files_.File("speech8k.wav");
    ASSERT_EQ(
        RunProcess({"sox", speech, "-r", "8000", "-b", "16", delayed, "pad", "0.3", "1"}, 30000).exitCode, 0);
    const std::string recording = files_.File("recording.wav");
    ASSERT_EQ(RunProcess({"sox", tone, delayed, recording}, 30000).exitCode, 0);

    ProcessResult match =
        Tool({"compare", speech, recording, "--max-delay", "5", "--min-correlation", "0.9"});
    EXPECT_EQ(match.exitCode, 0) << match.output;
    const std::size_t at = match.output.find("delay ");
    ASSERT_NE(at, std::string::npos) << match.output;
    EXPECT_NEAR(std::atof(match.output.c_str() + at + 6), 2300, 5) << match.output;
    // A search wider than both files finds the same delay.
    ProcessResult wide =
        Tool({"compare", speech, recording, "--max-delay", "30", "--min-correlation", "0.9"});
    EXPECT_EQ(wide.exitCode, 0) << wide.output;
    EXPECT_NE(wide.output.find("delay 2300 ms"), std::string::npos) << wide.output;

    // Something else entirely does not match; silence gives no correlation at all.
    const std::string noise = files_.File("noise.wav");
    ASSERT_EQ(RunProcess({"sox", "-n", "-r", "8000", "-b", "16", "-c", "1", noise, "synth", "4", "whitenoise",
                          "vol", "0.3"},
                         30000)
                  .exitCode,
              0);
    ProcessResult other = Tool({"compare", speech, noise, "--min-correlation", "0.5"});
    EXPECT_EQ(other.exitCode, 1) << other.output;
    const std::string silence = files_.File("silence.wav");
    ASSERT_EQ(
        RunProcess({"sox", "-D", "-n", "-r", "8000", "-b", "16", "-c", "1", silence, "trim", "0", "3"}, 30000)
            .exitCode,
        0);
    ProcessResult quiet = Tool({"compare", speech, silence, "--min-correlation", "0.1"});
    EXPECT_EQ(quiet.exitCode, 1) << quiet.output;
    EXPECT_NE(quiet.output.find("correlation 0.000"), std::string::npos) << quiet.output;
    EXPECT_EQ(Tool({"compare", speech}).exitCode, 2) << "two files are needed";
    EXPECT_EQ(Tool({"compare", speech, files_.File("missing.wav")}).exitCode, 1);
}

TEST_F(BcastToolTest, EveryCommandAnswersHelpAndABadCommandLineInOneLineWithItsUsage) {
    const ProcessResult version = Tool({"--version"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.output, std::string(BCAST_VERSION) + "\n");
    struct Case {
        std::vector<std::string> bad;
        std::string options;  ///< one option the command's help lists
        std::string reason;   ///< what the first line of the bad command line's answer says
    };
    const std::map<std::string, Case> cases = {
        {"inspect", {{"inspect", "a.wav", "b.wav"}, "-v", "inspect: "}},
        {"encode",
         {{"encode", "a.wav", "--type", "7", "-o", "b"}, "--type", "encode: --type: 7 not in {1,15}"}},
        {"rtp-send", {{"rtp-send", "--to"}, "--level", "rtp-send: --to"}},
        {"rtp-recv",
         {{"rtp-recv", "--port", "x"}, "--max-seconds", "rtp-recv: Could not convert: --port = x"}},
        {"compare",
         {{"compare", "a.wav", "b.wav", "--max-delay", "-1"}, "--min-correlation", "compare: --max-delay"}},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.first);
        const ProcessResult help = Tool({entry.first, "--help"});
        EXPECT_EQ(help.exitCode, 0) << help.output;
        EXPECT_NE(help.output.find("bcast-tool " + entry.first), std::string::npos) << help.output;
        EXPECT_NE(help.output.find(entry.second.options), std::string::npos) << help.output;
        const ProcessResult bad = Tool(entry.second.bad);
        EXPECT_EQ(bad.exitCode, 2) << bad.output;
        EXPECT_EQ(bad.output.rfind(entry.second.reason, 0), 0u) << bad.output;
        EXPECT_NE(bad.output.find("\nusage: bcast-tool " + entry.first), std::string::npos) << bad.output;
    }
}
