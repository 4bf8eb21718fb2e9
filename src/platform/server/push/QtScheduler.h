#pragma once
// IScheduler on the Qt event loop of the thread that creates it.

#include <QObject>

#include <memory>
#include <mutex>

#include "platform/server/push/PushFrame.h"

namespace Platform {

class CQtScheduler : public IScheduler {
public:
    CQtScheduler();
    ~CQtScheduler() override;

    void After(int delayMs, std::function<void()> task) override;
    /// Drops every pending task; later calls of After do nothing. Call on the loop's thread before the
    /// objects that tasks use go away.
    void Shutdown();

private:
    std::mutex mutex_;
    std::unique_ptr<QObject> context_;  ///< pending timers die with it
};

}  // namespace Platform
