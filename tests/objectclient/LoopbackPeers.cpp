#include "LoopbackPeers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace ObjectClientTest {

namespace {

// A socket bound to 127.0.0.1 on a free port; -1 on failure.
int BindLoopback(int& port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(fd);
        return -1;
    }
    port = ntohs(address.sin_port);
    return fd;
}

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string Trim(const std::string& text) {
    std::size_t start = text.find_first_not_of(" \t");
    std::size_t end = text.find_last_not_of(" \t\r");
    return start == std::string::npos ? std::string() : text.substr(start, end - start + 1);
}

bool SendAll(int fd, const std::string& data) {
    std::size_t sent = 0;
    while (sent < data.size()) {
        ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

// Reads more of a connection into `buffer`; false at the end, on an error or after 5 s of silence.
bool ReadMore(int fd, std::string& buffer) {
    pollfd ready{fd, POLLIN, 0};
    if (::poll(&ready, 1, 5000) <= 0) {
        return false;
    }
    char chunk[16384];
    ssize_t n = ::recv(fd, chunk, sizeof(chunk), 0);
    if (n <= 0) {
        return false;
    }
    buffer.append(chunk, static_cast<std::size_t>(n));
    return true;
}

}  // namespace

std::string CapturedRequest::Header(const std::string& name) const {
    const std::string wanted = Lower(name);
    for (const auto& header : headers) {
        if (Lower(header.first) == wanted) {
            return header.second;
        }
    }
    return {};
}

bool CCaptureServer::Start() {
    listenFd_ = BindLoopback(port_);
    if (listenFd_ < 0 || ::listen(listenFd_, 16) != 0) {
        return false;
    }
    stop_ = false;
    thread_ = std::thread([this] { Serve(); });
    return true;
}

void CCaptureServer::Stop() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
    if (listenFd_ >= 0) {
        ::close(listenFd_);
        listenFd_ = -1;
    }
}

std::vector<CapturedRequest> CCaptureServer::Requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void CCaptureServer::Serve() {
    while (!stop_) {
        pollfd ready{listenFd_, POLLIN, 0};
        if (::poll(&ready, 1, 50) <= 0) {
            continue;
        }
        int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            HandleConnection(fd);
            ::close(fd);
        }
    }
}

void CCaptureServer::HandleConnection(int fd) {
    std::string data;
    std::size_t headEnd = std::string::npos;
    while ((headEnd = data.find("\r\n\r\n")) == std::string::npos) {
        if (!ReadMore(fd, data)) {
            return;
        }
    }
    CapturedRequest request;
    std::size_t lineEnd = data.find("\r\n");
    const std::string requestLine = data.substr(0, lineEnd);
    std::size_t firstSpace = requestLine.find(' ');
    std::size_t secondSpace = requestLine.find(' ', firstSpace + 1);
    request.method = requestLine.substr(0, firstSpace);
    request.target = requestLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
    std::size_t at = lineEnd + 2;
    while (at < headEnd) {
        std::size_t end = data.find("\r\n", at);
        const std::string line = data.substr(at, end - at);
        std::size_t colon = line.find(':');
        if (colon != std::string::npos) {
            request.headers.emplace_back(line.substr(0, colon), Trim(line.substr(colon + 1)));
        }
        at = end + 2;
    }
    data.erase(0, headEnd + 4);
    const std::size_t length =
        static_cast<std::size_t>(std::strtoull(request.Header("Content-Length").c_str(), nullptr, 10));
    if (length > 0 && Lower(request.Header("Expect")) == "100-continue") {
        SendAll(fd, "HTTP/1.1 100 Continue\r\n\r\n");
    }
    while (data.size() < length && ReadMore(fd, data)) {
    }
    request.body = data.substr(0, length);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
    }
    SendAll(fd, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

bool CSilentListener::Start() {
    fd_ = BindLoopback(port_);
    return fd_ >= 0 && ::listen(fd_, 16) == 0;
}

CSilentListener::~CSilentListener() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

int ClosedPort() {
    int port = 0;
    int fd = BindLoopback(port);
    if (fd < 0) {
        return 0;
    }
    ::close(fd);
    return port;
}

}  // namespace ObjectClientTest
