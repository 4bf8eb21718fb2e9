#include "tool/rtp/Pcm.h"

#include <algorithm>
#include <cmath>

namespace BcastTool {

double DominantFrequency(const std::vector<int16_t>& samples, int sampleRate) {
    const size_t count = std::min(samples.size(), static_cast<size_t>(sampleRate));
    if (count == 0 || sampleRate <= 0) {
        return 0.0;
    }
    double bestFrequency = 0.0;
    double bestPower = -1.0;
    // Goertzel power at each candidate frequency.
    for (int frequency = 10; frequency < sampleRate / 2; frequency += 10) {
        const double coefficient = 2.0 * std::cos(2.0 * M_PI * frequency / sampleRate);
        double s1 = 0.0;
        double s2 = 0.0;
        for (size_t i = 0; i < count; ++i) {
            const double s0 = samples[i] + coefficient * s1 - s2;
            s2 = s1;
            s1 = s0;
        }
        const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
        if (power > bestPower) {
            bestPower = power;
            bestFrequency = frequency;
        }
    }
    return bestFrequency;
}

}  // namespace BcastTool
