#include "platform/server/storage/StoreProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <thread>

#include "framework/base/NonCopyable.h"
#include "platform/server/json/Json.h"

extern char** environ;

namespace Platform {

namespace {

constexpr char kReady[] = "READY ";

bool MakePipe(Tal::Base::CUniqueFd& readEnd, Tal::Base::CUniqueFd& writeEnd) {
    int fds[2] = {-1, -1};
    // Close-on-exec: no other child (another store, espeak-ng) may inherit an end, or a store would not see
    // its standard input close when the platform ends.
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    readEnd.Reset(fds[0]);
    writeEnd.Reset(fds[1]);
    return true;
}

int RemainingMs(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// posix_spawn's attribute and file-action objects, destroyed on every path.
struct SpawnSetup : private Tal::Base::CNonCopyable {
    posix_spawnattr_t attr;
    posix_spawn_file_actions_t actions;
    SpawnSetup() {
        posix_spawnattr_init(&attr);
        posix_spawn_file_actions_init(&actions);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attr);
    }
};

}  // namespace

CStoreProcess::CStoreProcess(StoreLauncher launcher, StoreProcessConfig config)
    : launcher_(std::move(launcher)), config_(std::move(config)) {}

CStoreProcess::~CStoreProcess() {
    Stop();
}

bool CStoreProcess::Spawn(std::string& error) {
    const std::string what = "object store " + config_.name + ": ";
    if (::access(launcher_.script.c_str(), R_OK) != 0) {
        error = what + "the launcher " + launcher_.script +
                " is missing (name it with --object-store-script, or start with --object-store off)";
        return false;
    }
    Tal::Base::CUniqueFd stdinRead;
    Tal::Base::CUniqueFd stdoutWrite;
    if (!MakePipe(stdinRead, stdin_) || !MakePipe(stdout_, stdoutWrite)) {
        error = what + "cannot make pipes: " + std::strerror(errno);
        return false;
    }
    std::vector<std::string> args = {
        launcher_.node, launcher_.script, "--dir",  config_.dataDir,
        "--address",    config_.address,  "--port", std::to_string(config_.port)};
    if (!config_.accessKey.empty()) {
        args.insert(args.end(), {"--access-key", config_.accessKey, "--secret-key", config_.secretKey});
    }
    for (const std::string& bucket : config_.buckets) {
        args.insert(args.end(), {"--bucket", bucket});
    }
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);

    SpawnSetup setup;
    // The store starts with default signal handling, whatever this thread blocks or ignores.
    sigset_t mask;
    sigemptyset(&mask);
    posix_spawnattr_setsigmask(&setup.attr, &mask);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int s : {SIGPIPE, SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&defaults, s);
    }
    posix_spawnattr_setsigdefault(&setup.attr, &defaults);
    posix_spawnattr_setflags(&setup.attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_adddup2(&setup.actions, stdinRead.Get(), 0);
    posix_spawn_file_actions_adddup2(&setup.actions, stdoutWrite.Get(), 1);
    posix_spawn_file_actions_addopen(&setup.actions, 2, config_.logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    const int rc = posix_spawnp(&pid_, argv[0], &setup.actions, &setup.attr, argv.data(), environ);
    if (rc != 0) {
        pid_ = -1;
        stdin_.Reset();
        stdout_.Reset();
        if (rc == ENOENT || rc == EACCES) {
            error = what + "cannot run " + launcher_.node + ": " + std::strerror(rc) +
                    " (install Node.js with scripts/setup.sh, name it with --node, or start with "
                    "--object-store off)";
        } else {
            error = what + "cannot start " + launcher_.node + ": " + std::strerror(rc);
        }
        return false;
    }
    exitStatus_ = -1;
    output_.clear();
    port_ = 0;
    return true;
}

bool CStoreProcess::WaitReady(std::chrono::steady_clock::time_point deadline, std::string& error) {
    const std::string what = "object store " + config_.name + ": ";
    if (pid_ <= 0) {
        error = what + "not started";
        return false;
    }
    for (;;) {
        for (size_t end = output_.find('\n'); end != std::string::npos; end = output_.find('\n')) {
            const std::string line = output_.substr(0, end);
            output_.erase(0, end + 1);
            if (line.rfind(kReady, 0) != 0) {
                continue;
            }
            rapidjson::Document doc;
            std::string parseError;
            const int port = Json::Parse(line.substr(sizeof(kReady) - 1), doc, parseError)
                                 ? static_cast<int>(Json::GetInt(doc, "port", 0))
                                 : 0;
            if (port <= 0 || port > 65535) {
                error = what + "unexpected start line: " + line;
                Stop();
                return false;
            }
            port_ = port;
            return true;
        }
        const int wait = RemainingMs(deadline);
        if (wait == 0) {
            error = what + "no READY from the store within the start time (its log: " + config_.logPath + ")";
            Stop();
            return false;
        }
        pollfd p{stdout_.Get(), POLLIN, 0};
        // A time-out or an interrupted wait: look at the deadline again.
        if (::poll(&p, 1, wait) <= 0) {
            continue;
        }
        char buffer[512];
        const ssize_t got = ::read(stdout_.Get(), buffer, sizeof(buffer));
        if (got > 0) {
            output_.append(buffer, static_cast<size_t>(got));
            continue;
        }
        if (got == 0 || errno != EINTR) {
            // End of its output: the store ended before it listened.
            Reap(std::chrono::steady_clock::now() + std::chrono::seconds(2));
            error = what + ExitReason(exitStatus_);
            return false;
        }
    }
}

void CStoreProcess::Terminate() {
    stdin_.Reset();
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
    }
}

void CStoreProcess::Reap(std::chrono::steady_clock::time_point deadline) {
    while (pid_ > 0) {
        int status = 0;
        const pid_t done = ::waitpid(pid_, &status, WNOHANG);
        if (done == pid_ || (done < 0 && errno == ECHILD)) {
            exitStatus_ = status;
            pid_ = -1;
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
            exitStatus_ = status;
            pid_ = -1;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    stdin_.Reset();
    stdout_.Reset();
}

void CStoreProcess::Stop(std::chrono::milliseconds grace) {
    if (pid_ <= 0) {
        stdin_.Reset();
        stdout_.Reset();
        return;
    }
    Terminate();
    Reap(std::chrono::steady_clock::now() + grace);
}

bool CStoreProcess::Running() {
    if (pid_ <= 0) {
        return false;
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        exitStatus_ = status;
        pid_ = -1;
        stdin_.Reset();
        stdout_.Reset();
        return false;
    }
    return true;
}

std::string CStoreProcess::LogReason() const {
    // The launcher's own message ("s3rver.js: ..."), else the error node threw (its stack follows it and
    // the version line ends the log), else the last line.
    std::ifstream in(config_.logPath);
    std::string line;
    std::string own;
    std::string thrown;
    std::string last;
    while (std::getline(in, line)) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;
        }
        last = line;
        if (own.empty() && line.rfind("s3rver.js:", 0) == 0) {
            own = line;
        } else if (thrown.empty() && line.find("Error") != std::string::npos && line[0] != ' ') {
            thrown = line;
        }
    }
    const std::string& reason = !own.empty() ? own : !thrown.empty() ? thrown : last;
    return reason.substr(0, 300);
}

std::string CStoreProcess::ExitReason(int status) const {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 3) {
        return "the object store package is not installed (run scripts/setup.sh, or start with "
               "--object-store off)";
    }
    std::string reason =
        WIFEXITED(status)     ? "the store ended with code " + std::to_string(WEXITSTATUS(status))
        : WIFSIGNALED(status) ? "the store was killed by signal " + std::to_string(WTERMSIG(status))
                              : "the store ended";
    const std::string log = LogReason();
    if (!log.empty()) {
        reason += ": " + log;
    }
    if (log.find("EADDRINUSE") != std::string::npos) {
        reason += " (the port is taken: free it, change the fixture's port, or use --sim-ports any)";
    }
    return reason;
}

}  // namespace Platform
