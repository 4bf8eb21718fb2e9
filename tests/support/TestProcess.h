#pragma once
// The one runner of helper programs for every suite: a bounded run with its output captured, and a program
// left running in the background (its output in a file or read line by line, a bounded stop, a kill).

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace BcastTest {

struct ProcessResult {
    bool started = false;   ///< false when the program could not be run at all
    bool timedOut = false;  ///< killed at the deadline
    int exitCode = -1;      ///< exit status, or 128 + signal
    std::string output;     ///< stdout and stderr together
};

/// Runs `argv` (argv[0] looked up on PATH) and waits at most `timeoutMs`; `env` entries ("NAME=value")
/// are added to the current environment of the child. A program that cannot be run exits with 127.
ProcessResult RunProcess(const std::vector<std::string>& argv, int timeoutMs,
                         const std::vector<std::string>& env = {});

/// True when `program` is found on PATH (or is an executable path).
bool HasProgram(const std::string& program);

/// The build's and the sources' top directories, from the environment ctest sets.
std::string BinaryDir();
std::string SourceDir();
/// A program the build made: BinaryDir()/bin/NAME.
std::string Program(const std::string& name);
/// A 127.0.0.1 port (SOCK_STREAM or SOCK_DGRAM) that was free a moment ago; 0 when none could be bound.
int FreeLoopbackPort(int type);

/// A program left running in the background until Stop or destruction (SIGTERM, then SIGKILL). It runs in
/// a process group of its own, so that a stop reaches its children too, and gets `deathSignal` when the
/// thread that started it ends: start it from a thread that outlives it.
class CBackgroundProcess {
public:
    struct Options {
        std::vector<std::string> env;  ///< "NAME=value" entries added to the current environment
        std::string outPath;           ///< stdout (and stderr unless errPath) to this file; empty: discarded
        std::string errPath;           ///< stderr to its own file
        bool pipeOutput = false;       ///< stdout read with ReadLine instead (stderr too with pipeErrors)
        bool pipeErrors = false;
        bool keepErrors = false;  ///< stderr stays the test's own
        int inputFd = -1;         ///< standard input; -1: /dev/null
        int deathSignal = SIGKILL;
    };

    CBackgroundProcess() = default;
    ~CBackgroundProcess();
    CBackgroundProcess(const CBackgroundProcess&) = delete;
    CBackgroundProcess& operator=(const CBackgroundProcess&) = delete;

    bool Start(const std::vector<std::string>& argv, const Options& options);
    /// Output goes to `logPath` (empty: discarded); standard input is `inputFd` (-1: /dev/null).
    bool Start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
               const std::string& logPath, int inputFd = -1);
    /// Standard output through ReadLine; standard error too when `withErrors`, else the test's own.
    bool StartPiped(const std::vector<std::string>& argv, bool withErrors = false);

    /// The next piped line, or false when none came within `timeout` (or the output ended).
    bool ReadLine(std::string& line, std::chrono::milliseconds timeout);
    /// Reads lines until one starts with `prefix`; returns the rest of it.
    bool WaitForLine(const std::string& prefix, std::string& rest, std::chrono::milliseconds timeout);
    /// Every piped line read so far.
    const std::vector<std::string>& Lines() const { return lines_; }
    /// Reads the piped output to its end (each read waiting up to `timeout`) and returns all of it.
    std::string AllOutput(std::chrono::milliseconds timeout);

    bool IsRunning();
    /// Waits up to `timeoutMs` for the program to end by itself; true when it did.
    bool Wait(int timeoutMs, int* exitCode = nullptr);
    /// The exit status (128 + signal for a signal) once the program ended within `timeoutMs`, else -1.
    int ExitCode(int timeoutMs);
    /// Sends a signal to the program's group, or to the program alone.
    void Signal(int signal, bool wholeGroup = true);
    /// SIGTERM, up to `graceMs` for the program to end, then SIGKILL. The exit status, or -1 when it had to
    /// be killed or was not running.
    int Stop(int graceMs = 3000, bool wholeGroup = true);
    /// SIGKILL (a crash or a power cut), reaped at once. True when a running program was killed.
    bool Kill(bool wholeGroup = true);
    pid_t Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int pipe_ = -1;
    int exitCode_ = -1;
    std::string pending_;
    std::vector<std::string> lines_;
};

/// A fresh directory under $TMPDIR (or /tmp), removed with its contents on destruction.
class CTempDir {
public:
    explicit CTempDir(const std::string& prefix = "bcast-test");
    ~CTempDir();
    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;
    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// A fresh directory under /tmp that stays after the test (for looking into a failure).
std::string MakeKeptDir(const std::string& tag);

}  // namespace BcastTest
