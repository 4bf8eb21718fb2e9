#pragma once
// A websocket client of the platform's push link for tests (QWebSocket on the test's event loop): opens
// the link with a session token, subscribes, and waits, bounded, for frames.

#include <QObject>
#include <QSslConfiguration>
#include <QString>
#include <QWebSocket>

#include <rapidjson/document.h>

#include <functional>
#include <string>
#include <vector>

namespace PlatformTest {

class CPushClient : public QObject {
    Q_OBJECT

public:
    CPushClient();
    ~CPushClient() override;

    void SetSslConfiguration(const QSslConfiguration& config) { socket_.setSslConfiguration(config); }
    /// Opens `url` (the token goes in an "Authorization: Bearer" header unless `tokenInQuery`); true once
    /// connected, false after `timeoutMs` or an error.
    bool Open(const std::string& url, const std::string& token, int timeoutMs = 10000,
              bool tokenInQuery = false);
    /// Subscribes to message types and events; true once the matching acknowledgement came.
    bool Subscribe(const std::vector<int>& messageTypes, const std::vector<int>& eventTypes,
                   int timeoutMs = 10000);
    bool Unsubscribe(const std::vector<int>& messageTypes, const std::vector<int>& eventTypes,
                     int timeoutMs = 10000);
    void SendText(const std::string& text);

    /// Waits until a received text (not yet taken) satisfies `match`; returns it and marks it taken.
    /// Empty when none came in time.
    std::string WaitFor(const std::function<bool(const rapidjson::Document&)>& match, int timeoutMs);
    /// Waits until the link is closed; true when it is.
    bool WaitClosed(int timeoutMs);
    /// Lets the event loop run for a while (to collect frames that should not come).
    void Pump(int ms);

    bool IsConnected() const { return socket_.state() == QAbstractSocket::ConnectedState; }
    int CloseCode() const { return closeCode_; }
    std::vector<std::string> Messages() const { return messages_; }
    const std::string& LastError() const { return lastError_; }

private:
    bool WaitUntil(const std::function<bool()>& done, int timeoutMs);
    bool ChangeSubscription(const char* action, const std::vector<int>& messageTypes,
                            const std::vector<int>& eventTypes, int timeoutMs);

    QWebSocket socket_;
    std::vector<std::string> messages_;
    std::vector<bool> taken_;
    int closeCode_ = -1;
    bool closed_ = false;
    bool errored_ = false;
    std::string lastError_;
};

/// Frame readers: MessageType, EventType and the broadcast status list of a push frame.
int FrameInt(const rapidjson::Document& doc, const char* pointer, int defaultValue = -999);
std::string FrameStr(const rapidjson::Document& doc, const char* pointer);
bool IsStatusFrame(const rapidjson::Document& doc, int status);

}  // namespace PlatformTest
