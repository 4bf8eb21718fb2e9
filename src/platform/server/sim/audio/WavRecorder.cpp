#include "platform/server/sim/audio/WavRecorder.h"

#include <array>
#include <limits>
#include <vector>

namespace Platform {

namespace {

void PutLe16(uint8_t* out, uint16_t value) {
    out[0] = static_cast<uint8_t>(value & 0xFF);
    out[1] = static_cast<uint8_t>(value >> 8);
}

void PutLe32(uint8_t* out, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<uint8_t>((value >> (8 * i)) & 0xFF);
    }
}

// A WAV larger than 4 GiB cannot say its size; a speaker stops recording well before that.
constexpr uint32_t kMaxDataBytes = std::numeric_limits<uint32_t>::max() - 64;

}  // namespace

CWavRecorder::CWavRecorder(std::string path, int sampleRate, int channels)
    : path_(std::move(path)), sampleRate_(sampleRate), channels_(channels == 2 ? 2 : 1) {}

CWavRecorder::~CWavRecorder() {
    Close();
}

bool CWavRecorder::Open() {
    file_.reset(std::fopen(path_.c_str(), "wb"));
    dataBytes_ = 0;
    if (!file_) {
        return false;
    }
    return WriteHeader();
}

bool CWavRecorder::Write(const int16_t* samples, std::size_t count) {
    if (!file_ || count == 0) {
        return file_ != nullptr;
    }
    if (dataBytes_ + count * 2 > kMaxDataBytes) {
        return false;
    }
    std::vector<uint8_t> bytes(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        PutLe16(&bytes[i * 2], static_cast<uint16_t>(samples[i]));
    }
    if (std::fseek(file_.get(), 0, SEEK_END) != 0) {
        return false;
    }
    const std::size_t written = std::fwrite(bytes.data(), 1, bytes.size(), file_.get());
    // Only whole samples count; a torn write leaves at most one byte behind the data the header names.
    dataBytes_ += static_cast<uint32_t>(written & ~static_cast<std::size_t>(1));
    const bool headerOk = WriteHeader();
    return written == bytes.size() && headerOk;
}

void CWavRecorder::Close() {
    if (!file_) {
        return;
    }
    WriteHeader();
    file_.reset();
}

bool CWavRecorder::WriteHeader() {
    constexpr uint16_t kBits = 16;
    const auto channels = static_cast<uint16_t>(channels_);
    const auto rate = static_cast<uint32_t>(sampleRate_);
    std::array<uint8_t, 44> header{};
    const char* riff = "RIFF";
    const char* wave = "WAVEfmt ";
    const char* data = "data";
    std::copy(riff, riff + 4, header.begin());
    PutLe32(&header[4], 36 + dataBytes_);
    std::copy(wave, wave + 8, header.begin() + 8);
    PutLe32(&header[16], 16);
    PutLe16(&header[20], 1);  // PCM
    PutLe16(&header[22], channels);
    PutLe32(&header[24], rate);
    PutLe32(&header[28], rate * channels * kBits / 8);
    PutLe16(&header[32], static_cast<uint16_t>(channels * kBits / 8));
    PutLe16(&header[34], kBits);
    std::copy(data, data + 4, header.begin() + 36);
    PutLe32(&header[40], dataBytes_);
    if (std::fseek(file_.get(), 0, SEEK_SET) != 0 ||
        std::fwrite(header.data(), 1, header.size(), file_.get()) != header.size()) {
        return false;
    }
    return std::fflush(file_.get()) == 0;
}

}  // namespace Platform
