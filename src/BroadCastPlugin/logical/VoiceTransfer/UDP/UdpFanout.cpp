#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpFanout.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "BroadCastPlugin/BroadcastLog.h"

namespace BroadCastPlugin {

CUdpFanout::~CUdpFanout() {
    if (helper_.joinable()) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        changed_.notify_all();
        helper_.join();
    }
}

void CUdpFanout::Send(const std::vector<IRtpBatchTransfer*>& transfers, const uint8_t* data, int32_t size) {
    if (transfers.empty() || data == nullptr || size <= 0) {
        return;
    }
    IRtpBatchTransfer* const* begin = transfers.data();
    IRtpBatchTransfer* const* end = begin + transfers.size();
    if (transfers.size() <= kHelperThreshold) {
        SendLane(own_, begin, end, data, size);
        return;
    }
    if (!helper_.joinable()) {
        try {
            helper_ = std::thread(&CUdpFanout::HelperLoop, this);
        } catch (const std::system_error&) {
            // No thread to be had: this one sends to all, as for a smaller group.
            SendLane(own_, begin, end, data, size);
            return;
        }
    }
    // The first half goes from here, at once; the second from the helper as soon as it wakes.
    IRtpBatchTransfer* const* middle = begin + transfers.size() / 2;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        jobBegin_ = middle;
        jobEnd_ = end;
        jobData_ = data;
        jobSize_ = size;
        hasJob_ = true;
    }
    changed_.notify_all();
    SendLane(own_, begin, middle, data, size);
    // The frame belongs to the caller: wait until the helper is done with it.
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !hasJob_; });
}

void CUdpFanout::HelperLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return hasJob_ || quit_; });
        if (quit_) {
            return;
        }
        IRtpBatchTransfer* const* begin = jobBegin_;
        IRtpBatchTransfer* const* end = jobEnd_;
        const uint8_t* data = jobData_;
        const int32_t size = jobSize_;
        lock.unlock();
        SendLane(helperLane_, begin, end, data, size);
        lock.lock();
        hasJob_ = false;
        changed_.notify_all();
    }
}

void CUdpFanout::SendLane(Lane& lane, IRtpBatchTransfer* const* begin, IRtpBatchTransfer* const* end,
                          const uint8_t* data, int32_t size) {
    if (!lane.socket.Valid()) {
        lane.socket.Reset(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!lane.socket.Valid()) {
            if (lane.failures.Count()) {
                BCAST_LOG(5, "[%s]Create udp socket failed, errno: %d.[%s(%d)]", errno);
            }
            return;
        }
    }
    const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(end - begin), kBatchSize);
    if (lane.messages.size() < count) {
        lane.messages.resize(count);
        lane.vectors.resize(2 * count);
        lane.headers.resize(kRtpHeaderSize * count);
        lane.destinations.resize(count);
    }
    while (begin != end) {
        // Stamp the headers of the next batch; closed transports drop out of it.
        std::size_t filled = 0;
        while (begin != end && filled < kBatchSize) {
            uint8_t* header = lane.headers.data() + kRtpHeaderSize * filled;
            sockaddr_in& destination = lane.destinations[filled];
            if ((*begin)->NextRtpPacket(header, static_cast<uint32_t>(size), destination)) {
                iovec* vector = &lane.vectors[2 * filled];
                vector[0].iov_base = header;
                vector[0].iov_len = kRtpHeaderSize;
                vector[1].iov_base = const_cast<uint8_t*>(data);  // sendmmsg only reads it
                vector[1].iov_len = static_cast<std::size_t>(size);
                msghdr& message = lane.messages[filled].msg_hdr;
                message = msghdr{};
                message.msg_name = &destination;
                message.msg_namelen = sizeof(destination);
                message.msg_iov = vector;
                message.msg_iovlen = 2;
                ++filled;
            }
            ++begin;
        }
        std::size_t sent = 0;
        while (sent < filled) {
            const int result = ::sendmmsg(lane.socket.Get(), lane.messages.data() + sent,
                                          static_cast<unsigned int>(filled - sent), 0);
            if (result > 0) {
                sent += static_cast<std::size_t>(result);
                continue;
            }
            if (result < 0 && errno == EINTR) {
                continue;
            }
            // The packet at `sent` failed: it is lost, as a failed sendto loses it; the rest go on.
            if (lane.failures.Count()) {
                BCAST_LOG(5, "[%s]Send data to ipspeaker failed.[%s(%d)]");
            }
            ++sent;
        }
    }
}

}  // namespace BroadCastPlugin
