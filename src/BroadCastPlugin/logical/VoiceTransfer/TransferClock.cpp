#include "BroadCastPlugin/logical/VoiceTransfer/TransferClock.h"

namespace BroadCastPlugin {

void CSteadyTransferClock::SleepUntil(TimePoint deadline, const std::atomic<bool>& cancel) {
    std::unique_lock<std::mutex> lock(mutex_);
    // The flag is read under the mutex that WakeSleepers takes, so a wake-up cannot fall between check and
    // wait.
    wake_.wait_until(lock, deadline, [&] { return cancel.load(); });
}

void CSteadyTransferClock::WakeSleepers() {
    std::lock_guard<std::mutex> lock(mutex_);
    wake_.notify_all();
}

}  // namespace BroadCastPlugin
