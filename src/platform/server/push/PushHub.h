#pragma once
// The push link: a websocket server on its own port, serving authenticated clients that subscribe by
// message type and event type. Runs on the Qt event loop of the thread that creates it; the public
// operations marked thread-safe may be called from REST worker threads.
//
// Client -> platform (text frames):
//   {"Action":"Subscribe","MessageTypes":[3],"Events":[{"EventType":310001,"Type":0}]}
//   {"Action":"Unsubscribe","MessageTypes":[3],"Events":[{"EventType":310001,"Type":0}]}
// Platform -> client: {"Action":"SubscribeAck","MessageTypes":[..],"Events":[..]} with the whole
// subscription after each change, {"Action":"Error",...} for a bad request, and the push frames.

#include <QObject>
#include <QSslConfiguration>
#include <QWebSocketServer>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/server/push/PushControl.h"
#include "platform/server/push/PushFrame.h"
#include "platform/server/session/SessionStore.h"

class QWebSocket;

namespace Platform {

/// Close codes of the push link.
constexpr int kCloseUnauthorized = 4401;
constexpr int kCloseUnknownPath = 4404;
constexpr int kCloseLoggedOut = 4410;

class CPushHub : public QObject, public IPushControl {
    Q_OBJECT

public:
    explicit CPushHub(CSessionStore& sessions, QObject* parent = nullptr);
    ~CPushHub() override;

    /// Serves wss:// from now on; call before Listen. False with a reason for unusable files.
    bool EnableTls(const std::string& certChainFile, const std::string& keyFile, std::string& error);
    /// Starts listening. False with a reason when the address cannot be bound.
    bool Listen(const std::string& address, uint16_t port, std::string& error);
    uint16_t Port() const override;
    bool IsTls() const override { return tls_; }
    /// Closes every link and stops listening.
    void Stop();

    /// Sends a frame to every link subscribed to its message type or its event type. Thread-safe.
    void Publish(const PushFrame& frame) override;
    /// Closes every link; with refuseSeconds > 0 also stops listening for that long. Thread-safe; returns
    /// once done, false when the event loop did not get to it within a few seconds.
    bool DropAll(int refuseSeconds) override;
    /// Closes the links of one session (it logged out). Thread-safe.
    void CloseSession(const std::string& token) override;
    /// The current links. Thread-safe.
    std::vector<PushLinkInfo> Links() const override;
    /// Whether the hub accepts connections now. Thread-safe.
    bool IsAccepting() const override;

private:
    struct Link {
        int id = 0;
        SessionInfo session;
        std::set<int> messageTypes;
        std::map<int, int> events;  ///< event type -> type
        int64_t connectedMs = 0;
        int64_t framesSent = 0;
    };

    void OnNewConnection();
    void OnTextMessage(QWebSocket* socket, const QString& text);
    void OnDisconnected(QWebSocket* socket);
    void Deliver(const PushFrame& frame);
    void DoDropAll(int refuseSeconds);
    void DoCloseSession(const std::string& token);
    void Relisten();
    void PublishSnapshot();
    static std::string TokenOf(const QWebSocket& socket);

    CSessionStore& sessions_;
    std::unique_ptr<QWebSocketServer> server_;
    bool tls_ = false;
    QSslConfiguration sslConfig_;
    std::string address_;
    uint16_t port_ = 0;
    std::map<QWebSocket*, Link> links_;
    int nextLinkId_ = 1;
    int relistenGeneration_ = 0;

    mutable std::mutex snapshotMutex_;
    std::vector<PushLinkInfo> snapshot_;
    bool accepting_ = false;
};

}  // namespace Platform
