#include "BroadCastPlugin/ui/panels/tabs/ListenTab.h"

#include <QComboBox>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/ui/widgets/LevelMeter.h"
#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

CListenTab::CListenTab(IConsoleContext* context, QWidget* parent)
    : QWidget(parent),
      context_(context),
      speaker_(Named("ListenSpeaker", new QComboBox(this))),
      listen_(Named("ListenButton", new QPushButton(tr("Listen"), this))),
      level_(
          Named("ListenLevel", new CLevelMeter([] { return CIPSpeakerManager::Instance()->GetListenLevel(); },
                                               tr("Level of what is heard"), this))),
      volume_(Named("ListenVolume", new QSlider(Qt::Horizontal, this))),
      volumeText_(Named("ListenVolumeText", new QLabel(this))),
      state_(WrappingLabel("ListenState", this)) {
    setObjectName("ListenTab");
    speaker_->setAccessibleName(tr("Speaker to listen to"));
    volume_->setRange(0, 100);
    volume_->setPageStep(10);
    volume_->setAccessibleName(tr("Listening volume"));
    volume_->setValue(CIPSpeakerManager::Instance()->GetListenVolume());
    volumeText_->setText(QStringLiteral("%1%").arg(volume_->value()));

    auto* layout = new QVBoxLayout(this);
    AddRow(layout, tr("Speaker"), {speaker_, listen_}, speaker_);
    AddRow(layout, tr("Heard"), {level_}, level_);
    AddRow(layout, tr("Volume"), {volume_, volumeText_}, volume_);
    layout->addWidget(state_);
    layout->addStretch(1);

    connect(listen_, &QPushButton::clicked, this,
            [this] { IsListening() ? (void)StopListen() : StartListen(); });
    connect(volume_, &QSlider::valueChanged, this, [this](int value) {
        // The volume applies at once to a listen that runs, and to the next one.
        CIPSpeakerManager::Instance()->SetListenVolume(value);
        volumeText_->setText(QStringLiteral("%1%").arg(value));
    });
    RefreshControls();
}

void CListenTab::OnSiteChanged() {
    const int32_t current = speaker_->currentData().isValid() ? speaker_->currentData().toInt() : -1;
    speaker_->clear();
    for (const ConsoleSpeaker& speaker : context_->Site().speakers) {
        speaker_->addItem(speaker.name, speaker.id);
    }
    ChooseSpeaker(current);
    RefreshControls();
}

void CListenTab::SetVolume(int volume) {
    volume_->setValue(volume);
}

int CListenTab::Volume() const {
    return volume_->value();
}

bool CListenTab::ChooseSpeaker(int32_t elementId) {
    const int index = speaker_->findData(elementId);
    if (index < 0) {
        return false;
    }
    speaker_->setCurrentIndex(index);
    return true;
}

void CListenTab::StartListen() {
    if (!speaker_->currentData().isValid() || IsListening()) {
        return;
    }
    const int32_t id = speaker_->currentData().toInt();
    if (!CBroadcastController::Instance()->AsyncStartListen(id, context_->RequestTag())) {
        context_->Prompt(kMessageLevelDanger, tr("The listen could not be started."));
        return;
    }
    listening_ = id;
    stopping_ = false;
    state_->setText(tr("Connecting to %1...").arg(speaker_->currentText()));
    RefreshControls();
}

bool CListenTab::StopListen() {
    if (!IsListening() || stopping_) {
        return false;
    }
    stopping_ = true;
    CBroadcastController::Instance()->AsyncStopListen(context_->RequestTag());
    RefreshControls();
    return true;
}

void CListenTab::OnListenResult(int32_t id, const ErrorCode& error, void* user) {
    if (user != context_->RequestTag()) {
        return;
    }
    if (!error.IsSucceed()) {
        listening_ = -1;
        stopping_ = false;
        state_->setText(tr("Cannot listen: %1").arg(ErrorText(error)));
        context_->Prompt(
            kMessageLevelDanger,
            tr("Cannot listen to %1: %2").arg(context_->Speakers()->SpeakerName(id), ErrorText(error)));
    } else if (!stopping_) {
        state_->setText(tr("Listening to %1.").arg(context_->Speakers()->SpeakerName(id)));
        context_->Log(tr("listening to %1").arg(context_->Speakers()->SpeakerName(id)));
        level_->Start();
    }
    RefreshControls();
}

void CListenTab::OnStopListenResult(const ErrorCode& error, void* user) {
    if (user != context_->RequestTag()) {
        return;
    }
    level_->Stop();
    listening_ = -1;
    stopping_ = false;
    state_->setText(error.IsSucceed() ? tr("Not listening.")
                                      : tr("The listen stopped with an error: %1").arg(ErrorText(error)));
    RefreshControls();
}

void CListenTab::RefreshControls() {
    const bool allowed = context_->Site().rights.broadcast;
    listen_->setText(IsListening() ? tr("Stop listening") : tr("Listen"));
    listen_->setEnabled(allowed && !stopping_ && (IsListening() || speaker_->count() > 0));
    speaker_->setEnabled(!IsListening());
    if (!allowed) {
        state_->setText(tr("Listening is not allowed for your account."));
    }
}

}  // namespace BroadCastPlugin
