#include "platform/server/push/QtScheduler.h"

#include <QMetaObject>
#include <QTimer>

namespace Platform {

CQtScheduler::CQtScheduler() : context_(std::make_unique<QObject>()) {}

CQtScheduler::~CQtScheduler() {
    Shutdown();
}

void CQtScheduler::After(int delayMs, std::function<void()> task) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!context_) {
        return;
    }
    QObject* context = context_.get();
    // Hop to the loop's thread first: a timer must be started on the thread it fires on.
    QMetaObject::invokeMethod(
        context, [context, delayMs, task] { QTimer::singleShot(delayMs < 0 ? 0 : delayMs, context, task); },
        Qt::QueuedConnection);
}

void CQtScheduler::Shutdown() {
    std::unique_ptr<QObject> context;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        context = std::move(context_);
    }
}

}  // namespace Platform
