#include "platform/server/sim/oem/RtpPacket.h"

namespace Platform {

bool ParseRtp(const uint8_t* data, std::size_t size, RtpPacket& packet) {
    constexpr std::size_t kFixedHeader = 12;
    if (data == nullptr || size < kFixedHeader || (data[0] >> 6) != 2) {
        return false;
    }
    const bool padding = (data[0] & 0x20) != 0;
    const bool extension = (data[0] & 0x10) != 0;
    const std::size_t csrcCount = data[0] & 0x0F;
    std::size_t header = kFixedHeader + 4 * csrcCount;
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
    packet.timestamp = (static_cast<uint32_t>(data[4]) << 24) | (static_cast<uint32_t>(data[5]) << 16) |
                       (static_cast<uint32_t>(data[6]) << 8) | data[7];
    packet.ssrc = (static_cast<uint32_t>(data[8]) << 24) | (static_cast<uint32_t>(data[9]) << 16) |
                  (static_cast<uint32_t>(data[10]) << 8) | data[11];
    packet.payload = data + header;
    packet.payloadSize = end - header;
    return true;
}

}  // namespace Platform
