#include "framework/media/mediakit/EncodeTypes.h"

#include <iterator>

namespace Tal {
namespace MediaKit {

namespace {

// G.711 and G.722 go out in 40 ms frames; AAC-LC and MP3 frames hold a fixed number of samples.
constexpr EncodeTypeInfo kTypes[] = {
    {0, AudioCodec::kG722, "G722", "G722", 9, 16000, 640, 320, 40},
    {1, AudioCodec::kPcmu, "PCMU", "PCMU", 0, 8000, 320, 320, 40},
    {2, AudioCodec::kPcma, "PCMA", "PCMA", 8, 8000, 320, 320, 40},
    {7, AudioCodec::kAac, "AAC", nullptr, -1, 16000, 1024, 0, 64},
    {15, AudioCodec::kMp3, "MP3", "MPA", 14, 48000, 1152, 0, 24},
};

}  // namespace

const EncodeTypeInfo* EncodeTypeOf(int code) {
    for (const EncodeTypeInfo& type : kTypes) {
        if (type.code == code) {
            return &type;
        }
    }
    return nullptr;
}

const EncodeTypeInfo& EncodeTypeOf(AudioCodec codec) {
    for (const EncodeTypeInfo& type : kTypes) {
        if (type.codec == codec) {
            return type;
        }
    }
    return kTypes[0];  // every codec has its entry
}

const EncodeTypeInfo* EncodeTypeOfPayload(int payloadType) {
    for (const EncodeTypeInfo& type : kTypes) {
        if (type.payloadType >= 0 && type.payloadType == payloadType) {
            return &type;
        }
    }
    return nullptr;
}

}  // namespace MediaKit
}  // namespace Tal
