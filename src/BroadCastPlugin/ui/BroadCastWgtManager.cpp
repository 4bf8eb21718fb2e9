#include "BroadCastPlugin/ui/BroadCastWgtManager.h"

#include <QCoreApplication>
#include <QTranslator>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/model/ConsoleSite.h"
#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"
#include "framework/business/BusinessCommon.h"
#include "framework/wuicontrol/WUIControl.h"

// The translations are compiled into the module's resources; the static library needs this to register them.
static void InitBroadcastTranslations() {
    Q_INIT_RESOURCE(broadcast_translations);
}

namespace BroadCastPlugin {

CBroadCastWgtManager* CBroadCastWgtManager::Instance() {
    return WUIControl::CObjectSingleton<CBroadCastWgtManager>::Instance();
}

CBroadCastWgtManager* CBroadCastWgtManager::InstanceIfExists() {
    return WUIControl::CObjectSingleton<CBroadCastWgtManager>::InstanceIfExists();
}

CBroadCastWgtManager::CBroadCastWgtManager() = default;

CBroadCastWgtManager::~CBroadCastWgtManager() = default;

void CBroadCastWgtManager::InstallTranslation() {
    if (translator_) {
        return;
    }
    InitBroadcastTranslations();
    const QString language = QString::fromStdString(BusinessCommon::GetLanguage());
    auto translator = std::make_unique<QTranslator>();
    if (translator->load(QStringLiteral(":/broadcast/i18n/broadcast_%1.qm").arg(language))) {
        QCoreApplication::installTranslator(translator.get());
        translator_ = std::move(translator);
    } else {
        BCAST_LOG(4, "[%s]No translation for the language %s; the panels show English.[%s(%d)]",
                  language.toStdString().c_str());
    }
}

void CBroadCastWgtManager::EnsureWidgets() {
    InstallTranslation();
    if (site_.isNull()) {
        site_ = new CConsoleSite();
    }
    if (panel_.isNull()) {
        panel_ = new CBroadcastPanel(site_);
        CBroadcastToolUI::Instance()->SetToolPanel(panel_);
    }
    if (popDialog_.isNull()) {
        popDialog_ = new CBroadcastPopDialog(site_);
    }
}

std::vector<CBroadcastConsole*> CBroadCastWgtManager::Consoles() const {
    std::vector<CBroadcastConsole*> consoles;
    if (!panel_.isNull()) {
        consoles.push_back(panel_->Console());
    }
    if (!popDialog_.isNull()) {
        consoles.push_back(popDialog_->Console());
    }
    return consoles;
}

bool CBroadCastWgtManager::Init() {
    EnsureWidgets();
    CBroadcastController* c = CBroadcastController::Instance();
    using M = CBroadCastWgtManager;
    using C = CBroadcastController;
    const auto unique = Qt::UniqueConnection;
    connect(c, &C::SignalUpdateVersion, this, &M::OnSignalUpdateVersion, unique);
    connect(c, &C::SignalDownloadResult, this, &M::OnSignalDownloadResult, unique);
    connect(c, &C::SignalBroadcastState, this, &M::OnSignalBroadcastState, unique);
    connect(c, &C::SignalTTSBroadcastState, this, &M::OnSignalTTSBroadcastState, unique);
    connect(c, &C::SignalStopBroadcast, this, &M::OnSignalStopBroadcast, unique);
    connect(c, &C::SignalListenBroadcast, this, &M::OnSignalListenBroadcast, unique);
    connect(c, &C::SignalStopListenBroadcast, this, &M::OnSignalStopListenBroadcast, unique);
    connect(c, &C::SignalDownloadFileToLocal, this, &M::OnSignalDownloadFileToLocal, unique);
    connect(c, &C::SignalSearchMediaFiles, this, &M::OnSignalSearchMediaFiles, unique);
    connect(c, &C::SignalStartDeviceBroadcast, this, &M::OnSignalStartDeviceBroadcast, unique);
    connect(c, &C::SignalDeviceBroadcastState, this, &M::OnSignalDeviceBroadcastState, unique);
    return true;
}

void CBroadCastWgtManager::Uninit() {
    if (CBroadcastController* c = CBroadcastController::InstanceIfExists()) {
        disconnect(c, nullptr, this, nullptr);
    }
    delete panel_.data();
    delete popDialog_.data();
    delete site_.data();
    if (translator_) {
        QCoreApplication::removeTranslator(translator_.get());
        translator_.reset();
    }
}

void CBroadCastWgtManager::StopWorking() {
    if (!panel_.isNull()) {
        panel_->hide();
        panel_->SetStatus(tr("Stopped"));
    }
    if (!popDialog_.isNull()) {
        popDialog_->hide();
    }
}

void CBroadCastWgtManager::RefreshFrame() {
    if (!panel_.isNull()) {
        panel_->update();
    }
}

void* CBroadCastWgtManager::GetBroadcastPanelHandle() {
    EnsureWidgets();
    return static_cast<QWidget*>(panel_.data());
}

void CBroadCastWgtManager::PopBroadcastPanel(const PopPannelParam& param) {
    EnsureWidgets();
    lastPop_ = param;
    site_->EnsureLoaded();
    popDialog_->ApplyRequest(param);
    popDialog_->show();
    popDialog_->raise();
}

bool CBroadCastWgtManager::IsModalDialogVisible() const {
    return !popDialog_.isNull() && popDialog_->isVisible();
}

void CBroadCastWgtManager::OnSignalUpdateVersion(std::string data) {
    for (CBroadcastConsole* console : Consoles()) {
        console->AppendEvent(tr("update pushed: %1").arg(QString::fromStdString(data)));
    }
}

void CBroadCastWgtManager::OnSignalDownloadResult(DownloadResourceState state,
                                                  Tal::Base::Error::ErrorCode error) {
    // The consoles first (they report), then the site reloads and they show it.
    for (CBroadcastConsole* console : Consoles()) {
        console->OnResourceDownload(state, error);
    }
    if (!site_.isNull()) {
        site_->OnDownloadResult(state);
    }
}

void CBroadCastWgtManager::OnSignalBroadcastState(std::vector<IPSpeakerNotifyParam> params) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnBroadcastState(params);
    }
}

void CBroadCastWgtManager::OnSignalTTSBroadcastState(std::vector<TTSResponseError> errors) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnTTSState(errors);
    }
}

void CBroadCastWgtManager::OnSignalStopBroadcast(std::string /*text*/, Tal::Base::Error::ErrorCode error,
                                                 void* user) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnStopBroadcast(error, user);
    }
}

void CBroadCastWgtManager::OnSignalListenBroadcast(ResourceManager::ID id, Tal::Base::Error::ErrorCode error,
                                                   void* user) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnListen(id, error, user);
    }
}

void CBroadCastWgtManager::OnSignalStopListenBroadcast(Tal::Base::Error::ErrorCode error, void* user) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnStopListen(error, user);
    }
}

void CBroadCastWgtManager::OnSignalDownloadFileToLocal(ResourceManager::ID id,
                                                       Tal::Base::Error::ErrorCode error, void* user) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnDownloadFile(id, error, user);
    }
}

void CBroadCastWgtManager::OnSignalSearchMediaFiles(std::vector<MediaFile> files,
                                                    Tal::Base::Error::ErrorCode error) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnSearchMediaFiles(files, error);
    }
}

void CBroadCastWgtManager::OnSignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids,
                                                        Tal::Base::Error::ErrorCode error) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnStartDeviceBroadcast(ids, error);
    }
}

void CBroadCastWgtManager::OnSignalDeviceBroadcastState(DeviceNotifyParam param) {
    for (CBroadcastConsole* console : Consoles()) {
        console->OnDeviceBroadcastState(param);
    }
}

CBroadcastToolUI* CBroadcastToolUI::Instance() {
    return WUIControl::CObjectSingleton<CBroadcastToolUI>::Instance();
}

}  // namespace BroadCastPlugin
