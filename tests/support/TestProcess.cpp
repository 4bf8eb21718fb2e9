#include "TestProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

extern char** environ;

namespace BcastTest {

namespace {

using Clock = std::chrono::steady_clock;

// The current environment with `extra` entries added; an extra entry replaces one of the same name.
std::vector<std::string> MergedEnvironment(const std::vector<std::string>& extra) {
    std::vector<std::string> merged;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string current = *entry;
        std::string name = current.substr(0, current.find('='));
        bool replaced = false;
        for (const std::string& e : extra) {
            if (e.compare(0, name.size() + 1, name + "=") == 0) {
                replaced = true;
            }
        }
        if (!replaced) {
            merged.push_back(current);
        }
    }
    merged.insert(merged.end(), extra.begin(), extra.end());
    return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
    std::vector<char*> pointers;
    for (std::string& s : strings) {
        pointers.push_back(s.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

int StatusToCode(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return -1;
}

// Starts in its own process group so that a stop reaches the program's children too, and with a
// parent-death signal so that nothing outlives a test process that crashed.
pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, int outputFd,
            int inputFd = -1) {
    std::vector<std::string> args = argv;
    std::vector<std::string> environment = MergedEnvironment(env);
    std::vector<char*> argp = Pointers(args);
    std::vector<char*> envp = Pointers(environment);
    const pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid != 0) {
        return pid;  // the child's pid, or -1
    }
    // Child: only async-signal-safe calls until exec.
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    int devNull = ::open("/dev/null", O_RDWR);
    ::dup2(inputFd >= 0 ? inputFd : devNull, STDIN_FILENO);
    ::dup2(outputFd >= 0 ? outputFd : devNull, STDOUT_FILENO);
    ::dup2(outputFd >= 0 ? outputFd : devNull, STDERR_FILENO);
    ::execvpe(argp[0], argp.data(), envp.data());
    ::_exit(127);
}

}  // namespace

ProcessResult RunProcess(const std::vector<std::string>& argv, int timeoutMs,
                         const std::vector<std::string>& env) {
    ProcessResult result;
    if (argv.empty() || !HasProgram(argv[0])) {
        result.output = (argv.empty() ? std::string("nothing") : argv[0]) + " not found on PATH";
        return result;
    }
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) {
        return result;
    }
    pid_t pid = Spawn(argv, env, pipeFds[1]);
    ::close(pipeFds[1]);
    if (pid < 0) {
        ::close(pipeFds[0]);
        result.output = "cannot run " + argv[0];
        return result;
    }
    result.started = true;
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    char buffer[4096];
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            result.timedOut = true;
            ::kill(-pid, SIGKILL);
            break;
        }
        pollfd fd{pipeFds[0], POLLIN, 0};
        int ready = ::poll(&fd, 1, static_cast<int>(left));
        if (ready > 0) {
            ssize_t n = ::read(pipeFds[0], buffer, sizeof(buffer));
            if (n <= 0) {
                break;  // the program closed its output: it is ending
            }
            result.output.append(buffer, static_cast<std::size_t>(n));
        }
    }
    ::close(pipeFds[0]);
    // The output is closed; the exit follows at once unless the program hangs on with closed streams.
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            result.timedOut = true;
            ::kill(-pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    result.exitCode = StatusToCode(status);
    return result;
}

bool HasProgram(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return ::access(program.c_str(), X_OK) == 0;
    }
    const char* path = std::getenv("PATH");
    std::string paths = path != nullptr ? path : "/usr/bin:/bin";
    std::size_t start = 0;
    while (start <= paths.size()) {
        std::size_t end = paths.find(':', start);
        std::string dir = paths.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!dir.empty() && ::access((dir + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return false;
}

bool CBackgroundProcess::Start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                               const std::string& logPath, int inputFd) {
    Stop();
    int fd = -1;
    if (!logPath.empty()) {
        fd = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    }
    pid_ = argv.empty() ? -1 : Spawn(argv, env, fd, inputFd);
    if (fd >= 0) {
        ::close(fd);
    }
    return pid_ > 0;
}

bool CBackgroundProcess::IsRunning() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return false;
    }
    return true;
}

bool CBackgroundProcess::Wait(int timeoutMs, int* exitCode) {
    if (pid_ <= 0) {
        return true;
    }
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    int status = 0;
    while (Clock::now() < deadline) {
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            if (exitCode != nullptr) {
                *exitCode = StatusToCode(status);
            }
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

void CBackgroundProcess::Stop(int graceMs) {
    if (pid_ <= 0) {
        return;
    }
    ::kill(-pid_, SIGTERM);
    if (!Wait(graceMs)) {
        ::kill(-pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    pid_ = -1;
}

CTempDir::CTempDir(const std::string& prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern =
        std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/" + prefix + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) != nullptr) {
        path_ = buffer.data();
    }
}

CTempDir::~CTempDir() {
    if (!path_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
}

}  // namespace BcastTest
