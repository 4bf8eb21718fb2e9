#pragma once
// A peer program started by a test: stdout read line by line with time-outs, stopped (and reaped) on
// destruction.

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace TransferTest {

class CChildProcess {
public:
    CChildProcess() = default;
    ~CChildProcess();
    CChildProcess(const CChildProcess&) = delete;
    CChildProcess& operator=(const CChildProcess&) = delete;

    /// Starts `argv[0]` with the arguments; stdout is captured, stderr goes to the test's stderr unless
    /// `captureStderr` (then both come through ReadLine).
    bool Start(const std::vector<std::string>& argv, bool captureStderr = false);
    /// Next stdout line, or false when none came within `timeout` (or the program ended).
    bool ReadLine(std::string& line, std::chrono::milliseconds timeout);
    /// Reads lines until one starts with `prefix`; returns it (without the prefix) in `rest`.
    bool WaitForLine(const std::string& prefix, std::string& rest, std::chrono::milliseconds timeout);
    /// Everything read so far, one line per entry.
    const std::vector<std::string>& Lines() const { return lines_; }
    /// Waits for the program to end; returns its exit status, or -1 after `timeout` (the program keeps
    /// running).
    int Wait(std::chrono::milliseconds timeout);
    /// Sends a signal; Kill(SIGKILL) simulates a crash.
    void Kill(int signal);
    pid_t Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int stdout_ = -1;
    std::string pending_;
    std::vector<std::string> lines_;
    int status_ = -1;
};

/// Directory of the build's programs and of the sources (from the ctest environment).
std::string BinaryDir();
std::string SourceDir();
/// A new empty directory under the build tree for this test's files.
std::string MakeTempDir(const std::string& name);

/// What `sox FILE -n stat` says about an audio file (sox as an independent decoder).
struct SoxStat {
    double lengthSeconds = -1.0;
    double roughFrequency = -1.0;
    double rmsAmplitude = -1.0;
};
/// `inputArgs` describe the input (for example {"-t", "ul", "-r", "8000", "-c", "1", path}); false when sox
/// fails.
bool RunSoxStat(const std::vector<std::string>& inputArgs, SoxStat& stat);

}  // namespace TransferTest
