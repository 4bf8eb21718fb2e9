#include "platform/server/sim/speakers/Playout.h"

#include <algorithm>

namespace Platform {

CPlayout::CPlayout(Prepare prepare, Block block, Done done)
    : prepare_(std::move(prepare)), block_(std::move(block)), done_(std::move(done)) {}

CPlayout::~CPlayout() {
    Cancel();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void CPlayout::Start() {
    thread_ = std::thread([this] { Run(); });
}

void CPlayout::Cancel() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        cancelled_ = true;
    }
    wake_.notify_all();
}

void CPlayout::Run() {
    std::vector<int16_t> samples;
    std::string error;
    Result result = Result::kCompleted;
    if (!prepare_(cancelled_, samples, error)) {
        result = cancelled_ ? Result::kCancelled : Result::kFailed;
    } else {
        const auto blockTime = std::chrono::milliseconds(kBlockSamples * 1000 / 8000);
        auto due = std::chrono::steady_clock::now();
        for (std::size_t at = 0; at < samples.size(); at += kBlockSamples) {
            {
                std::unique_lock<std::mutex> lock(mutex_);
                wake_.wait_until(lock, due, [this] { return cancelled_.load(); });
            }
            if (cancelled_) {
                result = Result::kCancelled;
                break;
            }
            block_(samples.data() + at, std::min<std::size_t>(kBlockSamples, samples.size() - at));
            due += blockTime;
        }
        if (result == Result::kCompleted) {
            // The last block plays for its own length before the playout is over.
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait_until(lock, due, [this] { return cancelled_.load(); });
        }
    }
    done_(result, error);
    finished_ = true;
}

}  // namespace Platform
