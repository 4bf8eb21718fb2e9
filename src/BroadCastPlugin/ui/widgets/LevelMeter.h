#pragma once
// A level meter: a thin bar that shows a level (0..1) read from its source every 50 ms while running, and
// nothing while stopped.

#include <QProgressBar>

#include <functional>

class QTimer;

namespace BroadCastPlugin {

class CLevelMeter : public QProgressBar {
    Q_OBJECT

public:
    CLevelMeter(std::function<float()> source, const QString& accessibleName, QWidget* parent = nullptr);

    void Start();
    /// Stops reading and shows nothing.
    void Stop();

private:
    void Read();

    std::function<float()> source_;
    QTimer* timer_;
};

}  // namespace BroadCastPlugin
