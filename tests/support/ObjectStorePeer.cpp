#include "ObjectStorePeer.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "TestFiles.h"

namespace BcastTest {

namespace {

using Clock = std::chrono::steady_clock;

// Reads `"name":<number>` or `"name":"text"` out of the READY line.
std::string JsonField(const std::string& line, const std::string& name) {
    std::size_t at = line.find("\"" + name + "\":");
    if (at == std::string::npos) {
        return {};
    }
    at += name.size() + 3;
    if (at < line.size() && line[at] == '"') {
        std::size_t end = line.find('"', at + 1);
        return end == std::string::npos ? std::string() : line.substr(at + 1, end - at - 1);
    }
    std::size_t end = line.find_first_not_of("0123456789", at);
    return line.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

}  // namespace

bool CObjectStorePeer::Fail(const std::string& why) {
    error_ = why;
    std::string output = Output();
    if (!output.empty()) {
        error_ += "; its output: " + output;
    }
    Stop();
    return false;
}

std::string CObjectStorePeer::Output() const {
    return logPath_.empty() ? std::string() : ReadWholeFile(logPath_);
}

bool CObjectStorePeer::Start(const ObjectStoreOptions& options, int timeoutMs) {
    Stop();
    error_.clear();
    const char* source = std::getenv("BCAST_SOURCE_DIR");
    if (source == nullptr || *source == '\0') {
        error_ = "BCAST_SOURCE_DIR is not set (ctest sets it): cannot find scripts/objectstore/s3rver.js";
        return false;
    }
    const std::string launcher = std::string(source) + "/scripts/objectstore/s3rver.js";
    if (::access(launcher.c_str(), R_OK) != 0) {
        error_ = launcher + " is missing";
        return false;
    }
    if (!HasProgram("node")) {
        error_ = "node is not on PATH: run scripts/setup.sh";
        return false;
    }
    ownDir_ = std::make_unique<CTempDir>("bcast-objectstore");
    if (ownDir_->Path().empty()) {
        error_ = "cannot create a temporary directory";
        return false;
    }
    logPath_ = ownDir_->File("s3rver.log");
    dataDir_ = options.dataDir.empty() ? ownDir_->File("data") : options.dataDir;

    std::vector<std::string> args = {"node",      launcher,    "--dir",  dataDir_,
                                     "--address", "127.0.0.1", "--port", std::to_string(options.port)};
    if (!options.accessKey.empty()) {
        args.insert(args.end(), {"--access-key", options.accessKey, "--secret-key", options.secretKey});
    }
    for (const std::string& bucket : options.buckets) {
        args.insert(args.end(), {"--bucket", bucket});
    }
    if (!options.certFile.empty()) {
        args.insert(args.end(), {"--cert", options.certFile, "--key", options.keyFile});
    }
    int stdinPipe[2];
    if (::pipe2(stdinPipe, O_CLOEXEC) != 0) {
        return Fail("cannot create a pipe");
    }
    stdinFd_ = stdinPipe[1];
    const bool started = process_.Start(args, {}, logPath_, stdinPipe[0]);
    ::close(stdinPipe[0]);
    if (!started) {
        return Fail("cannot start node");
    }

    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (Clock::now() < deadline) {
        const std::string output = Output();
        std::size_t ready = output.find("READY ");
        if (ready != std::string::npos && output.find('\n', ready) != std::string::npos) {
            const std::string line = output.substr(ready, output.find('\n', ready) - ready);
            port_ = std::atoi(JsonField(line, "port").c_str());
            scheme_ = JsonField(line, "scheme");
            if (port_ <= 0 || scheme_.empty()) {
                return Fail("unexpected READY line '" + line + "'");
            }
            return true;
        }
        if (!IsRunning()) {
            return Fail("the object store exited before it was ready");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return Fail("the object store was not ready within " + std::to_string(timeoutMs) + " ms");
}

bool CObjectStorePeer::IsRunning() {
    return process_.IsRunning();
}

void CObjectStorePeer::Stop() {
    if (stdinFd_ >= 0) {
        ::close(stdinFd_);
        stdinFd_ = -1;
    }
    process_.Stop();
    port_ = 0;
}

std::string CObjectStorePeer::Url() const {
    return scheme_ + "://127.0.0.1:" + std::to_string(port_);
}

}  // namespace BcastTest
