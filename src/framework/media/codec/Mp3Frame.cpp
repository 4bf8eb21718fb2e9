#include "framework/media/codec/Mp3Frame.h"

namespace Tal {
namespace MediaCodec {

namespace {
// Layer III bit rates in kbit/s by index, for MPEG-1 and for MPEG-2/2.5.
constexpr int kBitRatesV1[16] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
constexpr int kBitRatesV2[16] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
constexpr int kSampleRatesV1[3] = {44100, 48000, 32000};
}  // namespace

bool ParseMp3FrameHeader(const uint8_t* data, std::size_t size, Mp3FrameInfo* info) {
    if (data == nullptr || size < 4 || data[0] != 0xFF || (data[1] & 0xE0) != 0xE0) {
        return false;
    }
    int version = (data[1] >> 3) & 0x03;  // 0: 2.5, 1: reserved, 2: 2, 3: 1
    int layer = (data[1] >> 1) & 0x03;    // 1: layer III
    int bitRateIndex = (data[2] >> 4) & 0x0F;
    int rateIndex = (data[2] >> 2) & 0x03;
    int padding = (data[2] >> 1) & 0x01;
    int mode = (data[3] >> 6) & 0x03;
    if (version == 1 || layer != 1 || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3) {
        return false;
    }
    bool mpeg1 = version == 3;
    int divisor = version == 3 ? 1 : version == 2 ? 2 : 4;
    Mp3FrameInfo parsed;
    parsed.sampleRate = kSampleRatesV1[rateIndex] / divisor;
    parsed.bitRate = (mpeg1 ? kBitRatesV1[bitRateIndex] : kBitRatesV2[bitRateIndex]) * 1000;
    parsed.channels = mode == 3 ? 1 : 2;
    parsed.samplesPerFrame = mpeg1 ? 1152 : 576;
    parsed.frameBytes =
        static_cast<std::size_t>((mpeg1 ? 144 : 72) * parsed.bitRate / parsed.sampleRate + padding);
    if (info != nullptr) {
        *info = parsed;
    }
    return true;
}

void CMp3FrameSplitter::Push(const uint8_t* data, std::size_t size, const FrameSink& sink) {
    pending_.insert(pending_.end(), data, data + size);
    std::size_t pos = 0;
    while (pending_.size() - pos >= 4) {
        Mp3FrameInfo info;
        if (!ParseMp3FrameHeader(pending_.data() + pos, pending_.size() - pos, &info)) {
            ++pos;  // not at a frame start: look for the next sync
            continue;
        }
        if (pending_.size() - pos < info.frameBytes) {
            break;
        }
        sink(pending_.data() + pos, info.frameBytes);
        pos += info.frameBytes;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(pos));
}

void CMp3FrameSplitter::Drain(const FrameSink& sink) {
    if (!pending_.empty()) {
        sink(pending_.data(), pending_.size());
    }
    pending_.clear();
}

}  // namespace MediaCodec
}  // namespace Tal
