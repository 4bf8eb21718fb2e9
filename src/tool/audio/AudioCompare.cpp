#include "tool/audio/AudioCompare.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <fstream>

#include "framework/media/codec/Resampler.h"

namespace BcastTool {

namespace {

uint32_t Le32(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
uint16_t Le16(const unsigned char* p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

double Energy(const std::vector<int16_t>& s) {
    double e = 0;
    for (int16_t v : s) {
        e += static_cast<double>(v) * v;
    }
    return e;
}

}  // namespace

bool ReadWavMono(const std::string& path, PcmAudio& audio, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
        std::memcmp(bytes.data() + 8, "WAVE", 4) != 0) {
        error = path + " is not a WAV file";
        return false;
    }
    int channels = 0;
    int bits = 0;
    std::size_t pos = 12;
    while (pos + 8 <= bytes.size()) {
        const uint32_t size = Le32(&bytes[pos + 4]);
        const std::size_t body = pos + 8;
        const std::size_t available = std::min<std::size_t>(size, bytes.size() - body);
        if (std::memcmp(&bytes[pos], "fmt ", 4) == 0 && available >= 16) {
            if (Le16(&bytes[body]) != 1) {
                error = path + " is not PCM";
                return false;
            }
            channels = Le16(&bytes[body + 2]);
            audio.rate = static_cast<int>(Le32(&bytes[body + 4]));
            bits = Le16(&bytes[body + 14]);
        } else if (std::memcmp(&bytes[pos], "data", 4) == 0) {
            if (channels < 1 || bits != 16 || audio.rate <= 0) {
                error = path + " is not 16-bit PCM with a format chunk before its data";
                return false;
            }
            const std::size_t frameBytes = static_cast<std::size_t>(channels) * 2;
            audio.samples.clear();
            for (std::size_t i = body; i + frameBytes <= body + available; i += frameBytes) {
                audio.samples.push_back(static_cast<int16_t>(Le16(&bytes[i])));
            }
            return true;
        }
        pos = body + size + (size & 1);
    }
    error = path + " has no data chunk";
    return false;
}

bool ToRate(const PcmAudio& in, int rate, PcmAudio& out) {
    if (in.rate == rate) {
        out = in;
        return true;
    }
    Tal::MediaCodec::CResampler resampler;
    if (resampler.Open(in.rate, rate, 1) != 0) {
        return false;
    }
    out.rate = rate;
    out.samples.clear();
    return resampler.Process(in.samples.data(), in.samples.size(), &out.samples) == 0 &&
           resampler.Flush(&out.samples) == 0;
}

void Fft(std::vector<std::complex<double>>& a, bool inverse) {
    const std::size_t n = a.size();
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) {
            j ^= bit;
        }
        j ^= bit;
        if (i < j) {
            std::swap(a[i], a[j]);
        }
    }
    for (std::size_t len = 2; len <= n; len <<= 1) {
        const double angle = 2 * M_PI / static_cast<double>(len) * (inverse ? 1 : -1);
        const std::complex<double> step(std::cos(angle), std::sin(angle));
        for (std::size_t i = 0; i < n; i += len) {
            std::complex<double> w(1);
            for (std::size_t k = 0; k < len / 2; ++k) {
                const std::complex<double> u = a[i + k];
                const std::complex<double> v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
                w *= step;
            }
        }
    }
}

AudioMatch CompareAudio(const PcmAudio& reference, const PcmAudio& recording, double maxDelaySeconds) {
    AudioMatch match;
    match.referenceSeconds =
        reference.rate > 0 ? static_cast<double>(reference.samples.size()) / reference.rate : 0;
    match.recordingSeconds =
        recording.rate > 0 ? static_cast<double>(recording.samples.size()) / recording.rate : 0;
    const double norm = std::sqrt(Energy(reference.samples) * Energy(recording.samples));
    if (norm <= 0 || reference.rate != recording.rate) {
        return match;
    }
    std::size_t n = 1;
    while (n < reference.samples.size() + recording.samples.size()) {
        n <<= 1;
    }
    std::vector<std::complex<double>> a(n), b(n);
    std::copy(reference.samples.begin(), reference.samples.end(), a.begin());
    std::copy(recording.samples.begin(), recording.samples.end(), b.begin());
    Fft(a, false);
    Fft(b, false);
    // c[lag] = sum ref[i] * rec[i + lag]: the recording carries the reference `lag` samples later.
    for (std::size_t i = 0; i < n; ++i) {
        a[i] = std::conj(a[i]) * b[i];
    }
    Fft(a, true);
    const long refSize = static_cast<long>(reference.samples.size());
    const long recSize = static_cast<long>(recording.samples.size());
    // Only lags at which the two overlap: the transform holds each of those once, further ones would alias.
    const long maxLag = static_cast<long>(maxDelaySeconds * reference.rate);
    const long firstLag = std::max(-maxLag, -(refSize - 1));
    const long lastLag = std::min(maxLag, recSize - 1);
    double bestRaw = 0;
    long bestLag = 0;
    bool found = false;
    for (long lag = firstLag; lag <= lastLag; ++lag) {
        const std::size_t index = static_cast<std::size_t>(
            (lag % static_cast<long>(n) + static_cast<long>(n)) % static_cast<long>(n));
        const double value = a[index].real() / static_cast<double>(n);
        if (!found || value > bestRaw) {
            bestRaw = value;
            bestLag = lag;
            found = true;
        }
    }
    // The delay is where the raw correlation peaks; the match is normalised over the overlapping part only,
    // so that what the recording holds before or after the reference (a prompt tone, silence) does not
    // count against it.
    const long first = std::max(0L, -bestLag);
    const long last = std::min(refSize, recSize - bestLag);
    double refEnergy = 0;
    double recEnergy = 0;
    for (long i = first; i < last; ++i) {
        const double r = reference.samples[static_cast<std::size_t>(i)];
        const double c = recording.samples[static_cast<std::size_t>(i + bestLag)];
        refEnergy += r * r;
        recEnergy += c * c;
    }
    const double overlapNorm = std::sqrt(refEnergy * recEnergy);
    const double best = overlapNorm > 0 ? bestRaw / overlapNorm : 0;
    match.correlation = best;
    match.delayMs = 1000.0 * static_cast<double>(bestLag) / reference.rate;
    return match;
}

}  // namespace BcastTool
