#pragma once
// ITU-T G.711 companding of 16-bit linear PCM, one byte per sample. The sample is first rounded to the
// 14 bits (µ-law) or 13 bits (A-law) the law is defined on, as sox does; G.191's reference code truncates
// instead, which moves each decision level by half a step of the reduced sample.

#include <cstdint>

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

uint8_t LinearToUlaw(int16_t sample);
int16_t UlawToLinear(uint8_t code);
uint8_t LinearToAlaw(int16_t sample);
int16_t AlawToLinear(uint8_t code);

enum class G711Law { kUlaw, kAlaw };

/// Frames of a fixed number of samples; the format must be mono, the rate is not looked at.
class CG711Encoder : public IAudioEncoder {
public:
    explicit CG711Encoder(G711Law law, int frameSamples = 320) : law_(law), frameSamples_(frameSamples) {}
    int Open(const AudioFormat& format) override;
    int FrameSamples() const override { return frameSamples_; }
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink&) override { return kCodecOk; }

private:
    G711Law law_;
    int frameSamples_;
    bool open_ = false;
    std::vector<uint8_t> frame_;
};

class CG711Decoder : public CDecoderBase {
public:
    explicit CG711Decoder(G711Law law) : law_(law) {}
    int Open(const AudioFormat& format) override;
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;

private:
    G711Law law_;
    bool open_ = false;
};

}  // namespace MediaCodec
}  // namespace Tal
