#pragma once
// Time source and sleeps of the sending threads, injectable so that a test can drive the pacing schedule on
// a virtual clock.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace BroadCastPlugin {

class ITransferClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::steady_clock::duration;

    virtual ~ITransferClock() = default;
    virtual TimePoint Now() = 0;
    /// Sleeps until `deadline`, or less when `cancel` is set and WakeSleepers() is called.
    virtual void SleepUntil(TimePoint deadline, const std::atomic<bool>& cancel) = 0;
    /// Ends the sleeps whose cancel flag is set. Set the flag first, then call this.
    virtual void WakeSleepers() = 0;

    void SleepFor(Duration duration, const std::atomic<bool>& cancel) {
        SleepUntil(Now() + duration, cancel);
    }
};

/// The monotonic system clock.
class CSteadyTransferClock : public ITransferClock {
public:
    TimePoint Now() override { return std::chrono::steady_clock::now(); }
    void SleepUntil(TimePoint deadline, const std::atomic<bool>& cancel) override;
    void WakeSleepers() override;

private:
    std::mutex mutex_;
    std::condition_variable wake_;
};

}  // namespace BroadCastPlugin
