#pragma once
// A private PulseAudio server for tests: a null sink "vmic" whose monitor is the default source, so
// that what is played into the sink is what a microphone captures. The server lives in its own
// directory and socket; this process's PulseAudio clients and ALSA (default device -> pulse) are
// pointed at it. Start is bounded in time; the server is stopped and its directory removed on Stop.
// While it runs, silence is played into the sink at low latency: an idle null sink renders in blocks
// of up to two seconds, and a recorder stopped in between would miss the last of them.

#include <memory>
#include <string>
#include <vector>

#include "TestProcess.h"

namespace BcastTest {

class CPulseAudioPeer {
public:
    static constexpr const char* kSink = "vmic";
    static constexpr const char* kSource = "vmic.monitor";

    CPulseAudioPeer();
    ~CPulseAudioPeer();
    CPulseAudioPeer(const CPulseAudioPeer&) = delete;
    CPulseAudioPeer& operator=(const CPulseAudioPeer&) = delete;

    /// Starts the server and waits until it answers. False with `error` saying why (pulseaudio or
    /// pactl missing, the server exiting, no answer within `timeoutMs`), its log included.
    bool Start(std::string* error, int timeoutMs = 15000);
    void Stop();

    /// Sets this process's environment for PulseAudio and ALSA clients. Call before the first use of
    /// ALSA or PortAudio in the process: ALSA reads its configuration once.
    void ExportClientEnvironment() const;
    /// The same entries, for child processes.
    std::vector<std::string> ClientEnvironment() const;

    /// Plays a file into the sink with paplay, in the background.
    bool StartPlaying(const std::string& wavPath, CBackgroundProcess* player) const;
    /// Records the sink's monitor with parec (mono, 16-bit, `rate`) into a raw file, in the background.
    bool StartRecording(const std::string& rawPath, int rate, CBackgroundProcess* recorder) const;
    /// Runs pactl with the client environment.
    ProcessResult Pactl(const std::vector<std::string>& args, int timeoutMs = 5000) const;

    const std::string& Directory() const { return dir_.Path(); }
    std::string ServerAddress() const { return "unix:" + dir_.File("native"); }

private:
    std::string ReadLog() const;

    CTempDir dir_;
    CBackgroundProcess server_;
    CBackgroundProcess keepAlive_;
};

}  // namespace BcastTest
