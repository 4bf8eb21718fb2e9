#include "TestProcess.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
// parent-death signal so that nothing outlives a test process that crashed. -1 descriptors are /dev/null.
pid_t Spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env, int outFd, int errFd,
            int inputFd = -1, int deathSignal = SIGKILL) {
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
    ::prctl(PR_SET_PDEATHSIG, deathSignal);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    int devNull = ::open("/dev/null", O_RDWR);
    ::dup2(inputFd >= 0 ? inputFd : devNull, STDIN_FILENO);
    ::dup2(outFd >= 0 ? outFd : devNull, STDOUT_FILENO);
    ::dup2(errFd >= 0 ? errFd : devNull, STDERR_FILENO);
    ::execvpe(argp[0], argp.data(), envp.data());
    ::_exit(127);
}

int OpenLog(const std::string& path) {
    return path.empty() ? -1 : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

std::string Env(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : fallback;
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
    pid_t pid = Spawn(argv, env, pipeFds[1], pipeFds[1]);
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

std::string BinaryDir() {
    return Env("BCAST_BINARY_DIR", ".");
}

std::string SourceDir() {
    return Env("BCAST_SOURCE_DIR", ".");
}

std::string Program(const std::string& name) {
    return BinaryDir() + "/bin/" + name;
}

int FreeLoopbackPort(int type) {
    const int fd = ::socket(AF_INET, type, 0);
    if (fd < 0) {
        return 0;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    int port = 0;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    ::close(fd);
    return port;
}

CBackgroundProcess::~CBackgroundProcess() {
    Stop();
    if (pipe_ >= 0) {
        ::close(pipe_);
    }
}

bool CBackgroundProcess::Start(const std::vector<std::string>& argv, const Options& options) {
    Stop();
    if (pipe_ >= 0) {
        ::close(pipe_);
        pipe_ = -1;
    }
    pending_.clear();
    lines_.clear();
    exitCode_ = -1;
    int pipeFds[2] = {-1, -1};
    if (argv.empty() || (options.pipeOutput && ::pipe2(pipeFds, O_CLOEXEC) != 0)) {
        return false;
    }
    const int outFd = options.pipeOutput ? pipeFds[1] : OpenLog(options.outPath);
    const int ownErrFd = OpenLog(options.errPath);
    int errFd = ownErrFd >= 0 ? ownErrFd : (options.pipeOutput && !options.pipeErrors ? -1 : outFd);
    if (options.keepErrors) {
        errFd = STDERR_FILENO;
    }
    pid_ = Spawn(argv, options.env, outFd, errFd, options.inputFd, options.deathSignal);
    for (int fd : {outFd, ownErrFd}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    pipe_ = pipeFds[0];
    return pid_ > 0;
}

bool CBackgroundProcess::Start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                               const std::string& logPath, int inputFd) {
    Options options;
    options.env = env;
    options.outPath = logPath;
    options.inputFd = inputFd;
    return Start(argv, options);
}

bool CBackgroundProcess::StartPiped(const std::vector<std::string>& argv, bool withErrors) {
    Options options;
    options.pipeOutput = true;
    options.pipeErrors = withErrors;
    options.keepErrors = !withErrors;
    return Start(argv, options);
}

bool CBackgroundProcess::ReadLine(std::string& line, std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        const std::size_t newline = pending_.find('\n');
        if (newline != std::string::npos) {
            line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            lines_.push_back(line);
            return true;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (pipe_ < 0) {
            return false;
        }
        pollfd fd{pipe_, POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(std::max<long long>(0, left.count()))) <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t count = ::read(pipe_, buffer, sizeof(buffer));
        if (count <= 0) {
            ::close(pipe_);
            pipe_ = -1;
            if (pending_.empty()) {
                return false;
            }
            pending_ += '\n';  // the last line had no newline
            continue;
        }
        pending_.append(buffer, static_cast<std::size_t>(count));
    }
}

bool CBackgroundProcess::WaitForLine(const std::string& prefix, std::string& rest,
                                     std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    std::string line;
    while (ReadLine(line, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()))) {
        if (line.rfind(prefix, 0) == 0) {
            rest = line.substr(prefix.size());
            return true;
        }
    }
    return false;
}

std::string CBackgroundProcess::AllOutput(std::chrono::milliseconds timeout) {
    std::string line;
    while (ReadLine(line, timeout)) {
    }
    std::string all;
    for (const std::string& each : lines_) {
        all += each + "\n";
    }
    return all;
}

bool CBackgroundProcess::IsRunning() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        exitCode_ = StatusToCode(status);
        return false;
    }
    return true;
}

bool CBackgroundProcess::Wait(int timeoutMs, int* exitCode) {
    auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (IsRunning()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (exitCode != nullptr) {
        *exitCode = exitCode_;
    }
    return true;
}

int CBackgroundProcess::ExitCode(int timeoutMs) {
    return Wait(timeoutMs) ? exitCode_ : -1;
}

void CBackgroundProcess::Signal(int signal, bool wholeGroup) {
    if (pid_ > 0) {
        ::kill(wholeGroup ? -pid_ : pid_, signal);
    }
}

int CBackgroundProcess::Stop(int graceMs, bool wholeGroup) {
    if (pid_ <= 0) {
        return -1;
    }
    Signal(SIGTERM, wholeGroup);
    if (Wait(graceMs)) {
        return exitCode_;
    }
    Kill(wholeGroup);
    return -1;
}

bool CBackgroundProcess::Kill(bool wholeGroup) {
    if (pid_ <= 0) {
        return false;
    }
    Signal(SIGKILL, wholeGroup);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    exitCode_ = StatusToCode(status);
    pid_ = -1;
    return true;
}

std::string MakeKeptDir(const std::string& tag) {
    std::string pattern = "/tmp/bcast-" + tag + "-XXXXXX";
    char* dir = ::mkdtemp(&pattern[0]);
    return dir != nullptr ? std::string(dir) : std::string();
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
