#pragma once
// Live talk to audio-capable devices (cameras and encoders with a loudspeaker) through the device
// broadcast, with each device's state.

#include <QThreadPool>
#include <QWidget>

#include "BroadCastPlugin/ui/panels/ConsoleContext.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTreeWidget;

namespace BroadCastPlugin {

class CDeviceTab : public QWidget, public IConsoleTab {
    Q_OBJECT

public:
    explicit CDeviceTab(IConsoleContext* context, QWidget* parent = nullptr);
    /// Waits for a stop in progress.
    ~CDeviceTab() override;

    void RefreshControls() override;
    void OnSiteChanged() override;
    void OnStartResult(const std::vector<ResourceManager::ID>& ids, const ErrorCode& error);
    void OnDeviceState(const DeviceNotifyParam& param);

    /// Device ids chosen in the list and typed in the extra field.
    std::vector<ResourceManager::ID> ChosenDevices() const;
    void ChooseDevices(const std::vector<int32_t>& ids);
    bool IsRunning() const { return running_; }
    /// The state shown for a device, empty when none.
    QString StateTextOf(int32_t id) const;
    /// Stops the device broadcast off the UI thread (the stop tells the platform); false when none runs.
    bool Stop();

private:
    void Start();
    void SetDeviceText(int32_t id, const QString& text);

    IConsoleContext* context_;
    QTreeWidget* devices_;
    QLineEdit* extra_;
    QPushButton* start_;
    QPushButton* stop_;
    QLabel* state_;
    QThreadPool pool_;
    bool running_ = false;
    bool stopping_ = false;
};

}  // namespace BroadCastPlugin
