#pragma once
// Waiting for conditions that other threads make true, while the Qt event loop keeps delivering queued
// signals. Bounded: a condition that never comes true fails the test instead of hanging it.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <functional>

namespace BcastTest {

/// Processes events until `condition` holds or `timeoutMs` passes; returns the final value of `condition`.
inline bool WaitFor(const std::function<bool()>& condition, int timeoutMs = 5000) {
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > timeoutMs) {
            return condition();
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
    return true;
}

/// Processes events for a while (to let queued deliveries that should NOT happen show up).
inline void Settle(int ms = 100) {
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::msleep(2);
    }
}

}  // namespace BcastTest
