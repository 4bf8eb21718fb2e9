#pragma once
// Text to speech for the simulated speakers and the media library: espeak-ng writes a WAV file, which is
// read and converted to 16-bit mono at the wanted rate (the speakers' 8000 Hz by default) with the codec
// library's resampler.

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace Platform {

class CTtsSynthesizer {
public:
    /// `workDirectory` holds the temporary WAV files; `program` is looked up on PATH; the speech comes out
    /// at `sampleRate`.
    explicit CTtsSynthesizer(std::string workDirectory, std::string program = "espeak-ng",
                             int sampleRate = 8000);

    /// Speaks `text` with `voice` (an espeak-ng voice name). Ends early, returning false, when `cancelled`
    /// is set; false with a reason when the program is missing, fails or takes longer than `timeoutMs`.
    bool Synthesize(const std::string& text, const std::string& voice, const std::atomic<bool>& cancelled,
                    std::vector<int16_t>& samples, std::string& error, int timeoutMs = 30000) const;

    /// The espeak-ng voice of a platform language key: "en-US" -> "en-us", "zh-CN" -> "cmn",
    /// "de-DE" -> "de"; others lower-cased.
    static std::string VoiceFor(const std::string& languageKey);

private:
    std::string workDirectory_;
    std::string program_;
    int sampleRate_;
};

/// Reads a 16-bit PCM WAV file (any rate, mono or stereo, mixed down); false with a reason otherwise.
bool ReadPcmWav(const std::string& path, std::vector<int16_t>& samples, int& sampleRate, std::string& error);

}  // namespace Platform
