#include "framework/media/codec/Mp3Encoder.h"

#include <lame/lame.h>

namespace Tal {
namespace MediaCodec {

namespace {
// LAME's documented worst case for one call: 1.25 × samples + 7200 bytes.
constexpr std::size_t kOutputBytes = CMp3Encoder::kFrameSamples * 5 / 4 + 7200;
}  // namespace

void CMp3Encoder::LameCloser::operator()(lame_global_struct* lame) const {
    lame_close(lame);
}

int CMp3Encoder::Open(const AudioFormat& format) {
    lame_.reset();
    if (format.channels < 1 || format.channels > 2 || format.sampleRate < 8000 || format.sampleRate > 48000 ||
        format.bitRate < 8000 || format.quality < 0 || format.quality > 9) {
        return kCodecInvalidParam;
    }
    std::unique_ptr<lame_global_struct, LameCloser> lame(lame_init());
    if (!lame) {
        return kCodecNoMemory;
    }
    lame_set_in_samplerate(lame.get(), format.sampleRate);
    lame_set_out_samplerate(lame.get(), format.sampleRate);  // no resampling inside LAME
    lame_set_num_channels(lame.get(), format.channels);
    lame_set_mode(lame.get(), format.channels == 1 ? MONO : JOINT_STEREO);
    lame_set_VBR(lame.get(), vbr_off);
    lame_set_brate(lame.get(), format.bitRate / 1000);
    lame_set_quality(lame.get(), format.quality);
    // A stream, not a file: no leading Xing/Info frame that would play as silence.
    lame_set_bWriteVbrTag(lame.get(), 0);
    if (lame_init_params(lame.get()) < 0) {
        return kCodecLibraryError;
    }
    channels_ = format.channels;
    buffer_.assign(kOutputBytes, 0);
    splitter_ = CMp3FrameSplitter();
    lame_ = std::move(lame);
    return kCodecOk;
}

int CMp3Encoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (const int checked = EncodeCallResult(lame_ != nullptr, pcm); checked != kCodecOk) {
        return checked;
    }
    int bytes = channels_ == 1
                    ? lame_encode_buffer(lame_.get(), pcm, pcm, kFrameSamples, buffer_.data(),
                                         static_cast<int>(buffer_.size()))
                    : lame_encode_buffer_interleaved(lame_.get(), const_cast<short*>(pcm), kFrameSamples,
                                                     buffer_.data(), static_cast<int>(buffer_.size()));
    if (bytes < 0) {
        return kCodecLibraryError;
    }
    splitter_.Push(buffer_.data(), static_cast<std::size_t>(bytes), sink);
    return kCodecOk;
}

int CMp3Encoder::Flush(const FrameSink& sink) {
    if (!lame_) {
        return kCodecNotOpen;
    }
    int bytes = lame_encode_flush(lame_.get(), buffer_.data(), static_cast<int>(buffer_.size()));
    if (bytes < 0) {
        return kCodecLibraryError;
    }
    splitter_.Push(buffer_.data(), static_cast<std::size_t>(bytes), sink);
    splitter_.Drain(sink);
    return kCodecOk;
}

}  // namespace MediaCodec
}  // namespace Tal
