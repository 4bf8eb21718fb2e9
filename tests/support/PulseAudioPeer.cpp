#include "PulseAudioPeer.h"

#include <stdlib.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace BcastTest {

namespace {
bool WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}
}  // namespace

CPulseAudioPeer::CPulseAudioPeer() : dir_("bcast-pulse") {}

CPulseAudioPeer::~CPulseAudioPeer() {
    Stop();
}

std::vector<std::string> CPulseAudioPeer::ClientEnvironment() const {
    return {
        "PULSE_SERVER=" + ServerAddress(),
        "PULSE_CLIENTCONFIG=" + dir_.File("client.conf"),
        "PULSE_SOURCE=" + std::string(kSource),
        "PULSE_SINK=" + std::string(kSink),
        // The standard configuration, then ours on top: default pcm and ctl go to the pulse plugin.
        "ALSA_CONFIG_PATH=/usr/share/alsa/alsa.conf:" + dir_.File("asound.conf"),
        // PortAudio's JACK back end must not start a JACK server while it probes.
        "JACK_NO_START_SERVER=1",
    };
}

void CPulseAudioPeer::ExportClientEnvironment() const {
    for (const std::string& entry : ClientEnvironment()) {
        std::size_t equals = entry.find('=');
        ::setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
}

bool CPulseAudioPeer::Start(std::string* error, int timeoutMs) {
    if (dir_.Path().empty()) {
        *error = "cannot create a directory for the PulseAudio server";
        return false;
    }
    if (!HasProgram("pulseaudio") || !HasProgram("pactl") || !HasProgram("paplay") || !HasProgram("pacat")) {
        *error =
            "pulseaudio, pactl, paplay or pacat not found on PATH: install pulseaudio and pulseaudio-utils";
        return false;
    }
    std::string script =
        "load-module module-native-protocol-unix auth-anonymous=1 socket=" + dir_.File("native") + "\n" +
        "load-module module-null-sink sink_name=" + kSink + " rate=48000 channels=1\n" + "set-default-sink " +
        kSink + "\n" + "set-default-source " + kSource + "\n";
    bool written =
        WriteText(dir_.File("server.pa"), script) &&
        WriteText(dir_.File("client.conf"), "autospawn = no\n") &&
        WriteText(dir_.File("asound.conf"), "pcm.!default { type pulse }\nctl.!default { type pulse }\n");
    if (!written) {
        *error = "cannot write the PulseAudio configuration in " + dir_.Path();
        return false;
    }
    // Everything the server keeps goes into its own directory, even as root.
    std::vector<std::string> serverEnv = {
        "HOME=" + dir_.Path(),
        "XDG_RUNTIME_DIR=" + dir_.Path(),
        "XDG_CONFIG_HOME=" + dir_.Path(),
        "PULSE_RUNTIME_PATH=" + dir_.Path(),
        "PULSE_STATE_PATH=" + dir_.Path(),
    };
    std::vector<std::string> argv = {"pulseaudio",
                                     "--daemonize=no",
                                     "--exit-idle-time=-1",
                                     "--system=false",
                                     "-n",
                                     "-F",
                                     dir_.File("server.pa"),
                                     "--use-pid-file=no",
                                     "--disallow-module-loading=no",
                                     "--log-target=stderr"};
    if (!server_.Start(argv, serverEnv, dir_.File("server.log"))) {
        *error = "cannot start pulseaudio";
        return false;
    }
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < deadline) {
        if (!server_.IsRunning()) {
            *error = "pulseaudio exited during start-up; its log:\n" + ReadLog();
            return false;
        }
        ProcessResult info = Pactl({"list", "short", "sources"}, 2000);
        if (info.exitCode == 0 && info.output.find(kSource) != std::string::npos) {
            if (!keepAlive_.Start({"pacat", "--playback", "-d", kSink, "--raw", "--format=s16le",
                                   "--channels=1", "--rate=8000", "--latency-msec=20", "/dev/zero"},
                                  ClientEnvironment(), dir_.File("keepalive.log"))) {
                *error = "cannot start pacat";
                Stop();
                return false;
            }
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    Stop();
    *error = "pulseaudio did not answer within " + std::to_string(timeoutMs) + " ms; its log:\n" + ReadLog();
    return false;
}

void CPulseAudioPeer::Stop() {
    server_.Stop();
}

ProcessResult CPulseAudioPeer::Pactl(const std::vector<std::string>& args, int timeoutMs) const {
    std::vector<std::string> argv = {"pactl"};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunProcess(argv, timeoutMs, ClientEnvironment());
}

bool CPulseAudioPeer::StartPlaying(const std::string& wavPath, CBackgroundProcess* player) const {
    return player->Start({"paplay", "-d", kSink, wavPath}, ClientEnvironment(), dir_.File("paplay.log"));
}

bool CPulseAudioPeer::StartRecording(const std::string& rawPath, int rate,
                                     CBackgroundProcess* recorder) const {
    return recorder->Start({"parec", "-d", kSource, "--format=s16le", "--channels=1",
                            "--rate=" + std::to_string(rate), "--raw", "--latency-msec=20", rawPath},
                           ClientEnvironment(), dir_.File("parec.log"));
}

std::string CPulseAudioPeer::ReadLog() const {
    std::ifstream in(dir_.File("server.log"));
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace BcastTest
