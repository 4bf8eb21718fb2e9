#include "framework/media/codec/G711Codec.h"

namespace Tal {
namespace MediaCodec {

namespace {

// Segment of a biased magnitude: the position of its highest set bit above `lowBits`, 0..7.
int Segment(int magnitude, int lowBits) {
    int segment = 0;
    for (int value = magnitude >> lowBits; value > 1 && segment < 7; value >>= 1) {
        ++segment;
    }
    return segment;
}

constexpr int kUlawBias = 33;  // in 14-bit units: moves the segment ends to powers of two
// Magnitudes above this all take the largest code; biased, it is the top of the last segment (8191).
constexpr int kUlawClip = 8158;
constexpr int kAlawMax = 4095;  // largest 13-bit magnitude A-law represents

}  // namespace

uint8_t LinearToUlaw(int16_t sample) {
    int value = (sample + 2) >> 2;  // to 14 bits, rounded to nearest
    int sign = 0x80;
    if (value < 0) {
        value = -value;
        sign = 0;
    }
    if (value > kUlawClip) {
        value = kUlawClip;
    }
    value += kUlawBias;  // 33 .. 8191
    int segment = Segment(value, 5);
    int mantissa = (value >> (segment + 1)) & 0x0F;
    // Code words are transmitted inverted.
    return static_cast<uint8_t>(~(segment << 4 | mantissa) & 0x7F) | static_cast<uint8_t>(sign);
}

int16_t UlawToLinear(uint8_t code) {
    int inverted = ~code & 0xFF;
    int segment = (inverted >> 4) & 0x07;
    int mantissa = inverted & 0x0F;
    int magnitude = (((mantissa << 1) + kUlawBias) << segment) - kUlawBias;  // 14-bit reconstruction level
    magnitude <<= 2;
    return static_cast<int16_t>((inverted & 0x80) != 0 ? -magnitude : magnitude);
}

uint8_t LinearToAlaw(int16_t sample) {
    int value = (sample + 4) >> 3;  // to 13 bits, rounded to nearest
    int sign = 0x80;
    if (value < 0) {
        value = -value - 1;  // A-law is symmetric around -1/2: -1 maps to the smallest negative level
        sign = 0;
    }
    if (value > kAlawMax) {
        value = kAlawMax;
    }
    int segment = value < 32 ? 0 : Segment(value, 4);
    int mantissa = segment == 0 ? (value >> 1) & 0x0F : (value >> segment) & 0x0F;
    // Even bits are inverted on the line.
    return static_cast<uint8_t>((sign | segment << 4 | mantissa) ^ 0x55);
}

int16_t AlawToLinear(uint8_t code) {
    int value = code ^ 0x55;
    int segment = (value >> 4) & 0x07;
    int mantissa = value & 0x0F;
    int magnitude = segment == 0 ? (mantissa << 1) + 1 : ((mantissa << 1) + 33) << (segment - 1);  // 13-bit
    magnitude <<= 3;
    return static_cast<int16_t>((value & 0x80) != 0 ? magnitude : -magnitude);
}

int CG711Encoder::Open(const AudioFormat& format) {
    if (format.channels != 1 || frameSamples_ <= 0) {
        return kCodecInvalidParam;
    }
    frame_.assign(static_cast<std::size_t>(frameSamples_), 0);
    open_ = true;
    return kCodecOk;
}

int CG711Encoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (const int checked = EncodeCallResult(open_, pcm); checked != kCodecOk) {
        return checked;
    }
    for (int i = 0; i < frameSamples_; ++i) {
        frame_[i] = law_ == G711Law::kUlaw ? LinearToUlaw(pcm[i]) : LinearToAlaw(pcm[i]);
    }
    sink(frame_.data(), frame_.size());
    return kCodecOk;
}

int CG711Decoder::Open(const AudioFormat& format) {
    if (format.channels != 1) {
        return kCodecInvalidParam;
    }
    format_ = format;
    if (format_.sampleRate <= 0) {
        format_.sampleRate = 8000;
    }
    open_ = true;
    return kCodecOk;
}

int CG711Decoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(open_, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    pcm->reserve(pcm->size() + size);
    for (std::size_t i = 0; i < size; ++i) {
        pcm->push_back(law_ == G711Law::kUlaw ? UlawToLinear(data[i]) : AlawToLinear(data[i]));
    }
    return kCodecOk;
}

}  // namespace MediaCodec
}  // namespace Tal
