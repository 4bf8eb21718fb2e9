#include "PlatformProcess.h"

#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace PlatformTest {

namespace {

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

bool HasArgument(const std::vector<std::string>& args, const std::string& name) {
    for (const std::string& a : args) {
        if (a == name) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::string SourceDir() {
    return BcastTest::SourceDir();
}
std::string PlatformBinary() {
    return BcastTest::BinaryDir() + "/bin/bcast-platform";
}
std::string DemoFixture() {
    return SourceDir() + "/fixtures/demo-site.json";
}

std::string MakeTempDir(const std::string& tag) {
    return BcastTest::MakeKeptDir(tag);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool CPlatformProcess::Spawn(std::vector<std::string> args) {
    dir_ = MakeTempDir("platform");
    if (dir_.empty()) {
        error_ = "cannot make a scratch directory";
        return false;
    }
    // Suites run side by side: the simulated peers take free ports, not the fixture's fixed ones, and
    // each platform records its speakers in its own scratch directory.
    if (!HasArgument(args, "--sim-ports")) {
        args.insert(args.end(), {"--sim-ports", "any"});
    }
    if (!HasArgument(args, "--speaker-dir")) {
        args.insert(args.end(), {"--speaker-dir", dir_ + "/speakers"});
    }
    const std::string binary = PlatformBinary();
    if (::access(binary.c_str(), X_OK) != 0) {
        error_ = "the platform program is missing: " + binary + " (is BCAST_BINARY_DIR set by ctest?)";
        return false;
    }
    std::vector<std::string> argv = {binary};
    argv.insert(argv.end(), args.begin(), args.end());
    BcastTest::CBackgroundProcess::Options options;
    options.outPath = dir_ + "/stdout.txt";
    options.errPath = dir_ + "/stderr.txt";
    // A test that dies (a crash, a sanitizer abort) must not leave its platform running: the platform stops
    // as on SIGTERM, with its object stores.
    options.deathSignal = SIGTERM;
    if (!process_.Start(argv, options)) {
        error_ = "cannot start " + binary;
        return false;
    }
    return true;
}

bool CPlatformProcess::Start(std::vector<std::string> args) {
    if (!HasArgument(args, "--listen")) {
        args.insert(args.end(), {"--listen", "127.0.0.1:0"});
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
        if (!process_.IsRunning()) {
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

// The platform alone is signalled: it stops its own children (the object stores) as it ends.
int CPlatformProcess::WaitExit(int timeoutMs) {
    int code = -1;
    if (!process_.Wait(timeoutMs, &code)) {
        process_.Kill(false);
        error_ = "the platform did not end in time and was killed";
        return -1;
    }
    return code >= 128 ? -1 : code;  // died by a signal
}

int CPlatformProcess::Stop() {
    if (process_.Pid() <= 0) {
        return -1;
    }
    process_.Signal(SIGTERM, false);
    return WaitExit(20000);
}

bool CPlatformProcess::Kill() {
    return process_.Kill(false);
}

std::string CPlatformProcess::Stdout() const {
    return ReadFile(dir_ + "/stdout.txt");
}
std::string CPlatformProcess::Stderr() const {
    return ReadFile(dir_ + "/stderr.txt");
}

}  // namespace PlatformTest
