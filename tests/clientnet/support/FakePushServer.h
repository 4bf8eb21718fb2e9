#pragma once
// A scripted websocket peer on 127.0.0.1 for the faults the real platform does not produce: a server that
// accepts the TCP connection but never answers the handshake, and one that completes the handshake, sends
// a ping, then goes mute (never answers a ping), so that the client has to notice the dead link itself.
// Plain POSIX sockets on a thread of its own; everything it receives is recorded.

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ClientNetTest {

class CFakePushServer {
public:
    enum class Mode {
        kSilent,  ///< accepts connections, never answers
        kMute,  ///< answers the handshake, sends a ping frame ("hi") and a text {"Action":"Ping"}, then only
                ///< reads
    };
    struct Frame {
        int opcode = 0;  ///< 1 text, 2 binary, 8 close, 9 ping, 10 pong
        std::string payload;
    };

    explicit CFakePushServer(Mode mode) : mode_(mode) {}
    ~CFakePushServer();
    CFakePushServer(const CFakePushServer&) = delete;
    CFakePushServer& operator=(const CFakePushServer&) = delete;

    /// Listens on a free loopback port; false with `Error()` set when it cannot.
    bool Start();
    int Port() const { return port_; }
    const std::string& Error() const { return error_; }
    std::string Url() const { return "ws://127.0.0.1:" + std::to_string(port_) + "/push"; }

    int Connections() const { return connections_.load(); }
    /// Frames the clients sent (unmasked), in order.
    std::vector<Frame> Received() const;
    /// The first request head a client sent (for header checks).
    std::string FirstRequest() const;

private:
    struct Client {
        int fd = -1;
        std::string buffer;
        bool upgraded = false;
    };
    void Run();
    void OnReadable(Client& client);
    void ParseFrames(Client& client);

    const Mode mode_;
    int listenFd_ = -1;
    int wakePipe_[2] = {-1, -1};
    int port_ = -1;
    std::string error_;
    std::atomic<bool> stop_{false};
    std::atomic<int> connections_{0};
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<Frame> received_;
    std::string firstRequest_;
};

}  // namespace ClientNetTest
