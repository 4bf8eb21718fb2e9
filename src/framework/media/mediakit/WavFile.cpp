#include "framework/media/mediakit/WavFile.h"

#include <sndfile.h>

#include <cstdio>
#include <cstring>
#include <limits>

namespace Tal {
namespace MediaKit {

namespace {

struct ReadCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using ReadHandle = std::unique_ptr<SNDFILE, ReadCloser>;

// A WAV file larger than 4 GiB cannot say its size: writers stop well before that.
constexpr uint64_t kMaxDataBytes = std::numeric_limits<uint32_t>::max() - 64;

void PutLe16(uint8_t* at, uint32_t value) {
    at[0] = static_cast<uint8_t>(value & 0xFF);
    at[1] = static_cast<uint8_t>((value >> 8) & 0xFF);
}

void PutLe32(uint8_t* at, uint32_t value) {
    PutLe16(at, value & 0xFFFF);
    PutLe16(at + 2, value >> 16);
}

int BitsOf(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_PCM_S8:
            return 8;
        case SF_FORMAT_PCM_16:
            return 16;
        case SF_FORMAT_PCM_24:
            return 24;
        case SF_FORMAT_PCM_32:
            return 32;
        default:
            return 0;
    }
}

bool Readable(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return false;
    }
    std::fclose(file);
    return true;
}

}  // namespace

std::array<uint8_t, kWavHeaderBytes> CanonicalWavHeader(int sampleRate, int channels, uint32_t dataBytes) {
    constexpr uint32_t kBits = 16;
    const auto rate = static_cast<uint32_t>(sampleRate);
    const auto count = static_cast<uint32_t>(channels);
    std::array<uint8_t, kWavHeaderBytes> header{};
    std::memcpy(header.data(), "RIFF", 4);
    PutLe32(&header[4], dataBytes + kWavHeaderBytes - 8);
    std::memcpy(&header[8], "WAVEfmt ", 8);
    PutLe32(&header[16], 16);
    PutLe16(&header[20], 1);  // PCM
    PutLe16(&header[22], count);
    PutLe32(&header[24], rate);
    PutLe32(&header[28], rate * count * kBits / 8);
    PutLe16(&header[32], count * kBits / 8);
    PutLe16(&header[34], kBits);
    std::memcpy(&header[36], "data", 4);
    PutLe32(&header[40], dataBytes);
    return header;
}

bool ReadWav(const std::string& path, PcmAudio& audio, std::string& error, WavFacts* facts) {
    if (!Readable(path)) {
        error = "cannot open " + path;
        return false;
    }
    SF_INFO info{};
    ReadHandle file(sf_open(path.c_str(), SFM_READ, &info));
    const int major = info.format & SF_FORMAT_TYPEMASK;
    if (!file || (major != SF_FORMAT_WAV && major != SF_FORMAT_WAVEX) || info.channels < 1) {
        error = path + " is not a WAV file";
        return false;
    }
    if (facts != nullptr) {
        facts->sampleRate = info.samplerate;
        facts->channels = info.channels;
        facts->bitsPerSample = BitsOf(info.format);
    }
    audio.sampleRate = info.samplerate;
    audio.channels = info.channels;
    audio.samples.assign(static_cast<std::size_t>(info.frames) * static_cast<std::size_t>(info.channels), 0);
    const sf_count_t read = sf_readf_short(file.get(), audio.samples.data(), info.frames);
    audio.samples.resize(static_cast<std::size_t>(read) * static_cast<std::size_t>(info.channels));
    return true;
}

bool WriteWav(const std::string& path, const PcmAudio& audio) {
    CWavWriter writer;
    if (!writer.Open(path, audio.sampleRate, audio.channels) ||
        !writer.Write(audio.samples.data(), audio.samples.size())) {
        return false;
    }
    writer.Close();
    return true;
}

std::vector<int16_t> MixToMono(const PcmAudio& audio) {
    std::vector<int16_t> mono(audio.Frames());
    const auto channels = static_cast<std::size_t>(audio.channels);
    for (std::size_t frame = 0; frame < mono.size(); ++frame) {
        int sum = 0;
        for (std::size_t c = 0; c < channels; ++c) {
            sum += audio.samples[frame * channels + c];
        }
        mono[frame] = static_cast<int16_t>(sum / audio.channels);
    }
    return mono;
}

std::vector<int16_t> ChannelOf(const PcmAudio& audio, int channel) {
    std::vector<int16_t> out;
    if (channel < 0 || channel >= audio.channels) {
        return out;
    }
    out.reserve(audio.Frames());
    for (std::size_t at = static_cast<std::size_t>(channel); at < audio.samples.size();
         at += static_cast<std::size_t>(audio.channels)) {
        out.push_back(audio.samples[at]);
    }
    return out;
}

void CWavWriter::Closer::operator()(sf_private_tag* file) const {
    sf_close(file);
}

CWavWriter::CWavWriter() = default;

CWavWriter::~CWavWriter() = default;

bool CWavWriter::Open(const std::string& path, int sampleRate, int channels) {
    file_.reset();
    frames_ = 0;
    if (sampleRate <= 0 || channels < 1) {
        return false;
    }
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    file_.reset(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!file_) {
        return false;
    }
    channels_ = channels;
    // Rewrites the header after each write, so that a reader sees a complete file at any moment.
    sf_command(file_.get(), SFC_SET_UPDATE_HEADER_AUTO, nullptr, SF_TRUE);
    return true;
}

bool CWavWriter::Write(const int16_t* samples, std::size_t count) {
    if (!file_) {
        return false;
    }
    const auto frames = static_cast<sf_count_t>(count / static_cast<std::size_t>(channels_));
    if (frames == 0) {
        return true;
    }
    if ((frames_ + static_cast<uint64_t>(frames)) * static_cast<uint64_t>(channels_) * 2 > kMaxDataBytes) {
        return false;
    }
    const sf_count_t written = sf_writef_short(file_.get(), samples, frames);
    if (written > 0) {
        frames_ += static_cast<uint64_t>(written);
    }
    return written == frames;
}

void CWavWriter::Close() {
    file_.reset();
}

}  // namespace MediaKit
}  // namespace Tal
