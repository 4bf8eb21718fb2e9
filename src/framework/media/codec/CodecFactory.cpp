#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/CodecPluginLoader.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/G722Codec.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/PcmCodec.h"

namespace Tal {
namespace MediaCodec {

namespace {

// Stands for a codec whose plug-in could not be loaded: Open says so, everything else is not open.
class CUnavailableEncoder : public IAudioEncoder {
public:
    int Open(const AudioFormat&) override { return kCodecUnavailable; }
    int FrameSamples() const override { return 0; }
    int Encode(const int16_t*, const FrameSink&) override { return kCodecNotOpen; }
    int Flush(const FrameSink&) override { return kCodecNotOpen; }
};

class CUnavailableDecoder : public IAudioDecoder {
public:
    int Open(const AudioFormat&) override { return kCodecUnavailable; }
    int Decode(const uint8_t*, std::size_t, std::vector<int16_t>*) override { return kCodecNotOpen; }
    AudioFormat OutputFormat() const override { return AudioFormat(); }
};

// AAC comes from its plug-in, loaded here on first use.
std::unique_ptr<IAudioEncoder> CreateAacEncoder() {
    const IAudioCodecPlugin* aac = AacPlugin();
    return aac != nullptr ? aac->CreateEncoder() : std::make_unique<CUnavailableEncoder>();
}
std::unique_ptr<IAudioDecoder> CreateAacDecoder() {
    const IAudioCodecPlugin* aac = AacPlugin();
    return aac != nullptr ? aac->CreateDecoder() : std::make_unique<CUnavailableDecoder>();
}

// Encoders and decoders come in the same codecs; G.711 takes its law.
template <typename Interface, typename Pcm, typename G711, typename G722, typename Mp3,
          std::unique_ptr<Interface> (*CreateAac)()>
std::unique_ptr<Interface> Create(CodecId id) {
    switch (id) {
        case CodecId::kPcm:
            return std::make_unique<Pcm>();
        case CodecId::kG711U:
            return std::make_unique<G711>(G711Law::kUlaw);
        case CodecId::kG711A:
            return std::make_unique<G711>(G711Law::kAlaw);
        case CodecId::kG722:
            return std::make_unique<G722>();
        case CodecId::kMp3:
            return std::make_unique<Mp3>();
        case CodecId::kAac:
            return CreateAac();
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<IAudioEncoder> CreateEncoder(CodecId id) {
    return Create<IAudioEncoder, CPcmEncoder, CG711Encoder, CG722Encoder, CMp3Encoder, CreateAacEncoder>(id);
}

std::unique_ptr<IAudioDecoder> CreateDecoder(CodecId id) {
    return Create<IAudioDecoder, CPcmDecoder, CG711Decoder, CG722Decoder, CMp3Decoder, CreateAacDecoder>(id);
}

const char* CodecResultText(int result) {
    switch (result) {
        case kCodecOk:
            return "ok";
        case kCodecInvalidParam:
            return "invalid parameter";
        case kCodecNoMemory:
            return "out of memory";
        case kCodecLibraryError:
            return "codec library error";
        case kCodecNotOpen:
            return "codec not open";
        case kCodecFormatChanged:
            return "stream format changed";
        case kCodecUnavailable:
            return "codec plug-in not loaded";
        default:
            return "unknown codec result";
    }
}

}  // namespace MediaCodec
}  // namespace Tal
