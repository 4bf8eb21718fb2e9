#include "BroadCastPlugin/controller/WebBroadcastController/WebPageBridge.h"

#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebBroadcastController.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebRecordPage.h"
#include "framework/business/PluginCommManager.h"

namespace BroadCastPlugin {

namespace {

const char* const kMethodPrefix = "/API/Broadcast/V0/";

// The module's methods that only read: a page may ask them, never start, stop or change anything through
// this object.
const char* const kReadOnlyMethods[] = {"Config", "BroadcastTerminals", "WorkState"};

std::string ToStd(const QString& text) {
    return text.toUtf8().toStdString();
}

}  // namespace

CWebPageBridge::CWebPageBridge(QObject* parent)
    : QObject(parent), controller_(std::make_unique<CWebBroadcastController>()) {
    controller_->Init();
    QPointer<CWebPageBridge> self(this);
    controller_->RegisterMessageCallback([this, self](std::string message, int target) {
        const QString text = QString::fromStdString(message);
        if (QThread::currentThread() == thread()) {
            emit executeJsFunction(text, target);
            return;
        }
        // Results reach the controller on this object's thread; should one come from elsewhere, it is
        // queued there, which keeps the order of the messages.
        QMetaObject::invokeMethod(
            this,
            [self, text, target] {
                if (self != nullptr) {
                    emit self->executeJsFunction(text, target);
                }
            },
            Qt::QueuedConnection);
    });
}

CWebPageBridge::~CWebPageBridge() {
    // The controller stops following the results before this object's signal goes away.
    controller_->Unit();
}

bool CWebPageBridge::StartIPSpeakerBroadcast(const QString& json) {
    return controller_->StartIPSpeakerBroadcast(ToStd(json));
}

bool CWebPageBridge::StopIPSpeakerBroadcast() {
    return controller_->StopIPSpeakerBroadcast();
}

bool CWebPageBridge::DownloadMediaFile(const QString& json) {
    return controller_->DownloadMediaFile(ToStd(json));
}

bool CWebPageBridge::StartBroadcastListen(const QString& json) {
    return controller_->StartBroadcastListen(ToStd(json));
}

bool CWebPageBridge::StopBroadcastListen() {
    return controller_->StopBroadcastListen();
}

void CWebPageBridge::CleanCache() {
    controller_->CleanCache();
}

CWebSiteInfo::CWebSiteInfo(QObject* parent) : QObject(parent) {}

bool CWebSiteInfo::IsAllowed(const QString& method) {
    for (const char* allowed : kReadOnlyMethods) {
        if (method == QLatin1String(allowed)) {
            return true;
        }
    }
    return false;
}

QString CWebSiteInfo::Call(const QString& method, const QString& json) {
    if (!IsAllowed(method)) {
        BCAST_LOG(4, "[%s]A web page asked for the method %s, which it may not call.[%s(%d)]",
                  ToStd(method).c_str());
        return QStringLiteral("{\"Error\":\"not allowed\"}");
    }
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    const std::string name = kMethodPrefix + ToStd(method);
    if (!bus->HasMethod(name)) {
        return QStringLiteral("{\"Error\":\"not available\"}");
    }
    std::string answer;
    bus->CallMethod(name, json.isEmpty() ? std::string("{}") : ToStd(json), answer);
    return QString::fromStdString(answer);
}

std::map<QString, QObject*> CreateWebPageObjects(QObject* parent) {
    return {{QStringLiteral("broadcast"), new CWebPageBridge(parent)},
            {QStringLiteral("site"), new CWebSiteInfo(parent)},
            {QStringLiteral("records"), new CWebRecordPage(parent)}};
}

}  // namespace BroadCastPlugin
