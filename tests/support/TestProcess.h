#pragma once
// Running helper programs from tests: bounded in time, output captured, extra environment entries.

#include <sys/types.h>

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

/// A program left running in the background until Stop or destruction (SIGTERM, then SIGKILL).
/// It is killed when the thread that started it ends: start it from a thread that outlives it.
class CBackgroundProcess {
public:
    CBackgroundProcess() = default;
    ~CBackgroundProcess() { Stop(); }
    CBackgroundProcess(const CBackgroundProcess&) = delete;
    CBackgroundProcess& operator=(const CBackgroundProcess&) = delete;

    /// Output goes to `logPath` (empty: discarded); standard input is `inputFd` (-1: /dev/null).
    bool Start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
               const std::string& logPath, int inputFd = -1);
    bool IsRunning();
    /// Waits up to `timeoutMs` for the program to end by itself; true when it did.
    bool Wait(int timeoutMs, int* exitCode = nullptr);
    void Stop(int graceMs = 3000);
    pid_t Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
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

}  // namespace BcastTest
