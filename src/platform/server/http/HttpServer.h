#pragma once
// The platform's HTTP(S) server: cpp-httplib's router and request parser on connections that this class
// owns, for two things the library does not do by itself:
// - bodies of GET requests: the platform's protocol sends JSON bodies with GET, and the library reads
//   bodies only for POST, PUT, PATCH and DELETE. The body is read here, right after the headers, so that
//   it never lingers on a kept-alive connection;
// - TLS on an OpenSSL context made from a certificate chain and key file.

#include <httplib.h>
#include <openssl/ssl.h>

#include <atomic>
#include <memory>
#include <string>

namespace Platform {

struct SslCtxDeleter {
    void operator()(SSL_CTX* ctx) const { SSL_CTX_free(ctx); }
};

class CHttpServer : public httplib::Server {
public:
    /// Largest request body accepted, in bytes.
    static constexpr size_t kMaxBodyBytes = 8 * 1024 * 1024;

    explicit CHttpServer(size_t workerThreads);
    ~CHttpServer() override;

    /// Serves HTTPS from now on. False with a reason when the files cannot be used.
    bool EnableTls(const std::string& certChainFile, const std::string& keyFile, std::string& error);
    bool IsTls() const { return static_cast<bool>(sslCtx_); }

    /// The request body: for GET, HEAD and OPTIONS the one read by this server, otherwise the library's.
    /// Only valid on the thread that handles the request.
    static const std::string& Body(const httplib::Request& request);

private:
    bool process_and_close_socket(socket_t sock) override;
    HandlerResponse ReadBodyOfBodilessMethod(const httplib::Request& request, httplib::Response& response);

    std::unique_ptr<SSL_CTX, SslCtxDeleter> sslCtx_;
};

}  // namespace Platform
