#pragma once
// A tone estimate for the RTP commands.

#include <cstdint>
#include <vector>

namespace BcastTool {

/// Frequency (Hz, 10 Hz steps up to half the rate) with the most energy in the first second of `samples`.
double DominantFrequency(const std::vector<int16_t>& samples, int sampleRate);

}  // namespace BcastTool
