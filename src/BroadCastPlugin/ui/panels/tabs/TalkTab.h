#pragma once
// Live talk from the microphone to the chosen speakers: a talk/stop toggle or push-to-talk (hold the button
// or the space bar), the microphone level, the time talked and whether the talk is recorded.

#include <QElapsedTimer>
#include <QWidget>

#include "BroadCastPlugin/ui/panels/tabs/BroadcastTab.h"

class QCheckBox;
class QLabel;
class QPushButton;
class QTimer;

namespace BroadCastPlugin {

class CLevelMeter;

class CTalkTab : public CBroadcastTab {
    Q_OBJECT

public:
    explicit CTalkTab(IConsoleContext* context, QWidget* parent = nullptr);

    void RefreshControls() override;
    void OnSiteChanged() override;
    void OnBroadcastStopped() override;

    /// Push-to-talk key handling, forwarded by the console (the space bar while this tab is shown).
    bool HandlePushToTalkKey(bool pressed);
    bool IsTalking() const;
    bool IsPushToTalk() const;

private:
    void OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) override;
    void StartTalk();
    void StopTalk();
    void OnTick();
    /// Whether talks are recorded, and that this one is while it runs.
    void ShowRecording();

    QPushButton* talk_;
    QCheckBox* pushToTalk_;
    QLabel* state_;
    QLabel* elapsed_;
    QLabel* record_;
    QLabel* denied_;
    CLevelMeter* level_;
    QTimer* ticker_;
    QElapsedTimer since_;
    bool keyHeld_ = false;
};

}  // namespace BroadCastPlugin
