#pragma once
// The ONVIF RTSP test server (tests/support/rtsp_onvif_server.py) as a peer process of a test.

#include <chrono>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace TransferTest {

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

    CChildProcess process_;
    int port_ = -1;
    std::string directory_;
    std::vector<std::string> events_;
    size_t consumed_ = 0;
};

/// Reads a whole file; empty when missing.
std::string ReadFile(const std::string& path);

}  // namespace TransferTest
