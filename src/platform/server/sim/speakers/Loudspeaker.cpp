#include "platform/server/sim/speakers/Loudspeaker.h"

#include <algorithm>
#include <set>

#include "platform/server/sim/speakers/Playout.h"

namespace Platform {

namespace {

constexpr int kSampleRate = 8000;
constexpr std::size_t kBlock = CPlayout::kBlockSamples;
/// What a loudspeaker may hold ahead of real time (bursts sent ahead, e.g. a file broadcast's pre-buffer).
constexpr std::size_t kLoudspeakerMaxSamples = 8 * kSampleRate;
/// A loudspeaker starts once it holds this much, so that a talk arriving in real time plays without gaps.
constexpr std::size_t kLoudspeakerPrimeSamples = kSampleRate / 10;
/// A loudspeaker holding less starts anyway once its audio has paused this long.
constexpr int64_t kPrimePauseMs = 60;

}  // namespace

void CLoudspeaker::Play(const int16_t* samples, std::size_t count) {
    queue_.insert(queue_.end(), samples, samples + count);
    if (queue_.size() > kLoudspeakerMaxSamples) {
        queue_.erase(queue_.begin(),
                     queue_.begin() + static_cast<std::ptrdiff_t>(queue_.size() - kLoudspeakerMaxSamples));
    }
}

std::vector<int16_t> CLoudspeaker::NextBlock(int64_t nowMs, int64_t lastAudioMs) {
    if (!primed_ && (queue_.size() >= kLoudspeakerPrimeSamples ||
                     (!queue_.empty() && nowMs - lastAudioMs >= kPrimePauseMs))) {
        primed_ = true;
    }
    std::vector<int16_t> block;
    if (primed_) {
        const auto n = static_cast<std::ptrdiff_t>(std::min(kBlock, queue_.size()));
        block.assign(queue_.begin(), queue_.begin() + n);
        queue_.erase(queue_.begin(), queue_.begin() + n);
        primed_ = !queue_.empty();
    }
    return block;
}

void CLoudspeaker::Clear() {
    queue_.clear();
    primed_ = false;
}

int CListeners::Add(int deviceId, MonitorFn fn) {
    const int id = nextMonitor_++;
    monitors_[id] = Monitor{deviceId, std::move(fn)};
    return id;
}

void CListeners::Remove(int monitorId) {
    monitors_.erase(monitorId);
}

bool CListeners::Listened(int deviceId) const {
    return std::any_of(monitors_.begin(), monitors_.end(),
                       [deviceId](const auto& m) { return m.second.deviceId == deviceId; });
}

void CListeners::Mix(int deviceId, const std::vector<int16_t>& block, bool sounding) {
    DeviceMix& mix = mixes_[deviceId];
    mix.sum.resize(kBlock, 0);
    for (std::size_t i = 0; i < block.size(); ++i) {
        mix.sum[i] += block[i];
    }
    mix.sounding = mix.sounding || sounding;
}

std::vector<CListeners::Delivery> CListeners::TakeBlocks(const std::function<double(int)>& idleToneHz) {
    std::set<int> devices;
    for (const auto& m : monitors_) {
        devices.insert(m.second.deviceId);
    }
    std::vector<Delivery> deliveries;
    for (int device : devices) {
        std::vector<int16_t> out(kBlock, 0);
        const DeviceMix& mix = mixes_[device];
        if (mix.sounding) {
            for (std::size_t i = 0; i < out.size() && i < mix.sum.size(); ++i) {
                out[i] = static_cast<int16_t>(std::clamp<int32_t>(mix.sum[i], -32768, 32767));
            }
        } else {
            auto& tone = idleTones_[device];
            if (!tone) {
                tone = std::make_unique<CSineTone>(idleToneHz(device), 0.3, kSampleRate);
            }
            tone->Fill(out.data(), out.size());
        }
        for (const auto& m : monitors_) {
            if (m.second.deviceId == device) {
                deliveries.emplace_back(m.second.fn, out);
            }
        }
    }
    mixes_.clear();
    return deliveries;
}

}  // namespace Platform
