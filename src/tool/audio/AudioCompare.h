#pragma once
// How well a recording matches a reference: the peak of their normalised cross-correlation and the delay
// at which it lies.

#include <cstdint>
#include <string>
#include <vector>

namespace BcastTool {

struct PcmAudio {
    int rate = 0;
    std::vector<int16_t> samples;  ///< mono: the first channel of the file
};

/// Reads a 16-bit PCM WAV file (any rate, first channel kept). False with `error` set.
bool ReadWavMono(const std::string& path, PcmAudio& audio, std::string& error);
/// Converts to `rate` with the project's resampler; unchanged when the rates match.
bool ToRate(const PcmAudio& in, int rate, PcmAudio& out);

struct AudioMatch {
    /// cross-correlation at the delay, normalised by both signals' energy over the part where they overlap
    /// (what the recording holds outside the reference does not count), -1..1
    double correlation = 0;
    double delayMs = 0;  ///< how much later the recording carries the reference
    double referenceSeconds = 0;
    double recordingSeconds = 0;
};

/// Compares a recording with a reference at `rate`: the delay is where their cross-correlation peaks
/// between -maxDelaySeconds and +maxDelaySeconds. Silent input gives a correlation of 0.
AudioMatch CompareAudio(const PcmAudio& reference, const PcmAudio& recording, double maxDelaySeconds);

}  // namespace BcastTool
