#include "platform/server/sim/tts/TtsSynthesizer.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "framework/base/FileSystem.h"
#include "framework/base/NonCopyable.h"
#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/Resampler.h"
#include "framework/media/mediakit/WavFile.h"

extern char** environ;

namespace Platform {

namespace {

// A child process that is killed and reaped when the object goes away.
class CChild : private Tal::Base::CNonCopyable {
public:
    CChild() = default;
    ~CChild() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            int status = 0;
            ::waitpid(pid_, &status, 0);
        }
    }

    bool Spawn(const std::vector<std::string>& argv, const std::string& stderrPath) {
        std::vector<std::string> args = argv;
        std::vector<char*> cargs;
        for (std::string& a : args) {
            cargs.push_back(&a[0]);
        }
        cargs.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, stderrPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int rc = posix_spawnp(&pid_, cargs[0], &actions, nullptr, cargs.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) {
            pid_ = -1;
            return false;
        }
        return true;
    }

    /// Waits for the end; -1 when cancelled or past the deadline (the child is killed then), else the exit
    /// status (128 + signal for a signal).
    int Wait(const std::atomic<bool>& cancelled, int timeoutMs) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (pid_ > 0) {
            int status = 0;
            const pid_t done = ::waitpid(pid_, &status, WNOHANG);
            if (done == pid_) {
                pid_ = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            if (cancelled || std::chrono::steady_clock::now() > deadline) {
                return -1;  // the destructor kills it
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }

private:
    pid_t pid_ = -1;
};

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    return text.substr(0, 400);
}

}  // namespace

bool ReadPcmWav(const std::string& path, std::vector<int16_t>& samples, int& sampleRate, std::string& error) {
    Tal::MediaKit::PcmAudio audio;
    Tal::MediaKit::WavFacts facts;
    if (!Tal::MediaKit::ReadWav(path, audio, error, &facts)) {
        return false;
    }
    if (facts.channels > 2 || facts.bitsPerSample != 16) {
        error = path + ": only 16-bit mono or stereo PCM is read";
        return false;
    }
    sampleRate = audio.sampleRate;
    samples = Tal::MediaKit::MixToMono(audio);
    return true;
}

CTtsSynthesizer::CTtsSynthesizer(std::string workDirectory, std::string program, int sampleRate)
    : workDirectory_(std::move(workDirectory)), program_(std::move(program)), sampleRate_(sampleRate) {}

std::string CTtsSynthesizer::VoiceFor(const std::string& languageKey) {
    std::string key;
    for (char c : languageKey) {
        key += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    std::replace(key.begin(), key.end(), '_', '-');
    if (key.rfind("zh", 0) == 0) {
        return "cmn";
    }
    if (key == "en-us" || key == "en-gb") {
        return key;
    }
    const std::size_t dash = key.find('-');
    return dash == std::string::npos ? key : key.substr(0, dash);
}

bool CTtsSynthesizer::Synthesize(const std::string& text, const std::string& voice,
                                 const std::atomic<bool>& cancelled, std::vector<int16_t>& samples,
                                 std::string& error, int timeoutMs) const {
    static std::atomic<int> counter{0};
    const std::string stem = Tal::Base::FileSystem::JoinPath(
        workDirectory_, ".tts-" + std::to_string(::getpid()) + "-" + std::to_string(++counter));
    const std::string wav = stem + ".wav";
    const std::string log = stem + ".log";
    struct Cleanup {
        std::string a, b;
        ~Cleanup() {
            std::remove(a.c_str());
            std::remove(b.c_str());
        }
    } cleanup{wav, log};

    int status = -1;
    {
        CChild child;
        // The text is one argument after "--": never read as an option, never seen by a shell.
        if (!child.Spawn({program_, "-v", voice, "-w", wav, "--", text}, log)) {
            error = "cannot run " + program_ + " (is it installed?)";
            return false;
        }
        status = child.Wait(cancelled, timeoutMs);
    }
    if (cancelled) {
        error = "cancelled";
        return false;
    }
    if (status != 0) {
        error = status < 0 ? program_ + " took longer than " + std::to_string(timeoutMs) + " ms"
                           : program_ + " failed (" + std::to_string(status) + "): " + ReadText(log);
        return false;
    }
    std::vector<int16_t> speech;
    int rate = 0;
    if (!ReadPcmWav(wav, speech, rate, error)) {
        return false;
    }
    samples.clear();
    if (rate == sampleRate_) {
        samples = std::move(speech);
        return true;
    }
    Tal::MediaCodec::CResampler resampler;
    if (resampler.Open(rate, sampleRate_, 1) != Tal::MediaCodec::kCodecOk ||
        resampler.Process(speech.data(), speech.size(), &samples) != Tal::MediaCodec::kCodecOk ||
        resampler.Flush(&samples) != Tal::MediaCodec::kCodecOk) {
        error = std::string("resampling the speech failed: ") + resampler.LastErrorText();
        return false;
    }
    return true;
}

}  // namespace Platform
