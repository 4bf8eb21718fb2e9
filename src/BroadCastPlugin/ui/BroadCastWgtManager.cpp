#include "BroadCastPlugin/ui/BroadCastWgtManager.h"

#include <QStringList>

#include "BroadCastPlugin/BroadcastConstants.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"
#include "framework/errortext/ErrorCodeTrans.h"
#include "framework/wuicontrol/WUIControl.h"

namespace BroadCastPlugin {

namespace {
QString ErrorText(const ErrorCode& error) {
    if (error.IsSucceed()) {
        return QStringLiteral("ok");
    }
    return QString::fromStdString(ErrorCodeTrans::GetErrorInfoByErrorCode(error));
}

QString Join(const std::vector<std::string>& items) {
    QStringList list;
    for (const auto& item : items) {
        list << QString::fromStdString(item);
    }
    return list.join(',');
}
}  // namespace

CBroadCastWgtManager* CBroadCastWgtManager::Instance() {
    return WUIControl::CObjectSingleton<CBroadCastWgtManager>::Instance();
}

CBroadCastWgtManager* CBroadCastWgtManager::InstanceIfExists() {
    return WUIControl::CObjectSingleton<CBroadCastWgtManager>::InstanceIfExists();
}

CBroadCastWgtManager::CBroadCastWgtManager() = default;

CBroadCastWgtManager::~CBroadCastWgtManager() = default;

void CBroadCastWgtManager::EnsureWidgets() {
    if (panel_.isNull()) {
        panel_ = new CBroadcastPanel();
        CBroadcastToolUI::Instance()->SetToolPanel(panel_);
    }
    if (popDialog_.isNull()) {
        popDialog_ = new CBroadcastPopDialog();
    }
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
    popDialog_->SetRequest(QString("type %1, items [%2], names [%3], volume %4%5")
                               .arg(param.type)
                               .arg(Join(param.dataItems))
                               .arg(Join(param.resourceNames))
                               .arg(param.volume)
                               .arg(param.styleGiven ? QStringLiteral(", styled") : QString()));
    popDialog_->show();
    popDialog_->raise();
}

bool CBroadCastWgtManager::IsModalDialogVisible() const {
    return !popDialog_.isNull() && popDialog_->isVisible();
}

void CBroadCastWgtManager::Show(const QString& line) {
    if (!panel_.isNull()) {
        panel_->AppendEvent(line);
    }
}

void CBroadCastWgtManager::OnSignalUpdateVersion(std::string data) {
    Show(QString("update pushed: %1").arg(QString::fromStdString(data)));
}

void CBroadCastWgtManager::OnSignalDownloadResult(DownloadResourceState state,
                                                  Tal::Base::Error::ErrorCode error) {
    static const char* const kStates[] = {"started", "finished", "failed"};
    const int index = static_cast<int>(state);
    Show(QString("resource download %1 (%2)")
             .arg(index >= 0 && index <= 2 ? kStates[index] : "?")
             .arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalBroadcastState(std::vector<IPSpeakerNotifyParam> params) {
    for (const IPSpeakerNotifyParam& p : params) {
        Show(QString("event type %1, element %2, broadcast status %3, speaker status %4, resource status "
                     "%5%6 (%7)")
                 .arg(p.type)
                 .arg(p.elementID)
                 .arg(p.broadcastStatus)
                 .arg(p.speakerStatus)
                 .arg(p.resourceStatus)
                 .arg(p.promptVoiceActive ? QStringLiteral(", prompt tone") : QString())
                 .arg(ErrorText(p.error)));
        if (p.type == 0 && !panel_.isNull()) {
            panel_->SetStatus(QString("Broadcast status %1").arg(p.broadcastStatus));
        }
    }
}

void CBroadCastWgtManager::OnSignalTTSBroadcastState(std::vector<TTSResponseError> errors) {
    Show(QString("text-to-speech started, %1 speakers failed").arg(errors.size()));
    for (const TTSResponseError& e : errors) {
        Show(QString("  %1 (%2): %3")
                 .arg(QString::fromStdString(e.ElementName))
                 .arg(e.ElementID)
                 .arg(ErrorText(e.Error)));
    }
}

void CBroadCastWgtManager::OnSignalStopBroadcast(std::string /*text*/, Tal::Base::Error::ErrorCode error,
                                                 void* /*user*/) {
    Show(QString("broadcast stopped (%1)").arg(ErrorText(error)));
    if (!panel_.isNull()) {
        panel_->SetStatus(tr("Idle"));
    }
}

void CBroadCastWgtManager::OnSignalListenBroadcast(ResourceManager::ID id, Tal::Base::Error::ErrorCode error,
                                                   void* /*user*/) {
    Show(QString("listen to %1 (%2)").arg(id).arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalStopListenBroadcast(Tal::Base::Error::ErrorCode error, void* /*user*/) {
    Show(QString("listen stopped (%1)").arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalDownloadFileToLocal(ResourceManager::ID id,
                                                       Tal::Base::Error::ErrorCode error, void* /*user*/) {
    Show(QString("media file %1 download (%2)").arg(id).arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalSearchMediaFiles(std::vector<MediaFile> files,
                                                    Tal::Base::Error::ErrorCode error) {
    Show(QString("media search: %1 files (%2)").arg(files.size()).arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids,
                                                        Tal::Base::Error::ErrorCode error) {
    Show(QString("device broadcast to %1 devices (%2)").arg(ids.size()).arg(ErrorText(error)));
}

void CBroadCastWgtManager::OnSignalDeviceBroadcastState(DeviceNotifyParam param) {
    Show(QString("device %1 status %2 (%3)")
             .arg(QString::fromStdString(param.indexCode))
             .arg(param.status)
             .arg(QString::fromStdString(param.errorInfo)));
}

CBroadcastToolUI* CBroadcastToolUI::Instance() {
    return WUIControl::CObjectSingleton<CBroadcastToolUI>::Instance();
}

}  // namespace BroadCastPlugin
