#include "PlatformProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace PlatformTest {

namespace {

std::string Env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string LineValue(const std::string& text, const std::string& marker) {
    size_t at = text.find(marker);
    if (at == std::string::npos) {
        return std::string();
    }
    size_t start = at + marker.size();
    size_t end = text.find('\n', start);
    if (end == std::string::npos) {
        return std::string();
    }
    return text.substr(start, end - start);
}

}  // namespace

std::string SourceDir() {
    return Env("BCAST_SOURCE_DIR");
}
std::string PlatformBinary() {
    return Env("BCAST_BINARY_DIR") + "/bin/bcast-platform";
}
std::string DemoFixture() {
    return SourceDir() + "/fixtures/demo-site.json";
}

std::string MakeTempDir(const std::string& tag) {
    std::string pattern = "/tmp/bcast-" + tag + "-XXXXXX";
    char* dir = mkdtemp(&pattern[0]);
    return dir != nullptr ? std::string(dir) : std::string();
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

CPlatformProcess::~CPlatformProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

bool CPlatformProcess::Spawn(std::vector<std::string> args) {
    dir_ = MakeTempDir("platform");
    if (dir_.empty()) {
        error_ = "cannot make a scratch directory";
        return false;
    }
    bool hasSimPorts = false;
    bool hasSpeakerDir = false;
    for (const std::string& a : args) {
        hasSimPorts = hasSimPorts || a == "--sim-ports";
        hasSpeakerDir = hasSpeakerDir || a == "--speaker-dir";
    }
    // Suites run side by side: the simulated peers take free ports, not the fixture's fixed ones, and
    // each platform records its speakers in its own scratch directory.
    if (!hasSimPorts) {
        args.push_back("--sim-ports");
        args.push_back("any");
    }
    if (!hasSpeakerDir) {
        args.push_back("--speaker-dir");
        args.push_back(dir_ + "/speakers");
    }
    const std::string binary = PlatformBinary();
    if (::access(binary.c_str(), X_OK) != 0) {
        error_ = "the platform program is missing: " + binary + " (is BCAST_BINARY_DIR set by ctest?)";
        return false;
    }
    std::vector<std::string> argv = {binary};
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargv;
    for (std::string& a : argv) {
        cargv.push_back(&a[0]);
    }
    cargv.push_back(nullptr);
    const std::string out = dir_ + "/stdout.txt";
    const std::string err = dir_ + "/stderr.txt";
    // Opened before the fork: the child only duplicates descriptors and calls async-signal-safe functions.
    const int outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const int errFd = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const pid_t parent = ::getpid();
    int rc = outFd < 0 || errFd < 0 ? -1 : 0;
    if (rc == 0) {
        pid_ = ::fork();
        if (pid_ == 0) {
            // A test that dies (a crash, a sanitizer abort) must not leave its platform running: the platform
            // stops as on SIGTERM, with its object stores.
            ::prctl(PR_SET_PDEATHSIG, SIGTERM);
            if (::getppid() != parent) {
                ::_exit(127);
            }
            ::dup2(outFd, 1);
            ::dup2(errFd, 2);
            ::execve(binary.c_str(), cargv.data(), environ);
            ::_exit(127);
        }
        rc = pid_ < 0 ? -1 : 0;
    }
    if (outFd >= 0) {
        ::close(outFd);
    }
    if (errFd >= 0) {
        ::close(errFd);
    }
    if (rc != 0) {
        pid_ = -1;
        error_ = "cannot start " + binary;
        return false;
    }
    return true;
}

bool CPlatformProcess::Start(std::vector<std::string> args) {
    bool hasListen = false;
    for (const std::string& a : args) {
        hasListen = hasListen || a == "--listen";
    }
    if (!hasListen) {
        args.push_back("--listen");
        args.push_back("127.0.0.1:0");
    }
    if (!Spawn(args)) {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string out = Stdout();
        restUrl_ = LineValue(out, "REST listening on ");
        pushUrl_ = LineValue(out, "push listening on ");
        if (!restUrl_.empty() && !pushUrl_.empty() && !LineValue(out, "speakers record to ").empty()) {
            streamingUrl_ = LineValue(out, "streaming server on ");
            speakerDir_ = LineValue(out, "speakers record to ");
            return true;
        }
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            error_ = "the platform exited during start-up: " + Stderr();
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    error_ = "the platform printed no addresses within 20 s: " + Stdout() + Stderr();
    return false;
}

int CPlatformProcess::RunToExit(std::vector<std::string> args, int timeoutMs) {
    if (!Spawn(args)) {
        return -1;
    }
    return WaitExit(timeoutMs);
}

int CPlatformProcess::WaitExit(int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (pid_ > 0) {
        int status = 0;
        pid_t done = ::waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
            pid_ = -1;
            error_ = "the platform did not end in time and was killed";
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
}

int CPlatformProcess::Stop() {
    if (pid_ <= 0) {
        return -1;
    }
    ::kill(pid_, SIGTERM);
    return WaitExit(20000);
}

bool CPlatformProcess::Kill() {
    if (pid_ <= 0) {
        return false;
    }
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return true;
}

std::string CPlatformProcess::Stdout() const {
    return ReadFile(dir_ + "/stdout.txt");
}
std::string CPlatformProcess::Stderr() const {
    return ReadFile(dir_ + "/stderr.txt");
}

}  // namespace PlatformTest
