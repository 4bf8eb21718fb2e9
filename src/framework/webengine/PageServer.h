#pragma once
// The loopback servers behind the web engine: static pages over HTTP and one QWebChannel per WebSocket
// connection, both reachable only under a random access token drawn for each start.

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWebChannelAbstractTransport>

#include <functional>
#include <map>
#include <memory>
#include <thread>

class QWebChannel;
class QWebSocket;
class QWebSocketServer;

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace CEFDataController {

/// Creates the objects a page sees on its channel, parented to `parent` (one set per connection).
using PageObjectFactory = std::function<std::map<QString, QObject*>(QObject* parent)>;

/// QWebChannel messages as WebSocket text frames, one JSON object per frame.
class CWebSocketTransport : public QWebChannelAbstractTransport {
    Q_OBJECT

public:
    CWebSocketTransport(QWebSocket* socket, QObject* parent);

    void sendMessage(const QJsonObject& message) override;

private slots:
    void OnTextMessage(const QString& text);

private:
    QPointer<QWebSocket> socket_;
};

/// One page's link: the socket, its transport and channel, and the objects the factory made for it. The
/// channel goes first when it ends, so it never reports the destruction of its own objects.
class CPageConnection : public QObject {
    Q_OBJECT

public:
    CPageConnection(QWebSocket* socket, const PageObjectFactory& factory, QObject* parent);
    /// Ends the link at once (the page sees its socket close).
    ~CPageConnection() override;

private:
    QWebSocket* socket_;
    CWebSocketTransport* transport_ = nullptr;
    QWebChannel* channel_ = nullptr;
};

struct PageServerConfig {
    QString pageDirectory;
    QHostAddress bindAddress{QHostAddress::LocalHost};
    quint16 httpPort = 0;       ///< 0: any free port
    quint16 webSocketPort = 0;  ///< 0: any free port
    PageObjectFactory factory;
};

/// Lives on the thread that started it (it needs that thread's event loop for the WebSocket side).
class CPageServer : public QObject {
    Q_OBJECT

public:
    explicit CPageServer(PageServerConfig config);
    /// Stops both servers and ends every page link.
    ~CPageServer() override;

    /// Draws the token and starts both servers; false with a reason, nothing left running.
    bool Start(QString& error);
    void Stop();

    quint16 HttpPort() const { return httpPort_; }
    quint16 WebSocketPort() const { return webSocketPort_; }
    const QString& Token() const { return token_; }
    const QHostAddress& BindAddress() const { return config_.bindAddress; }

    /// A fresh token: 256 bits from the system's random source, as 64 hex digits.
    static QString NewToken();

private slots:
    void OnNewConnection();

private:
    bool StartHttp(QString& error);
    void StopHttp();
    /// Runs on the HTTP server's threads; reads only what Start fixed.
    void ServeRequest(const httplib::Request& request, httplib::Response& response) const;
    bool TokenMatches(const QByteArray& candidate) const;

    PageServerConfig config_;
    QString token_;
    QByteArray tokenBytes_;
    QString canonicalDirectory_;
    QByteArray channelScript_;
    quint16 httpPort_ = 0;
    quint16 webSocketPort_ = 0;
    std::unique_ptr<httplib::Server> http_;
    std::thread httpThread_;
    QWebSocketServer* webSocket_ = nullptr;
};

}  // namespace CEFDataController
