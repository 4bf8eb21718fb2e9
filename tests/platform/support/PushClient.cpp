#include "PushClient.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>

#include <rapidjson/pointer.h>

namespace PlatformTest {

CPushClient::CPushClient() {
    connect(&socket_, &QWebSocket::textMessageReceived, this, [this](const QString& text) {
        messages_.push_back(text.toStdString());
        taken_.push_back(false);
    });
    connect(&socket_, &QWebSocket::disconnected, this, [this] {
        closed_ = true;
        closeCode_ = static_cast<int>(socket_.closeCode());
    });
    connect(&socket_, QOverload<QAbstractSocket::SocketError>::of(&QWebSocket::error), this,
            [this](QAbstractSocket::SocketError) {
                errored_ = true;
                lastError_ = socket_.errorString().toStdString();
            });
}

CPushClient::~CPushClient() {
    socket_.abort();
}

bool CPushClient::WaitUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

void CPushClient::Pump(int ms) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
}

bool CPushClient::Open(const std::string& url, const std::string& token, int timeoutMs, bool tokenInQuery) {
    closed_ = false;
    errored_ = false;
    closeCode_ = -1;
    QUrl qurl(QString::fromStdString(url));
    QNetworkRequest request;
    if (tokenInQuery) {
        QUrlQuery query;
        query.addQueryItem(QStringLiteral("token"), QString::fromStdString(token));
        qurl.setQuery(query);
    } else if (!token.empty()) {
        request.setRawHeader("Authorization", QByteArray("Bearer ") + QByteArray::fromStdString(token));
    }
    request.setUrl(qurl);
    socket_.open(request);
    return WaitUntil([this] { return IsConnected() || errored_ || closed_; }, timeoutMs) && IsConnected();
}

bool CPushClient::ChangeSubscription(const char* action, const std::vector<int>& messageTypes,
                                     const std::vector<int>& eventTypes, int timeoutMs) {
    std::string text = std::string("{\"Action\":\"") + action + "\",\"MessageTypes\":[";
    for (size_t i = 0; i < messageTypes.size(); ++i) {
        text += (i ? "," : "") + std::to_string(messageTypes[i]);
    }
    text += "],\"Events\":[";
    for (size_t i = 0; i < eventTypes.size(); ++i) {
        text +=
            (i ? "," : "") + std::string("{\"EventType\":") + std::to_string(eventTypes[i]) + ",\"Type\":0}";
    }
    text += "]}";
    SendText(text);
    return !WaitFor(
                [](const rapidjson::Document& d) {
                    return d.IsObject() && FrameStr(d, "/Action") == "SubscribeAck";
                },
                timeoutMs)
                .empty();
}

bool CPushClient::Subscribe(const std::vector<int>& messageTypes, const std::vector<int>& eventTypes,
                            int timeoutMs) {
    return ChangeSubscription("Subscribe", messageTypes, eventTypes, timeoutMs);
}

bool CPushClient::Unsubscribe(const std::vector<int>& messageTypes, const std::vector<int>& eventTypes,
                              int timeoutMs) {
    return ChangeSubscription("Unsubscribe", messageTypes, eventTypes, timeoutMs);
}

void CPushClient::SendText(const std::string& text) {
    socket_.sendTextMessage(QString::fromStdString(text));
}

std::string CPushClient::WaitFor(const std::function<bool(const rapidjson::Document&)>& match,
                                 int timeoutMs) {
    std::string found;
    WaitUntil(
        [&] {
            for (size_t i = 0; i < messages_.size(); ++i) {
                if (taken_[i]) {
                    continue;
                }
                rapidjson::Document doc;
                doc.Parse(messages_[i].c_str());
                if (!doc.HasParseError() && match(doc)) {
                    taken_[i] = true;
                    found = messages_[i];
                    return true;
                }
            }
            return false;
        },
        timeoutMs);
    return found;
}

bool CPushClient::WaitClosed(int timeoutMs) {
    return WaitUntil([this] { return closed_ || socket_.state() == QAbstractSocket::UnconnectedState; },
                     timeoutMs);
}

int FrameInt(const rapidjson::Document& doc, const char* pointer, int defaultValue) {
    const rapidjson::Value* v = rapidjson::Pointer(pointer).Get(doc);
    return v != nullptr && v->IsInt() ? v->GetInt() : defaultValue;
}

std::string FrameStr(const rapidjson::Document& doc, const char* pointer) {
    const rapidjson::Value* v = rapidjson::Pointer(pointer).Get(doc);
    return v != nullptr && v->IsString() ? v->GetString() : std::string();
}

bool IsStatusFrame(const rapidjson::Document& doc, int status) {
    return FrameInt(doc, "/MessageType") == 3 &&
           FrameInt(doc, "/Msg/Data/Event/BroadcastStatusList/0/Status") == status;
}

}  // namespace PlatformTest
