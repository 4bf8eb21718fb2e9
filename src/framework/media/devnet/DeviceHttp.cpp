#include "framework/media/devnet/DeviceHttp.h"

#include <mutex>

#include "framework/media/devnet/DevNet.h"

namespace DevNet {

namespace {

size_t CollectBody(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

}  // namespace

std::string DeviceEndpoint::Url(const std::string& path) const {
    const bool ipv6 = address.find(':') != std::string::npos;
    return std::string("http://") + (ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(port) +
           path;
}

void EnsureCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

EasyPtr NewDeviceHandle(const DeviceEndpoint& endpoint) {
    EnsureCurl();
    EasyPtr easy(curl_easy_init());
    if (!easy) {
        return easy;
    }
    curl_easy_setopt(easy.get(), CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_DIGEST));
    curl_easy_setopt(easy.get(), CURLOPT_USERNAME, endpoint.userName.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_PASSWORD, endpoint.password.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_CONNECTTIMEOUT_MS, kConnectTimeoutMs);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT_MS, kRequestTimeoutMs);
    curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_TCP_KEEPALIVE, 1L);
    return easy;
}

HttpResult PerformRequest(CURL* easy, const std::string& method, const std::string& url,
                          const std::string& body, const char* contentType) {
    HttpResult result;
    SlistPtr headers;
    if (contentType != nullptr) {
        AppendHeader(headers, (std::string("Content-Type: ") + contentType).c_str());
    }
    AppendHeader(headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_UPLOAD, 0L);
    if (method.empty() || method == "GET") {
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, nullptr);
    } else {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method == "POST" ? nullptr : method.c_str());
    }
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CollectBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &result.body);
    result.code = curl_easy_perform(easy);
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &result.status);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, nullptr);
    return result;
}

uint32_t ErrorForResult(const HttpResult& result) {
    switch (result.code) {
        case CURLE_OK:
            break;
        case CURLE_COULDNT_CONNECT:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_URL_MALFORMAT:
            return DEVNET_NETWORK_FAIL_CONNECT;
        case CURLE_OPERATION_TIMEDOUT:
            return DEVNET_NETWORK_RECV_TIMEOUT;
        case CURLE_SEND_ERROR:
        case CURLE_ABORTED_BY_CALLBACK:
            return DEVNET_NETWORK_SEND_ERROR;
        default:
            return DEVNET_NETWORK_RECV_ERROR;
    }
    if (result.status >= 200 && result.status < 300) {
        return DEVNET_NOERROR;
    }
    switch (result.status) {
        case 401:
            return DEVNET_PASSWORD_ERROR;
        case 403:
            return DEVNET_NOENOUGHPRI;
        case 404:
        case 405:
        case 501:
            return DEVNET_NOSUPPORT;
        case 409:
            return DEVNET_DEVICE_BUSY;
        default:
            return DEVNET_DEVICE_ERROR;
    }
}

}  // namespace DevNet
