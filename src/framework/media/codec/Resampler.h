#pragma once
// Sample-rate conversion of 16-bit PCM on soxr, block by block with state kept between blocks.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "framework/base/NonCopyable.h"

struct soxr;

namespace Tal {
namespace MediaCodec {

class CResampler : private Base::CNonCopyable {
public:
    CResampler();
    ~CResampler();

    /// kCodecOk or a CodecResult; rates in Hz, 1 or 2 interleaved channels.
    int Open(int inputRate, int outputRate, int channels = 1);
    /// Converts `frames` sample frames; the converted frames are appended to `out`.
    int Process(const int16_t* in, std::size_t frames, std::vector<int16_t>* out);
    /// Appends what the filter still holds at the end of the input.
    int Flush(std::vector<int16_t>* out);
    /// soxr's text for its last error, for log lines.
    const char* LastErrorText() const { return lastError_; }

private:
    int Run(const int16_t* in, std::size_t frames, std::vector<int16_t>* out);

    struct Closer {
        void operator()(soxr* resampler) const;
    };
    std::unique_ptr<soxr, Closer> soxr_;
    double ratio_ = 1.0;
    int channels_ = 1;
    const char* lastError_ = "";
};

}  // namespace MediaCodec
}  // namespace Tal
