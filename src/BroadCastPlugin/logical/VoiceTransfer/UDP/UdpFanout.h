#pragma once
// Sends one frame to many RTP speakers with few system calls: the packets of a group's RTP speakers leave
// through sockets of the group's sender (sendmmsg, up to 1024 packets a call), each with its speaker's own
// header (payload type, SSRC, sequence, time stamp) in front of the one shared payload, which is not copied.
// A large group is split between the sending thread and one helper thread, each with its own socket.

#include <netinet/in.h>
#include <sys/socket.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/UDP/Rtp.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"
#include "framework/base/LogThrottle.h"

namespace BroadCastPlugin {

/// A transport whose packets a fan-out sender may send for it.
class IRtpBatchTransfer {
public:
    virtual ~IRtpBatchTransfer() = default;
    /// Writes the header of this speaker's next packet for a payload of `payloadSize` bytes, advances its
    /// stream as a send does, and gives the destination. False when the transport is closed (nothing sent).
    virtual bool NextRtpPacket(uint8_t* header, uint32_t payloadSize, sockaddr_in& destination) = 0;
    /// Whether the fan-out may send this transport's packets; false: the sender calls its SendVoice.
    virtual bool Batchable() const { return true; }
};

class CUdpFanout {
public:
    /// Groups of more than this many speakers get the helper thread. One thread sends to 1500 speakers on
    /// loopback in about 2.5 ms (1.5 us a packet, mostly the kernel's); split in two, 5000 take about 4 ms.
    static constexpr std::size_t kHelperThreshold = 1500;
    /// Packets per sendmmsg call (the kernel's UIO_MAXIOV).
    static constexpr std::size_t kBatchSize = 1024;

    CUdpFanout() = default;
    /// Ends the helper thread, if there is one.
    ~CUdpFanout();
    CUdpFanout(const CUdpFanout&) = delete;
    CUdpFanout& operator=(const CUdpFanout&) = delete;

    /// Sends `data` to every transfer, in order, and returns when all packets are handed to the kernel.
    void Send(const std::vector<IRtpBatchTransfer*>& transfers, const uint8_t* data, int32_t size);

private:
    /// One socket and the message arrays of one sending thread, reused from frame to frame.
    struct Lane {
        CUniqueSocket socket;
        std::vector<mmsghdr> messages;
        std::vector<iovec> vectors;  ///< two per packet: header, shared payload
        std::vector<uint8_t> headers;
        std::vector<sockaddr_in> destinations;
        Tal::Base::CLogThrottle failures;
    };
    static void SendLane(Lane& lane, IRtpBatchTransfer* const* begin, IRtpBatchTransfer* const* end,
                         const uint8_t* data, int32_t size);
    void HelperLoop();

    Lane own_;
    Lane helperLane_;
    std::thread helper_;
    std::mutex mutex_;  ///< guards the job (the helper's share of the frame), hasJob_ and quit_
    std::condition_variable changed_;
    IRtpBatchTransfer* const* jobBegin_ = nullptr;
    IRtpBatchTransfer* const* jobEnd_ = nullptr;
    const uint8_t* jobData_ = nullptr;
    int32_t jobSize_ = 0;
    bool hasJob_ = false;
    bool quit_ = false;
};

}  // namespace BroadCastPlugin
