#pragma once
// AAC-LC on libavcodec's native encoder and decoder; the byte stream carries ADTS headers so that a
// receiver can decode it without side information. 1024 samples per channel per frame.

#include <memory>

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

class CAacEncoder : public IAudioEncoder {
public:
    CAacEncoder();
    ~CAacEncoder() override;
    int Open(const AudioFormat& format) override;
    int FrameSamples() const override;
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink& sink) override;

private:
    struct State;
    int Drain(const FrameSink& sink);
    std::unique_ptr<State> state_;
};

class CAacDecoder : public IAudioDecoder {
public:
    CAacDecoder();
    ~CAacDecoder() override;
    /// The format is read from the ADTS headers; the argument is not used.
    int Open(const AudioFormat& format) override;
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;
    AudioFormat OutputFormat() const override { return format_; }

private:
    struct State;
    int ReceiveFrames(std::vector<int16_t>* pcm);
    std::unique_ptr<State> state_;
    AudioFormat format_;
};

}  // namespace MediaCodec
}  // namespace Tal
