#include "tool/audio/AudioCompare.h"

#include <algorithm>
#include <cmath>

#include "framework/media/codec/Resampler.h"
#include "framework/media/mediakit/Fourier.h"
#include "framework/media/mediakit/WavFile.h"

namespace BcastTool {

namespace {

double Energy(const std::vector<int16_t>& s) {
    double e = 0;
    for (int16_t v : s) {
        e += static_cast<double>(v) * v;
    }
    return e;
}

}  // namespace

bool ReadWavMono(const std::string& path, PcmAudio& audio, std::string& error) {
    Tal::MediaKit::PcmAudio file;
    Tal::MediaKit::WavFacts facts;
    if (!Tal::MediaKit::ReadWav(path, file, error, &facts)) {
        return false;
    }
    if (facts.bitsPerSample != 16) {
        error = path + " is not 16-bit PCM";
        return false;
    }
    audio.rate = file.sampleRate;
    audio.samples = Tal::MediaKit::ChannelOf(file, 0);
    return true;
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
    // c[lag] = sum ref[i] * rec[i + lag]: the recording carries the reference `lag` samples later.
    const std::vector<double> c = Tal::MediaKit::CrossCorrelation(reference.samples, recording.samples, n);
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
        const double value = c[index];
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
