#include "framework/webengine/CEFDataManager.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QThread>
#include <QUrl>

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/webengine/PageServer.h"

namespace CEFDataController {

CEFDataMananger::CEFDataMananger() = default;

// Joins the HTTP server's threads should the engine still run when the process ends.
CEFDataMananger::~CEFDataMananger() = default;

CEFDataMananger* CEFDataMananger::Instance() {
    return Tal::Base::CSingleton<CEFDataMananger>::Instance();
}

void CEFDataMananger::SetLanguage(const QString& language) {
    Set(&CEFDataMananger::language_, language);
}

QString CEFDataMananger::GetLanguage() {
    return Get(&CEFDataMananger::language_);
}

bool CEFDataMananger::InitCef() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (!self->initialised_) {
        if (QCoreApplication::instance() == nullptr) {
            TAL_LOG(5, "WebEngine", "[%s]Web engine cannot start without a Qt application.[%s(%d)]");
            return false;
        }
        PageServerConfig config;
        config.pageDirectory = self->pageDirectory_;
        config.bindAddress = QHostAddress(self->bindAddress_);
        config.httpPort = self->httpPort_;
        config.webSocketPort = self->webSocketPort_;
        // Each connection asks for the factory installed at that moment.
        config.factory = [self](QObject* parent) {
            std::shared_ptr<PageObjectFactory> factory;
            {
                std::lock_guard<std::mutex> lock(self->mutex_);
                factory = self->factory_;
            }
            return factory && *factory ? (*factory)(parent) : std::map<QString, QObject*>();
        };
        if (config.bindAddress.isNull()) {
            TAL_LOG(5, "WebEngine", "[%s]Web engine cannot start: bad bind address %s.[%s(%d)]",
                    self->bindAddress_.toStdString().c_str());
            return false;
        }
        auto server = std::make_unique<CPageServer>(std::move(config));
        QString error;
        if (!server->Start(error)) {
            TAL_LOG(5, "WebEngine", "[%s]Web engine cannot start: %s.[%s(%d)]", error.toStdString().c_str());
            return false;
        }
        self->server_ = std::move(server);
        self->initialised_ = true;
        ++self->startCount_;
        TAL_LOG(3, "WebEngine", "[%s]Web engine started, language: %s.[%s(%d)]",
                self->language_.toStdString().c_str());
        TAL_LOG(3, "WebEngine",
                "[%s]Web pages on http port %d, channel on WebSocket port %d, from %s.[%s(%d)]",
                static_cast<int>(self->server_->HttpPort()), static_cast<int>(self->server_->WebSocketPort()),
                self->pageDirectory_.toStdString().c_str());
    }
    return true;
}

void CEFDataMananger::UninitCef() {
    CEFDataMananger* self = Instance();
    std::unique_ptr<CPageServer> server;
    {
        std::lock_guard<std::mutex> lock(self->mutex_);
        if (!self->initialised_) {
            return;
        }
        self->initialised_ = false;
        server = std::move(self->server_);
    }
    // Outside the lock: the page objects it deletes may ask the manager for anything.
    if (server != nullptr && server->thread() != QThread::currentThread()) {
        TAL_LOG(4, "WebEngine", "[%s]Web engine stopped off its thread; it ends on its own thread.[%s(%d)]");
        server.release()->deleteLater();
    }
    server.reset();
    TAL_LOG(3, "WebEngine", "[%s]Web engine stopped.[%s(%d)]");
}

bool CEFDataMananger::IsCefInit() {
    return Get(&CEFDataMananger::initialised_);
}

int CEFDataMananger::StartCount() {
    return Get(&CEFDataMananger::startCount_);
}

void CEFDataMananger::SetPageDirectory(const QString& directory) {
    Set(&CEFDataMananger::pageDirectory_, directory);
}

QString CEFDataMananger::PageDirectory() {
    return Get(&CEFDataMananger::pageDirectory_);
}

void CEFDataMananger::SetBindAddress(const QString& address) {
    Set(&CEFDataMananger::bindAddress_, address);
}

void CEFDataMananger::SetHttpPort(quint16 port) {
    Set(&CEFDataMananger::httpPort_, port);
}

void CEFDataMananger::SetWebSocketPort(quint16 port) {
    Set(&CEFDataMananger::webSocketPort_, port);
}

void CEFDataMananger::SetPageObjectFactory(PageObjectFactory factory) {
    CEFDataMananger* self = Instance();
    auto shared = std::make_shared<PageObjectFactory>(std::move(factory));
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->factory_ = std::move(shared);
}

bool CEFDataMananger::HasPageObjectFactory() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    return self->factory_ != nullptr && *self->factory_;
}

QString CEFDataMananger::PageUrl(const QString& page) {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (self->server_ == nullptr) {
        return QString();
    }
    QString host = self->server_->BindAddress().toString();
    if (self->server_->BindAddress().protocol() == QAbstractSocket::IPv6Protocol) {
        host = QLatin1Char('[') + host + QLatin1Char(']');
    }
    return QStringLiteral("http://%1:%2/%3/%4?ws=%5")
        .arg(host)
        .arg(self->server_->HttpPort())
        .arg(self->server_->Token())
        .arg(page)
        .arg(self->server_->WebSocketPort());
}

quint16 CEFDataMananger::HttpPort() {
    return FromServer(0, [](const CPageServer& server) { return server.HttpPort(); });
}

quint16 CEFDataMananger::WebSocketPort() {
    return FromServer(0, [](const CPageServer& server) { return server.WebSocketPort(); });
}

QString CEFDataMananger::Token() {
    return FromServer(QString(), [](const CPageServer& server) { return server.Token(); });
}

}  // namespace CEFDataController
