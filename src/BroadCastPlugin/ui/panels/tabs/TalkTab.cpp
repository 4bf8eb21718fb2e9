#include "BroadCastPlugin/ui/panels/tabs/TalkTab.h"

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/ui/widgets/LevelMeter.h"
#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

namespace {
QString Clock(qint64 ms) {
    const qint64 seconds = ms / 1000;
    return QStringLiteral("%1:%2")
        .arg(seconds / 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}
}  // namespace

CTalkTab::CTalkTab(IConsoleContext* context, QWidget* parent)
    : CBroadcastTab(context, ConsoleActivity::Talk, parent),
      talk_(Named("TalkButton", new QPushButton(this))),
      pushToTalk_(
          Named("PushToTalk", new QCheckBox(tr("Push to talk: hold the button or the space bar"), this))),
      state_(Named("TalkState", new QLabel(this))),
      elapsed_(Named("TalkElapsed", new QLabel(Clock(0), this))),
      record_(Named("TalkRecord", new QLabel(this))),
      denied_(WrappingLabel("TalkDenied", this)),
      level_(
          Named("MicLevel", new CLevelMeter([] { return CIPSpeakerManager::Instance()->GetCaptureLevel(); },
                                            tr("Microphone level"), this))),
      ticker_(new QTimer(this)) {
    setObjectName("TalkTab");
    talk_->setCheckable(true);
    talk_->setMinimumHeight(72);
    QFont big = talk_->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    big.setBold(true);
    talk_->setFont(big);
    denied_->setStyleSheet(QStringLiteral("color:#8a4b00;"));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(talk_);
    layout->addWidget(pushToTalk_);
    AddRow(layout, tr("Microphone"), {level_, elapsed_}, level_);
    layout->addWidget(state_);
    layout->addWidget(record_);
    layout->addWidget(denied_);
    layout->addStretch(1);

    connect(talk_, &QPushButton::clicked, this, [this](bool checked) {
        if (pushToTalk_->isChecked()) {
            return;  // pressed and released drive push-to-talk
        }
        checked ? StartTalk() : StopTalk();
    });
    connect(talk_, &QPushButton::pressed, this, [this] {
        if (pushToTalk_->isChecked()) {
            StartTalk();
        }
    });
    connect(talk_, &QPushButton::released, this, [this] {
        if (pushToTalk_->isChecked()) {
            StopTalk();
        }
    });
    connect(pushToTalk_, &QCheckBox::toggled, this, [this](bool on) {
        talk_->setCheckable(!on);
        RefreshControls();
    });
    ticker_->setInterval(50);
    connect(ticker_, &QTimer::timeout, this, &CTalkTab::OnTick);
    RefreshControls();
}

bool CTalkTab::IsTalking() const {
    return context_->Activity() == ConsoleActivity::Talk;
}

bool CTalkTab::IsPushToTalk() const {
    return pushToTalk_->isChecked();
}

void CTalkTab::StartTalk() {
    if (IsTalking() || context_->Activity() != ConsoleActivity::None) {
        return;
    }
    if (!context_->Site().rights.realBroadcast) {
        context_->Prompt(kMessageLevelWarning, tr("Your account may not talk live."));
        RefreshControls();
        return;
    }
    const std::vector<int32_t> targets = context_->Targets();
    if (targets.empty()) {
        context_->Prompt(kMessageLevelRemind, tr("Choose the speakers to talk to first."));
        RefreshControls();
        return;
    }
    context_->Speakers()->ResetStates(true);
    IPSpeakBroadcastParam param;
    param.elementIDs = targets;
    if (!CBroadcastController::Instance()->AsyncStartSpeakVoice(param, context_->RequestTag())) {
        context_->Prompt(kMessageLevelDanger, tr("The talk could not be started."));
        RefreshControls();
        return;
    }
    context_->SetActivity(ConsoleActivity::Talk);
    context_->Log(tr("talk started to %n speakers", nullptr, static_cast<int>(targets.size())));
    since_.start();
    ticker_->start();
    level_->Start();
    OnTick();
}

void CTalkTab::StopTalk() {
    if (!IsTalking()) {
        return;
    }
    context_->StopBroadcast();
}

bool CTalkTab::HandlePushToTalkKey(bool pressed) {
    if (!pushToTalk_->isChecked() || !talk_->isEnabled()) {
        return false;
    }
    if (pressed && !keyHeld_) {
        keyHeld_ = true;
        talk_->setDown(true);
        StartTalk();
    } else if (!pressed && keyHeld_) {
        keyHeld_ = false;
        talk_->setDown(false);
        StopTalk();
    }
    return true;
}

void CTalkTab::OnTick() {
    elapsed_->setText(Clock(since_.isValid() ? since_.elapsed() : 0));
}

void CTalkTab::RefreshControls() {
    const bool talking = IsTalking();
    const bool allowed = context_->Site().rights.realBroadcast;
    const bool otherRuns = context_->Activity() != ConsoleActivity::None && !talking;
    talk_->setEnabled(allowed && !otherRuns && (talking || !context_->Targets().empty()));
    talk_->setText(talking ? tr("Stop talking") : pushToTalk_->isChecked() ? tr("Hold to talk") : tr("Talk"));
    if (talk_->isCheckable()) {
        talk_->setChecked(talking);
    }
    talk_->setStyleSheet(talking ? QStringLiteral("QPushButton{background:#c62828;color:white;}")
                                 : QString());
    ShowRecording();
    denied_->setVisible(!allowed);
    denied_->setText(
        tr("Live talk is not allowed for your account (no live broadcast right). Ask an "
           "administrator to grant it."));
    if (!talking) {
        state_->setText(otherRuns ? tr("Another broadcast is running.")
                                  : tr("Choose speakers and press Talk."));
    }
}

void CTalkTab::ShowRecording() {
    const bool recorded = context_->Site().config.Record;
    if (IsTalking() && recorded) {
        record_->setText(QStringLiteral("\u25cf ") + tr("Recording this talk"));
        record_->setStyleSheet(QStringLiteral("color:#c62828;font-weight:bold;"));
        return;
    }
    record_->setStyleSheet(QString());
    record_->setText(recorded ? tr("Live talks are recorded and stored on the platform.")
                              : tr("Live talks are not recorded."));
}

void CTalkTab::OnSiteChanged() {
    RefreshControls();
}

void CTalkTab::OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) {
    for (const IPSpeakerNotifyParam& event : events) {
        if (event.type != kNotifyStage || event.elementID != -1) {
            continue;
        }
        if (event.broadcastStatus == kStageStarted) {
            state_->setText(tr("Connecting to the speakers..."));
        } else if (event.broadcastStatus == kStagePromptFinished) {
            state_->setText(tr("Prompt tone played."));
        } else if (event.broadcastStatus == kStageTalkReady) {
            state_->setText(tr("Speak now."));
            context_->Prompt(kMessageLevelSuccess, tr("Speak now: the speakers are listening."));
        }
    }
    CSpeakerTreeModel* speakers = context_->Speakers();
    const auto targets = context_->Targets();
    const int playing = static_cast<int>(std::count_if(targets.begin(), targets.end(), [&](int32_t id) {
        return speakers->StateOf(id) == SpeakerLiveState::Playing;
    }));
    if (playing > 0) {
        state_->setText(tr("On air at %1 of %2 speakers.").arg(playing).arg(targets.size()));
    }
}

void CTalkTab::OnBroadcastStopped() {
    ticker_->stop();
    level_->Stop();
    keyHeld_ = false;
    talk_->setDown(false);
    RefreshControls();
}

}  // namespace BroadCastPlugin
