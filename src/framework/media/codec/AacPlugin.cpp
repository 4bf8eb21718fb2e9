// The AAC plug-in (libtal_codec_aac.so, CodecPlugin.h): AAC-LC on libavcodec's native encoder and decoder.
// The byte stream carries ADTS headers so that a receiver can decode it without side information; 1024
// samples per channel per frame. The codec library loads the plug-in on the first AAC stream.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cmath>
#include <memory>
#include <type_traits>

#include "framework/media/codec/CodecPlugin.h"

namespace Tal {
namespace MediaCodec {

namespace {

struct ContextCloser {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct FrameCloser {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct PacketCloser {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct ParserCloser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};
using ContextPtr = std::unique_ptr<AVCodecContext, ContextCloser>;
using FramePtr = std::unique_ptr<AVFrame, FrameCloser>;
using PacketPtr = std::unique_ptr<AVPacket, PacketCloser>;
using ParserPtr = std::unique_ptr<AVCodecParserContext, ParserCloser>;

constexpr int kAdtsHeaderBytes = 7;
constexpr int kAdtsRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                              22050, 16000, 12000, 11025, 8000,  7350};

int AdtsRateIndex(int sampleRate) {
    for (int i = 0; i < static_cast<int>(sizeof(kAdtsRates) / sizeof(kAdtsRates[0])); ++i) {
        if (kAdtsRates[i] == sampleRate) {
            return i;
        }
    }
    return -1;
}

// ADTS fixed and variable header, no CRC: profile LC, the frame length includes the header.
void WriteAdtsHeader(uint8_t* header, int rateIndex, int channels, std::size_t payload) {
    std::size_t length = payload + kAdtsHeaderBytes;
    const int profile = 1;  // audio object type 2 (LC) minus one
    header[0] = 0xFF;
    header[1] = 0xF1;  // MPEG-4, layer 0, no CRC
    header[2] = static_cast<uint8_t>(profile << 6 | rateIndex << 2 | channels >> 2);
    header[3] = static_cast<uint8_t>((channels & 3) << 6 | static_cast<int>(length >> 11));
    header[4] = static_cast<uint8_t>((length >> 3) & 0xFF);
    header[5] = static_cast<uint8_t>((length & 7) << 5 | 0x1F);
    header[6] = 0xFC;  // buffer fullness 0x7FF (variable), one raw data block
}

int16_t FloatToSample(float value) {
    float scaled = std::round(value * 32768.0f);
    return static_cast<int16_t>(std::clamp(scaled, -32768.0f, 32767.0f));
}

// Hands each packet or frame that libavcodec has ready to `take` until it wants more input (or has
// nothing more after a flush). `receive` is avcodec_receive_packet or avcodec_receive_frame bound to
// the context and its output.
template <typename Receive, typename Take>
int ReceiveAll(Receive receive, Take take) {
    for (;;) {
        const int result = receive();
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return kCodecOk;
        }
        if (result < 0) {
            return kCodecLibraryError;
        }
        if (const int taken = take(); taken != kCodecOk) {
            return taken;
        }
    }
}

class CAacEncoder : public IAudioEncoder {
public:
    int Open(const AudioFormat& format) override;
    int FrameSamples() const override { return context_ ? context_->frame_size : 1024; }
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink& sink) override;

private:
    int Drain(const FrameSink& sink);

    ContextPtr context_;  // set when open
    FramePtr frame_;
    PacketPtr packet_;
    std::vector<uint8_t> output_;
    int rateIndex_ = 0;
    int channels_ = 1;
    int64_t pts_ = 0;
};

int CAacEncoder::Open(const AudioFormat& format) {
    context_.reset();
    int rateIndex = AdtsRateIndex(format.sampleRate);
    if (rateIndex < 0 || format.channels < 1 || format.channels > 2 || format.bitRate <= 0) {
        return kCodecInvalidParam;
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        return kCodecLibraryError;
    }
    ContextPtr context(avcodec_alloc_context3(codec));
    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!context || !frame_ || !packet_) {
        return kCodecNoMemory;
    }
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->sample_rate = format.sampleRate;
    context->bit_rate = format.bitRate;
    av_channel_layout_default(&context->ch_layout, format.channels);
    if (avcodec_open2(context.get(), codec, nullptr) < 0 || context->frame_size <= 0) {
        return kCodecLibraryError;
    }
    AVFrame* frame = frame_.get();
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->nb_samples = context->frame_size;
    frame->sample_rate = format.sampleRate;
    if (av_channel_layout_copy(&frame->ch_layout, &context->ch_layout) < 0 ||
        av_frame_get_buffer(frame, 0) < 0) {
        return kCodecNoMemory;
    }
    rateIndex_ = rateIndex;
    channels_ = format.channels;
    pts_ = 0;
    context_ = std::move(context);
    return kCodecOk;
}

int CAacEncoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (const int checked = EncodeCallResult(context_ != nullptr, pcm); checked != kCodecOk) {
        return checked;
    }
    AVFrame* frame = frame_.get();
    if (av_frame_make_writable(frame) < 0) {
        return kCodecNoMemory;
    }
    for (int channel = 0; channel < channels_; ++channel) {
        auto* plane = reinterpret_cast<float*>(frame->data[channel]);
        for (int i = 0; i < frame->nb_samples; ++i) {
            plane[i] = pcm[i * channels_ + channel] / 32768.0f;
        }
    }
    frame->pts = pts_;
    pts_ += frame->nb_samples;
    if (avcodec_send_frame(context_.get(), frame) < 0) {
        return kCodecLibraryError;
    }
    return Drain(sink);
}

int CAacEncoder::Flush(const FrameSink& sink) {
    if (!context_) {
        return kCodecNotOpen;
    }
    int result = avcodec_send_frame(context_.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF) {
        return kCodecLibraryError;
    }
    return Drain(sink);
}

int CAacEncoder::Drain(const FrameSink& sink) {
    AVPacket* packet = packet_.get();
    return ReceiveAll([&] { return avcodec_receive_packet(context_.get(), packet); },
                      [&] {
                          std::size_t payload = static_cast<std::size_t>(packet->size);
                          output_.resize(payload + kAdtsHeaderBytes);
                          WriteAdtsHeader(output_.data(), rateIndex_, channels_, payload);
                          std::copy(packet->data, packet->data + payload, output_.begin() + kAdtsHeaderBytes);
                          av_packet_unref(packet);
                          sink(output_.data(), output_.size());
                          return kCodecOk;
                      });
}

class CAacDecoder : public CDecoderBase {
public:
    /// The format is read from the ADTS headers; the argument is not used.
    int Open(const AudioFormat& format) override;
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;

private:
    int TakeFrame(std::vector<int16_t>* pcm);

    ContextPtr context_;  // set when open
    ParserPtr parser_;
    FramePtr frame_;
    PacketPtr packet_;
};

int CAacDecoder::Open(const AudioFormat& /*format*/) {
    context_.reset();
    format_ = AudioFormat();
    format_.sampleRate = 0;
    format_.channels = 0;
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        return kCodecLibraryError;
    }
    ContextPtr context(avcodec_alloc_context3(codec));
    parser_.reset(av_parser_init(AV_CODEC_ID_AAC));
    frame_.reset(av_frame_alloc());
    packet_.reset(av_packet_alloc());
    if (!context || !parser_ || !frame_ || !packet_) {
        return kCodecNoMemory;
    }
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        return kCodecLibraryError;
    }
    context_ = std::move(context);
    return kCodecOk;
}

int CAacDecoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(context_ != nullptr, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    AVPacket* packet = packet_.get();
    while (size > 0) {
        uint8_t* frameData = nullptr;
        int frameSize = 0;
        int used = av_parser_parse2(parser_.get(), context_.get(), &frameData, &frameSize, data,
                                    static_cast<int>(size), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
        if (used < 0) {
            return kCodecLibraryError;
        }
        data += used;
        size -= static_cast<std::size_t>(used);
        if (frameSize == 0) {
            continue;
        }
        packet->data = frameData;
        packet->size = frameSize;
        int result = avcodec_send_packet(context_.get(), packet);
        packet->data = nullptr;
        packet->size = 0;
        if (result < 0) {
            return kCodecLibraryError;
        }
        result = ReceiveAll([&] { return avcodec_receive_frame(context_.get(), frame_.get()); },
                            [&] { return TakeFrame(pcm); });
        if (result != kCodecOk) {
            return result;
        }
    }
    return kCodecOk;
}

// Appends the decoded frame's samples, interleaved, and releases the frame.
int CAacDecoder::TakeFrame(std::vector<int16_t>* pcm) {
    AVFrame* frame = frame_.get();
    int channels = frame->ch_layout.nb_channels;
    if (format_.sampleRate != 0 &&
        (format_.sampleRate != frame->sample_rate || format_.channels != channels)) {
        av_frame_unref(frame);
        return kCodecFormatChanged;
    }
    format_.sampleRate = frame->sample_rate;
    format_.channels = channels;
    if (frame->format != AV_SAMPLE_FMT_FLTP) {
        av_frame_unref(frame);
        return kCodecLibraryError;
    }
    for (int i = 0; i < frame->nb_samples; ++i) {
        for (int channel = 0; channel < channels; ++channel) {
            pcm->push_back(FloatToSample(reinterpret_cast<const float*>(frame->data[channel])[i]));
        }
    }
    av_frame_unref(frame);
    return kCodecOk;
}

class CAacPlugin final : public IAudioCodecPlugin {
public:
    std::unique_ptr<IAudioEncoder> CreateEncoder() const override { return std::make_unique<CAacEncoder>(); }
    std::unique_ptr<IAudioDecoder> CreateDecoder() const override { return std::make_unique<CAacDecoder>(); }
};

}  // namespace
}  // namespace MediaCodec
}  // namespace Tal

// The plug-in's one entry (kCodecPluginEntry).
extern "C" __attribute__((visibility("default"))) const Tal::MediaCodec::IAudioCodecPlugin*
TalAudioCodecPlugin() {
    static const Tal::MediaCodec::CAacPlugin plugin;
    return &plugin;
}
static_assert(std::is_same<decltype(&TalAudioCodecPlugin), Tal::MediaCodec::CodecPluginEntry>::value,
              "the entry has the type the loader calls");
