#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpTransfer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/base/ErrorCode.h"
#include "framework/netcomm/NetCommManager.h"

namespace BroadCastPlugin {

using Tal::Base::Error::ErrorCode;

uint8_t RtpPayloadTypeForEncodeType(int32_t encodeType) {
    switch (encodeType) {
        case kEncodeG722:
            return 9;
        case kEncodeG711U:
            return 0;
        case kEncodeG711A:
            return 8;
        default:
            return 9;
    }
}

CUdpTransfer::~CUdpTransfer() {
    Uninit();
}

bool CUdpTransfer::Init(const std::string& ipAddress, uint16_t port, int32_t encodeType) {
    auto context = std::make_unique<UdpContext>();
    context->socket.Reset(::socket(AF_INET, SOCK_DGRAM, 0));
    if (!context->socket.Valid()) {
        BCAST_LOG(5, "[%s]Create udp socket failed, errno: %d.[%s(%d)]", errno);
    }
    context->address = ::inet_addr(ipAddress.c_str());
    if (context->address == INADDR_NONE) {
        BCAST_LOG(5, "[%s]Invalid ipspeaker address: %s.[%s(%d)]", ipAddress.c_str());
    }
    context->port = htons(port);
    rtp_init(&context->rtp, RtpPayloadTypeForEncodeType(encodeType));
    const bool multicast = IsMulticastGroup(ipAddress);
    if (multicast && context->socket.Valid()) {
        const std::string platformHost = NetworkCommunication::CNetCommManager::Instance()->GetSession().host;
        const std::string egress = RouteMulticastToward(context->socket.Get(), platformHost);
        BCAST_LOG(3, "[%s]Multicast group %s:%d leaves by %s.[%s(%d)]", ipAddress.c_str(),
                  static_cast<int>(port), egress.empty() ? "the system's route" : egress.c_str());
    }
    multicast_ = multicast;

    std::lock_guard<std::mutex> lock(mutex_);
    context_ = std::move(context);
    return true;
}

void CUdpTransfer::Uninit() {
    std::unique_ptr<UdpContext> context;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        context = std::move(context_);
    }
    // The socket closes with the context.
}

bool CUdpTransfer::SendVoice(const uint8_t* data, int32_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!context_) {
        BCAST_LOG(5, "[%s]Send data to ipspeaker failed.[%s(%d)]");
        return true;
    }
    uint8_t packet[kRtpPacketBufferSize] = {};
    int length = rtp_send_buf(&context_->rtp, packet, sizeof(packet), data, size);
    if (length < 0) {
        Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                 Tal::Base::Error::kModuleFramework,
                                                 Tal::Base::Error::kCodeInvalidInput));
        BCAST_LOG(5, "[%s]Frame of %d bytes does not fit an rtp packet (at most %zu).[%s(%d)]", size,
                  kRtpMaxPayload);
        return false;
    }
    sockaddr_in destination{};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = context_->address;
    destination.sin_port = context_->port;
    ssize_t sent = ::sendto(context_->socket.Get(), packet, static_cast<size_t>(length), 0,
                            reinterpret_cast<const sockaddr*>(&destination), sizeof(destination));
    if (sent < 0 && context_->failures.Count()) {
        BCAST_LOG(5, "[%s]Send data to ipspeaker failed.[%s(%d)]");
    }
    return true;
}

bool CUdpTransfer::NextRtpPacket(uint8_t* header, uint32_t payloadSize, sockaddr_in& destination) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!context_) {
        return false;
    }
    if (payloadSize > kRtpMaxPayload) {
        Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                 Tal::Base::Error::kModuleFramework,
                                                 Tal::Base::Error::kCodeInvalidInput));
        BCAST_LOG(5, "[%s]Frame of %d bytes does not fit an rtp packet (at most %zu).[%s(%d)]",
                  static_cast<int>(payloadSize), kRtpMaxPayload);
        return false;
    }
    rtp_write_header(&context_->rtp, header, payloadSize);
    destination = sockaddr_in{};
    destination.sin_family = AF_INET;
    destination.sin_addr.s_addr = context_->address;
    destination.sin_port = context_->port;
    return true;
}

}  // namespace BroadCastPlugin
