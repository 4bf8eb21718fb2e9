#pragma once
// RTP packets (RFC 3550): one parser and one builder for every sender and receiver of the site.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tal {
namespace MediaKit {

constexpr std::size_t kRtpFixedHeaderBytes = 12;

/// The fields of the fixed header that a sender chooses.
struct RtpHeader {
    int payloadType = 0;
    bool marker = false;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;  ///< as the four bytes read big-endian (some senders do not convert it)
};

/// A parsed packet; the payload points into the buffer that was parsed.
struct RtpPacket : RtpHeader {
    const uint8_t* payload = nullptr;
    std::size_t payloadSize = 0;
};

/// Reads a packet: version 2, CSRC list, header extension and padding honoured. False for anything that
/// is not a well-formed RTP packet.
bool ParseRtp(const uint8_t* data, std::size_t size, RtpPacket& packet);

/// Header and payload of a packet: version 2, no padding, extension or CSRC list.
std::vector<uint8_t> BuildRtp(const RtpHeader& header, const uint8_t* payload, std::size_t size);

/// The header of each packet of one stream: the marker on the first, the sequence advancing by one and the
/// timestamp by a packet's sample count.
class CRtpStream {
public:
    CRtpStream(int payloadType, uint32_t ssrc) { header_.payloadType = payloadType, header_.ssrc = ssrc; }

    /// The next packet carrying `payload`, which plays for `samples` timestamp units.
    std::vector<uint8_t> Next(const uint8_t* payload, std::size_t size, uint32_t samples);

private:
    RtpHeader header_;
    bool first_ = true;
};

}  // namespace MediaKit
}  // namespace Tal
