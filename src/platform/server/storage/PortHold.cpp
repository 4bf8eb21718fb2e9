#include "platform/server/storage/PortHold.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Platform {

namespace {

// A socket bound to address:port (0: any free port); invalid with errno set when that fails.
Tal::Base::CUniqueFd BindTcp(const std::string& address, int port, bool reuse) {
    sockaddr_storage storage{};
    socklen_t length = 0;
    int family = AF_INET;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (::inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(static_cast<uint16_t>(port));
        length = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        family = AF_INET6;
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(static_cast<uint16_t>(port));
        length = sizeof(sockaddr_in6);
    } else {
        errno = EINVAL;
        return Tal::Base::CUniqueFd();
    }
    Tal::Base::CUniqueFd fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.Valid()) {
        return fd;
    }
    if (reuse) {
        const int on = 1;
        ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    if (::bind(fd.Get(), reinterpret_cast<sockaddr*>(&storage), length) != 0) {
        const int saved = errno;
        fd.Reset();
        errno = saved;
    }
    return fd;
}

}  // namespace

bool CPortHold::Take(const std::string& address, int port, std::string& error) {
    // Without SO_REUSEADDR nobody else can bind the port, not even with that option (as node does). When
    // connections the store closed last are still in TIME_WAIT on it, only a bind with the option works,
    // which keeps the port from programs that are given free ports, though not from one that asks for it.
    socket_ = BindTcp(address, port, false);
    if (!socket_.Valid() && errno == EADDRINUSE) {
        socket_ = BindTcp(address, port, true);
    }
    if (!socket_.Valid()) {
        error = "cannot keep " + address + ":" + std::to_string(port) + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

bool IsLocalAddress(const std::string& address) {
    return BindTcp(address, 0, false).Valid();
}

}  // namespace Platform
