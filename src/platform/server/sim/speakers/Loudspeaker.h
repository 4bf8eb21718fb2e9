#pragma once
// What the speakers play, leaving their loudspeakers in real time, and the listeners of each device, who
// hear the sum of its loudspeakers or, while none of them sounds, the device's idle tone. Not thread-safe:
// the speaker simulation calls in under its lock.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/server/sim/audio/ToneGenerator.h"

namespace Platform {

/// The samples a speaker played that are not out of its loudspeaker yet.
class CLoudspeaker {
public:
    /// Appends what was played; what lies further ahead of real time than a loudspeaker holds is dropped.
    void Play(const int16_t* samples, std::size_t count);
    /// The next block out of the loudspeaker, `lastAudioMs` being when audio last came; empty while it
    /// holds too little to start (a talk arriving in real time then plays without gaps).
    std::vector<int16_t> NextBlock(int64_t nowMs, int64_t lastAudioMs);
    bool Empty() const { return queue_.empty(); }
    void Clear();

private:
    std::deque<int16_t> queue_;
    bool primed_ = false;
};

class CListeners {
public:
    using MonitorFn = std::function<void(const int16_t* samples, std::size_t count)>;
    using Delivery = std::pair<MonitorFn, std::vector<int16_t>>;

    int Add(int deviceId, MonitorFn fn);
    void Remove(int monitorId);
    bool Listened(int deviceId) const;
    /// Adds a loudspeaker's block to its device's mix; `sounding` when it plays or just played.
    void Mix(int deviceId, const std::vector<int16_t>& block, bool sounding);
    /// The block each listener hears this tick, to be handed over outside the lock; starts the next mix.
    /// `idleToneHz` gives a device's idle tone.
    std::vector<Delivery> TakeBlocks(const std::function<double(int)>& idleToneHz);

private:
    struct Monitor {
        int deviceId = 0;
        MonitorFn fn;
    };
    struct DeviceMix {
        std::vector<int32_t> sum;
        bool sounding = false;
    };

    std::map<int, Monitor> monitors_;
    int nextMonitor_ = 1;
    std::map<int, DeviceMix> mixes_;                       ///< by device id, this tick
    std::map<int, std::unique_ptr<CSineTone>> idleTones_;  ///< by device id, made when first listened to
};

}  // namespace Platform
