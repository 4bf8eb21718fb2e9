#include "framework/webengine/PageServer.h"

#include <httplib.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QThread>
#include <QTimer>
#include <QWebChannel>
#include <QWebSocket>
#include <QWebSocketServer>

#include <chrono>

#include "framework/base/FormatLog.h"

namespace CEFDataController {

namespace {

// Close code of a WebSocket link refused for its path (the 4xxx range is free for applications).
constexpr int kCloseForbidden = 4403;
// How long a refused socket may take to answer the close before it is dropped.
constexpr int kRefusedCloseMs = 2000;
// Workers of the HTTP server: a page loads a handful of files.
constexpr size_t kHttpWorkers = 4;

const char* ContentType(const QString& path) {
    static const std::map<QString, const char*> kTypes = {
        {"html", "text/html; charset=utf-8"},
        {"htm", "text/html; charset=utf-8"},
        {"js", "text/javascript; charset=utf-8"},
        {"mjs", "text/javascript; charset=utf-8"},
        {"css", "text/css; charset=utf-8"},
        {"json", "application/json"},
        {"png", "image/png"},
        {"svg", "image/svg+xml"},
        {"wav", "audio/wav"},
        {"mp3", "audio/mpeg"},
        {"ico", "image/x-icon"},
        {"txt", "text/plain; charset=utf-8"},
    };
    auto found = kTypes.find(QFileInfo(path).suffix().toLower());
    return found != kTypes.end() ? found->second : "application/octet-stream";
}

void SetText(httplib::Response& response, int status, const char* text) {
    response.status = status;
    response.set_content(std::string(text) + "\n", "text/plain; charset=utf-8");
}

}  // namespace

// ---- transport ----

CWebSocketTransport::CWebSocketTransport(QWebSocket* socket, QObject* parent)
    : QWebChannelAbstractTransport(parent), socket_(socket) {
    connect(socket, &QWebSocket::textMessageReceived, this, &CWebSocketTransport::OnTextMessage);
}

void CWebSocketTransport::sendMessage(const QJsonObject& message) {
    if (socket_ != nullptr && socket_->isValid()) {
        socket_->sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    }
}

void CWebSocketTransport::OnTextMessage(const QString& text) {
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        TAL_LOG(4, "WebEngine", "[%s]Dropped a channel message that is not a JSON object: %s[%s(%d)]",
                error.errorString().toStdString().c_str());
        return;
    }
    emit messageReceived(doc.object(), this);
}

// ---- one page link ----

CPageConnection::CPageConnection(QWebSocket* socket, const PageObjectFactory& factory, QObject* parent)
    : QObject(parent), socket_(socket) {
    socket_->setParent(this);
    transport_ = new CWebSocketTransport(socket_, this);
    channel_ = new QWebChannel(this);
    if (factory) {
        for (const auto& entry : factory(this)) {
            if (entry.second != nullptr) {
                channel_->registerObject(entry.first, entry.second);
            }
        }
    }
    channel_->connectTo(transport_);
    connect(socket_, &QWebSocket::disconnected, this, &QObject::deleteLater);
}

CPageConnection::~CPageConnection() {
    // The channel and transport first: the page's objects (children) are destroyed after them.
    delete channel_;
    delete transport_;
    socket_->disconnect(this);
    socket_->abort();
}

// ---- servers ----

CPageServer::CPageServer(PageServerConfig config) : config_(std::move(config)) {}

CPageServer::~CPageServer() {
    Stop();
}

QString CPageServer::NewToken() {
    quint32 words[8];
    QRandomGenerator::system()->fillRange(words);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(words), sizeof(words)).toHex());
}

bool CPageServer::Start(QString& error) {
    Stop();
    token_ = NewToken();
    tokenBytes_ = token_.toLatin1();
    const QFileInfo directory(config_.pageDirectory);
    canonicalDirectory_ = directory.isDir() ? directory.canonicalFilePath() : QString();
    if (canonicalDirectory_.isEmpty()) {
        TAL_LOG(4, "WebEngine", "[%s]The page directory %s does not exist; pages answer 404.[%s(%d)]",
                config_.pageDirectory.toStdString().c_str());
    }
    QFile script(QStringLiteral(":/qtwebchannel/qwebchannel.js"));
    if (script.open(QIODevice::ReadOnly)) {
        channelScript_ = script.readAll();
    } else {
        TAL_LOG(4, "WebEngine", "[%s]Qt's qwebchannel.js resource is missing.[%s(%d)]");
        channelScript_.clear();
    }

    webSocket_ = new QWebSocketServer(QStringLiteral("bcast"), QWebSocketServer::NonSecureMode, this);
    if (!webSocket_->listen(config_.bindAddress, config_.webSocketPort)) {
        error = QStringLiteral("the WebSocket server cannot listen on %1:%2: %3")
                    .arg(config_.bindAddress.toString())
                    .arg(config_.webSocketPort)
                    .arg(webSocket_->errorString());
        Stop();
        return false;
    }
    webSocketPort_ = webSocket_->serverPort();
    connect(webSocket_, &QWebSocketServer::newConnection, this, &CPageServer::OnNewConnection);
    if (!StartHttp(error)) {
        Stop();
        return false;
    }
    return true;
}

bool CPageServer::StartHttp(QString& error) {
    http_ = std::make_unique<httplib::Server>();
    http_->new_task_queue = [] { return new httplib::ThreadPool(kHttpWorkers); };
    // A kept-alive browser connection holds a worker; a short idle limit keeps a stop quick.
    http_->set_keep_alive_timeout(1);
    http_->set_read_timeout(5, 0);
    http_->set_payload_max_length(64 * 1024);
    const httplib::Server::Handler handler = [this](const httplib::Request& request,
                                                    httplib::Response& response) {
        ServeRequest(request, response);
    };
    const std::string all = ".*";
    http_->Get(all, handler);
    http_->Post(all, handler);
    http_->Put(all, handler);
    http_->Patch(all, handler);
    http_->Delete(all, handler);
    http_->Options(all, handler);
    const std::string host = config_.bindAddress.toString().toStdString();
    const int port = config_.httpPort == 0
                         ? http_->bind_to_any_port(host)
                         : (http_->bind_to_port(host, config_.httpPort) ? config_.httpPort : -1);
    if (port <= 0) {
        error = QStringLiteral("the HTTP server cannot listen on %1:%2")
                    .arg(config_.bindAddress.toString())
                    .arg(config_.httpPort);
        http_.reset();
        return false;
    }
    httpPort_ = static_cast<quint16>(port);
    httplib::Server* server = http_.get();
    httpThread_ = std::thread([server] { server->listen_after_bind(); });
    // stop() only reaches a server that runs: wait until it does, so that a stop right after never misses it.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!server->is_running() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (!server->is_running()) {
        error = QStringLiteral("the HTTP server did not start");
        StopHttp();
        return false;
    }
    return true;
}

void CPageServer::StopHttp() {
    if (http_) {
        http_->stop();
    }
    if (httpThread_.joinable()) {
        httpThread_.join();
    }
    http_.reset();
    httpPort_ = 0;
}

void CPageServer::Stop() {
    if (webSocket_ != nullptr) {
        for (CPageConnection* connection :
             findChildren<CPageConnection*>(QString(), Qt::FindDirectChildrenOnly)) {
            delete connection;
        }
        webSocket_->close();
        delete webSocket_;  // with it the refused sockets that are still closing
        webSocket_ = nullptr;
    }
    webSocketPort_ = 0;
    StopHttp();
    token_.clear();
    tokenBytes_.clear();
}

bool CPageServer::TokenMatches(const QByteArray& candidate) const {
    if (tokenBytes_.isEmpty() || candidate.size() != tokenBytes_.size()) {
        return false;
    }
    // Every byte compared, so the time taken tells nothing about how much of the token was right.
    unsigned char difference = 0;
    for (int i = 0; i < candidate.size(); ++i) {
        difference |= static_cast<unsigned char>(candidate[i] ^ tokenBytes_[i]);
    }
    return difference == 0;
}

void CPageServer::OnNewConnection() {
    while (webSocket_ != nullptr && webSocket_->hasPendingConnections()) {
        QWebSocket* socket = webSocket_->nextPendingConnection();
        if (socket == nullptr) {
            break;
        }
        const QByteArray path = socket->requestUrl().path(QUrl::FullyEncoded).toLatin1();
        if (!path.startsWith('/') || !TokenMatches(path.mid(1))) {
            TAL_LOG(4, "WebEngine", "[%s]Refused a WebSocket link from %s: wrong path.[%s(%d)]",
                    socket->peerAddress().toString().toStdString().c_str());
            connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
            QTimer::singleShot(kRefusedCloseMs, socket, &QWebSocket::abort);
            socket->close(static_cast<QWebSocketProtocol::CloseCode>(kCloseForbidden),
                          QStringLiteral("forbidden"));
            continue;
        }
        TAL_LOG(3, "WebEngine", "[%s]A page linked from %s:%d.[%s(%d)]",
                socket->peerAddress().toString().toStdString().c_str(), static_cast<int>(socket->peerPort()));
        new CPageConnection(socket, config_.factory, this);
    }
}

void CPageServer::ServeRequest(const httplib::Request& request, httplib::Response& response) const {
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Content-Type-Options", "nosniff");
    // The token is part of every address: never hand it on as a referrer.
    response.set_header("Referrer-Policy", "no-referrer");

    // The path arrives percent-decoded: "/<token>/<file>".
    const QByteArray path = QByteArray::fromStdString(request.path);
    const int slash = path.indexOf('/', 1);
    const QByteArray first = path.mid(1, slash < 0 ? -1 : slash - 1);
    if (!path.startsWith('/') || !TokenMatches(first)) {
        SetText(response, 403, "forbidden");
        return;
    }
    if (request.method != "GET" && request.method != "HEAD") {
        SetText(response, 405, "method not allowed");
        return;
    }
    const QString relative = slash < 0 ? QString() : QString::fromUtf8(path.mid(slash + 1));
    if (relative == QLatin1String("qwebchannel.js") && !channelScript_.isEmpty()) {
        response.set_content(channelScript_.toStdString(), ContentType(relative));
        return;
    }
    if (relative.isEmpty()) {
        SetText(response, 404, "not found");
        return;
    }
    // Only plain names below the directory: no empty, "." or ".." segments, no backslashes or NULs.
    for (const QString& segment : relative.split(QLatin1Char('/'))) {
        if (segment.isEmpty() || segment == QLatin1String(".") || segment == QLatin1String("..") ||
            segment.contains(QLatin1Char('\\')) || segment.contains(QChar(0))) {
            SetText(response, 403, "forbidden");
            return;
        }
    }
    if (canonicalDirectory_.isEmpty()) {
        SetText(response, 404, "not found");
        return;
    }
    const QFileInfo file(canonicalDirectory_ + QLatin1Char('/') + relative);
    if (!file.exists() || !file.isFile()) {
        SetText(response, 404, "not found");
        return;
    }
    // A symbolic link may point anywhere: the file it resolves to must still lie inside the directory.
    const QString real = file.canonicalFilePath();
    if (!real.startsWith(canonicalDirectory_ + QLatin1Char('/'))) {
        SetText(response, 403, "forbidden");
        return;
    }
    QFile content(real);
    if (!content.open(QIODevice::ReadOnly)) {
        SetText(response, 404, "not found");
        return;
    }
    response.set_content(content.readAll().toStdString(), ContentType(real));
}

}  // namespace CEFDataController
