#pragma once
// MP3 decoder on mpg123's feed interface: raw MP3 bytes in pieces of any size, 16-bit PCM out.

#include <memory>

#include "framework/media/codec/AudioCodec.h"

struct mpg123_handle_struct;

namespace Tal {
namespace MediaCodec {

class CMp3Decoder : public CDecoderBase {
public:
    /// The format is read from the stream; the argument is not used.
    int Open(const AudioFormat& format) override;
    /// kCodecFormatChanged when the stream switches rate or channel count after the first block.
    int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) override;
    /// mpg123's text for its last error, for log lines.
    const char* LibraryErrorText() const;

private:
    struct Closer {
        void operator()(mpg123_handle_struct* handle) const;
    };
    std::unique_ptr<mpg123_handle_struct, Closer> handle_;
    std::vector<unsigned char> out_;
};

}  // namespace MediaCodec
}  // namespace Tal
