#include "framework/media/audiocom/PcmConverter.h"

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace AudioCom {

int CPcmConverter::Open(int inputRate, int inputChannels, int outputRate) {
    if (inputRate <= 0 || outputRate <= 0 || inputChannels < 1 || inputChannels > 2) {
        return MediaCodec::kCodecInvalidParam;
    }
    inputRate_ = inputRate;
    inputChannels_ = inputChannels;
    outputRate_ = outputRate;
    resampler_.reset();
    if (inputRate != outputRate) {
        auto resampler = std::make_unique<MediaCodec::CResampler>();
        int result = resampler->Open(inputRate, outputRate, 1);
        if (result != MediaCodec::kCodecOk) {
            return result;
        }
        resampler_ = std::move(resampler);
    }
    return MediaCodec::kCodecOk;
}

int CPcmConverter::Convert(const int16_t* in, std::size_t frames, std::vector<int16_t>* out) {
    const int16_t* mono = in;
    if (inputChannels_ == 2) {
        mono_.resize(frames);
        for (std::size_t i = 0; i < frames; ++i) {
            mono_[i] = static_cast<int16_t>((in[2 * i] + in[2 * i + 1]) / 2);
        }
        mono = mono_.data();
    }
    if (!resampler_) {
        out->insert(out->end(), mono, mono + frames);
        return MediaCodec::kCodecOk;
    }
    return resampler_->Process(mono, frames, out);
}

}  // namespace AudioCom
}  // namespace Tal
