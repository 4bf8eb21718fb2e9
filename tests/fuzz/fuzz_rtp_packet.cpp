// libFuzzer target: RTP packets as the platform's simulated speakers receive them. Each input is one
// datagram: its header is read as the speakers read it and, for the payload types they play, the payload is
// decoded by the speaker's decoder of that stream (one decoder per codec, kept across inputs as a speaker
// keeps it across packets). Besides crashes, leaks and hangs, the target traps when the header reader
// accepts what is not version-2 RTP or points the payload outside the datagram.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "framework/media/mediakit/RtpPacket.h"
#include "platform/server/sim/audio/SpeakerDecoder.h"

using FuzzSupport::Check;

namespace {

std::map<int, std::unique_ptr<Platform::CSpeakerDecoder>> g_decoders;
int g_packets = 0;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Tal::MediaKit::RtpPacket packet;
    if (!Tal::MediaKit::ParseRtp(data, size, packet)) {
        return 0;
    }
    Check(size >= 12 && (data[0] >> 6) == 2);
    Check(packet.payloadType == (data[1] & 0x7F));
    Check(packet.marker == ((data[1] & 0x80) != 0));
    Check(packet.sequence == static_cast<uint16_t>(data[2] << 8 | data[3]));
    Check(packet.payloadSize == 0 ||
          (packet.payload >= data + 12 && packet.payload + packet.payloadSize <= data + size));

    Platform::SpeakerCodec codec;
    if (!Platform::CodecOfPayloadType(packet.payloadType, codec)) {
        return 0;
    }
    Check(Platform::PayloadTypeOf(codec) == packet.payloadType);
    // A fresh stream now and then, as a speaker starts one per broadcast.
    if (++g_packets % 64 == 0) {
        g_decoders.clear();
    }
    auto& decoder = g_decoders[packet.payloadType];
    if (!decoder) {
        decoder = std::make_unique<Platform::CSpeakerDecoder>(codec);
    }
    std::vector<int16_t> pcm;
    std::string error;
    if (!decoder->Decode(packet.payload, packet.payloadSize, pcm, error)) {
        Check(!error.empty());
    }
    if (codec == Platform::SpeakerCodec::kPcmu || codec == Platform::SpeakerCodec::kPcma) {
        Check(pcm.size() == packet.payloadSize);  // one sample per byte, already at 8000 Hz
    }
    return 0;
}
