#include "framework/media/codec/AacCodec.h"
#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/G722Codec.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/PcmCodec.h"

namespace Tal {
namespace MediaCodec {

std::unique_ptr<IAudioEncoder> CreateEncoder(CodecId id) {
    switch (id) {
        case CodecId::kPcm:
            return std::make_unique<CPcmEncoder>();
        case CodecId::kG711U:
            return std::make_unique<CG711Encoder>(G711Law::kUlaw);
        case CodecId::kG711A:
            return std::make_unique<CG711Encoder>(G711Law::kAlaw);
        case CodecId::kG722:
            return std::make_unique<CG722Encoder>();
        case CodecId::kMp3:
            return std::make_unique<CMp3Encoder>();
        case CodecId::kAac:
            return std::make_unique<CAacEncoder>();
    }
    return nullptr;
}

std::unique_ptr<IAudioDecoder> CreateDecoder(CodecId id) {
    switch (id) {
        case CodecId::kPcm:
            return std::make_unique<CPcmDecoder>();
        case CodecId::kG711U:
            return std::make_unique<CG711Decoder>(G711Law::kUlaw);
        case CodecId::kG711A:
            return std::make_unique<CG711Decoder>(G711Law::kAlaw);
        case CodecId::kG722:
            return std::make_unique<CG722Decoder>();
        case CodecId::kMp3:
            return std::make_unique<CMp3Decoder>();
        case CodecId::kAac:
            return std::make_unique<CAacDecoder>();
    }
    return nullptr;
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
