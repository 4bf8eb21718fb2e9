#pragma once
// RTP (RFC 3550) packing of encoded audio frames: fixed 12-byte header, no CSRC, no extension.

#include <cstddef>
#include <cstdint>

namespace BroadCastPlugin {

/// Sender state of one RTP stream.
struct RtpSenderState {
    uint8_t payloadType;
    uint32_t ssrc;
    uint16_t sequence;
    uint32_t timestamp;
    uint32_t startTick;  ///< tick count at initialisation; seeds the SSRC
};
static_assert(sizeof(RtpSenderState) == 20, "RTP sender state is 20 bytes");

constexpr std::size_t kRtpHeaderSize = 12;
/// Packet buffer of the UDP transport; frames above kRtpMaxPayload do not fit.
constexpr std::size_t kRtpPacketBufferSize = 2048;
constexpr std::size_t kRtpMaxPayload = kRtpPacketBufferSize - kRtpHeaderSize;

/// Clears the state, stores the payload type and draws a random SSRC seeded with the tick count;
/// sequence and timestamp start at 0.
void rtp_init(RtpSenderState* state, uint8_t payloadType);

/// Writes the 12-byte header of the next packet, for a payload of `payloadSize` bytes, to `header` and
/// advances the state as rtp_send_buf does. For senders that keep the payload apart from the header.
void rtp_write_header(RtpSenderState* state, uint8_t* header, uint32_t payloadSize);

/// Writes header and payload into `packet` (capacity `packetSize` bytes) and advances sequence (by 1,
/// wrapping at 16 bits) and timestamp (by `size`: one unit per payload byte, one per sample for G.711). The
/// marker bit is set when the sequence number is 0. The SSRC is copied in host byte order. Returns the packet
/// length (size + 12), or -1 without touching the state when the frame does not fit.
int rtp_send_buf(RtpSenderState* state, uint8_t* packet, std::size_t packetSize, const uint8_t* data,
                 int size);

}  // namespace BroadCastPlugin
