#include "framework/media/codec/Resampler.h"

#include <soxr.h>

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

void CResampler::Closer::operator()(soxr* resampler) const {
    soxr_delete(resampler);
}

CResampler::CResampler() = default;
CResampler::~CResampler() = default;

int CResampler::Open(int inputRate, int outputRate, int channels) {
    soxr_.reset();
    if (inputRate <= 0 || outputRate <= 0 || channels < 1 || channels > 2) {
        lastError_ = "invalid rate or channel count";
        return kCodecInvalidParam;
    }
    soxr_io_spec_t io = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    soxr_error_t error = nullptr;
    soxr_t created =
        soxr_create(inputRate, outputRate, static_cast<unsigned>(channels), &error, &io, &quality, nullptr);
    if (error != nullptr || created == nullptr) {
        soxr_delete(created);
        lastError_ = error != nullptr ? error : "soxr_create failed";
        return kCodecLibraryError;
    }
    soxr_.reset(created);
    ratio_ = static_cast<double>(outputRate) / inputRate;
    channels_ = channels;
    return kCodecOk;
}

int CResampler::Process(const int16_t* in, std::size_t frames, std::vector<int16_t>* out) {
    if (!soxr_) {
        return kCodecNotOpen;
    }
    if (in == nullptr || out == nullptr) {
        return kCodecInvalidParam;
    }
    return Run(in, frames, out);
}

int CResampler::Flush(std::vector<int16_t>* out) {
    if (!soxr_) {
        return kCodecNotOpen;
    }
    if (out == nullptr) {
        return kCodecInvalidParam;
    }
    return Run(nullptr, 0, out);
}

// A null input tells soxr that the input has ended; it then empties its filter.
int CResampler::Run(const int16_t* in, std::size_t frames, std::vector<int16_t>* out) {
    std::size_t room = static_cast<std::size_t>(frames * ratio_) + 1024;
    std::size_t consumed = 0;
    for (;;) {
        std::size_t start = out->size();
        out->resize(start + room * channels_);
        std::size_t inputDone = 0;
        std::size_t outputDone = 0;
        soxr_error_t error =
            soxr_process(soxr_.get(), in != nullptr ? in + consumed * channels_ : nullptr, frames - consumed,
                         &inputDone, out->data() + start, room, &outputDone);
        out->resize(start + outputDone * channels_);
        if (error != nullptr) {
            lastError_ = error;
            return kCodecLibraryError;
        }
        consumed += inputDone;
        // Input left over, or a full output buffer, means there is more to take out.
        if (consumed >= frames && outputDone < room) {
            return kCodecOk;
        }
    }
}

}  // namespace MediaCodec
}  // namespace Tal
