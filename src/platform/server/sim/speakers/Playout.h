#pragma once
// Plays audio the platform makes itself (the prompt-tone chime, text-to-speech) in real time: a thread
// prepares the samples (which may take a while: speech synthesis), then hands them out in 20 ms blocks at
// the pace they play, on an absolute schedule so that no drift accumulates.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/base/NonCopyable.h"

namespace Platform {

class CPlayout : private Tal::Base::CNonCopyable {
public:
    enum class Result { kCompleted, kCancelled, kFailed };

    /// Makes the samples (8000 Hz mono); may poll `cancelled`. False with a reason when it cannot.
    using Prepare = std::function<bool(const std::atomic<bool>& cancelled, std::vector<int16_t>& samples,
                                       std::string& error)>;
    /// One block of samples, in playing order, on the playout's thread.
    using Block = std::function<void(const int16_t* samples, std::size_t count)>;
    /// Called once at the end, on the playout's thread; `error` is set for kFailed.
    using Done = std::function<void(Result result, const std::string& error)>;

    static constexpr int kBlockSamples = 160;  ///< 20 ms at 8000 Hz

    CPlayout(Prepare prepare, Block block, Done done);
    /// Cancels and joins.
    ~CPlayout();

    void Start();
    /// Asks the playout to end after the block in progress; returns at once (does not join), so it may
    /// be called while holding locks that the callbacks take.
    void Cancel();
    /// True once the done callback has returned.
    bool Finished() const { return finished_; }

private:
    void Run();

    Prepare prepare_;
    Block block_;
    Done done_;
    std::atomic<bool> cancelled_{false};
    std::atomic<bool> finished_{false};
    std::mutex mutex_;
    std::condition_variable wake_;
    std::thread thread_;
};

}  // namespace Platform
