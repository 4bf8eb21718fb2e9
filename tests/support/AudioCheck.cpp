#include "AudioCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

#include "TestProcess.h"
#include "framework/media/mediakit/Fourier.h"

namespace BcastTest {

namespace {

constexpr int kToolTimeoutMs = 60000;
const double kPi = std::acos(-1.0);

std::vector<int16_t> SamplesOf(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> samples(bytes.size() / 2);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<int16_t>(static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8));
    }
    return samples;
}

std::vector<int16_t> DecodeTo(const std::vector<std::string>& argv, const std::string& rawPath,
                              std::string* error) {
    ProcessResult result = RunProcess(argv, kToolTimeoutMs);
    std::vector<uint8_t> bytes = ReadBytes(rawPath);
    std::remove(rawPath.c_str());
    if (!result.started || result.timedOut || result.exitCode != 0) {
        if (error != nullptr) {
            *error = argv[0] + " failed (exit " + std::to_string(result.exitCode) +
                     (result.timedOut ? ", timed out" : "") + "): " + result.output;
        }
        return {};
    }
    return SamplesOf(bytes);
}

}  // namespace

std::string MakeToneWav(const std::string& path, int rate, const std::vector<double>& channelFrequencies,
                        double seconds, int bits, double volume) {
    std::vector<std::string> argv = {"sox",
                                     "-n",
                                     "-r",
                                     std::to_string(rate),
                                     "-c",
                                     std::to_string(channelFrequencies.size()),
                                     "-b",
                                     std::to_string(bits),
                                     "-e",
                                     bits == 8 ? "unsigned-integer" : "signed-integer",
                                     path,
                                     "synth",
                                     std::to_string(seconds)};
    for (double frequency : channelFrequencies) {
        argv.push_back("sine");
        argv.push_back(std::to_string(frequency));
    }
    argv.push_back("vol");
    argv.push_back(std::to_string(volume));
    ProcessResult result = RunProcess(argv, kToolTimeoutMs);
    if (!result.started) {
        return "sox not found: install sox";
    }
    return result.exitCode == 0 ? std::string() : "sox failed: " + result.output;
}

std::vector<int16_t> DecodeWithSox(const std::string& path, int rate,
                                   const std::vector<std::string>& inputArgs, std::string* error) {
    std::string raw = path + ".decoded.raw";
    std::vector<std::string> argv = {"sox", "-D"};
    argv.insert(argv.end(), inputArgs.begin(), inputArgs.end());
    argv.insert(argv.end(), {path, "-t", "raw", "-e", "signed-integer", "-b", "16", "-L", "-c", "1", "-r",
                             std::to_string(rate), raw});
    return DecodeTo(argv, raw, error);
}

std::vector<int16_t> DecodeWithFfmpeg(const std::string& path, int rate,
                                      const std::vector<std::string>& inputArgs, std::string* error,
                                      const std::string& filter) {
    std::string raw = path + ".decoded.raw";
    std::vector<std::string> argv = {"ffmpeg", "-nostdin", "-v", "error", "-y"};
    argv.insert(argv.end(), inputArgs.begin(), inputArgs.end());
    argv.insert(argv.end(), {"-i", path});
    if (!filter.empty()) {
        argv.insert(argv.end(), {"-af", filter});
    }
    argv.insert(argv.end(),
                {"-f", "s16le", "-acodec", "pcm_s16le", "-ac", "1", "-ar", std::to_string(rate), raw});
    return DecodeTo(argv, raw, error);
}

double DominantFrequency(const std::vector<int16_t>& samples, int rate) {
    std::size_t n = 1;
    while (n * 2 <= samples.size() && n < (1u << 17)) {
        n *= 2;
    }
    if (n < 64) {
        return 0.0;
    }
    std::size_t offset = (samples.size() - n) / 2;
    std::vector<double> windowed(n);
    for (std::size_t i = 0; i < n; ++i) {
        double window = 0.5 - 0.5 * std::cos(2 * kPi * static_cast<double>(i) / static_cast<double>(n - 1));
        windowed[i] = samples[offset + i] * window;
    }
    const std::vector<double> bins = Tal::MediaKit::FourierMagnitudes(windowed);
    std::size_t peak = 1;
    for (std::size_t i = 1; i < n / 2; ++i) {
        if (bins[i] > bins[peak]) {
            peak = i;
        }
    }
    double shift = 0.0;
    if (peak > 1 && peak + 1 < n / 2) {
        double a = std::log(bins[peak - 1] + 1e-12);
        double b = std::log(bins[peak] + 1e-12);
        double c = std::log(bins[peak + 1] + 1e-12);
        shift = 0.5 * (a - c) / (a - 2 * b + c);
    }
    return (static_cast<double>(peak) + shift) * rate / static_cast<double>(n);
}

double SineSnrDb(const std::vector<int16_t>& samples, int rate, double frequency) {
    if (samples.empty()) {
        return -100.0;
    }
    // Least-squares fit of a·cos + b·sin + c, then signal power against the residual.
    double cc = 0, ss = 0, cs = 0, xc = 0, xs = 0, mean = 0;
    for (int16_t x : samples) {
        mean += x;
    }
    mean /= static_cast<double>(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        double phase = 2 * kPi * frequency * static_cast<double>(i) / rate;
        double c = std::cos(phase);
        double s = std::sin(phase);
        double x = samples[i] - mean;
        cc += c * c, ss += s * s, cs += c * s, xc += x * c, xs += x * s;
    }
    double det = cc * ss - cs * cs;
    double a = (xc * ss - xs * cs) / det;
    double b = (xs * cc - xc * cs) / det;
    double signal = 0, noise = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        double phase = 2 * kPi * frequency * static_cast<double>(i) / rate;
        double fit = a * std::cos(phase) + b * std::sin(phase);
        double residual = samples[i] - mean - fit;
        signal += fit * fit;
        noise += residual * residual;
    }
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

double Rms(const std::vector<int16_t>& samples) {
    if (samples.empty()) {
        return 0.0;
    }
    double sum = 0;
    for (int16_t x : samples) {
        sum += static_cast<double>(x) * x;
    }
    return std::sqrt(sum / static_cast<double>(samples.size())) / 32768.0;
}

std::vector<int16_t> TrimSilence(const std::vector<int16_t>& samples, int threshold) {
    auto loud = [threshold](int16_t x) { return std::abs(static_cast<int>(x)) > threshold; };
    auto first = std::find_if(samples.begin(), samples.end(), loud);
    auto last = std::find_if(samples.rbegin(), samples.rend(), loud);
    if (first == samples.end()) {
        return {};
    }
    return std::vector<int16_t>(first, last.base());
}

std::vector<int16_t> Middle(const std::vector<int16_t>& samples, std::size_t count) {
    if (samples.size() <= count) {
        return samples;
    }
    std::size_t start = (samples.size() - count) / 2;
    return std::vector<int16_t>(samples.begin() + static_cast<std::ptrdiff_t>(start),
                                samples.begin() + static_cast<std::ptrdiff_t>(start + count));
}

std::vector<int16_t> ReadRawPcm(const std::string& path) {
    return SamplesOf(ReadBytes(path));
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

}  // namespace BcastTest
