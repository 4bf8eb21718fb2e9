#include "framework/media/codec/AacCodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cmath>

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

}  // namespace

struct CAacEncoder::State {
    std::unique_ptr<AVCodecContext, ContextCloser> context;
    std::unique_ptr<AVFrame, FrameCloser> frame;
    std::unique_ptr<AVPacket, PacketCloser> packet;
    std::vector<uint8_t> output;
    int rateIndex = 0;
    int channels = 1;
    int64_t pts = 0;
};

CAacEncoder::CAacEncoder() = default;
CAacEncoder::~CAacEncoder() = default;

int CAacEncoder::Open(const AudioFormat& format) {
    state_.reset();
    int rateIndex = AdtsRateIndex(format.sampleRate);
    if (rateIndex < 0 || format.channels < 1 || format.channels > 2 || format.bitRate <= 0) {
        return kCodecInvalidParam;
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        return kCodecLibraryError;
    }
    auto state = std::make_unique<State>();
    state->context.reset(avcodec_alloc_context3(codec));
    state->frame.reset(av_frame_alloc());
    state->packet.reset(av_packet_alloc());
    if (!state->context || !state->frame || !state->packet) {
        return kCodecNoMemory;
    }
    AVCodecContext* context = state->context.get();
    context->sample_fmt = AV_SAMPLE_FMT_FLTP;
    context->sample_rate = format.sampleRate;
    context->bit_rate = format.bitRate;
    av_channel_layout_default(&context->ch_layout, format.channels);
    if (avcodec_open2(context, codec, nullptr) < 0 || context->frame_size <= 0) {
        return kCodecLibraryError;
    }
    AVFrame* frame = state->frame.get();
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->nb_samples = context->frame_size;
    frame->sample_rate = format.sampleRate;
    if (av_channel_layout_copy(&frame->ch_layout, &context->ch_layout) < 0 ||
        av_frame_get_buffer(frame, 0) < 0) {
        return kCodecNoMemory;
    }
    state->rateIndex = rateIndex;
    state->channels = format.channels;
    state_ = std::move(state);
    return kCodecOk;
}

int CAacEncoder::FrameSamples() const {
    return state_ ? state_->context->frame_size : 1024;
}

int CAacEncoder::Encode(const int16_t* pcm, const FrameSink& sink) {
    if (const int checked = EncodeCallResult(state_ != nullptr, pcm); checked != kCodecOk) {
        return checked;
    }
    AVFrame* frame = state_->frame.get();
    if (av_frame_make_writable(frame) < 0) {
        return kCodecNoMemory;
    }
    for (int channel = 0; channel < state_->channels; ++channel) {
        auto* plane = reinterpret_cast<float*>(frame->data[channel]);
        for (int i = 0; i < frame->nb_samples; ++i) {
            plane[i] = pcm[i * state_->channels + channel] / 32768.0f;
        }
    }
    frame->pts = state_->pts;
    state_->pts += frame->nb_samples;
    if (avcodec_send_frame(state_->context.get(), frame) < 0) {
        return kCodecLibraryError;
    }
    return Drain(sink);
}

int CAacEncoder::Flush(const FrameSink& sink) {
    if (!state_) {
        return kCodecNotOpen;
    }
    int result = avcodec_send_frame(state_->context.get(), nullptr);
    if (result < 0 && result != AVERROR_EOF) {
        return kCodecLibraryError;
    }
    return Drain(sink);
}

int CAacEncoder::Drain(const FrameSink& sink) {
    AVPacket* packet = state_->packet.get();
    for (;;) {
        int result = avcodec_receive_packet(state_->context.get(), packet);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return kCodecOk;
        }
        if (result < 0) {
            return kCodecLibraryError;
        }
        std::size_t payload = static_cast<std::size_t>(packet->size);
        state_->output.resize(payload + kAdtsHeaderBytes);
        WriteAdtsHeader(state_->output.data(), state_->rateIndex, state_->channels, payload);
        std::copy(packet->data, packet->data + payload, state_->output.begin() + kAdtsHeaderBytes);
        av_packet_unref(packet);
        sink(state_->output.data(), state_->output.size());
    }
}

struct CAacDecoder::State {
    std::unique_ptr<AVCodecContext, ContextCloser> context;
    std::unique_ptr<AVCodecParserContext, ParserCloser> parser;
    std::unique_ptr<AVFrame, FrameCloser> frame;
    std::unique_ptr<AVPacket, PacketCloser> packet;
};

CAacDecoder::CAacDecoder() = default;
CAacDecoder::~CAacDecoder() = default;

int CAacDecoder::Open(const AudioFormat& /*format*/) {
    state_.reset();
    format_ = AudioFormat();
    format_.sampleRate = 0;
    format_.channels = 0;
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        return kCodecLibraryError;
    }
    auto state = std::make_unique<State>();
    state->context.reset(avcodec_alloc_context3(codec));
    state->parser.reset(av_parser_init(AV_CODEC_ID_AAC));
    state->frame.reset(av_frame_alloc());
    state->packet.reset(av_packet_alloc());
    if (!state->context || !state->parser || !state->frame || !state->packet) {
        return kCodecNoMemory;
    }
    if (avcodec_open2(state->context.get(), codec, nullptr) < 0) {
        return kCodecLibraryError;
    }
    state_ = std::move(state);
    return kCodecOk;
}

int CAacDecoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(state_ != nullptr, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    AVPacket* packet = state_->packet.get();
    while (size > 0) {
        uint8_t* frameData = nullptr;
        int frameSize = 0;
        int used = av_parser_parse2(state_->parser.get(), state_->context.get(), &frameData, &frameSize, data,
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
        int result = avcodec_send_packet(state_->context.get(), packet);
        packet->data = nullptr;
        packet->size = 0;
        if (result < 0) {
            return kCodecLibraryError;
        }
        result = ReceiveFrames(pcm);
        if (result != kCodecOk) {
            return result;
        }
    }
    return kCodecOk;
}

int CAacDecoder::ReceiveFrames(std::vector<int16_t>* pcm) {
    AVFrame* frame = state_->frame.get();
    for (;;) {
        int result = avcodec_receive_frame(state_->context.get(), frame);
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return kCodecOk;
        }
        if (result < 0) {
            return kCodecLibraryError;
        }
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
    }
}

}  // namespace MediaCodec
}  // namespace Tal
