#pragma once
// Web engine data manager: language of the module's web pages and the start and stop of the page server.
// While started, the pages of one directory are served over HTTP and each page reaches the objects of a
// factory over a QWebChannel on a WebSocket, both on the bind address (127.0.0.1) and only under a random
// access token drawn at each start.

#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <mutex>

class QObject;

namespace CEFDataController {

class CPageServer;

class CEFDataMananger {
public:
    /// Creates the objects one page connection sees on its channel, by name, parented to `parent`; they are
    /// deleted when that connection ends.
    using PageObjectFactory = std::function<std::map<QString, QObject*>(QObject* parent)>;

    CEFDataMananger();
    ~CEFDataMananger();

    static CEFDataMananger* Instance();

    static void SetLanguage(const QString& language);
    static QString GetLanguage();
    /// Starts the web engine side; repeated calls are harmless. Returns whether it is up. Call it on a
    /// thread with a Qt event loop (the main thread): the WebSocket server lives there.
    static bool InitCef();
    /// Stops it; harmless when it is not up.
    static void UninitCef();
    static bool IsCefInit();
    /// How many times InitCef found the engine down and brought it up (for diagnostics).
    static int StartCount();

    /// The directory the pages are served from; used from the next start.
    static void SetPageDirectory(const QString& directory);
    static QString PageDirectory();
    /// The address both servers bind to (default 127.0.0.1); used from the next start.
    static void SetBindAddress(const QString& address);
    /// The ports of the next start; 0 (the default) takes any free port.
    static void SetHttpPort(quint16 port);
    static void SetWebSocketPort(quint16 port);
    /// The objects of each page connection; used for connections made from now on.
    static void SetPageObjectFactory(PageObjectFactory factory);
    static bool HasPageObjectFactory();

    /// "http://<address>:<http port>/<token>/<page>?ws=<WebSocket port>"; empty while stopped.
    static QString PageUrl(const QString& page);
    /// The bound ports and the token of the current start; 0 and empty while stopped.
    static quint16 HttpPort();
    static quint16 WebSocketPort();
    static QString Token();

private:
    /// A field of the instance, read or written under its lock.
    template <class T>
    static T Get(T CEFDataMananger::*field) {
        CEFDataMananger* self = Instance();
        std::lock_guard<std::mutex> lock(self->mutex_);
        return self->*field;
    }
    template <class T>
    static void Set(T CEFDataMananger::*field, const T& value) {
        CEFDataMananger* self = Instance();
        std::lock_guard<std::mutex> lock(self->mutex_);
        self->*field = value;
    }
    /// `read(server)` under the lock while a server runs, `stopped` otherwise.
    template <class T, class Read>
    static T FromServer(T stopped, Read read) {
        CEFDataMananger* self = Instance();
        std::lock_guard<std::mutex> lock(self->mutex_);
        return self->server_ != nullptr ? read(*self->server_) : stopped;
    }

    std::mutex mutex_;
    QString language_;
    bool initialised_ = false;
    int startCount_ = 0;
    QString pageDirectory_;
    QString bindAddress_ = QStringLiteral("127.0.0.1");
    quint16 httpPort_ = 0;
    quint16 webSocketPort_ = 0;
    std::shared_ptr<PageObjectFactory> factory_;
    std::unique_ptr<CPageServer> server_;
};

}  // namespace CEFDataController
