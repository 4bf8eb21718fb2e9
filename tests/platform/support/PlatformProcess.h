#pragma once
// Runs the real bcast-platform program for a test (through the shared runner, tests/support/TestProcess.h):
// picks free ports (port 0), waits for the addresses it prints, and stops it with SIGTERM, reporting its exit
// status.

#include <sys/types.h>

#include <string>
#include <vector>

#include "TestProcess.h"

namespace PlatformTest {

/// The program, the demo fixture and a scratch directory, from the environment ctest sets.
std::string PlatformBinary();
std::string DemoFixture();
std::string SourceDir();
/// A fresh directory under /tmp, removed by nobody (small files only).
std::string MakeTempDir(const std::string& tag);
std::string ReadFile(const std::string& path);

class CPlatformProcess {
public:
    CPlatformProcess() = default;
    ~CPlatformProcess() { Kill(); }
    CPlatformProcess(const CPlatformProcess&) = delete;
    CPlatformProcess& operator=(const CPlatformProcess&) = delete;

    /// Starts the program with these arguments (plus "--listen 127.0.0.1:0", "--sim-ports any" and a
    /// private "--speaker-dir" when they are not given) and waits up to 20 s for its addresses. False with
    /// `Error()` naming what went wrong.
    bool Start(std::vector<std::string> args = {});
    /// Starts the program and waits for it to end by itself (for start-up failures); returns its exit code,
    /// -1 when it had to be killed.
    int RunToExit(std::vector<std::string> args, int timeoutMs = 20000);
    /// SIGTERM, then waits up to 20 s. Returns the exit code, or -1 when it had to be killed or died by a
    /// signal.
    int Stop();
    /// SIGKILL, as a crash or a power cut: the platform closes nothing; waits for it to be reaped. True when
    /// a running platform was killed.
    bool Kill();

    const std::string& RestUrl() const { return restUrl_; }
    const std::string& PushUrl() const { return pushUrl_; }
    /// rtsp://HOST:PORT of the streaming server; empty when it runs without one.
    const std::string& StreamingUrl() const { return streamingUrl_; }
    /// Where the speakers write their WAV files.
    const std::string& SpeakerDir() const { return speakerDir_; }
    const std::string& Error() const { return error_; }
    std::string Stdout() const;
    std::string Stderr() const;
    pid_t Pid() const { return process_.Pid(); }

private:
    bool Spawn(std::vector<std::string> args);
    int WaitExit(int timeoutMs);

    BcastTest::CBackgroundProcess process_;
    std::string dir_;
    std::string restUrl_;
    std::string pushUrl_;
    std::string streamingUrl_;
    std::string speakerDir_;
    std::string error_;
};

}  // namespace PlatformTest
