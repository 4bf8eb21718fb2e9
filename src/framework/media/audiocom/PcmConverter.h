#pragma once
// Brings 16-bit PCM of any rate and 1-2 channels to mono at a target rate.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "framework/media/codec/Resampler.h"

namespace Tal {
namespace AudioCom {

class CPcmConverter {
public:
    /// kCodecOk or a codec result.
    int Open(int inputRate, int inputChannels, int outputRate);
    /// Appends the converted samples of `frames` input sample frames to `out`.
    int Convert(const int16_t* in, std::size_t frames, std::vector<int16_t>* out);
    int InputRate() const { return inputRate_; }
    int InputChannels() const { return inputChannels_; }
    int OutputRate() const { return outputRate_; }

private:
    int inputRate_ = 0;
    int inputChannels_ = 1;
    int outputRate_ = 0;
    std::unique_ptr<MediaCodec::CResampler> resampler_;  // null when the rates match
    std::vector<int16_t> mono_;
};

}  // namespace AudioCom
}  // namespace Tal
