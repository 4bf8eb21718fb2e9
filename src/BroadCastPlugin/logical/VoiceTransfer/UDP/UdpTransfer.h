#pragma once
// Transport to other makers' IP speakers: one RTP packet per encoded frame, sent by UDP.

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "BroadCastPlugin/logical/VoiceTransfer/IVoiceTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/Rtp.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpFanout.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"
#include "framework/base/LogThrottle.h"

namespace BroadCastPlugin {

/// RTP payload type for an encode type: 0 -> 9 (G.722), 1 -> 0 (PCMU), 2 -> 8 (PCMA), other -> 9.
uint8_t RtpPayloadTypeForEncodeType(int32_t encodeType);

/// A speaker's RTP stream. The manager's sending thread sends its packets through the group's fan-out
/// (NextRtpPacket); SendVoice sends one through the transfer's own socket. To a multicast group the stream
/// is one for all the group's speakers and leaves by its own socket, routed toward the platform's network.
class CUdpTransfer : public IUdpVoiceTransfer, public IRtpBatchTransfer {
public:
    CUdpTransfer() = default;
    ~CUdpTransfer() override;

    /// Opens the socket and the RTP state. Returns true without looking at the socket (a missing socket shows
    /// as failed sends). A multicast `ipAddress` gets the socket's multicast route (RouteMulticastToward the
    /// login session's platform server).
    bool Init(const std::string& ipAddress, uint16_t port, int32_t encodeType) override;
    void Uninit() override;
    /// Sends one frame as one RTP packet. Send failures are logged and the frame is lost (true all the same);
    /// a frame larger than the packet buffer is refused with false.
    bool SendVoice(const uint8_t* data, int32_t size) override;
    /// Stamps the next packet's header and gives the speaker's address; false once closed. A frame larger
    /// than SendVoice takes is refused as there, leaving the stream untouched.
    bool NextRtpPacket(uint8_t* header, uint32_t payloadSize, sockaddr_in& destination) override;
    /// False for a multicast stream, which the fan-out's sockets have no route for.
    bool Batchable() const override { return !multicast_; }

private:
    struct UdpContext {
        CUniqueSocket socket;
        uint32_t address = 0;  ///< IPv4, network order
        uint16_t port = 0;     ///< network order
        RtpSenderState rtp{};
        Tal::Base::CLogThrottle failures;  ///< a stream that fails every frame logs 1st, 2nd, 4th... failure
    };

    std::mutex mutex_;  ///< Uninit may come from the stopping thread while the sender thread sends
    std::unique_ptr<UdpContext> context_;
    std::atomic<bool> multicast_{false};
};

}  // namespace BroadCastPlugin
