#pragma once
// Constants and small helpers that the speaker simulator's source files share (internal to CSpeakerSim).

#include <cstddef>
#include <cstdint>

#include "platform/server/sim/speakers/SpeakerSim.h"

namespace Platform {
namespace SpeakerSimDetail {

inline constexpr int kSampleRate = 8000;
inline constexpr int kBlock = CPlayout::kBlockSamples;
/// A speaker counts as playing for this long after its last audio (gaps of a live talk are silence, not
/// the idle tone).
inline constexpr int64_t kActiveHoldMs = 300;
inline constexpr int kTickMs = kBlock * 1000 / kSampleRate;
/// Error of a speaker whose terminal is offline.
inline constexpr int kErrorModulePlatform = 30;
inline constexpr int kErrorTerminalOffline = 7;
inline constexpr int kErrorInternal = 6;
/// Error of a streaming-server speaker that did not connect in time.
inline constexpr int kErrorSpeakerUnreachable = 9;
inline constexpr std::size_t kMaxGroups = 1000;

}  // namespace SpeakerSimDetail
}  // namespace Platform
