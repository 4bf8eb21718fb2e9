#pragma once
// A scheduler for unit tests: keeps each task, with its delay, until the test runs the pending ones.

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/server/push/PushFrame.h"

namespace PlatformTest {

class CManualScheduler : public Platform::IScheduler {
public:
    void After(int delayMs, std::function<void()> task) override {
        std::lock_guard<std::mutex> lock(mutex_);
        delays_.push_back(delayMs);
        tasks_.push_back(std::move(task));
    }
    /// Runs the tasks queued so far (not those they queue).
    void RunPending() {
        std::vector<std::function<void()>> tasks;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            tasks.swap(tasks_);
        }
        for (auto& task : tasks) {
            task();
        }
    }
    /// The delay of every task ever queued, in order.
    std::vector<int> Delays() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return delays_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::function<void()>> tasks_;
    std::vector<int> delays_;
};

}  // namespace PlatformTest
