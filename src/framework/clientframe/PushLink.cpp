#include "framework/clientframe/PushLink.h"

#include <QAbstractSocket>
#include <QCoreApplication>
#include <QNetworkRequest>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslError>
#include <QThread>
#include <QTimer>
#include <QUrl>
#include <QWebSocket>

#include <algorithm>
#include <utility>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace TalClientFrameWork {

namespace {

constexpr char kLogModule[] = "ClientFrame";
// Beyond the close time-out, how long Stop waits for the link's thread before forcing its loop to end.
constexpr int kJoinMarginMs = 3000;

std::string ForLog(const QUrl& url) {
    return url.toString(QUrl::RemoveQuery | QUrl::RemoveUserInfo).toStdString();
}

// {"Action":"Subscribe","MessageTypes":[3],"Events":[{"EventType":310001,"Type":0}]}
std::string SubscriptionText(const char* action, const PushSubscriptions& subscriptions) {
    NetworkCommunication::CRapidJsonProto doc;
    doc.set_v("/Action", action);
    doc.set_node_str("/MessageTypes", "[]");
    int index = 1;
    for (int type : subscriptions.messageTypes) {
        doc.set_v("/MessageTypes[" + std::to_string(index++) + "]", type);
    }
    doc.set_node_str("/Events", "[]");
    index = 1;
    for (const auto& event : subscriptions.events) {
        const std::string item = "/Events[" + std::to_string(index++) + "]";
        doc.set_v(item + "/EventType", event.first);
        doc.set_v(item + "/Type", event.second);
    }
    return doc.get_str(0);
}

std::string Join(const std::set<int>& values) {
    std::string text;
    for (int v : values) {
        text += (text.empty() ? "" : ",") + std::to_string(v);
    }
    return text;
}

}  // namespace

PushFrame::PushFrame(std::string raw, int messageType, int event, int websocketType)
    : rawMsg(std::move(raw)), msgType(messageType), eventType(event), websocketMsgType(websocketType) {
    document.set_str(rawMsg);
}

/// Where a link goes and how it behaves: what Start hands to the link's thread and on to its worker.
struct CPushLink::LinkTarget {
    QUrl url;
    QByteArray token;
    QSslConfiguration ssl;
    PushLinkOptions options;
};

const char* PushLinkStateName(PushLinkState state) {
    switch (state) {
        case PushLinkState::kStopped:
            return "stopped";
        case PushLinkState::kConnecting:
            return "connecting";
        case PushLinkState::kConnected:
            return "connected";
        case PushLinkState::kWaiting:
            return "waiting";
        case PushLinkState::kLoggedOut:
            return "logged out";
    }
    return "unknown";
}

// Lives on the link's thread; every member is touched only there.
class CPushLink::CWorker : public QObject {
public:
    CWorker(CPushLink& owner, const LinkTarget& target)
        : owner_(owner),
          url_(target.url),
          token_(target.token),
          ssl_(target.ssl),
          options_(target.options),
          nextRetryMs_(target.options.initialRetryMs) {
        for (QTimer* timer : {&retryTimer_, &handshakeTimer_, &closeTimer_}) {
            timer->setSingleShot(true);
        }
        connect(&retryTimer_, &QTimer::timeout, this, [this] { Open(); });
        connect(&handshakeTimer_, &QTimer::timeout, this, [this] { OnHandshakeTimeout(); });
        connect(&pingTimer_, &QTimer::timeout, this, [this] { OnPingTick(); });
        connect(&closeTimer_, &QTimer::timeout, this, [this] { OnCloseTimeout(); });
    }

    ~CWorker() override {
        if (socket_) {
            QObject::disconnect(socket_.get(), nullptr, this, nullptr);
            socket_->abort();
        }
    }

    /// Opens a new websocket; the previous one (if any) is deleted here, outside its own signals.
    void Open() {
        retired_.reset();
        if (stopping_) {
            return;
        }
        socket_ = std::make_unique<QWebSocket>();
        QWebSocket* socket = socket_.get();
        connect(socket, &QWebSocket::connected, this, [this] { OnConnected(); });
        connect(socket, &QWebSocket::disconnected, this, [this] { OnEnded(); });
        connect(socket, &QWebSocket::stateChanged, this, [this](QAbstractSocket::SocketState state) {
            if (state == QAbstractSocket::UnconnectedState) {
                OnEnded();
            }
        });
        connect(socket, &QWebSocket::textMessageReceived, this,
                [this](const QString& text) { OnMessage(text.toStdString(), 1); });
        connect(socket, &QWebSocket::binaryMessageReceived, this,
                [this](const QByteArray& data) { OnMessage(data.toStdString(), 2); });
        connect(socket, &QWebSocket::pong, this,
                [this](quint64, const QByteArray&) { awaitingPong_ = false; });
        connect(socket, &QWebSocket::sslErrors, this, [this](const QList<QSslError>& errors) {
            for (const QSslError& e : errors) {
                TAL_LOG(5, kLogModule, "[%s]Push link to %s: certificate not accepted: %s[%s(%d)]",
                        ForLog(url_).c_str(), e.errorString().toStdString().c_str());
            }
        });
        if (url_.scheme() == QLatin1String("wss")) {
            socket->setSslConfiguration(ssl_);
        }
        QNetworkRequest request(url_);
        request.setRawHeader("Authorization", "Bearer " + token_);
        handshakeDone_ = false;
        acknowledged_ = false;
        awaitingPong_ = false;
        sent_ = PushSubscriptions();
        owner_.Report({PushLinkState::kConnecting, 0, std::string(), -1});
        handshakeTimer_.start(options_.handshakeTimeoutMs);
        socket->open(request);
    }

    /// Closes politely when connected, waits at most the close time-out, then ends the thread's loop.
    void Shutdown() {
        stopping_ = true;
        retryTimer_.stop();
        handshakeTimer_.stop();
        pingTimer_.stop();
        if (socket_ && socket_->state() == QAbstractSocket::ConnectedState) {
            closeTimer_.start(options_.closeTimeoutMs);
            socket_->close(QWebSocketProtocol::CloseCodeNormal, QStringLiteral("client stopped"));
            return;
        }
        if (socket_) {
            socket_->abort();
        }
        Finish();
    }

    /// Brings the platform's subscription in line with the observers' (the difference only).
    void SyncSubscriptions() {
        if (!socket_ || !handshakeDone_) {
            return;
        }
        const PushSubscriptions wanted = owner_.source_();
        PushSubscriptions removed;
        PushSubscriptions added;
        std::set_difference(sent_.messageTypes.begin(), sent_.messageTypes.end(), wanted.messageTypes.begin(),
                            wanted.messageTypes.end(),
                            std::inserter(removed.messageTypes, removed.messageTypes.begin()));
        std::set_difference(wanted.messageTypes.begin(), wanted.messageTypes.end(),
                            sent_.messageTypes.begin(), sent_.messageTypes.end(),
                            std::inserter(added.messageTypes, added.messageTypes.begin()));
        for (const auto& event : sent_.events) {
            if (wanted.events.count(event.first) == 0) {
                removed.events.insert(event);
            }
        }
        for (const auto& event : wanted.events) {
            auto it = sent_.events.find(event.first);
            if (it == sent_.events.end() || it->second != event.second) {
                added.events.insert(event);
            }
        }
        const bool first = !subscribedOnce_;
        sent_ = wanted;
        subscribedOnce_ = true;
        if (!removed.messageTypes.empty() || !removed.events.empty()) {
            Send(SubscriptionText("Unsubscribe", removed));
        }
        // The first subscription goes out even when empty: its acknowledgement shows the session is valid.
        if (first || !added.messageTypes.empty() || !added.events.empty()) {
            Send(SubscriptionText("Subscribe", added));
        }
    }

private:
    void OnConnected() {
        handshakeTimer_.stop();
        handshakeDone_ = true;
        subscribedOnce_ = false;
        pingTimer_.start(options_.pingIntervalMs);
        SyncSubscriptions();
    }

    // The socket is gone: refused, timed out, dropped, closed by either side.
    void OnEnded() {
        if (!socket_) {
            return;
        }
        const bool wasOpen = handshakeDone_;
        const int code = wasOpen ? static_cast<int>(socket_->closeCode()) : 0;
        std::string reason = socket_->closeReason().toStdString();
        if (reason.empty()) {
            reason = socket_->errorString().toStdString();
        }
        handshakeTimer_.stop();
        pingTimer_.stop();
        closeTimer_.stop();
        Retire();
        if (stopping_) {
            Finish();
            return;
        }
        if (code == kPushCloseLoggedOut) {
            TAL_LOG(4, kLogModule,
                    "[%s]Push link to %s closed by the platform: session logged out (%d), not "
                    "reconnecting.[%s(%d)]",
                    ForLog(url_).c_str(), code);
            owner_.Report({PushLinkState::kLoggedOut, code, reason, -1});
            return;
        }
        const int delay = nextRetryMs_;
        nextRetryMs_ = std::min(std::max(1, nextRetryMs_) * 2, options_.maxRetryMs);
        if (code == kPushCloseUnauthorized) {
            TAL_LOG(5, kLogModule,
                    "[%s]Push link to %s refused: the platform does not accept the session (%d %s), "
                    "retrying in %d ms.[%s(%d)]",
                    ForLog(url_).c_str(), code, reason.c_str(), delay);
        } else if (wasOpen) {
            TAL_LOG(4, kLogModule,
                    "[%s]Push link to %s lost (close code %d: %s), reconnecting in %d ms.[%s(%d)]",
                    ForLog(url_).c_str(), code, reason.c_str(), delay);
        } else {
            TAL_LOG(4, kLogModule, "[%s]Push link to %s cannot connect (%s), retrying in %d ms.[%s(%d)]",
                    ForLog(url_).c_str(), reason.c_str(), delay);
        }
        owner_.Report({PushLinkState::kWaiting, code, reason, delay});
        retryTimer_.start(delay);
    }

    // The one parse of a frame: observers get the parsed document with the text.
    void OnMessage(std::string text, int websocketMsgType) {
        awaitingPong_ = false;  // any traffic shows the link is alive
        PushFrame frame;
        frame.websocketMsgType = websocketMsgType;
        const NetworkCommunication::CRapidJsonProto& doc = frame.document;
        if (!frame.document.set_str(text)) {
            TAL_LOG(4, kLogModule, "[%s]Push link dropped a message that is not JSON: %.200s[%s(%d)]",
                    text.c_str());
            return;
        }
        const std::string action = doc.get_v("/Action", "");
        if (!action.empty()) {
            OnControl(action, doc);
            return;
        }
        if (!doc.is_exist("/MessageType")) {
            TAL_LOG(4, kLogModule, "[%s]Push link dropped a frame without \"MessageType\": %.200s[%s(%d)]",
                    text.c_str());
            return;
        }
        frame.msgType = doc.get_int_v("/MessageType", -1);
        frame.eventType = doc.get_int_v("/EventType", 0);
        frame.rawMsg = std::move(text);
        owner_.sink_(frame);
    }

    // {"Action":"SubscribeAck",...}, {"Action":"Pong"}, {"Action":"Ping"}, {"Action":"Error",...}
    void OnControl(const std::string& action, const NetworkCommunication::CRapidJsonProto& doc) {
        if (action == "SubscribeAck") {
            if (!acknowledged_) {
                acknowledged_ = true;
                nextRetryMs_ = options_.initialRetryMs;
                TAL_LOG(3, kLogModule,
                        "[%s]Push link connected to %s, subscribed to message types [%s] and %d "
                        "event types.[%s(%d)]",
                        ForLog(url_).c_str(), Join(sent_.messageTypes).c_str(),
                        static_cast<int>(sent_.events.size()));
                owner_.Report({PushLinkState::kConnected, 0, std::string(), -1});
            }
        } else if (action == "Pong") {
            awaitingPong_ = false;
        } else if (action == "Ping") {
            Send("{\"Action\":\"Pong\"}");
        } else if (action == "Error") {
            TAL_LOG(4, kLogModule, "[%s]Push link: the platform reports error %d/%d: %s[%s(%d)]",
                    doc.get_int_v("/ErrorModule", 0), doc.get_int_v("/ErrorCode", 0),
                    doc.get_v("/CascadingErrorInfo", "").c_str());
        } else {
            TAL_LOG(4, kLogModule, "[%s]Push link ignored an unknown action: %s[%s(%d)]", action.c_str());
        }
    }

    void OnHandshakeTimeout() {
        if (socket_) {
            TAL_LOG(4, kLogModule,
                    "[%s]Push link to %s: no handshake within %d ms, giving up this attempt.[%s(%d)]",
                    ForLog(url_).c_str(), options_.handshakeTimeoutMs);
            Drop();
        }
    }

    // Aborts the socket; the abort normally reports the end through the socket's signals, and when it does
    // not (a socket in a state that emits nothing), the end is handled here.
    void Drop() {
        socket_->abort();
        OnEnded();
    }

    // A ping per interval; when the previous one is still unanswered the link is taken for dead.
    void OnPingTick() {
        if (!socket_) {
            return;
        }
        if (awaitingPong_) {
            TAL_LOG(4, kLogModule,
                    "[%s]Push link to %s: no answer to a ping within %d ms, dropping it.[%s(%d)]",
                    ForLog(url_).c_str(), options_.pingIntervalMs);
            Drop();
            return;
        }
        awaitingPong_ = true;
        socket_->ping();
    }

    void OnCloseTimeout() {
        if (socket_) {
            socket_->abort();
        }
        Finish();
    }

    void Send(const std::string& text) {
        if (socket_) {
            socket_->sendTextMessage(QString::fromStdString(text));
        }
    }

    // Parks the ended socket: it cannot be deleted inside its own signal; the next Open or the destructor
    // deletes it.
    void Retire() {
        QObject::disconnect(socket_.get(), nullptr, this, nullptr);
        socket_->abort();
        retired_ = std::move(socket_);
        handshakeDone_ = false;
    }

    void Finish() {
        if (finished_) {
            return;
        }
        finished_ = true;
        if (socket_) {
            Retire();
        }
        TAL_LOG(3, kLogModule, "[%s]Push link to %s stopped.[%s(%d)]", ForLog(url_).c_str());
        owner_.Report({PushLinkState::kStopped, 0, std::string(), -1});
        QThread::currentThread()->quit();
    }

    CPushLink& owner_;
    const QUrl url_;
    const QByteArray token_;
    const QSslConfiguration ssl_;
    const PushLinkOptions options_;
    std::unique_ptr<QWebSocket> socket_;
    std::unique_ptr<QWebSocket> retired_;
    QTimer retryTimer_;
    QTimer handshakeTimer_;
    QTimer pingTimer_;
    QTimer closeTimer_;
    int nextRetryMs_;
    bool handshakeDone_ = false;
    bool acknowledged_ = false;
    bool subscribedOnce_ = false;
    bool awaitingPong_ = false;
    bool stopping_ = false;
    bool finished_ = false;
    PushSubscriptions sent_;
};

// The link's thread: the worker and its sockets are created, used and destroyed here.
class CPushLink::CLinkThread : public QThread {
public:
    CLinkThread(CPushLink& owner, LinkTarget target) : owner_(owner), target_(std::move(target)) {
        setObjectName(QStringLiteral("push-link"));
    }

protected:
    void run() override {
        {
            CWorker worker(owner_, target_);
            if (owner_.AttachWorker(&worker)) {
                worker.Open();
                exec();
            }
            // No post can reach the worker after this; posts already queued die with it.
            owner_.DetachWorker();
        }
        // Sockets Qt scheduled for deletion while the loop ran.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

private:
    CPushLink& owner_;
    const LinkTarget target_;
};

CPushLink::CPushLink(SubscriptionSource source, FrameSink sink)
    : source_(std::move(source)), sink_(std::move(sink)) {}

CPushLink::~CPushLink() {
    Stop();
}

bool CPushLink::Start(const std::string& url, const std::string& token, const std::string& caFile,
                      const PushLinkOptions& options) {
    if (OnLinkThread()) {
        TAL_LOG(5, kLogModule, "[%s]The push link cannot be restarted from its own thread.[%s(%d)]");
        return false;
    }
    if (QCoreApplication::instance() == nullptr) {
        // Qt delivers no event (timers, sockets, queued calls) in any thread before the application object
        // exists; its loop need not run.
        TAL_LOG(5, kLogModule,
                "[%s]The push link needs a QCoreApplication (its event loop need not run); "
                "not started.[%s(%d)]");
        return false;
    }
    const QUrl target(QString::fromStdString(url), QUrl::StrictMode);
    if (!target.isValid() || target.host().isEmpty() ||
        (target.scheme() != QLatin1String("ws") && target.scheme() != QLatin1String("wss"))) {
        TAL_LOG(5, kLogModule, "[%s]Push URL is not a ws:// or wss:// address: %s[%s(%d)]", url.c_str());
        return false;
    }
    QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
    if (!caFile.empty()) {
        const QList<QSslCertificate> authorities = QSslCertificate::fromPath(
            QString::fromStdString(caFile), QSsl::Pem, QSslCertificate::PatternSyntax::FixedString);
        if (authorities.isEmpty()) {
            TAL_LOG(5, kLogModule, "[%s]No PEM certificate in the CA file %s; push link not started.[%s(%d)]",
                    caFile.c_str());
            return false;
        }
        ssl.setCaCertificates(authorities);
    }
    ssl.setPeerVerifyMode(QSslSocket::VerifyPeer);

    std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
    StopAndJoin();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopRequested_ = false;
        state_ = PushLinkState::kConnecting;
    }
    joinTimeoutMs_ = options.closeTimeoutMs + kJoinMarginMs;
    thread_ = std::make_unique<CLinkThread>(
        *this, LinkTarget{target, QByteArray::fromStdString(token), ssl, options});
    thread_->start();
    TAL_LOG(3, kLogModule, "[%s]Push link starting to %s.[%s(%d)]", ForLog(target).c_str());
    return true;
}

void CPushLink::Stop() {
    if (OnLinkThread()) {
        // Joining would wait for this very thread: ask the loop to end; the next Start or Stop joins it.
        RequestStop();
        return;
    }
    std::lock_guard<std::mutex> lifecycle(lifecycleMutex_);
    StopAndJoin();
}

void CPushLink::StopAndJoin() {
    if (!thread_) {
        return;
    }
    RequestStop();
    if (!thread_->wait(joinTimeoutMs_)) {
        TAL_LOG(4, kLogModule, "[%s]Push link did not close within %d ms; ending its loop.[%s(%d)]",
                joinTimeoutMs_);
        thread_->quit();
        thread_->wait();
    }
    thread_.reset();
    std::lock_guard<std::mutex> lock(mutex_);
    state_ = PushLinkState::kStopped;
}

void CPushLink::RequestStop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopRequested_ = true;
    if (worker_ != nullptr) {
        CWorker* worker = worker_;
        QMetaObject::invokeMethod(
            worker, [worker] { worker->Shutdown(); }, Qt::QueuedConnection);
    }
}

bool CPushLink::OnLinkThread() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return worker_ != nullptr && worker_->thread() == QThread::currentThread();
}

bool CPushLink::AttachWorker(CWorker* worker) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (stopRequested_) {
        return false;
    }
    worker_ = worker;
    return true;
}

void CPushLink::DetachWorker() {
    std::lock_guard<std::mutex> lock(mutex_);
    worker_ = nullptr;
}

PushLinkState CPushLink::State() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_;
}

void CPushLink::SetListener(PushLinkListener listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    listener_ = std::move(listener);
}

void CPushLink::SubscriptionsChanged() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (worker_ != nullptr) {
        CWorker* worker = worker_;
        QMetaObject::invokeMethod(
            worker, [worker] { worker->SyncSubscriptions(); }, Qt::QueuedConnection);
    }
}

void CPushLink::Report(const PushLinkEvent& event) {
    PushLinkListener listener;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        state_ = event.state;
        listener = listener_;
    }
    if (listener) {
        listener(event);
    }
}

}  // namespace TalClientFrameWork
