#pragma once
// A clock for the sending threads that only moves when the test moves it: sleepers block until the test
// advances virtual time past their deadline (or the manager cancels them), so the pacing schedule is checked
// exactly.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/TransferClock.h"

namespace TransferTest {

class CVirtualClock : public BroadCastPlugin::ITransferClock {
public:
    struct Sleep {
        TimePoint from;
        TimePoint until;
    };

    TimePoint Now() override {
        std::lock_guard<std::mutex> lock(mutex_);
        return now_;
    }

    void SleepUntil(TimePoint deadline, const std::atomic<bool>& cancel) override {
        std::unique_lock<std::mutex> lock(mutex_);
        sleeps_.push_back({now_, deadline});
        pending_.push_back(deadline);
        changed_.notify_all();
        changed_.wait(lock, [&] { return now_ >= deadline || cancel.load(); });
        pending_.erase(std::find(pending_.begin(), pending_.end(), deadline));
        changed_.notify_all();
    }

    void WakeSleepers() override {
        std::lock_guard<std::mutex> lock(mutex_);
        changed_.notify_all();
    }

    /// Virtual time zero.
    TimePoint Origin() const { return origin_; }

    /// Milliseconds of virtual time since the origin.
    long long ElapsedMs() {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Now() - origin_).count();
    }

    /// Waits (in real time, bounded) until a thread sleeps towards a time still ahead; gives the earliest
    /// such deadline. Sleepers already due (woken, not yet running) do not count.
    bool WaitForSleeper(TimePoint& deadline, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex_);
        auto ahead = [&] {
            return std::any_of(pending_.begin(), pending_.end(), [&](TimePoint t) { return t > now_; });
        };
        if (!changed_.wait_for(lock, timeout, ahead)) {
            return false;
        }
        deadline = TimePoint::max();
        for (TimePoint t : pending_) {
            if (t > now_) {
                deadline = std::min(deadline, t);
            }
        }
        return true;
    }

    /// Moves virtual time forward to `time` and wakes the sleepers that are due.
    void AdvanceTo(TimePoint time) {
        std::lock_guard<std::mutex> lock(mutex_);
        now_ = std::max(now_, time);
        changed_.notify_all();
    }

    void Advance(Duration duration) { AdvanceTo(Now() + duration); }

    std::vector<Sleep> Sleeps() {
        std::lock_guard<std::mutex> lock(mutex_);
        return sleeps_;
    }

private:
    const TimePoint origin_{std::chrono::hours(1000)};
    std::mutex mutex_;
    std::condition_variable changed_;
    TimePoint now_{origin_};
    std::vector<TimePoint> pending_;
    std::vector<Sleep> sleeps_;
};

}  // namespace TransferTest
