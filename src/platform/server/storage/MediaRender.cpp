#include "platform/server/storage/MediaRender.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/Mp3Frame.h"
#include "framework/media/mediakit/WavFile.h"
#include "platform/server/sim/audio/ToneGenerator.h"
#include "platform/server/sim/tts/TtsSynthesizer.h"

namespace Platform {

namespace {

using Tal::MediaCodec::kCodecOk;

constexpr int kSpeechWavRate = 22050;
constexpr int kMp3Rate = 44100;
constexpr int kToneRate = 44100;
constexpr int kMonoMp3BitRate = 64000;
constexpr int kStereoMp3BitRate = 128000;
constexpr double kToneAmplitude = 0.5;
constexpr double kRampSeconds = 0.01;

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// 16-bit PCM, interleaved when stereo.
using Pcm = Tal::MediaKit::PcmAudio;

// Short fades so that a tone starts and ends without a click.
void Ramp(std::vector<int16_t>& mono, int sampleRate) {
    const size_t ramp = std::min(mono.size() / 2, static_cast<size_t>(kRampSeconds * sampleRate));
    for (size_t i = 0; i < ramp; ++i) {
        const double gain = static_cast<double>(i) / static_cast<double>(ramp);
        mono[i] = static_cast<int16_t>(mono[i] * gain);
        mono[mono.size() - 1 - i] = static_cast<int16_t>(mono[mono.size() - 1 - i] * gain);
    }
}

std::vector<int16_t> Interleave(const std::vector<int16_t>& mono, int channels) {
    if (channels == 1) {
        return mono;
    }
    std::vector<int16_t> out;
    out.reserve(mono.size() * 2);
    for (int16_t s : mono) {
        out.push_back(s);
        out.push_back(s);
    }
    return out;
}

bool MakePcm(const MediaRecipe& recipe, const AudioLayout& layout, const std::string& workDirectory, Pcm& pcm,
             std::string& error) {
    std::vector<int16_t> mono;
    switch (recipe.kind) {
        case MediaRecipe::Kind::kSpeech: {
            CTtsSynthesizer tts(workDirectory, "espeak-ng", layout.sampleRate);
            const std::atomic<bool> never{false};
            if (!tts.Synthesize(recipe.speech, recipe.voice, never, mono, error)) {
                error = "speech synthesis failed: " + error;
                return false;
            }
            break;
        }
        case MediaRecipe::Kind::kChime:
            mono = MakeChime(recipe.seconds, layout.sampleRate);
            break;
        case MediaRecipe::Kind::kTone: {
            mono.resize(static_cast<size_t>(std::lround(recipe.seconds * layout.sampleRate)));
            CSineTone tone(recipe.hz, kToneAmplitude, layout.sampleRate);
            tone.Fill(mono.data(), mono.size());
            Ramp(mono, layout.sampleRate);
            break;
        }
        case MediaRecipe::Kind::kNone:
            error = "the media file has no audio recipe";
            return false;
    }
    if (mono.empty()) {
        error = "the recipe made no audio";
        return false;
    }
    pcm.samples = Interleave(mono, layout.channels);
    pcm.sampleRate = layout.sampleRate;
    pcm.channels = layout.channels;
    return true;
}

bool WriteWav(const Pcm& pcm, const std::string& path, std::string& error) {
    if (!Tal::MediaKit::WriteWav(path, pcm)) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

bool WriteMp3(const Pcm& pcm, int bitRate, const std::string& path, std::string& error) {
    Tal::MediaCodec::CMp3Encoder encoder;
    Tal::MediaCodec::AudioFormat format;
    format.sampleRate = pcm.sampleRate;
    format.channels = pcm.channels;
    format.bitRate = bitRate;
    format.quality = 2;
    if (encoder.Open(format) != kCodecOk) {
        error = "the MP3 encoder refuses " + std::to_string(pcm.sampleRate) + " Hz";
        return false;
    }
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        error = "cannot create " + path;
        return false;
    }
    bool written = true;
    const Tal::MediaCodec::FrameSink sink = [&file, &written](const uint8_t* data, std::size_t size) {
        written = written && std::fwrite(data, 1, size, file.get()) == size;
    };
    const size_t block = static_cast<size_t>(encoder.FrameSamples()) * static_cast<size_t>(pcm.channels);
    std::vector<int16_t> frame(block);
    for (size_t at = 0; at < pcm.samples.size(); at += block) {
        const size_t take = std::min(block, pcm.samples.size() - at);
        std::fill(std::copy_n(pcm.samples.begin() + static_cast<std::ptrdiff_t>(at), take, frame.begin()),
                  frame.end(), 0);
        if (encoder.Encode(frame.data(), sink) != kCodecOk) {
            error = "MP3 encoding failed";
            return false;
        }
    }
    if (encoder.Flush(sink) != kCodecOk) {
        error = "MP3 encoding failed";
        return false;
    }
    if (!written || std::fflush(file.get()) != 0) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

bool InspectWav(const std::string& path, AudioFacts& facts, std::string& error) {
    Tal::MediaKit::PcmAudio audio;
    Tal::MediaKit::WavFacts format;
    if (!Tal::MediaKit::ReadWav(path, audio, error, &format)) {
        return false;
    }
    if (format.bitsPerSample != 16) {
        error = path + ": not 16-bit PCM";
        return false;
    }
    facts.sampleRate = audio.sampleRate;
    facts.channels = audio.channels;
    facts.seconds = static_cast<double>(audio.Frames()) / audio.sampleRate;
    return true;
}

bool InspectMp3(const std::string& bytes, AudioFacts& facts, std::string& error) {
    size_t at = 0;
    // An ID3v2 tag in front: 10 bytes of header and a size in 7-bit bytes.
    if (bytes.size() >= 10 && bytes.compare(0, 3, "ID3") == 0) {
        at = 10 + ((static_cast<size_t>(bytes[6] & 0x7F) << 21) |
                   (static_cast<size_t>(bytes[7] & 0x7F) << 14) |
                   (static_cast<size_t>(bytes[8] & 0x7F) << 7) | static_cast<size_t>(bytes[9] & 0x7F));
    }
    uint64_t samples = 0;
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    while (at + 4 <= bytes.size()) {
        Tal::MediaCodec::Mp3FrameInfo info;
        if (!Tal::MediaCodec::ParseMp3FrameHeader(data + at, bytes.size() - at, &info) ||
            info.frameBytes == 0) {
            break;
        }
        if (facts.sampleRate == 0) {
            facts.sampleRate = info.sampleRate;
            facts.channels = info.channels;
        }
        samples += static_cast<uint64_t>(info.samplesPerFrame);
        at += info.frameBytes;
    }
    if (samples == 0 || facts.sampleRate <= 0) {
        error = "no MP3 frames";
        return false;
    }
    facts.seconds = static_cast<double>(samples) / facts.sampleRate;
    return true;
}

}  // namespace

AudioLayout LayoutFor(const MediaRecipe& recipe, const std::string& format) {
    AudioLayout layout;
    const bool speech = recipe.kind == MediaRecipe::Kind::kSpeech;
    if (format == "mp3") {
        layout.sampleRate = kMp3Rate;
        layout.channels = speech ? 1 : 2;
        layout.bitRate = speech ? kMonoMp3BitRate : kStereoMp3BitRate;
    } else {
        layout.sampleRate = speech ? kSpeechWavRate : kToneRate;
        layout.channels = speech ? 1 : 2;
    }
    return layout;
}

bool RenderMedia(const MediaRecipe& recipe, const std::string& format, const std::string& path,
                 const std::string& workDirectory, std::string& error) {
    if (format != "wav" && format != "mp3") {
        error = "audio is made as wav or mp3, not " + format;
        return false;
    }
    const AudioLayout layout = LayoutFor(recipe, format);
    Pcm pcm;
    if (!MakePcm(recipe, layout, workDirectory, pcm, error)) {
        return false;
    }
    return format == "wav" ? WriteWav(pcm, path, error) : WriteMp3(pcm, layout.bitRate, path, error);
}

bool InspectAudio(const std::string& path, const std::string& format, AudioFacts& facts, std::string& error) {
    facts = AudioFacts();
    if (format != "mp3") {
        return InspectWav(path, facts, error);
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot open " + path;
        return false;
    }
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!InspectMp3(bytes, facts, error)) {
        error = path + ": " + error;
        return false;
    }
    return true;
}

}  // namespace Platform
