#include "BroadCastPlugin/ui/panels/tabs/ListenTab.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/ui/widgets/LevelMeter.h"

namespace BroadCastPlugin {

CListenTab::CListenTab(IConsoleContext* context, QWidget* parent)
    : QWidget(parent),
      context_(context),
      speaker_(new QComboBox(this)),
      listen_(new QPushButton(tr("Listen"), this)),
      level_(new CLevelMeter([] { return CIPSpeakerManager::Instance()->GetListenLevel(); },
                             tr("Level of what is heard"), this)),
      volume_(new QSlider(Qt::Horizontal, this)),
      volumeText_(new QLabel(this)),
      state_(new QLabel(this)) {
    setObjectName("ListenTab");
    speaker_->setObjectName("ListenSpeaker");
    speaker_->setAccessibleName(tr("Speaker to listen to"));
    listen_->setObjectName("ListenButton");
    level_->setObjectName("ListenLevel");
    volume_->setObjectName("ListenVolume");
    volume_->setRange(0, 100);
    volume_->setPageStep(10);
    volume_->setAccessibleName(tr("Listening volume"));
    volume_->setValue(CIPSpeakerManager::Instance()->GetListenVolume());
    volumeText_->setObjectName("ListenVolumeText");
    volumeText_->setText(QStringLiteral("%1%").arg(volume_->value()));
    state_->setObjectName("ListenState");
    state_->setWordWrap(true);

    auto* layout = new QVBoxLayout(this);
    auto* row = new QHBoxLayout();
    row->addWidget(new QLabel(tr("Speaker"), this));
    row->addWidget(speaker_, 1);
    row->addWidget(listen_);
    layout->addLayout(row);
    auto* meterRow = new QHBoxLayout();
    meterRow->addWidget(new QLabel(tr("Heard"), this));
    meterRow->addWidget(level_, 1);
    layout->addLayout(meterRow);
    auto* volumeRow = new QHBoxLayout();
    volumeRow->addWidget(new QLabel(tr("Volume"), this));
    volumeRow->addWidget(volume_, 1);
    volumeRow->addWidget(volumeText_);
    layout->addLayout(volumeRow);
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
