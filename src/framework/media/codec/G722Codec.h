#pragma once
// G.722 on spandsp: 16000 Hz mono in, 48, 56 or 64 kbit/s out; frames of 40 ms (640 samples).

#include <memory>

#include "framework/media/codec/AudioCodec.h"

struct g722_encode_state_s;
struct g722_decode_state_s;

namespace Tal {
namespace MediaCodec {

/// G.722 bit rates; any other requested rate is coded at 64000.
int G722BitRate(int requested);

class CG722Encoder : public CFixedFrameEncoder<640> {
public:
    int Open(const AudioFormat& format) override;
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink&) override { return kCodecOk; }

private:
    struct Closer {
        void operator()(g722_encode_state_s* state) const;
    };
    std::unique_ptr<g722_encode_state_s, Closer> state_;
    std::vector<uint8_t> frame_;
};

class CG722Decoder : public CDecoderBase {
public:
    int Open(const AudioFormat& format) override;
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;

private:
    struct Closer {
        void operator()(g722_decode_state_s* state) const;
    };
    std::unique_ptr<g722_decode_state_s, Closer> state_;
};

}  // namespace MediaCodec
}  // namespace Tal
