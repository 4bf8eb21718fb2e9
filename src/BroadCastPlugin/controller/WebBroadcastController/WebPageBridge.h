#pragma once
// What a web page of the module sees on its channel: "broadcast", a web controller of its own whose
// outgoing messages arrive as the executeJsFunction signal, "site", the module's read-only queries, and
// "records", the recording page's listing.

#include <QObject>
#include <QString>

#include <map>
#include <memory>

namespace BroadCastPlugin {

class CWebBroadcastController;

class CWebPageBridge : public QObject {
    Q_OBJECT

public:
    explicit CWebPageBridge(QObject* parent = nullptr);
    ~CWebPageBridge() override;

    Q_INVOKABLE bool StartIPSpeakerBroadcast(const QString& json);
    Q_INVOKABLE bool StopIPSpeakerBroadcast();
    Q_INVOKABLE bool DownloadMediaFile(const QString& json);
    Q_INVOKABLE bool StartBroadcastListen(const QString& json);
    Q_INVOKABLE bool StopBroadcastListen();
    Q_INVOKABLE void CleanCache();

signals:
    /// Every outgoing message of the web controller, in order; target 0 the web client, 1 the task control
    /// application.
    void executeJsFunction(const QString& message, int target);

private:
    std::unique_ptr<CWebBroadcastController> controller_;
};

class CWebSiteInfo : public QObject {
    Q_OBJECT

public:
    explicit CWebSiteInfo(QObject* parent = nullptr);

    /// The answer of the module's method /API/Broadcast/V0/<method> to `json`, for the read-only queries
    /// only ("Config", "BroadcastTerminals", "WorkState"); {"Error":"not allowed"} for any other method and
    /// {"Error":"not available"} while the module's methods are not published.
    Q_INVOKABLE QString Call(const QString& method, const QString& json);

    static bool IsAllowed(const QString& method);
};

/// The factory the web engine calls for each page connection: {"broadcast": bridge, "site": info,
/// "records": the recording page's CWebRecordPage}.
std::map<QString, QObject*> CreateWebPageObjects(QObject* parent);

}  // namespace BroadCastPlugin
