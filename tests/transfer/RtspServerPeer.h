#pragma once
// The ONVIF RTSP test server (tests/support/rtsp_onvif_server.py) as a peer process of a test, and the
// transfer suites' other helpers: scratch directories, sox and ffmpeg runs.

#include <chrono>
#include <string>
#include <vector>

#include "TestProcess.h"

namespace TransferTest {

using BcastTest::BinaryDir;
using BcastTest::SourceDir;
/// A new empty directory under the build tree for this test's files.
std::string MakeTempDir(const std::string& name);
/// Runs a helper program (sox, ffmpeg) to its end within 30 s; true when it exits with 0.
bool RunTool(const std::vector<std::string>& argv);

/// What `sox FILE -n stat` says about an audio file (sox as an independent decoder).
struct SoxStat {
    double lengthSeconds = -1.0;
    double roughFrequency = -1.0;
    double rmsAmplitude = -1.0;
};
/// `inputArgs` describe the input (for example {"-t", "ul", "-r", "8000", "-c", "1", path}); false when sox
/// fails.
bool RunSoxStat(const std::vector<std::string>& inputArgs, SoxStat& stat);

class CRtspServerPeer {
public:
    struct Options {
        std::string user;
        std::string password;
        std::string token;
        int sessionTimeoutSeconds = 0;  ///< 0: not enforced
    };
    struct Request {
        std::string method;
        std::string token;  ///< "-" when absent
    };

    /// Starts the server on a free port; false (with `error`) when it does not come up within 20 s.
    bool Start(const Options& options, std::string& error);
    int Port() const { return port_; }
    std::string Url(const std::string& mount) const;
    /// The file the next backchannel media of `mount` writes to.
    bool WaitForBackchannel(const std::string& mount, std::string& file, std::chrono::milliseconds timeout);
    /// Waits until the media writing `file` is torn down (the file is then complete).
    bool WaitForMediaDone(const std::string& file, std::chrono::milliseconds timeout);
    /// The requests seen so far, in order.
    std::vector<Request> Requests();
    /// Values of the X-Token header of the requests seen so far ("-" when absent), in order.
    std::vector<std::string> RequestTokens();
    /// Sessions the server ended because no accepted request came within the session time-out.
    int ExpiredSessions();
    void Kill();
    /// Stops (SIGSTOP) and resumes (SIGCONT) the server process: a server that hangs.
    void Freeze();
    void Thaw();
    const std::string& Directory() const { return directory_; }

private:
    void Drain(std::chrono::milliseconds timeout);

    BcastTest::CBackgroundProcess process_;
    int port_ = -1;
    std::string directory_;
    std::vector<std::string> events_;
    size_t consumed_ = 0;
};

/// Reads a whole file; empty when missing.
std::string ReadFile(const std::string& path);

}  // namespace TransferTest
