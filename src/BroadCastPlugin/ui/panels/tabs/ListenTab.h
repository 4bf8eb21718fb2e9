#pragma once
// Listening to what one speaker plays, through the local sound output, with the level of what is heard.

#include <QWidget>

#include "BroadCastPlugin/ui/panels/ConsoleContext.h"

class QComboBox;
class QLabel;
class QPushButton;
class QSlider;

namespace BroadCastPlugin {

class CLevelMeter;

class CListenTab : public QWidget, public IConsoleTab {
    Q_OBJECT

public:
    explicit CListenTab(IConsoleContext* context, QWidget* parent = nullptr);

    void RefreshControls() override;
    void OnSiteChanged() override;
    void OnListenResult(int32_t id, const ErrorCode& error, void* user);
    void OnStopListenResult(const ErrorCode& error, void* user);

    /// Chooses the speaker to listen to; false when it is not listed.
    bool ChooseSpeaker(int32_t elementId);
    bool IsListening() const { return listening_ >= 0; }
    /// Volume of what is heard (0..100), kept for later listens.
    void SetVolume(int volume);
    int Volume() const;
    /// Stops a listen of this console; false when none runs.
    bool StopListen();

private:
    void StartListen();

    IConsoleContext* context_;
    QComboBox* speaker_;
    QPushButton* listen_;
    CLevelMeter* level_;
    QSlider* volume_;
    QLabel* volumeText_;
    QLabel* state_;
    int32_t listening_ = -1;  ///< the speaker listened to (or asked for), -1 for none
    bool stopping_ = false;
};

}  // namespace BroadCastPlugin
