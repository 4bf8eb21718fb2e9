#pragma once
// A stop flag that sleeping request handlers wake up for, so that a long injected delay never holds up
// the shutdown.

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "framework/base/LockedCopy.h"

namespace Platform {

class CStopSignal {
public:
    /// Sleeps up to `ms`; false when the stop came first.
    bool SleepFor(int ms) {
        std::unique_lock<std::mutex> lock(mutex_);
        return !cv_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return stopped_; });
    }
    void Stop() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopped_ = true;
        }
        cv_.notify_all();
    }
    bool IsStopped() const { return Tal::Base::LockedCopy(mutex_, stopped_); }

private:
    mutable std::mutex mutex_;
    std::condition_variable cv_;
    bool stopped_ = false;
};

}  // namespace Platform
