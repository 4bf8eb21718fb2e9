#include "RtspServerPeer.h"

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace TransferTest {

namespace {

/// "KEY=value" out of a space-separated event line.
std::string Field(const std::string& line, const std::string& key) {
    const std::string prefix = key + "=";
    size_t at = line.find(" " + prefix);
    if (at == std::string::npos) {
        return std::string();
    }
    at += prefix.size() + 1;
    const size_t end = line.find(' ', at);
    return line.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

}  // namespace

std::string MakeTempDir(const std::string& name) {
    std::string pattern = BinaryDir() + "/test-tmp-" + name + "-XXXXXX";
    const char* made = mkdtemp(&pattern[0]);
    return made != nullptr ? std::string(made) : std::string();
}

bool RunTool(const std::vector<std::string>& argv) {
    const BcastTest::ProcessResult result = BcastTest::RunProcess(argv, 30000);
    if (result.exitCode != 0) {
        fprintf(stderr, "%s failed (%d): %s\n", argv[0].c_str(), result.exitCode, result.output.c_str());
    }
    return result.exitCode == 0;
}

bool RunSoxStat(const std::vector<std::string>& inputArgs, SoxStat& stat) {
    std::vector<std::string> argv = {"/usr/bin/sox"};
    argv.insert(argv.end(), inputArgs.begin(), inputArgs.end());
    argv.insert(argv.end(), {"-n", "stat"});
    const BcastTest::ProcessResult result = BcastTest::RunProcess(argv, 30000);
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
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
    return result.exitCode == 0 && stat.lengthSeconds >= 0.0;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

bool CRtspServerPeer::Start(const Options& options, std::string& error) {
    directory_ = MakeTempDir("rtsp");
    std::vector<std::string> argv = {"/usr/bin/python3", SourceDir() + "/tests/support/rtsp_onvif_server.py",
                                     "--port",           "0",
                                     "--out-dir",        directory_,
                                     "--max-lifetime",   "300"};
    if (!options.user.empty()) {
        argv.insert(argv.end(), {"--user", options.user, "--password", options.password});
    }
    if (!options.token.empty()) {
        argv.insert(argv.end(), {"--token", options.token});
    }
    if (options.sessionTimeoutSeconds > 0) {
        argv.insert(argv.end(), {"--session-timeout", std::to_string(options.sessionTimeoutSeconds)});
    }
    if (directory_.empty() || !process_.StartPiped(argv)) {
        error = "cannot start /usr/bin/python3 with the RTSP test server";
        return false;
    }
    std::string rest;
    if (!process_.WaitForLine("READY port=", rest, std::chrono::seconds(20))) {
        error = "the RTSP test server did not come up (needs /usr/bin/python3 with gi and gst-rtsp-server)";
        return false;
    }
    port_ = std::atoi(rest.c_str());
    return port_ > 0;
}

std::string CRtspServerPeer::Url(const std::string& mount) const {
    return "rtsp://127.0.0.1:" + std::to_string(port_) + mount;
}

void CRtspServerPeer::Drain(std::chrono::milliseconds timeout) {
    std::string line;
    while (process_.ReadLine(line, timeout)) {
        events_.push_back(line);
        timeout = std::chrono::milliseconds(0);
    }
}

bool CRtspServerPeer::WaitForBackchannel(const std::string& mount, std::string& file,
                                         std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        for (; consumed_ < events_.size(); ++consumed_) {
            const std::string& line = events_[consumed_];
            if (line.rfind("BACKCHANNEL ", 0) == 0 && Field(line, "mount") == mount) {
                file = Field(line, "file");
                ++consumed_;
                return true;
            }
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        Drain(std::min(left, std::chrono::milliseconds(100)));
    }
}

bool CRtspServerPeer::WaitForMediaDone(const std::string& file, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        for (const auto& line : events_) {
            if (line.rfind("MEDIA-DONE ", 0) == 0 && Field(line, "file") == file) {
                return true;
            }
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        Drain(std::min(left, std::chrono::milliseconds(100)));
    }
}

std::vector<CRtspServerPeer::Request> CRtspServerPeer::Requests() {
    Drain(std::chrono::milliseconds(200));
    std::vector<Request> requests;
    for (const auto& line : events_) {
        if (line.rfind("REQUEST ", 0) == 0) {
            requests.push_back({Field(line, "method"), Field(line, "token")});
        }
    }
    return requests;
}

std::vector<std::string> CRtspServerPeer::RequestTokens() {
    std::vector<std::string> tokens;
    for (const Request& request : Requests()) {
        tokens.push_back(request.token);
    }
    return tokens;
}

int CRtspServerPeer::ExpiredSessions() {
    Drain(std::chrono::milliseconds(200));
    int count = 0;
    for (const auto& line : events_) {
        count += line.rfind("SESSION-EXPIRED ", 0) == 0 ? 1 : 0;
    }
    return count;
}

void CRtspServerPeer::Kill() {
    process_.Kill();
}

void CRtspServerPeer::Freeze() {
    process_.Signal(SIGSTOP);
}

void CRtspServerPeer::Thaw() {
    process_.Signal(SIGCONT);
}

}  // namespace TransferTest
