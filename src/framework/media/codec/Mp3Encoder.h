#pragma once
// MP3 encoder on LAME: constant bit rate, 1152 samples per channel per call, whole frames out.

#include <memory>

#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/Mp3Frame.h"

struct lame_global_struct;

namespace Tal {
namespace MediaCodec {

class CMp3Encoder : public CFixedFrameEncoder<1152> {
public:
    /// Mono or stereo, 8000-48000 Hz, bit rate in bit/s; quality 0-9.
    int Open(const AudioFormat& format) override;
    int Encode(const int16_t* pcm, const FrameSink& sink) override;
    int Flush(const FrameSink& sink) override;

private:
    struct LameCloser {
        void operator()(lame_global_struct* lame) const;
    };
    std::unique_ptr<lame_global_struct, LameCloser> lame_;
    int channels_ = 1;
    std::vector<unsigned char> buffer_;
    CMp3FrameSplitter splitter_;
};

}  // namespace MediaCodec
}  // namespace Tal
