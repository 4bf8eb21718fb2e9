#include "framework/media/codec/G722Codec.h"

#include <spandsp.h>

namespace Tal {
namespace MediaCodec {

int G722BitRate(int requested) {
    return requested == 48000 || requested == 56000 ? requested : 64000;
}

void CG722Encoder::Closer::operator()(g722_encode_state_s* state) const {
    g722_encode_free(state);
}
void CG722Decoder::Closer::operator()(g722_decode_state_s* state) const {
    g722_decode_free(state);
}

int CG722Encoder::Open(const AudioFormat& format) {
    state_.reset();
    if (format.channels != 1 || format.sampleRate != 16000) {
        return kCodecInvalidParam;
    }
    int bitRate = G722BitRate(format.bitRate);
    state_.reset(g722_encode_init(nullptr, bitRate, 0));
    if (!state_) {
        return kCodecNoMemory;
    }
    frame_.assign(kFrameSamples, 0);  // more than the largest frame (64 kbit/s: one byte per two samples)
    return kCodecOk;
}

int CG722Encoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (const int checked = EncodeCallResult(state_ != nullptr, pcm); checked != kCodecOk) {
        return checked;
    }
    int bytes = g722_encode(state_.get(), frame_.data(), pcm, kFrameSamples);
    if (bytes <= 0) {
        return kCodecLibraryError;
    }
    sink(frame_.data(), static_cast<std::size_t>(bytes));
    return kCodecOk;
}

int CG722Decoder::Open(const AudioFormat& format) {
    state_.reset();
    if (format.channels != 1) {
        return kCodecInvalidParam;
    }
    state_.reset(g722_decode_init(nullptr, G722BitRate(format.bitRate), 0));
    if (!state_) {
        return kCodecNoMemory;
    }
    format_ = format;
    format_.sampleRate = 16000;
    return kCodecOk;
}

int CG722Decoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(state_ != nullptr, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    std::size_t start = pcm->size();
    pcm->resize(start + size * 4);  // 48 kbit/s: two samples per 6 bits, under 3 per byte
    int samples = g722_decode(state_.get(), pcm->data() + start, data, static_cast<int>(size));
    pcm->resize(start + static_cast<std::size_t>(samples > 0 ? samples : 0));
    return samples < 0 ? kCodecLibraryError : kCodecOk;
}

}  // namespace MediaCodec
}  // namespace Tal
