#include "framework/media/zpsclient/TcpNoDelay.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <gst/rtsp/gstrtspurl.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace ZPSClient {

namespace {

struct Endpoint {
    int family = AF_UNSPEC;
    sockaddr_storage address{};
};

bool SameAddress(const sockaddr_storage& a, const sockaddr_storage& b) {
    if (a.ss_family != b.ss_family) {
        return false;
    }
    if (a.ss_family == AF_INET) {
        const auto& x = reinterpret_cast<const sockaddr_in&>(a);
        const auto& y = reinterpret_cast<const sockaddr_in&>(b);
        return x.sin_port == y.sin_port && x.sin_addr.s_addr == y.sin_addr.s_addr;
    }
    if (a.ss_family == AF_INET6) {
        const auto& x = reinterpret_cast<const sockaddr_in6&>(a);
        const auto& y = reinterpret_cast<const sockaddr_in6&>(b);
        return x.sin6_port == y.sin6_port &&
               std::memcmp(&x.sin6_addr, &y.sin6_addr, sizeof(x.sin6_addr)) == 0;
    }
    return false;
}

std::vector<sockaddr_storage> ResolveServer(const std::string& rtspUrl) {
    std::vector<sockaddr_storage> result;
    GstRTSPUrl* url = nullptr;
    if (gst_rtsp_url_parse(rtspUrl.c_str(), &url) != GST_RTSP_OK || url == nullptr || url->host == nullptr) {
        if (url != nullptr) {
            gst_rtsp_url_free(url);
        }
        return result;
    }
    const std::string host = url->host;
    const std::string port = std::to_string(url->port != 0 ? url->port : 554);
    gst_rtsp_url_free(url);

    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
        return result;
    }
    for (addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        sockaddr_storage address{};
        std::memcpy(&address, entry->ai_addr, entry->ai_addrlen);
        result.push_back(address);
    }
    freeaddrinfo(found);
    return result;
}

}  // namespace

int ConfigureServerConnections(const std::string& rtspUrl, unsigned userTimeoutMs) {
    const std::vector<sockaddr_storage> server = ResolveServer(rtspUrl);
    if (server.empty()) {
        return 0;
    }
    struct DirCloser {
        void operator()(DIR* dir) const { closedir(dir); }
    };
    std::unique_ptr<DIR, DirCloser> directory(opendir("/proc/self/fd"));
    if (!directory) {
        return 0;
    }
    int changed = 0;
    while (dirent* entry = readdir(directory.get())) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || fd == dirfd(directory.get())) {
            continue;
        }
        int type = 0;
        socklen_t length = sizeof(type);
        if (getsockopt(static_cast<int>(fd), SOL_SOCKET, SO_TYPE, &type, &length) != 0 ||
            type != SOCK_STREAM) {
            continue;
        }
        sockaddr_storage peer{};
        socklen_t peerLength = sizeof(peer);
        if (getpeername(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) {
            continue;
        }
        for (const auto& address : server) {
            if (SameAddress(peer, address)) {
                int on = 1;
                const bool noDelay =
                    setsockopt(static_cast<int>(fd), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0;
                const bool userTimeout = setsockopt(static_cast<int>(fd), IPPROTO_TCP, TCP_USER_TIMEOUT,
                                                    &userTimeoutMs, sizeof(userTimeoutMs)) == 0;
                if (noDelay && userTimeout) {
                    ++changed;
                }
                break;
            }
        }
    }
    return changed;
}

}  // namespace ZPSClient
