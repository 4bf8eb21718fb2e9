#include "framework/media/codec/PcmCodec.h"

namespace Tal {
namespace MediaCodec {

int CPcmEncoder::Open(const AudioFormat& format) {
    if (format.sampleRate < 25 || format.channels < 1 || format.channels > 2) {
        return kCodecInvalidParam;
    }
    frameSamples_ = format.sampleRate / 25;
    channels_ = format.channels;
    frame_.assign(static_cast<std::size_t>(frameSamples_ * channels_ * 2), 0);
    return kCodecOk;
}

int CPcmEncoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (frame_.empty()) {
        return kCodecNotOpen;
    }
    if (pcm == nullptr) {
        return kCodecInvalidParam;
    }
    for (int i = 0; i < frameSamples_ * channels_; ++i) {
        auto value = static_cast<uint16_t>(pcm[i]);
        frame_[2 * i] = static_cast<uint8_t>(value & 0xFF);
        frame_[2 * i + 1] = static_cast<uint8_t>(value >> 8);
    }
    sink(frame_.data(), frame_.size());
    return kCodecOk;
}

int CPcmDecoder::Open(const AudioFormat& format) {
    if (format.sampleRate <= 0 || format.channels < 1 || format.channels > 2) {
        return kCodecInvalidParam;
    }
    format_ = format;
    open_ = true;
    hasOddByte_ = false;
    return kCodecOk;
}

int CPcmDecoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(open_, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    for (std::size_t i = 0; i < size; ++i) {
        if (!hasOddByte_) {
            oddByte_ = data[i];
            hasOddByte_ = true;
            continue;
        }
        pcm->push_back(static_cast<int16_t>(static_cast<uint16_t>(oddByte_ | data[i] << 8)));
        hasOddByte_ = false;
    }
    return kCodecOk;
}

}  // namespace MediaCodec
}  // namespace Tal
