#pragma once
// Decodes what a transport carries to a speaker into the speaker's own format: 16-bit mono PCM at
// 8000 Hz. One object per incoming stream (G.722 and MP3 keep state between blocks).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/media/codec/Mp3Frame.h"
#include "framework/media/mediakit/EncodeTypes.h"

namespace Tal {
namespace MediaCodec {
class IAudioDecoder;
class CResampler;
}  // namespace MediaCodec
}  // namespace Tal

namespace Platform {

/// The speakers play PCMU, PCMA, G.722 and MP3.
using SpeakerCodec = Tal::MediaKit::AudioCodec;

/// RTP payload type of a codec in the speakers' streams: 0, 8, 9 and 14.
int PayloadTypeOf(SpeakerCodec codec);
/// The codec of a static RTP payload type; false for any other.
bool CodecOfPayloadType(int payloadType, SpeakerCodec& codec);
const char* CodecName(SpeakerCodec codec);

class CSpeakerDecoder : private Tal::Base::CNonCopyable {
public:
    static constexpr int kSampleRate = 8000;

    explicit CSpeakerDecoder(SpeakerCodec codec);
    ~CSpeakerDecoder();

    SpeakerCodec Codec() const { return codec_; }
    /// Appends the decoded samples to `out`. False with a reason on data the codec cannot decode; what
    /// decoded before the fault is kept. MP3 is taken frame by frame, found by their headers: bytes between
    /// frames (the zero padding of fixed-size device pieces) are skipped, as a device's decoder does.
    bool Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>& out, std::string& error);

private:
    bool Resample(const std::vector<int16_t>& pcm, int rate, int channels, std::vector<int16_t>& out,
                  std::string& error);

    SpeakerCodec codec_;
    std::unique_ptr<Tal::MediaCodec::IAudioDecoder> decoder_;
    std::unique_ptr<Tal::MediaCodec::CResampler> resampler_;
    int resamplerRate_ = 0;
    std::vector<int16_t> scratch_;
    Tal::MediaCodec::CMp3FrameSplitter mp3Frames_;
    std::vector<uint8_t> wholeFrames_;
};

}  // namespace Platform
