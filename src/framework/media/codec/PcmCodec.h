#pragma once
// Uncoded 16-bit little-endian PCM in frames of 40 ms, for streams that carry raw samples.

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

class CPcmEncoder : public IAudioEncoder {
public:
    int Open(const AudioFormat& format) override;
    int FrameSamples() const override { return frameSamples_; }
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink&) override { return kCodecOk; }

private:
    int frameSamples_ = 320;
    int channels_ = 1;
    std::vector<uint8_t> frame_;
};

class CPcmDecoder : public CDecoderBase {
public:
    int Open(const AudioFormat& format) override;
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;

private:
    bool open_ = false;
    bool hasOddByte_ = false;  // a sample split across two pieces
    uint8_t oddByte_ = 0;
};

}  // namespace MediaCodec
}  // namespace Tal
