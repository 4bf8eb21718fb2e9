#include "platform/server/push/PushHub.h"

#include <algorithm>

#include <QFile>
#include <QHostAddress>
#include <QMetaObject>
#include <QSslCertificate>
#include <QSslKey>
#include <QTimer>
#include <QUrlQuery>
#include <QWebSocket>

#include <chrono>
#include <future>

#include "framework/base/FormatLog.h"
#include "framework/base/LockedCopy.h"
#include "platform/server/http/Envelope.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

constexpr int kRelistenRetryMs = 500;
constexpr int kCloseHandshakeMs = 2000;

// Closes a socket politely and makes sure it goes even when the peer never answers the close.
void CloseSocket(QWebSocket* socket, int code, const QString& reason) {
    socket->close(static_cast<QWebSocketProtocol::CloseCode>(code), reason);
    QTimer::singleShot(kCloseHandshakeMs, socket, [socket] { socket->abort(); });
}

std::string AckText(const std::set<int>& messageTypes, const std::map<int, int>& events) {
    Json::CWriter w;
    w.BeginObject().String("Action", "SubscribeAck").BeginArray("MessageTypes");
    for (int t : messageTypes) {
        w.Int(nullptr, t);
    }
    w.EndArray().BeginArray("Events");
    for (const auto& e : events) {
        w.BeginObject().Int("EventType", e.first).Int("Type", e.second).EndObject();
    }
    w.EndArray().EndObject();
    return w.Text();
}

std::string ErrorText(int code, const std::string& info) {
    Json::CWriter w;
    w.BeginObject().String("Action", "Error").Int("ErrorModule", kPlatformErrorModule).Int("ErrorCode", code);
    w.String("CascadingErrorInfo", info).EndObject();
    return w.Text();
}

}  // namespace

CPushHub::CPushHub(CSessionStore& sessions, QObject* parent)
    : QObject(parent),
      sessions_(sessions),
      server_(std::make_unique<QWebSocketServer>(QStringLiteral("bcast-platform"),
                                                 QWebSocketServer::NonSecureMode)) {}

CPushHub::~CPushHub() {
    Stop();
}

bool CPushHub::EnableTls(const std::string& certChainFile, const std::string& keyFile, std::string& error) {
    QList<QSslCertificate> chain =
        QSslCertificate::fromPath(QString::fromStdString(certChainFile), QSsl::Pem);
    if (chain.isEmpty()) {
        error = "no PEM certificate in " + certChainFile;
        return false;
    }
    QFile file(QString::fromStdString(keyFile));
    if (!file.open(QIODevice::ReadOnly)) {
        error = "cannot read key " + keyFile;
        return false;
    }
    const QByteArray pem = file.readAll();
    QSslKey key(pem, QSsl::Rsa, QSsl::Pem);
    if (key.isNull()) {
        key = QSslKey(pem, QSsl::Ec, QSsl::Pem);
    }
    if (key.isNull()) {
        error = "no RSA or EC private key in " + keyFile;
        return false;
    }
    sslConfig_ = QSslConfiguration::defaultConfiguration();
    sslConfig_.setLocalCertificateChain(chain);
    sslConfig_.setPrivateKey(key);
    sslConfig_.setPeerVerifyMode(QSslSocket::VerifyNone);
    server_ =
        std::make_unique<QWebSocketServer>(QStringLiteral("bcast-platform"), QWebSocketServer::SecureMode);
    server_->setSslConfiguration(sslConfig_);
    tls_ = true;
    return true;
}

bool CPushHub::Listen(const std::string& address, uint16_t port, std::string& error) {
    QHostAddress host;
    if (!host.setAddress(QString::fromStdString(address))) {
        error = "not an IP address: " + address;
        return false;
    }
    connect(server_.get(), &QWebSocketServer::newConnection, this, &CPushHub::OnNewConnection,
            Qt::UniqueConnection);
    if (!server_->listen(host, port)) {
        error = "cannot listen on " + address + ":" + std::to_string(port) + ": " +
                server_->errorString().toStdString();
        return false;
    }
    address_ = address;
    port_ = server_->serverPort();
    std::lock_guard<std::mutex> lock(snapshotMutex_);
    accepting_ = true;
    return true;
}

uint16_t CPushHub::Port() const {
    return port_;
}

void CPushHub::Stop() {
    ++relistenGeneration_;
    if (server_) {
        server_->close();
    }
    for (auto& entry : links_) {
        entry.first->disconnect(this);
        entry.first->abort();
        entry.first->deleteLater();
    }
    links_.clear();
    {
        std::lock_guard<std::mutex> lock(snapshotMutex_);
        accepting_ = false;
    }
    PublishSnapshot();
}

std::string CPushHub::TokenOf(const QWebSocket& socket) {
    const QString fromQuery = QUrlQuery(socket.requestUrl()).queryItemValue(QStringLiteral("token"));
    if (!fromQuery.isEmpty()) {
        return fromQuery.toStdString();
    }
    const QByteArray header = socket.request().rawHeader("Authorization").trimmed();
    if (header.size() > 7 && header.left(7).toLower() == "bearer ") {
        return header.mid(7).trimmed().toStdString();
    }
    return std::string();
}

void CPushHub::OnNewConnection() {
    while (server_->hasPendingConnections()) {
        QWebSocket* socket = server_->nextPendingConnection();
        if (socket == nullptr) {
            break;
        }
        socket->setParent(this);
        const std::string peer =
            socket->peerAddress().toString().toStdString() + ":" + std::to_string(socket->peerPort());
        connect(socket, &QWebSocket::disconnected, this, [this, socket] { OnDisconnected(socket); });
        if (socket->requestUrl().path() != QLatin1String(kPushPath)) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform",
                    "[%s]push link from %s asked for unknown path %s[%s(%d)]", peer.c_str(),
                    socket->requestUrl().path().toStdString().c_str());
            CloseSocket(socket, kCloseUnknownPath, QStringLiteral("unknown path"));
            continue;
        }
        SessionInfo session;
        if (!sessions_.Touch(TokenOf(*socket), session)) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform",
                    "[%s]push link from %s refused: no valid session[%s(%d)]", peer.c_str());
            socket->sendTextMessage(
                QString::fromStdString(ErrorText(kErrNotLoggedIn, "missing or unknown session")));
            CloseSocket(socket, kCloseUnauthorized, QStringLiteral("unauthorized"));
            continue;
        }
        Link link;
        link.id = nextLinkId_++;
        link.session = session;
        link.connectedMs = NowMs();
        links_[socket] = link;
        connect(socket, &QWebSocket::textMessageReceived, this,
                [this, socket](const QString& text) { OnTextMessage(socket, text); });
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]push link %d opened by %s from %s[%s(%d)]", link.id,
                session.userName.c_str(), peer.c_str());
        PublishSnapshot();
    }
}

namespace {

// The message types and events of a subscription request; false with what is wrong with it.
bool ReadSubscription(const rapidjson::Document& doc, std::set<int>& types, std::map<int, int>& events,
                      std::string& problem) {
    if (const rapidjson::Value* list = Json::Find(doc, "MessageTypes")) {
        if (!list->IsArray()) {
            problem = "\"MessageTypes\" is no array";
            return false;
        }
        for (const rapidjson::Value& v : list->GetArray()) {
            if (!Json::IsInt(&v)) {
                problem = "\"MessageTypes\" must hold integers";
                return false;
            }
            types.insert(static_cast<int>(Json::ToInt(&v, 0)));
        }
    }
    if (const rapidjson::Value* list = Json::Find(doc, "Events")) {
        if (!list->IsArray()) {
            problem = "\"Events\" is no array";
            return false;
        }
        for (const rapidjson::Value& v : list->GetArray()) {
            const rapidjson::Value* type = Json::Find(v, "EventType");
            if (!Json::IsInt(type)) {
                problem = "each event needs an integer \"EventType\"";
                return false;
            }
            events[static_cast<int>(Json::ToInt(type, 0))] = static_cast<int>(Json::GetInt(v, "Type", 0));
        }
    }
    return true;
}

}  // namespace

void CPushHub::OnTextMessage(QWebSocket* socket, const QString& text) {
    auto it = links_.find(socket);
    if (it == links_.end()) {
        return;
    }
    Link& link = it->second;
    rapidjson::Document doc;
    std::string error;
    if (!Json::Parse(text.toStdString(), doc, error) || !doc.IsObject()) {
        socket->sendTextMessage(
            QString::fromStdString(ErrorText(kErrBadRequest, "not a JSON object: " + error)));
        return;
    }
    const std::string action = Json::GetString(doc, "Action");
    if (action == "Ping") {
        socket->sendTextMessage(QStringLiteral("{\"Action\":\"Pong\"}"));
        return;
    }
    if (action != "Subscribe" && action != "Unsubscribe") {
        socket->sendTextMessage(QString::fromStdString(
            ErrorText(kErrBadRequest, "\"Action\" must be Subscribe, Unsubscribe or Ping")));
        return;
    }
    const bool subscribe = action == "Subscribe";
    std::set<int> types;
    std::map<int, int> events;
    std::string problem;
    if (!ReadSubscription(doc, types, events, problem)) {
        socket->sendTextMessage(QString::fromStdString(ErrorText(kErrBadRequest, problem)));
        return;
    }
    for (int t : types) {
        if (subscribe) {
            link.messageTypes.insert(t);
        } else {
            link.messageTypes.erase(t);
        }
    }
    for (const auto& e : events) {
        if (subscribe) {
            link.events[e.first] = e.second;
        } else {
            link.events.erase(e.first);
        }
    }
    socket->sendTextMessage(QString::fromStdString(AckText(link.messageTypes, link.events)));
    PublishSnapshot();
}

void CPushHub::OnDisconnected(QWebSocket* socket) {
    auto it = links_.find(socket);
    if (it != links_.end()) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]push link %d closed[%s(%d)]", it->second.id);
        links_.erase(it);
        PublishSnapshot();
    }
    socket->deleteLater();
}

void CPushHub::Publish(const PushFrame& frame) {
    QMetaObject::invokeMethod(
        this, [this, frame] { Deliver(frame); }, Qt::QueuedConnection);
}

void CPushHub::Deliver(const PushFrame& frame) {
    const QString text = QString::fromStdString(PushFrameText(frame));
    int delivered = 0;
    for (auto& entry : links_) {
        Link& link = entry.second;
        if (link.messageTypes.count(frame.messageType) > 0 || link.events.count(frame.eventType) > 0) {
            entry.first->sendTextMessage(text);
            ++link.framesSent;
            ++delivered;
        }
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]push message type %d event %d to %d links: %s[%s(%d)]",
            frame.messageType, frame.eventType, delivered, frame.dataJson.c_str());
    PublishSnapshot();
}

bool CPushHub::DropAll(int refuseSeconds) {
    // Waits for the loop so that the caller knows the links are gone, but never for long: the loop may be
    // shutting down.
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    QMetaObject::invokeMethod(
        this,
        [this, refuseSeconds, done] {
            DoDropAll(refuseSeconds);
            done->set_value();
        },
        Qt::QueuedConnection);
    return finished.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
}

void CPushHub::DoDropAll(int refuseSeconds) {
    TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]dropping %d push links, refusing new ones for %d s[%s(%d)]",
            static_cast<int>(links_.size()), refuseSeconds);
    // Aborting without a close handshake looks to the client like a lost network.
    std::map<QWebSocket*, Link> links;
    links.swap(links_);
    for (auto& entry : links) {
        entry.first->abort();
    }
    if (refuseSeconds > 0) {
        server_->close();
        {
            std::lock_guard<std::mutex> lock(snapshotMutex_);
            accepting_ = false;
        }
        const int generation = ++relistenGeneration_;
        QTimer::singleShot(refuseSeconds * 1000, this, [this, generation] {
            if (generation == relistenGeneration_) {
                Relisten();
            }
        });
    }
    PublishSnapshot();
}

void CPushHub::Relisten() {
    QHostAddress host(QString::fromStdString(address_));
    if (!server_->listen(host, port_)) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]cannot listen again on %s:%d: %s; retrying[%s(%d)]",
                address_.c_str(), port_, server_->errorString().toStdString().c_str());
        const int generation = relistenGeneration_;
        QTimer::singleShot(kRelistenRetryMs, this, [this, generation] {
            if (generation == relistenGeneration_) {
                Relisten();
            }
        });
        return;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]push link accepts connections again on port %d[%s(%d)]",
            port_);
    std::lock_guard<std::mutex> lock(snapshotMutex_);
    accepting_ = true;
}

void CPushHub::CloseSession(const std::string& token) {
    QMetaObject::invokeMethod(
        this, [this, token] { DoCloseSession(token); }, Qt::QueuedConnection);
}

void CPushHub::DoCloseSession(const std::string& token) {
    for (auto it = links_.begin(); it != links_.end();) {
        if (it->second.session.token == token) {
            QWebSocket* socket = it->first;
            it = links_.erase(it);
            CloseSocket(socket, kCloseLoggedOut, QStringLiteral("logged out"));
        } else {
            ++it;
        }
    }
    PublishSnapshot();
}

std::vector<PushLinkInfo> CPushHub::Links() const {
    return Tal::Base::LockedCopy(snapshotMutex_, snapshot_);
}

bool CPushHub::IsAccepting() const {
    return Tal::Base::LockedCopy(snapshotMutex_, accepting_);
}

void CPushHub::PublishSnapshot() {
    std::vector<PushLinkInfo> snapshot;
    for (const auto& entry : links_) {
        const Link& link = entry.second;
        PushLinkInfo info;
        info.id = link.id;
        info.userName = link.session.userName;
        info.peer = entry.first->peerAddress().toString().toStdString() + ":" +
                    std::to_string(entry.first->peerPort());
        info.messageTypes.assign(link.messageTypes.begin(), link.messageTypes.end());
        for (const auto& e : link.events) {
            info.events.emplace_back(e.first, e.second);
        }
        info.connectedMs = link.connectedMs;
        info.framesSent = link.framesSent;
        snapshot.push_back(info);
    }
    // Links are keyed by socket address; list them in the order they connected.
    std::sort(snapshot.begin(), snapshot.end(),
              [](const PushLinkInfo& a, const PushLinkInfo& b) { return a.id < b.id; });
    std::lock_guard<std::mutex> lock(snapshotMutex_);
    snapshot_ = std::move(snapshot);
}

}  // namespace Platform
