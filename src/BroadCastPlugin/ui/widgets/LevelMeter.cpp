#include "BroadCastPlugin/ui/widgets/LevelMeter.h"

#include <QTimer>

#include <algorithm>

namespace BroadCastPlugin {

namespace {
constexpr int kReadIntervalMs = 50;
}  // namespace

CLevelMeter::CLevelMeter(std::function<float()> source, const QString& accessibleName, QWidget* parent)
    : QProgressBar(parent), source_(std::move(source)), timer_(new QTimer(this)) {
    setRange(0, 100);
    setValue(0);
    setTextVisible(false);
    setMaximumHeight(12);
    setAccessibleName(accessibleName);
    timer_->setInterval(kReadIntervalMs);
    connect(timer_, &QTimer::timeout, this, &CLevelMeter::Read);
}

void CLevelMeter::Start() {
    timer_->start();
    Read();
}

void CLevelMeter::Stop() {
    timer_->stop();
    setValue(0);
}

void CLevelMeter::Read() {
    setValue(static_cast<int>(std::clamp(source_(), 0.0f, 1.0f) * 100.0f + 0.5f));
}

}  // namespace BroadCastPlugin
