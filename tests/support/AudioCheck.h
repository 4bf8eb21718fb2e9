#pragma once
// Audio checks for tests: test signals made by sox, independent decoding by sox or ffmpeg, and
// measurements (dominant frequency, sine SNR, level).

#include <cstdint>
#include <string>
#include <vector>

namespace BcastTest {

/// Writes a sine WAV with sox: 16-bit PCM unless `bits` says otherwise. `channelFrequencies` gives one
/// frequency per channel. Returns sox's error output, empty on success.
std::string MakeToneWav(const std::string& path, int rate, const std::vector<double>& channelFrequencies,
                        double seconds, int bits = 16, double volume = 0.5);

/// Runs sox/ffmpeg to decode `path` to mono 16-bit samples at `rate`. `inputArgs` go before the input
/// (for headerless formats, e.g. {"-t", "ul", "-r", "8000", "-c", "1"}). Empty on failure, with `error` set.
std::vector<int16_t> DecodeWithSox(const std::string& path, int rate,
                                   const std::vector<std::string>& inputArgs, std::string* error);
/// `filter` (ffmpeg -af) picks or mixes channels before the conversion to mono, e.g. "pan=mono|c0=c1".
std::vector<int16_t> DecodeWithFfmpeg(const std::string& path, int rate,
                                      const std::vector<std::string>& inputArgs, std::string* error,
                                      const std::string& filter = "");

/// Frequency of the strongest spectral peak (Hann window, parabolic interpolation).
double DominantFrequency(const std::vector<int16_t>& samples, int rate);
/// Power of the best-fitting sine at `frequency` against everything else, in dB.
double SineSnrDb(const std::vector<int16_t>& samples, int rate, double frequency);
/// Root mean square, full scale = 1.
double Rms(const std::vector<int16_t>& samples);
/// The samples from the first to the last whose magnitude exceeds `threshold` (trims silence).
std::vector<int16_t> TrimSilence(const std::vector<int16_t>& samples, int threshold = 500);
/// `count` samples from the middle of `samples` (all when shorter).
std::vector<int16_t> Middle(const std::vector<int16_t>& samples, std::size_t count);

std::vector<uint8_t> ReadBytes(const std::string& path);
/// Raw signed 16-bit little-endian samples of a file (what a PulseAudio recording writes); empty when absent.
std::vector<int16_t> ReadRawPcm(const std::string& path);
bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace BcastTest
