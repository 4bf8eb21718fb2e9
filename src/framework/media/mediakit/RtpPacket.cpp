#include "framework/media/mediakit/RtpPacket.h"

#include <cstring>

namespace Tal {
namespace MediaKit {

namespace {

uint32_t Be32(const uint8_t* p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
           (static_cast<uint32_t>(p[2]) << 8) | p[3];
}

void PutBe32(uint8_t* p, uint32_t value) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
    }
}

}  // namespace

bool ParseRtp(const uint8_t* data, std::size_t size, RtpPacket& packet) {
    if (data == nullptr || size < kRtpFixedHeaderBytes || (data[0] >> 6) != 2) {
        return false;
    }
    const bool padding = (data[0] & 0x20) != 0;
    const bool extension = (data[0] & 0x10) != 0;
    const std::size_t csrcCount = data[0] & 0x0F;
    std::size_t header = kRtpFixedHeaderBytes + 4 * csrcCount;
    if (size < header) {
        return false;
    }
    if (extension) {
        if (size < header + 4) {
            return false;
        }
        const std::size_t words = (static_cast<std::size_t>(data[header + 2]) << 8) | data[header + 3];
        header += 4 + 4 * words;
        if (size < header) {
            return false;
        }
    }
    std::size_t end = size;
    if (padding) {
        const std::size_t pad = data[size - 1];
        if (pad == 0 || pad > size - header) {
            return false;
        }
        end -= pad;
    }
    packet.marker = (data[1] & 0x80) != 0;
    packet.payloadType = data[1] & 0x7F;
    packet.sequence = static_cast<uint16_t>((data[2] << 8) | data[3]);
    packet.timestamp = Be32(data + 4);
    packet.ssrc = Be32(data + 8);
    packet.payload = data + header;
    packet.payloadSize = end - header;
    return true;
}

std::vector<uint8_t> BuildRtp(const RtpHeader& header, const uint8_t* payload, std::size_t size) {
    std::vector<uint8_t> packet(kRtpFixedHeaderBytes + size);
    packet[0] = 0x80;
    packet[1] = static_cast<uint8_t>((header.marker ? 0x80 : 0x00) | (header.payloadType & 0x7F));
    packet[2] = static_cast<uint8_t>(header.sequence >> 8);
    packet[3] = static_cast<uint8_t>(header.sequence & 0xFF);
    PutBe32(&packet[4], header.timestamp);
    PutBe32(&packet[8], header.ssrc);
    if (size > 0) {
        std::memcpy(&packet[kRtpFixedHeaderBytes], payload, size);
    }
    return packet;
}

std::vector<uint8_t> CRtpStream::Next(const uint8_t* payload, std::size_t size, uint32_t samples) {
    header_.marker = first_;
    first_ = false;
    std::vector<uint8_t> packet = BuildRtp(header_, payload, size);
    ++header_.sequence;
    header_.timestamp += samples;
    return packet;
}

}  // namespace MediaKit
}  // namespace Tal
