#include "ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <thread>

namespace TransferTest {

CChildProcess::~CChildProcess() {
    if (pid_ > 0) {
        Kill(SIGTERM);
        if (Wait(std::chrono::seconds(5)) == -1 && pid_ > 0) {
            Kill(SIGKILL);
            Wait(std::chrono::seconds(5));
        }
    }
    if (stdout_ >= 0) {
        close(stdout_);
    }
}

bool CChildProcess::Start(const std::vector<std::string>& argv, bool captureStderr) {
    int pipeFds[2];
    if (argv.empty() || pipe2(pipeFds, O_CLOEXEC) != 0) {
        return false;
    }
    std::vector<char*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    const pid_t pid = fork();
    if (pid < 0) {
        close(pipeFds[0]);
        close(pipeFds[1]);
        return false;
    }
    if (pid == 0) {
        dup2(pipeFds[1], STDOUT_FILENO);
        if (captureStderr) {
            dup2(pipeFds[1], STDERR_FILENO);
        }
        execv(args[0], args.data());
        _exit(127);
    }
    close(pipeFds[1]);
    pid_ = pid;
    stdout_ = pipeFds[0];
    return true;
}

bool CChildProcess::ReadLine(std::string& line, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const size_t newline = pending_.find('\n');
        if (newline != std::string::npos) {
            line = pending_.substr(0, newline);
            pending_.erase(0, newline + 1);
            lines_.push_back(line);
            return true;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || stdout_ < 0) {
            return false;
        }
        pollfd descriptor{stdout_, POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        char buffer[4096];
        const ssize_t count = read(stdout_, buffer, sizeof(buffer));
        if (count <= 0) {
            close(stdout_);
            stdout_ = -1;
            if (!pending_.empty()) {
                line = pending_;
                pending_.clear();
                lines_.push_back(line);
                return true;
            }
            return false;
        }
        pending_.append(buffer, static_cast<size_t>(count));
    }
}

bool CChildProcess::WaitForLine(const std::string& prefix, std::string& rest,
                                std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::string line;
    while (ReadLine(line, std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now()))) {
        if (line.rfind(prefix, 0) == 0) {
            rest = line.substr(prefix.size());
            return true;
        }
    }
    return false;
}

int CChildProcess::Wait(std::chrono::milliseconds timeout) {
    if (pid_ <= 0) {
        return status_;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            pid_ = -1;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return status_;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void CChildProcess::Kill(int signal) {
    if (pid_ > 0) {
        ::kill(pid_, signal);
    }
}

std::string BinaryDir() {
    const char* dir = std::getenv("BCAST_BINARY_DIR");
    return dir != nullptr ? dir : ".";
}

std::string SourceDir() {
    const char* dir = std::getenv("BCAST_SOURCE_DIR");
    return dir != nullptr ? dir : ".";
}

std::string MakeTempDir(const std::string& name) {
    std::string pattern = BinaryDir() + "/test-tmp-" + name + "-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    const char* made = mkdtemp(buffer.data());
    return made != nullptr ? std::string(made) : std::string();
}

bool RunSoxStat(const std::vector<std::string>& inputArgs, SoxStat& stat) {
    std::vector<std::string> argv = {"/usr/bin/sox"};
    argv.insert(argv.end(), inputArgs.begin(), inputArgs.end());
    argv.insert(argv.end(), {"-n", "stat"});
    CChildProcess sox;
    if (!sox.Start(argv, true)) {
        return false;
    }
    std::string line;
    while (sox.ReadLine(line, std::chrono::seconds(30))) {
        const size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const double value = std::atof(line.c_str() + colon + 1);
        if (line.rfind("Length (seconds)", 0) == 0) {
            stat.lengthSeconds = value;
        } else if (line.rfind("Rough   frequency", 0) == 0) {
            stat.roughFrequency = value;
        } else if (line.rfind("RMS     amplitude", 0) == 0) {
            stat.rmsAmplitude = value;
        }
    }
    return sox.Wait(std::chrono::seconds(30)) == 0 && stat.lengthSeconds >= 0.0;
}

}  // namespace TransferTest
