#pragma once
// Test signals of the simulated site: a continuous sine (each speaker's idle tone, heard when listening to
// a speaker that plays nothing) and the prompt-tone chime.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Platform {

/// A sine of fixed frequency whose phase continues from one block to the next.
class CSineTone {
public:
    CSineTone(double frequencyHz, double amplitude, int sampleRate);
    void Fill(int16_t* out, std::size_t count);
    double Frequency() const { return frequency_; }

private:
    double frequency_;
    double amplitude_;
    double step_;
    double phase_ = 0.0;
};

/// The prompt tone: an 880 Hz chime struck twice, `seconds` long, at `sampleRate`.
std::vector<int16_t> MakeChime(double seconds, int sampleRate);

/// Frequency of the chime, for checks.
constexpr double kChimeFrequencyHz = 880.0;

}  // namespace Platform
