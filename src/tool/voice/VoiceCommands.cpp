// bcast-tool inspect / encode: what the broadcast makes of an audio file.

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/media/mediakit/EncodeTypes.h"
#include "tool/CommandLine.h"
#include "tool/ToolCommand.h"
#include "tool/voice/AudioDuration.h"

namespace BcastTool {

namespace FS = Tal::Base::FileSystem;

namespace {

const char* TypeName(int type) {
    static const char* const kNames[] = {"mp3", "wav", "flac", "unknown"};
    return type >= 0 && type <= 3 ? kNames[type] : "unknown";
}

void SetLogLevel(int stderrLevel) {
    Tal::Base::LogConfig config;
    config.stderrLevel = stderrLevel;
    Tal::Base::InitLog(config);
}

int RunInspect(int argc, char** argv) {
    std::string path;
    bool verbose = false;
    CLI::App app("bcast-tool inspect: an audio file's type, format and duration", "bcast-tool inspect");
    app.add_option("FILE", path, "the audio file")->required();
    app.add_flag("-v", verbose, "log what the library does");
    const int parsed = ParseCommandWords(app, argc, argv, "inspect", "usage: bcast-tool inspect FILE [-v]\n");
    if (parsed >= 0) {
        return parsed;
    }
    SetLogLevel(verbose ? Tal::Base::kLogInfo : Tal::Base::kLogFatal + 1);
    AudioFileFacts facts;
    std::string error;
    if (!InspectAudioFile(path, &facts, &error)) {
        std::fprintf(stderr, "inspect: %s\n", error.c_str());
        return 1;
    }
    std::printf("file: %s\n", path.c_str());
    std::printf("size: %lld bytes\n", static_cast<long long>(facts.size));
    std::printf("type: %d (%s)\n", facts.type, TypeName(facts.type));
    std::printf("id3v2 length: %d\n", facts.id3v2Length);
    std::printf("id3v1 tag: %d\n", facts.hasId3v1 ? 128 : 0);
    if (facts.type == 1) {
        std::printf("wav: %d channels, %d Hz, %d bits\n", facts.channels, facts.sampleRate,
                    facts.bitsPerSample);
        std::printf("wav duration: %d ms (RIFF size / byte rate)\n", facts.wavDurationMs);
    }
    if (facts.type == 0) {
        std::printf("mp3 frames: %lld\n", static_cast<long long>(facts.mp3Frames));
    }
    if (facts.playSeconds >= 0) {
        std::printf("duration: %.0f ms\n", facts.playSeconds * 1000.0);
    } else {
        std::printf("duration: unknown\n");
    }
    return 0;
}

// The encoding being run, for the interrupt handler: stopping is one atomic store.
std::atomic<BroadCastPlugin::CVoiceFileEncode*> g_running{nullptr};
std::atomic<bool> g_interrupted{false};

void OnInterrupt(int) {
    g_interrupted = true;
    if (auto* encode = g_running.load()) {
        encode->StopEncode();
    }
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = &OnInterrupt;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// A private directory for the intermediate files, so that runs in parallel do not share them.
class CWorkDirectory {
public:
    CWorkDirectory() {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern =
            std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/bcast-tool-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (::mkdtemp(buffer.data()) != nullptr) {
            path_ = buffer.data();
        }
    }
    ~CWorkDirectory() {
        if (!path_.empty()) {
            BroadCastPlugin::CVoiceFileEncode::DeleteTempFiles();
            ::rmdir(path_.c_str());
        }
    }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Frame count and progress on stderr for long files: a bar redrawn at most five times a second on a
// terminal, a line per tenth otherwise.
class CProgress {
public:
    CProgress(double totalSeconds, double frameSeconds)
        : total_(totalSeconds), frame_(frameSeconds), tty_(::isatty(STDERR_FILENO) == 1) {}

    void Frame() {
        ++frames_;
        if (total_ < kLongFileSeconds) {
            return;
        }
        int tenth = static_cast<int>(Fraction() * 10);
        auto now = std::chrono::steady_clock::now();
        if (tty_ ? now - last_ >= std::chrono::milliseconds(200) : tenth > lastTenth_) {
            last_ = now;
            lastTenth_ = tenth;
            Draw();
        }
    }
    void Finish() {
        if (total_ < kLongFileSeconds) {
            return;
        }
        lastTenth_ = 10;
        Draw();
        if (tty_) {
            std::fprintf(stderr, "\n");
        }
    }
    long long Frames() const { return frames_; }

private:
    static constexpr double kLongFileSeconds = 10.0;

    double Fraction() const { return std::min(1.0, frames_ * frame_ / total_); }
    void Draw() const {
        double fraction = lastTenth_ == 10 ? 1.0 : Fraction();
        int percent = static_cast<int>(fraction * 100);
        if (tty_) {
            int filled = static_cast<int>(fraction * 40);
            std::fprintf(stderr, "\r[%-40.*s] %3d%%  %lld frames", filled,
                         "########################################", percent, frames_);
        } else {
            std::fprintf(stderr, "%3d%%  %lld frames\n", percent, frames_);
        }
    }

    double total_;
    double frame_;
    bool tty_;
    int lastTenth_ = 0;
    long long frames_ = 0;
    std::chrono::steady_clock::time_point last_{};
};

// How long the input plays; -1 when unknown.
double PlaySeconds(const char* input) {
    AudioFileFacts facts;
    std::string error;
    return InspectAudioFile(input, &facts, &error) ? facts.playSeconds : -1.0;
}

// The finished output takes the target's name; false (and the part deleted) when it cannot.
bool MoveIntoPlace(const std::string& partPath, const char* output) {
    if (std::rename(partPath.c_str(), output) != 0) {
        FS::DeleteFileW(partPath);
        std::fprintf(stderr, "encode: cannot move the output to %s: %s\n", output, std::strerror(errno));
        return false;
    }
    return true;
}

int RunEncode(int argc, char** argv) {
    std::string inputPath;
    std::string outputPath;
    int type = -1;
    bool verbose = false;
    CLI::App app("bcast-tool encode: a file in the format of a file broadcast (1 u-law WAV, 15 MP3)",
                 "bcast-tool encode");
    app.add_option("FILE", inputPath, "the audio file")->required();
    app.add_option("--type", type, "1: 8000 Hz u-law WAV, 15: MP3")
        ->required()
        ->check(CLI::IsMember({1, 15}));
    app.add_option("-o", outputPath, "the file to write")->required()->type_name("OUT");
    app.add_flag("-v", verbose, "log what the library does");
    const int parsed = ParseCommandWords(app, argc, argv, "encode",
                                         "usage: bcast-tool encode FILE --type 1|15 -o OUT [-v]\n");
    if (parsed >= 0) {
        return parsed;
    }
    const char* input = inputPath.c_str();
    const char* output = outputPath.c_str();
    SetLogLevel(verbose ? Tal::Base::kLogInfo : Tal::Base::kLogError);

    CWorkDirectory work;
    if (work.Path().empty()) {
        std::fprintf(stderr, "encode: cannot create a work directory: %s\n", std::strerror(errno));
        return 1;
    }
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(work.Path());

    // Written beside the target and moved into place only when the whole file was encoded.
    const std::string partPath = std::string(output) + ".part";
    int out = FS::OpenFile(partPath, FS::kOpenWrite);
    if (out < 0) {
        std::fprintf(stderr, "encode: cannot write %s: %s\n", partPath.c_str(), std::strerror(errno));
        return 1;
    }
    BroadCastPlugin::CVoiceFileEncode encode;
    CProgress progress(PlaySeconds(input), Tal::MediaKit::EncodeTypeOf(type)->frameMs / 1000.0);
    long long bytes = 0;
    bool writeFailed = false;
    encode.SetDataCallback([&](const uint8_t* data, int size) {
        if (writeFailed) {
            return;
        }
        if (!FS::WriteFile(out, data, static_cast<uint32_t>(size))) {
            writeFailed = true;
            encode.StopEncode();
            return;
        }
        bytes += size;
        progress.Frame();
    });

    g_running = &encode;
    CatchInterrupts();
    bool ok = encode.StartEncode(input, type);
    g_running = nullptr;
    progress.Finish();
    FS::CloseFile(out);

    if (!ok || writeFailed || g_interrupted) {
        FS::DeleteFileW(partPath);
        std::fprintf(stderr, "encode: %s\n",
                     g_interrupted ? "interrupted"
                     : writeFailed ? "writing the output failed"
                                   : "encoding failed");
        return g_interrupted ? 130 : 1;
    }
    if (!MoveIntoPlace(partPath, output)) {
        return 1;
    }
    std::printf("frames: %lld\n", progress.Frames());
    std::printf("bytes: %lld\n", bytes);
    std::printf("output: %s (%s)\n", output,
                type == 15 ? "MP3 stream, 48000 Hz mono" : "raw G.711 u-law, 8000 Hz mono");
    return 0;
}

}  // namespace

void AddVoiceCommands(CommandList& commands) {
    commands.push_back({"inspect", "FILE [-v]",
                        "type code (0 mp3, 1 wav, 2 flac, 3 unknown), duration and tag lengths",
                        &RunInspect});
    commands.push_back({"encode", "FILE --type 1|15 -o OUT [-v]",
                        "broadcast frames of a WAV or MP3 file: raw G.711 u-law (1) or an MP3 stream (15)",
                        &RunEncode});
}

}  // namespace BcastTool
