#pragma once
// 16-bit WAV files and a tone estimate for the RTP commands.

#include <cstdint>
#include <string>
#include <vector>

namespace BcastTool {

struct PcmAudio {
    int sampleRate = 0;
    int channels = 0;
    std::vector<int16_t> samples;  ///< interleaved
};

/// Reads a 16-bit PCM WAV file. False with `error` set for anything else.
bool ReadWav(const std::string& path, PcmAudio& audio, std::string& error);
/// Writes 16-bit PCM mono.
bool WriteWav(const std::string& path, const std::vector<int16_t>& samples, int sampleRate);

/// Frequency (Hz, 10 Hz steps up to half the rate) with the most energy in the first second of `samples`.
double DominantFrequency(const std::vector<int16_t>& samples, int sampleRate);

}  // namespace BcastTool
