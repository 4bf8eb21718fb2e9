#pragma once
// 16-bit PCM WAV files. Reading and streaming writes go through libsndfile; the canonical 44-byte header is
// also built by hand for writers whose bytes are fixed (a recording written as raw data, header last).

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"

struct sf_private_tag;

namespace Tal {
namespace MediaKit {

/// 16-bit samples, interleaved when there is more than one channel.
struct PcmAudio {
    int sampleRate = 0;
    int channels = 0;
    std::vector<int16_t> samples;

    std::size_t Frames() const {
        return channels > 0 ? samples.size() / static_cast<std::size_t>(channels) : 0;
    }
};

/// What a WAV file's format chunk says.
struct WavFacts {
    int sampleRate = 0;
    int channels = 0;
    int bitsPerSample = 0;  ///< 0 when the samples are not integer PCM (float, G.711, ADPCM...)
};

constexpr std::size_t kWavHeaderBytes = 44;

/// The canonical header of a 16-bit PCM WAV file with `dataBytes` bytes of samples.
std::array<uint8_t, kWavHeaderBytes> CanonicalWavHeader(int sampleRate, int channels, uint32_t dataBytes);

/// Reads a WAV file's samples as 16-bit PCM; `facts` (optional) receives its stored format. False with
/// `error` set: "cannot open PATH", "PATH is not a WAV file".
bool ReadWav(const std::string& path, PcmAudio& audio, std::string& error, WavFacts* facts = nullptr);
/// Writes `audio` as a 16-bit PCM WAV file.
bool WriteWav(const std::string& path, const PcmAudio& audio);

/// The mean of the channels of each frame.
std::vector<int16_t> MixToMono(const PcmAudio& audio);
/// One channel of the audio.
std::vector<int16_t> ChannelOf(const PcmAudio& audio, int channel);

/// A 16-bit PCM WAV file written as audio arrives. The header is brought up to date after every write, so
/// the file is a complete WAV at any moment.
class CWavWriter : private Base::CNonCopyable {
public:
    CWavWriter();
    ~CWavWriter();

    /// Creates (or truncates) the file. False when it cannot be created.
    bool Open(const std::string& path, int sampleRate, int channels);
    /// Appends `count` interleaved samples (whole frames). False on a write error.
    bool Write(const int16_t* samples, std::size_t count);
    /// Completes the header and closes the file; later writes fail.
    void Close();
    bool IsOpen() const { return file_ != nullptr; }
    /// Sample frames written.
    uint64_t Frames() const { return frames_; }

private:
    struct Closer {
        void operator()(sf_private_tag* file) const;
    };
    std::unique_ptr<sf_private_tag, Closer> file_;
    int channels_ = 1;
    uint64_t frames_ = 0;
};

}  // namespace MediaKit
}  // namespace Tal
