#include "platform/server/sim/audio/ToneGenerator.h"

#include <algorithm>
#include <cmath>

namespace Platform {

namespace {

constexpr double kTwoPi = 6.283185307179586;

int16_t ToSample(double value) {
    return static_cast<int16_t>(std::lround(std::clamp(value, -1.0, 1.0) * 32767.0));
}

}  // namespace

CSineTone::CSineTone(double frequencyHz, double amplitude, int sampleRate)
    : frequency_(frequencyHz), amplitude_(amplitude), step_(kTwoPi * frequencyHz / sampleRate) {}

void CSineTone::Fill(int16_t* out, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = ToSample(amplitude_ * std::sin(phase_));
        phase_ += step_;
        if (phase_ >= kTwoPi) {
            phase_ -= kTwoPi;
        }
    }
}

std::vector<int16_t> MakeChime(double seconds, int sampleRate) {
    const std::size_t total = static_cast<std::size_t>(std::max(0.0, seconds) * sampleRate);
    std::vector<int16_t> out(total);
    if (total == 0) {
        return out;
    }
    // Two strikes, each decaying to a sustained level, with short fades so that no strike clicks.
    const std::size_t strike = std::max<std::size_t>(total / 2, 1);
    const std::size_t fade = std::min<std::size_t>(static_cast<std::size_t>(sampleRate / 100), strike / 4);
    for (std::size_t i = 0; i < total; ++i) {
        const std::size_t inStrike = i % strike;
        const double t = static_cast<double>(inStrike) / sampleRate;
        double envelope = 0.6 + 0.4 * std::exp(-4.0 * t);
        if (fade > 0 && inStrike < fade) {
            envelope *= static_cast<double>(inStrike) / fade;
        }
        const std::size_t left = std::min(strike - inStrike, total - i);
        if (fade > 0 && left < fade) {
            envelope *= static_cast<double>(left) / fade;
        }
        out[i] = ToSample(0.5 * envelope * std::sin(kTwoPi * kChimeFrequencyHz * i / sampleRate));
    }
    return out;
}

}  // namespace Platform
