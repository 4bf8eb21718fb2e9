#pragma once
// The fixed RTP header (RFC 3550) of packets arriving at a simulated speaker.

#include <cstddef>
#include <cstdint>

namespace Platform {

struct RtpPacket {
    int payloadType = 0;
    bool marker = false;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;  ///< as the four bytes read big-endian (some senders do not convert it)
    const uint8_t* payload = nullptr;
    std::size_t payloadSize = 0;
};

/// Reads a packet: version 2, CSRC list, header extension and padding honoured. False for anything that
/// is not a well-formed RTP packet.
bool ParseRtp(const uint8_t* data, std::size_t size, RtpPacket& packet);

}  // namespace Platform
