#include "framework/media/codec/AacCodec.h"
#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/G722Codec.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/PcmCodec.h"

namespace Tal {
namespace MediaCodec {

namespace {

// Encoders and decoders come in the same codecs; G.711 takes its law.
template <typename Interface, typename Pcm, typename G711, typename G722, typename Mp3, typename Aac>
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
            return std::make_unique<Aac>();
    }
    return nullptr;
}

}  // namespace

std::unique_ptr<IAudioEncoder> CreateEncoder(CodecId id) {
    return Create<IAudioEncoder, CPcmEncoder, CG711Encoder, CG722Encoder, CMp3Encoder, CAacEncoder>(id);
}

std::unique_ptr<IAudioDecoder> CreateDecoder(CodecId id) {
    return Create<IAudioDecoder, CPcmDecoder, CG711Decoder, CG722Decoder, CMp3Decoder, CAacDecoder>(id);
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
        default:
            return "unknown codec result";
    }
}

}  // namespace MediaCodec
}  // namespace Tal
