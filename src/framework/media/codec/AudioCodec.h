#pragma once
// Small interfaces of the audio codecs: one encoder or decoder object per stream, PCM is 16-bit interleaved.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace Tal {
namespace MediaCodec {

/// Result codes of codec operations.
enum CodecResult {
    kCodecOk = 0,
    kCodecInvalidParam = 1,   ///< the format is not one the codec can handle
    kCodecNoMemory = 2,       ///< the codec library could not allocate its state
    kCodecLibraryError = 3,   ///< the codec library refused the data or the parameters
    kCodecNotOpen = 4,        ///< called before a successful Open
    kCodecFormatChanged = 5,  ///< a decoded stream changed its rate or channel count
    kCodecUnavailable = 6,    ///< the codec's plug-in could not be loaded (the reason is logged)
};

/// Codecs this library provides.
enum class CodecId { kPcm, kG711U, kG711A, kG722, kMp3, kAac };

struct AudioFormat {
    int sampleRate = 0;  ///< Hz
    int channels = 1;
    int bitRate = 0;  ///< bit/s, for codecs that have one
    int quality = 3;  ///< encoder effort where the codec has one (LAME: 0 best .. 9 fastest)
};

/// Receives one encoded frame.
using FrameSink = std::function<void(const uint8_t* data, std::size_t size)>;

class IAudioEncoder {
public:
    virtual ~IAudioEncoder() = default;
    /// Checks the format and creates the codec state; kCodecOk or a CodecResult.
    virtual int Open(const AudioFormat& format) = 0;
    /// Samples per channel that one Encode call consumes.
    virtual int FrameSamples() const = 0;
    /// Encodes FrameSamples() samples per channel; each complete frame produced is handed to `sink`
    /// (codecs with a delay may produce none for a call and several later).
    virtual int Encode(const int16_t* pcm, const FrameSink& sink) = 0;
    /// Hands out what the codec still holds at the end of the input.
    virtual int Flush(const FrameSink& sink) = 0;
};

class IAudioDecoder {
public:
    virtual ~IAudioDecoder() = default;
    /// Prepares the decoder. For codecs without in-band format the format is taken as given.
    virtual int Open(const AudioFormat& format) = 0;
    /// Feeds encoded bytes in pieces of any size; decoded PCM is appended to `pcm`.
    virtual int Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) = 0;
    /// Format of the decoded PCM; for self-describing streams sampleRate is 0 until the first block decodes.
    virtual AudioFormat OutputFormat() const = 0;
};

/// Base of the encoders whose frames always hold `Samples` samples per channel.
template <int Samples>
class CFixedFrameEncoder : public IAudioEncoder {
public:
    static constexpr int kFrameSamples = Samples;
    int FrameSamples() const override { return Samples; }
};

/// Base of the decoders: OutputFormat reports format_, which the decoder sets when it opens or learns
/// the format from the stream.
class CDecoderBase : public IAudioDecoder {
public:
    AudioFormat OutputFormat() const override { return format_; }

protected:
    AudioFormat format_;
};

/// The checks every Encode makes first: kCodecNotOpen, kCodecInvalidParam without samples, else kCodecOk.
inline int EncodeCallResult(bool open, const int16_t* pcm) {
    return !open ? kCodecNotOpen : pcm == nullptr ? kCodecInvalidParam : kCodecOk;
}
/// The checks every Decode makes first: kCodecNotOpen, kCodecInvalidParam for bytes that are not there or
/// nowhere to put the samples, else kCodecOk.
inline int DecodeCallResult(bool open, const uint8_t* data, std::size_t size,
                            const std::vector<int16_t>* pcm) {
    return !open                                             ? kCodecNotOpen
           : (data == nullptr && size > 0) || pcm == nullptr ? kCodecInvalidParam
                                                             : kCodecOk;
}

/// A new encoder or decoder for the codec, null when the codec is not built in. AAC is loaded from its
/// plug-in on the first call; when that fails, the object's Open returns kCodecUnavailable.
std::unique_ptr<IAudioEncoder> CreateEncoder(CodecId id);
std::unique_ptr<IAudioDecoder> CreateDecoder(CodecId id);
/// Readable name of a codec result for log lines.
const char* CodecResultText(int result);

}  // namespace MediaCodec
}  // namespace Tal
