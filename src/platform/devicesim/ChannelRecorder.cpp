#include "platform/devicesim/ChannelRecorder.h"

#include <vector>

#include "framework/media/codec/G711Codec.h"

namespace DeviceSim {

namespace {

constexpr int kWavRate = 8000;

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
    if (wav_) {
        return wavFile_.Open(path_, kWavRate, 1);
    }
    file_.reset(std::fopen(path_.c_str(), "wb+"));
    return file_ != nullptr;
}

void CChannelRecorder::Write(const char* data, std::size_t size) {
    if (!wav_) {
        if (file_) {
            std::fwrite(data, 1, size, file_.get());
        }
        return;
    }
    std::vector<int16_t> pcm(size);
    for (std::size_t i = 0; i < size; ++i) {
        pcm[i] = Tal::MediaCodec::UlawToLinear(static_cast<uint8_t>(data[i]));
    }
    wavFile_.Write(pcm.data(), pcm.size());
}

void CChannelRecorder::Flush() {
    if (file_) {
        std::fflush(file_.get());
    }
}

}  // namespace DeviceSim
