#include "platform/server/http/HttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "framework/base/FormatLog.h"

namespace Platform {

namespace {

struct SslDeleter {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
};

std::string OpenSslError() {
    unsigned long code = ERR_get_error();
    if (code == 0) {
        return "unknown TLS error";
    }
    char text[256];
    ERR_error_string_n(code, text, sizeof(text));
    ERR_clear_error();
    return text;
}

bool PollFor(int fd, short events, int timeoutMs) {
    pollfd p{fd, events, 0};
    for (;;) {
        int rc = ::poll(&p, 1, timeoutMs);
        if (rc < 0 && errno == EINTR) {
            continue;
        }
        return rc > 0 && (p.revents & (events | POLLHUP | POLLERR)) != 0;
    }
}

// One accepted connection, plain or TLS, with a read buffer: the library reads request lines byte by byte.
class CConnectionStream : public httplib::Stream {
public:
    CConnectionStream(int fd, SSL* ssl, int readTimeoutMs, int writeTimeoutMs)
        : fd_(fd),
          ssl_(ssl),
          readTimeoutMs_(readTimeoutMs),
          writeTimeoutMs_(writeTimeoutMs),
          buffer_(16 * 1024) {}

    bool is_readable() const override { return HasBuffered() || PollFor(fd_, POLLIN, readTimeoutMs_); }
    bool is_writable() const override { return PollFor(fd_, POLLOUT, writeTimeoutMs_); }

    ssize_t read(char* ptr, size_t size) override {
        if (begin_ == end_ && !Fill()) {
            return end_ == begin_ && eof_ ? 0 : -1;
        }
        size_t n = std::min(size, end_ - begin_);
        std::memcpy(ptr, buffer_.data() + begin_, n);
        begin_ += n;
        return static_cast<ssize_t>(n);
    }

    ssize_t write(const char* ptr, size_t size) override {
        if (size == 0) {
            return 0;
        }
        if (!PollFor(fd_, POLLOUT, writeTimeoutMs_)) {
            return -1;
        }
        if (ssl_ != nullptr) {
            int n = SSL_write(ssl_, ptr, static_cast<int>(std::min<size_t>(size, 1 << 30)));
            return n > 0 ? n : -1;
        }
        for (;;) {
            ssize_t n = ::send(fd_, ptr, size, MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            return n;
        }
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { Address(true, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { Address(false, ip, port); }
    socket_t socket() const override { return fd_; }

    /// Reads exactly `count` bytes into `out`.
    bool ReadExact(size_t count, std::string& out) {
        out.clear();
        out.reserve(count);
        char chunk[8192];
        while (out.size() < count) {
            ssize_t n = read(chunk, std::min(sizeof(chunk), count - out.size()));
            if (n <= 0) {
                return false;
            }
            out.append(chunk, static_cast<size_t>(n));
        }
        return true;
    }

    /// Waits up to the keep-alive time for the next request, giving up early when the server stops.
    bool WaitForNextRequest(time_t keepAliveSeconds, const std::atomic<socket_t>& listenSocket) {
        const int sliceMs = 100;
        long remainingMs = static_cast<long>(keepAliveSeconds) * 1000;
        while (listenSocket != INVALID_SOCKET) {
            if (HasBuffered() || PollFor(fd_, POLLIN, 0)) {
                return true;
            }
            if (remainingMs <= 0) {
                return false;
            }
            PollFor(fd_, POLLIN, sliceMs);
            remainingMs -= sliceMs;
        }
        return false;
    }

private:
    bool HasBuffered() const { return begin_ < end_ || (ssl_ != nullptr && SSL_pending(ssl_) > 0); }

    bool Fill() {
        begin_ = end_ = 0;
        if (eof_) {
            return false;
        }
        if (!(ssl_ != nullptr && SSL_pending(ssl_) > 0) && !PollFor(fd_, POLLIN, readTimeoutMs_)) {
            return false;
        }
        ssize_t n;
        if (ssl_ != nullptr) {
            n = SSL_read(ssl_, buffer_.data(), static_cast<int>(buffer_.size()));
        } else {
            do {
                n = ::recv(fd_, buffer_.data(), buffer_.size(), 0);
            } while (n < 0 && errno == EINTR);
        }
        if (n <= 0) {
            eof_ = true;
            return false;
        }
        end_ = static_cast<size_t>(n);
        return true;
    }

    void Address(bool remote, std::string& ip, int& port) const {
        sockaddr_storage addr{};
        socklen_t len = sizeof(addr);
        int rc = remote ? ::getpeername(fd_, reinterpret_cast<sockaddr*>(&addr), &len)
                        : ::getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len);
        ip.clear();
        port = 0;
        if (rc != 0) {
            return;
        }
        char host[64] = {0};
        if (addr.ss_family == AF_INET) {
            auto* in = reinterpret_cast<sockaddr_in*>(&addr);
            inet_ntop(AF_INET, &in->sin_addr, host, sizeof(host));
            port = ntohs(in->sin_port);
        } else if (addr.ss_family == AF_INET6) {
            auto* in6 = reinterpret_cast<sockaddr_in6*>(&addr);
            inet_ntop(AF_INET6, &in6->sin6_addr, host, sizeof(host));
            port = ntohs(in6->sin6_port);
        }
        ip = host;
    }

    int fd_;
    SSL* ssl_;
    int readTimeoutMs_;
    int writeTimeoutMs_;
    std::vector<char> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
    bool eof_ = false;
};

// The connection handled on this thread, the GET body read for its current request, and whether the
// connection must close after the response (its input can no longer be trusted to start a request).
thread_local CConnectionStream* t_stream = nullptr;
thread_local std::string t_body;
thread_local bool t_closeAfterResponse = false;

const std::string kEmpty;

}  // namespace

CHttpServer::CHttpServer(size_t workerThreads) {
    // The library owns and deletes the task queue it gets from this factory.
    new_task_queue = [workerThreads] {
        return std::make_unique<httplib::ThreadPool>(workerThreads).release();
    };
    set_payload_max_length(kMaxBodyBytes);
    set_keep_alive_max_count(100);
    // Headers and body go out in separate writes; without this, Nagle and delayed ACKs add ~40 ms a request.
    set_tcp_nodelay(true);
    // The library's default also sets SO_REUSEPORT, which would let a second server share the port
    // silently; address reuse alone keeps restarts quick.
    set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    });
    set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        return ReadBodyOfBodilessMethod(req, res);
    });
}

CHttpServer::~CHttpServer() = default;

bool CHttpServer::EnableTls(const std::string& certChainFile, const std::string& keyFile,
                            std::string& error) {
    std::unique_ptr<SSL_CTX, SslCtxDeleter> ctx(SSL_CTX_new(TLS_server_method()));
    if (!ctx) {
        error = "cannot create a TLS context: " + OpenSslError();
        return false;
    }
    SSL_CTX_set_min_proto_version(ctx.get(), TLS1_2_VERSION);
    if (SSL_CTX_use_certificate_chain_file(ctx.get(), certChainFile.c_str()) != 1) {
        error = "cannot use certificate " + certChainFile + ": " + OpenSslError();
        return false;
    }
    if (SSL_CTX_use_PrivateKey_file(ctx.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        error = "cannot use key " + keyFile + ": " + OpenSslError();
        return false;
    }
    if (SSL_CTX_check_private_key(ctx.get()) != 1) {
        error = "the key " + keyFile + " does not match the certificate: " + OpenSslError();
        return false;
    }
    sslCtx_ = std::move(ctx);
    return true;
}

const std::string& CHttpServer::Body(const httplib::Request& request) {
    if (request.method == "GET" || request.method == "HEAD" || request.method == "OPTIONS") {
        return t_stream != nullptr ? t_body : kEmpty;
    }
    return request.body;
}

httplib::Server::HandlerResponse CHttpServer::ReadBodyOfBodilessMethod(const httplib::Request& req,
                                                                       httplib::Response& res) {
    t_body.clear();
    if (t_stream == nullptr) {
        return HandlerResponse::Unhandled;
    }
    if (req.method != "GET" && req.method != "HEAD" && req.method != "OPTIONS") {
        // A request with neither Content-Length nor Transfer-Encoding has no body, but the library would
        // wait for one until the read time-out. Saying so lets it read nothing. The request object is the
        // library's own, not a constant, so the header may be added here.
        if (!req.has_header("Content-Length") && !req.has_header("Transfer-Encoding")) {
            const_cast<httplib::Request&>(req).set_header("Content-Length", "0");
        }
        return HandlerResponse::Unhandled;
    }
    if (req.has_header("Transfer-Encoding")) {
        // A chunked body of a GET cannot be skipped reliably: refuse it and drop the connection.
        t_closeAfterResponse = true;
        res.status = 411;
        res.set_content("a GET body needs a Content-Length\n", "text/plain");
        return HandlerResponse::Handled;
    }
    if (!req.has_header("Content-Length")) {
        return HandlerResponse::Unhandled;
    }
    const std::string lengthText = req.get_header_value("Content-Length");
    char* end = nullptr;
    errno = 0;
    unsigned long long length = std::strtoull(lengthText.c_str(), &end, 10);
    if (lengthText.empty() || errno != 0 || end == nullptr || *end != '\0') {
        t_closeAfterResponse = true;
        res.status = 400;
        res.set_content("bad Content-Length\n", "text/plain");
        return HandlerResponse::Handled;
    }
    if (length > kMaxBodyBytes) {
        t_closeAfterResponse = true;
        res.status = 413;
        return HandlerResponse::Handled;
    }
    if (!t_stream->ReadExact(static_cast<size_t>(length), t_body)) {
        t_closeAfterResponse = true;
        res.status = 400;
        res.set_content("the request body ended early\n", "text/plain");
        return HandlerResponse::Handled;
    }
    return HandlerResponse::Unhandled;
}

bool CHttpServer::process_and_close_socket(socket_t sock) {
    std::unique_ptr<SSL, SslDeleter> ssl;
    const int readTimeoutMs = static_cast<int>(read_timeout_sec_ * 1000 + read_timeout_usec_ / 1000);
    const int writeTimeoutMs = static_cast<int>(write_timeout_sec_ * 1000 + write_timeout_usec_ / 1000);
    bool ok = true;
    if (sslCtx_) {
        // Bounds the blocking handshake and record reads when a peer goes silent.
        timeval tv{static_cast<time_t>(readTimeoutMs / 1000),
                   static_cast<suseconds_t>((readTimeoutMs % 1000) * 1000)};
        setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv));
        timeval wtv{static_cast<time_t>(writeTimeoutMs / 1000),
                    static_cast<suseconds_t>((writeTimeoutMs % 1000) * 1000)};
        setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &wtv, sizeof(wtv));
        ssl.reset(SSL_new(sslCtx_.get()));
        if (!ssl || SSL_set_fd(ssl.get(), sock) != 1 || SSL_accept(ssl.get()) != 1) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]TLS handshake failed: %s[%s(%d)]",
                    OpenSslError().c_str());
            ok = false;
        }
    }
    bool result = false;
    if (ok) {
        CConnectionStream stream(sock, ssl.get(), readTimeoutMs, writeTimeoutMs);
        t_stream = &stream;
        size_t remaining = keep_alive_max_count_;
        while (remaining > 0 && stream.WaitForNextRequest(keep_alive_timeout_sec_, svr_sock_)) {
            t_closeAfterResponse = false;
            bool connectionClosed = false;
            result = process_request(stream, remaining == 1, connectionClosed, nullptr);
            if (!result || connectionClosed || t_closeAfterResponse) {
                break;
            }
            --remaining;
        }
        t_stream = nullptr;
        t_body.clear();
        t_body.shrink_to_fit();
        if (ssl) {
            SSL_shutdown(ssl.get());
        }
    }
    ssl.reset();
    ::shutdown(sock, SHUT_RDWR);
    ::close(sock);
    return result;
}

}  // namespace Platform
