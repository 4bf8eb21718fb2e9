#include "FakePushServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QByteArray>
#include <QCryptographicHash>

#include <cstring>
#include <list>

namespace ClientNetTest {

namespace {

constexpr char kWebsocketGuid[] = "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";

// A server frame: unmasked, short payload.
std::string ServerFrame(int opcode, const std::string& payload) {
    std::string frame;
    frame += static_cast<char>(0x80 | opcode);
    frame += static_cast<char>(payload.size());
    return frame + payload;
}

void SendAll(int fd, const std::string& data) {
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return;
        }
        sent += static_cast<size_t>(n);
    }
}

std::string HeaderValue(const std::string& head, const std::string& name) {
    size_t at = 0;
    while ((at = head.find("\r\n", at)) != std::string::npos) {
        at += 2;
        if (strncasecmp(head.c_str() + at, name.c_str(), name.size()) == 0 && head[at + name.size()] == ':') {
            size_t start = at + name.size() + 1;
            while (start < head.size() && head[start] == ' ') {
                ++start;
            }
            return head.substr(start, head.find("\r\n", start) - start);
        }
    }
    return std::string();
}

}  // namespace

CFakePushServer::~CFakePushServer() {
    stop_ = true;
    if (wakePipe_[1] >= 0) {
        const char byte = 0;
        (void)::write(wakePipe_[1], &byte, 1);
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    for (int fd : {listenFd_, wakePipe_[0], wakePipe_[1]}) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool CFakePushServer::Start() {
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof(address);
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listenFd_, 16) != 0 ||
        ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe2(wakePipe_, O_CLOEXEC) != 0) {
        error_ = std::string("cannot listen on a loopback port: ") + std::strerror(errno);
        return false;
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Run(); });
    return true;
}

std::vector<CFakePushServer::Frame> CFakePushServer::Received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

std::string CFakePushServer::FirstRequest() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return firstRequest_;
}

void CFakePushServer::Run() {
    std::list<Client> clients;
    while (!stop_) {
        std::vector<pollfd> fds = {{wakePipe_[0], POLLIN, 0}, {listenFd_, POLLIN, 0}};
        for (const Client& c : clients) {
            fds.push_back({c.fd, POLLIN, 0});
        }
        if (::poll(fds.data(), fds.size(), 100) <= 0) {
            continue;
        }
        if (fds[0].revents != 0) {
            break;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd >= 0) {
                ++connections_;
                clients.push_back(Client{fd, std::string(), false});
            }
        }
        size_t index = 2;
        for (auto it = clients.begin(); it != clients.end(); ++index) {
            const bool readable = index < fds.size() && fds[index].fd == it->fd && fds[index].revents != 0;
            if (readable) {
                char data[4096];
                const ssize_t n = ::recv(it->fd, data, sizeof(data), 0);
                if (n <= 0) {
                    ::close(it->fd);
                    it = clients.erase(it);
                    continue;
                }
                it->buffer.append(data, static_cast<size_t>(n));
                OnReadable(*it);
            }
            ++it;
        }
    }
    for (Client& c : clients) {
        ::close(c.fd);
    }
}

void CFakePushServer::OnReadable(Client& client) {
    if (mode_ == Mode::kSilent) {
        return;
    }
    if (!client.upgraded) {
        const size_t end = client.buffer.find("\r\n\r\n");
        if (end == std::string::npos) {
            return;
        }
        const std::string head = client.buffer.substr(0, end + 4);
        client.buffer.erase(0, end + 4);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (firstRequest_.empty()) {
                firstRequest_ = head;
            }
        }
        const QByteArray accept =
            QCryptographicHash::hash(
                QByteArray::fromStdString(HeaderValue(head, "Sec-WebSocket-Key") + kWebsocketGuid),
                QCryptographicHash::Sha1)
                .toBase64();
        SendAll(client.fd,
                "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                "Sec-WebSocket-Accept: " +
                    accept.toStdString() + "\r\n\r\n");
        client.upgraded = true;
        SendAll(client.fd, ServerFrame(9, "hi"));
        SendAll(client.fd, ServerFrame(1, "{\"Action\":\"Ping\"}"));
    }
    ParseFrames(client);
}

// Client frames are masked: [FIN|opcode][MASK|len (126: 16-bit, 127: 64-bit)][mask x4][payload].
void CFakePushServer::ParseFrames(Client& client) {
    std::string& b = client.buffer;
    while (b.size() >= 2) {
        const int opcode = static_cast<unsigned char>(b[0]) & 0x0F;
        uint64_t length = static_cast<unsigned char>(b[1]) & 0x7F;
        size_t at = 2;
        if (length == 126) {
            if (b.size() < 4) {
                return;
            }
            length = (static_cast<unsigned char>(b[2]) << 8) | static_cast<unsigned char>(b[3]);
            at = 4;
        } else if (length == 127) {
            if (b.size() < 10) {
                return;
            }
            length = 0;
            for (int i = 0; i < 8; ++i) {
                length = (length << 8) | static_cast<unsigned char>(b[2 + i]);
            }
            at = 10;
        }
        const bool masked = (static_cast<unsigned char>(b[1]) & 0x80) != 0;
        const size_t maskAt = at;
        at += masked ? 4 : 0;
        if (b.size() < at + length) {
            return;
        }
        std::string payload = b.substr(at, length);
        if (masked) {
            for (size_t i = 0; i < payload.size(); ++i) {
                payload[i] = static_cast<char>(payload[i] ^ b[maskAt + i % 4]);
            }
        }
        b.erase(0, at + length);
        std::lock_guard<std::mutex> lock(mutex_);
        received_.push_back({opcode, payload});
    }
}

}  // namespace ClientNetTest
