#pragma once
// HTTP exchanges with one device: base address, digest credentials, time-outs and error mapping.

#include <cstdint>
#include <string>

#include "framework/media/devnet/CurlHandles.h"

namespace DevNet {

/// Where a device is and how to authenticate.
struct DeviceEndpoint {
    std::string address;
    uint16_t port = 80;
    std::string userName;
    std::string password;

    /// "http://address:port" + path (path begins with a slash).
    std::string Url(const std::string& path) const;
};

struct HttpResult {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body;

    bool Ok() const { return code == CURLE_OK && status >= 200 && status < 300; }
};

/// Time-outs of short requests (login, configuration, opening and closing a talk).
constexpr long kConnectTimeoutMs = 5000;
constexpr long kRequestTimeoutMs = 10000;

/// Starts libcurl once per process.
void EnsureCurl();

/// A new easy handle with the endpoint's digest credentials and the short time-outs set.
EasyPtr NewDeviceHandle(const DeviceEndpoint& endpoint);

/// Runs one request on `easy` (which keeps its digest state for later requests). An empty method means GET.
HttpResult PerformRequest(CURL* easy, const std::string& method, const std::string& url,
                          const std::string& body, const char* contentType);

/// The DevNetError for a failed exchange: transport errors by curl code, device answers by HTTP status.
uint32_t ErrorForResult(const HttpResult& result);

}  // namespace DevNet
