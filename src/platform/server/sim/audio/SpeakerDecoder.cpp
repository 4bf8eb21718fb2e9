#include "platform/server/sim/audio/SpeakerDecoder.h"

#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/Resampler.h"

namespace Platform {

using namespace Tal::MediaCodec;

int PayloadTypeOf(SpeakerCodec codec) {
    return Tal::MediaKit::EncodeTypeOf(codec).payloadType;
}

bool CodecOfPayloadType(int payloadType, SpeakerCodec& codec) {
    const Tal::MediaKit::EncodeTypeInfo* type = Tal::MediaKit::EncodeTypeOfPayload(payloadType);
    if (type == nullptr) {
        return false;
    }
    codec = type->codec;
    return true;
}

const char* CodecName(SpeakerCodec codec) {
    return Tal::MediaKit::EncodeTypeOf(codec).name;
}

CSpeakerDecoder::CSpeakerDecoder(SpeakerCodec codec) : codec_(codec) {}

CSpeakerDecoder::~CSpeakerDecoder() = default;

bool CSpeakerDecoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>& out,
                             std::string& error) {
    switch (codec_) {
        case SpeakerCodec::kPcmu:
            for (std::size_t i = 0; i < size; ++i) {
                out.push_back(UlawToLinear(data[i]));
            }
            return true;
        case SpeakerCodec::kPcma:
            for (std::size_t i = 0; i < size; ++i) {
                out.push_back(AlawToLinear(data[i]));
            }
            return true;
        case SpeakerCodec::kAac:
            error = "AAC is not played by the speakers";
            return false;
        case SpeakerCodec::kG722:
        case SpeakerCodec::kMp3:
            break;
    }
    if (!decoder_) {
        decoder_ = CreateDecoder(codec_ == SpeakerCodec::kG722 ? CodecId::kG722 : CodecId::kMp3);
        AudioFormat format;
        format.sampleRate = codec_ == SpeakerCodec::kG722 ? 16000 : 0;
        format.channels = 1;
        const int opened = decoder_ ? decoder_->Open(format) : kCodecLibraryError;
        if (opened != kCodecOk) {
            decoder_.reset();
            error = std::string(CodecName(codec_)) + " decoder: " + CodecResultText(opened);
            return false;
        }
    }
    if (codec_ == SpeakerCodec::kMp3) {
        wholeFrames_.clear();
        mp3Frames_.Push(data, size, [this](const uint8_t* frame, std::size_t bytes) {
            wholeFrames_.insert(wholeFrames_.end(), frame, frame + bytes);
        });
        if (wholeFrames_.empty()) {
            return true;
        }
        data = wholeFrames_.data();
        size = wholeFrames_.size();
    }
    scratch_.clear();
    const int result = decoder_->Decode(data, size, &scratch_);
    const AudioFormat format = decoder_->OutputFormat();
    bool ok = true;
    if (!scratch_.empty() && format.sampleRate > 0) {
        ok = Resample(scratch_, format.sampleRate, format.channels, out, error);
    }
    if (result != kCodecOk) {
        error = std::string(CodecName(codec_)) + " decoder: " + CodecResultText(result);
        return false;
    }
    return ok;
}

bool CSpeakerDecoder::Resample(const std::vector<int16_t>& pcm, int rate, int channels,
                               std::vector<int16_t>& out, std::string& error) {
    std::vector<int16_t> mono;
    const std::vector<int16_t>* input = &pcm;
    if (channels == 2) {
        mono.reserve(pcm.size() / 2);
        for (std::size_t i = 0; i + 1 < pcm.size(); i += 2) {
            mono.push_back(static_cast<int16_t>((static_cast<int>(pcm[i]) + pcm[i + 1]) / 2));
        }
        input = &mono;
    } else if (channels != 1) {
        error = "unsupported channel count " + std::to_string(channels);
        return false;
    }
    if (rate == kSampleRate) {
        out.insert(out.end(), input->begin(), input->end());
        return true;
    }
    if (!resampler_ || resamplerRate_ != rate) {
        resampler_ = std::make_unique<CResampler>();
        resamplerRate_ = rate;
        const int opened = resampler_->Open(rate, kSampleRate, 1);
        if (opened != kCodecOk) {
            error = std::string("resampler: ") + resampler_->LastErrorText();
            resampler_.reset();
            return false;
        }
    }
    const int result = resampler_->Process(input->data(), input->size(), &out);
    if (result != kCodecOk) {
        error = std::string("resampler: ") + resampler_->LastErrorText();
        return false;
    }
    return true;
}

}  // namespace Platform
