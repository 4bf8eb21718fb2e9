#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace BroadCastPlugin {

void CUniqueSocket::Reset(int fd) {
    if (handle_ >= 0) {
        ::close(handle_);
    }
    handle_ = fd;
}

namespace {

/// The local address the kernel picks to reach `host`: a UDP socket connected to it (which sends nothing).
bool LocalAddressToward(const std::string& host, in_addr& local) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (host.empty() || ::getaddrinfo(host.c_str(), "9", &hints, &found) != 0 || found == nullptr) {
        return false;
    }
    std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> results(found, &::freeaddrinfo);
    CUniqueSocket probe(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    socklen_t length = sizeof(address);
    if (!probe.Valid() || ::connect(probe.Get(), found->ai_addr, found->ai_addrlen) != 0 ||
        ::getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return false;
    }
    local = address.sin_addr;
    return true;
}

}  // namespace

std::string RouteMulticastToward(int fd, const std::string& host) {
    const int ttl = kMulticastTtl;
    ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &ttl, sizeof(ttl));
    in_addr local{};
    if (!LocalAddressToward(host, local) ||
        ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &local, sizeof(local)) != 0) {
        return "";
    }
    char text[INET_ADDRSTRLEN] = {};
    ::inet_ntop(AF_INET, &local, text, sizeof(text));
    return text;
}

}  // namespace BroadCastPlugin
