#pragma once
// Plain TCP peers on 127.0.0.1 for the object client's tests: one that records HTTP requests and answers
// each with an empty 200, and one that accepts connections and never says a word.

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ObjectClientTest {

struct CapturedRequest {
    std::string method;
    std::string target;  ///< path (and query) exactly as sent
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    /// The first header of that name (any case), empty when absent.
    std::string Header(const std::string& name) const;
};

/// Answers every request with "200 OK" and an empty body, one request per connection, and keeps them.
class CCaptureServer {
public:
    CCaptureServer() = default;
    ~CCaptureServer() { Stop(); }
    CCaptureServer(const CCaptureServer&) = delete;
    CCaptureServer& operator=(const CCaptureServer&) = delete;

    bool Start();
    void Stop();
    int Port() const { return port_; }
    std::vector<CapturedRequest> Requests() const;

private:
    void Serve();
    void HandleConnection(int fd);

    int listenFd_ = -1;
    int port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<CapturedRequest> requests_;
};

/// Listens without ever accepting: the kernel completes the handshake, and nothing is ever answered.
class CSilentListener {
public:
    CSilentListener() = default;
    ~CSilentListener();
    CSilentListener(const CSilentListener&) = delete;
    CSilentListener& operator=(const CSilentListener&) = delete;

    bool Start();
    int Port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
};

/// A port on 127.0.0.1 that nothing listens on (bound once to find it, then released).
int ClosedPort();

}  // namespace ObjectClientTest
