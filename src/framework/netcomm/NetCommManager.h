#pragma once
// Synchronous requests to the platform server of the current login session.

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "framework/base/ErrorCode.h"

namespace NetworkCommunication {

/// Module numbers of transport errors.
/// code: the libcurl result (7 cannot connect, 28 time-out, 60 certificate...)
constexpr int kModuleTransport = 11;
/// code: the HTTP status of a refused request (401, 404, 500...)
constexpr int kModuleHttp = 12;

/// A request: method, path on the platform, and body.
class CClientSendInfo {
public:
    void SetVal_Method(const std::string& method) { method_ = method; }
    const std::string& GetVal_Method() const { return method_; }
    /// The path only ("/DXAPI/..."); the address comes from the login session.
    void SetVal_URL(const std::string& url) { url_ = url; }
    const std::string& GetVal_URL() const { return url_; }
    void SetVal_send_data(const std::string& data) { sendData_ = data; }
    const std::string& GetVal_send_data() const { return sendData_; }
    /// A body passed in the request-data slot; sent like the ordinary body (it wins when both are set).
    void SetVal_Request_Data(const std::string& data) { requestData_ = data; }
    const std::string& GetVal_Request_Data() const { return requestData_; }
    /// Request pattern of the original network library; kept for callers, it does not change the request.
    void SetVal_Pattern(int pattern) { pattern_ = pattern; }
    int GetVal_Pattern() const { return pattern_; }

private:
    std::string method_ = "GET";
    std::string url_;
    std::string sendData_;
    std::string requestData_;
    int pattern_ = 0;
};

/// The answer: transport error (success when the request went through) and the response body.
class CClientRecvInfo {
public:
    const Tal::Base::Error::ErrorCode& GetVal_Error_code() const { return error_; }
    void SetVal_Error_code(const Tal::Base::Error::ErrorCode& error) { error_ = error; }
    const std::string& GetVal_Receive_Data() const { return data_; }
    void SetVal_Receive_Data(const std::string& data) { data_ = data; }
    int GetVal_HttpStatus() const { return httpStatus_; }
    void SetVal_HttpStatus(int status) { httpStatus_ = status; }

private:
    Tal::Base::Error::ErrorCode error_;
    std::string data_;
    int httpStatus_ = 0;
};

/// Where the platform is and how requests authenticate.
struct ServerSession {
    std::string scheme = "http";  ///< "http" or "https"
    std::string host;
    int port = 0;
    std::string token;   ///< sent as "Authorization: Bearer <token>" when not empty
    std::string caFile;  ///< certificate authorities for https; empty: the system's
    bool IsValid() const { return !host.empty() && port > 0; }
    std::string BaseUrl() const;
};

class CNetCommManager {
public:
    static CNetCommManager* Instance();

    void SetSession(const ServerSession& session);
    ServerSession GetSession() const;
    void ClearSession();

    /// Sends a request and waits for the answer. `timeoutMs` 0 takes the time-out of the network level.
    /// False when there is no session, the transport fails or the HTTP status is not 2xx; the reason is in
    /// `recv`'s error code (modules kModuleTransport and kModuleHttp) and the body, if any, is kept.
    bool ClientSynSend(CClientRecvInfo& recv, const CClientSendInfo& send, int timeoutMs);

    /// Sends an absolute URL with extra headers (used by the framework's own clients).
    bool SendTo(const std::string& url, const CClientSendInfo& send,
                const std::map<std::string, std::string>& headers, int timeoutMs,
                CClientRecvInfo& recv) const;

    /// Sends a request to another server than the session's (a login before the session exists, or one
    /// that renews it): address, token and CA file come from `server`. Results as ClientSynSend.
    bool SendToServer(const ServerSession& server, const CClientSendInfo& send, int timeoutMs,
                      CClientRecvInfo& recv) const;

    /// Takes the place of the network for every request while set (empty: the network again): it gets the
    /// absolute URL and the request, fills `recv` as the network would and says whether the request
    /// succeeded. For harnesses that feed the module answers without a server.
    using Transport =
        std::function<bool(const std::string& url, const CClientSendInfo& send, CClientRecvInfo& recv)>;
    void SetTransport(Transport transport);
    /// Request handles kept between requests (at most eight, as many as ran at once). Each holds its open
    /// connection and libcurl's wake-up descriptors, so a process's descriptors grow with this count.
    static std::size_t IdleRequestHandles();

private:
    bool Perform(const std::string& url, const CClientSendInfo& send,
                 const std::map<std::string, std::string>& headers, int timeoutMs, const std::string& caFile,
                 CClientRecvInfo& recv) const;

    mutable std::mutex mutex_;
    ServerSession session_;
    Transport transport_;
};

}  // namespace NetworkCommunication
