#include "framework/media/audiocom/StreamCodec.h"

namespace Tal {
namespace AudioCom {

namespace {
// Quality of live MP3 encoding: LAME's default trade-off, it runs beside the capture.
constexpr int kLiveMp3Quality = 5;

MediaCodec::AudioFormat FormatOf(const AUDIOCOM_STREAM_PARAM& param) {
    MediaCodec::AudioFormat format;
    format.sampleRate = static_cast<int>(param.sampleRate);
    format.channels = param.channels;
    format.bitRate = static_cast<int>(param.bitRate);
    format.quality = kLiveMp3Quality;
    return format;
}
}  // namespace

bool CodecOfNumber(uint32_t number, MediaCodec::CodecId* id) {
    switch (number) {
        case AUDIOCOM_CODEC_PCM:
            *id = MediaCodec::CodecId::kPcm;
            return true;
        case AUDIOCOM_CODEC_G711A:
            *id = MediaCodec::CodecId::kG711A;
            return true;
        case AUDIOCOM_CODEC_G711U:
            *id = MediaCodec::CodecId::kG711U;
            return true;
        case AUDIOCOM_CODEC_G722:
            *id = MediaCodec::CodecId::kG722;
            return true;
        case AUDIOCOM_CODEC_AAC:
            *id = MediaCodec::CodecId::kAac;
            return true;
        case AUDIOCOM_CODEC_MP3:
            *id = MediaCodec::CodecId::kMp3;
            return true;
        default:
            return false;
    }
}

namespace {
// 16-bit samples at a rate the codecs take (channel counts differ between encoding and decoding).
bool PcmShapeOk(const AUDIOCOM_STREAM_PARAM& param) {
    return param.bitsPerSample == 16 && param.sampleRate != 0 && param.sampleRate <= 192000;
}

// Creates and opens the encoder or decoder of the stream's codec.
template <typename Codec>
int OpenCodec(const AUDIOCOM_STREAM_PARAM& param, std::unique_ptr<Codec> (*create)(MediaCodec::CodecId),
              std::unique_ptr<Codec>* codec) {
    MediaCodec::CodecId id;
    if (!CodecOfNumber(param.codec, &id)) {
        return AUDIOCOM_ERR_CODEC_UNSUPPORTED;
    }
    std::unique_ptr<Codec> made = create(id);
    if (!made || made->Open(FormatOf(param)) != MediaCodec::kCodecOk) {
        return AUDIOCOM_ERR_CODEC;
    }
    *codec = std::move(made);
    return AUDIOCOM_ERR_NONE;
}
}  // namespace

int MakeEncoder(const AUDIOCOM_STREAM_PARAM& param, std::unique_ptr<MediaCodec::IAudioEncoder>* encoder) {
    if (param.channels != 1 || !PcmShapeOk(param)) {
        return AUDIOCOM_ERR_PARAM;
    }
    return OpenCodec(param, &MediaCodec::CreateEncoder, encoder);
}

int MakeDecoder(const AUDIOCOM_STREAM_PARAM& param, std::unique_ptr<MediaCodec::IAudioDecoder>* decoder) {
    if (param.channels < 1 || param.channels > 2 || !PcmShapeOk(param)) {
        return AUDIOCOM_ERR_PARAM;
    }
    return OpenCodec(param, &MediaCodec::CreateDecoder, decoder);
}

}  // namespace AudioCom
}  // namespace Tal
