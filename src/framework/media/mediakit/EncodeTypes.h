#pragma once
// The broadcast encode types in one table: codec, sample rate, frame and RTP payload type of each.

namespace Tal {
namespace MediaKit {

enum class AudioCodec { kG722, kPcmu, kPcma, kAac, kMp3 };

struct EncodeTypeInfo {
    int code;  ///< the broadcast encode type (the platform's "EncodeType")
    AudioCodec codec;
    const char* name;     ///< PCMU, PCMA, G722, AAC, MP3
    const char* rtpName;  ///< the RTP encoding name of the static payload type; nullptr when it has none
    int payloadType;      ///< static RTP payload type; -1 when the codec has none
    int sampleRate;       ///< of the PCM the codec carries
    int frameSamples;     ///< samples per frame
    int frameBytes;       ///< bytes per encoded frame; 0 when it varies
    int frameMs;          ///< how long a frame plays, rounded to the millisecond
};

/// The entry of a broadcast encode type (0 G.722, 1 G.711 µ-law, 2 G.711 A-law, 7 AAC, 15 MP3); nullptr
/// for any other.
const EncodeTypeInfo* EncodeTypeOf(int code);
/// The entry of a codec.
const EncodeTypeInfo& EncodeTypeOf(AudioCodec codec);
/// The entry whose static RTP payload type is `payloadType` (0, 8, 9, 14); nullptr for any other.
const EncodeTypeInfo* EncodeTypeOfPayload(int payloadType);

}  // namespace MediaKit
}  // namespace Tal
