#include "platform/devicesim/ChannelRecorder.h"

#include <vector>

#include "framework/media/codec/G711Codec.h"

namespace DeviceSim {

namespace {

void PutLe16(std::vector<uint8_t>& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value & 0xFF));
    out.push_back(static_cast<uint8_t>(value >> 8));
}

void PutLe32(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<uint8_t>((value >> shift) & 0xFF));
    }
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

CChannelRecorder::CChannelRecorder(std::string path)
    : path_(std::move(path)), wav_(EndsWith(path_, ".wav")) {}

CChannelRecorder::~CChannelRecorder() {
    Flush();
}

bool CChannelRecorder::Open() {
    file_.reset(std::fopen(path_.c_str(), "wb+"));
    if (!file_) {
        return false;
    }
    if (wav_) {
        WriteWavHeader();
    }
    return true;
}

void CChannelRecorder::Write(const char* data, std::size_t size) {
    if (!file_) {
        return;
    }
    if (!wav_) {
        dataBytes_ += static_cast<uint32_t>(std::fwrite(data, 1, size, file_.get()));
        return;
    }
    std::vector<uint8_t> pcm;
    pcm.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        PutLe16(pcm, static_cast<uint16_t>(Tal::MediaCodec::UlawToLinear(static_cast<uint8_t>(data[i]))));
    }
    dataBytes_ += static_cast<uint32_t>(std::fwrite(pcm.data(), 1, pcm.size(), file_.get()));
}

void CChannelRecorder::Flush() {
    if (!file_) {
        return;
    }
    if (wav_) {
        std::fseek(file_.get(), 0, SEEK_SET);
        WriteWavHeader();
        std::fseek(file_.get(), 0, SEEK_END);
    }
    std::fflush(file_.get());
}

void CChannelRecorder::WriteWavHeader() {
    constexpr uint32_t kRate = 8000;
    constexpr uint16_t kChannels = 1;
    constexpr uint16_t kBits = 16;
    std::vector<uint8_t> header;
    header.insert(header.end(), {'R', 'I', 'F', 'F'});
    PutLe32(header, 36 + dataBytes_);
    header.insert(header.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    PutLe32(header, 16);
    PutLe16(header, 1);  // PCM
    PutLe16(header, kChannels);
    PutLe32(header, kRate);
    PutLe32(header, kRate * kChannels * kBits / 8);
    PutLe16(header, kChannels * kBits / 8);
    PutLe16(header, kBits);
    header.insert(header.end(), {'d', 'a', 't', 'a'});
    PutLe32(header, dataBytes_);
    std::fwrite(header.data(), 1, header.size(), file_.get());
}

}  // namespace DeviceSim
