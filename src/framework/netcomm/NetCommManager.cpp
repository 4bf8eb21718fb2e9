#include "framework/netcomm/NetCommManager.h"

#include <curl/curl.h>

#include <memory>
#include <utility>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/NetlibWrapper.h"

namespace NetworkCommunication {

namespace {

using Tal::Base::Error::ErrorCode;

struct CurlGlobal {
    CurlGlobal() { curl_global_init(CURL_GLOBAL_DEFAULT); }
    ~CurlGlobal() { curl_global_cleanup(); }
};

void EnsureCurlGlobal() {
    static CurlGlobal global;
}

struct EasyDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
using EasyPtr = std::unique_ptr<CURL, EasyDeleter>;

// Idle easy handles between requests. A handle keeps its open connections (HTTP/1.1 keep-alive), its DNS
// cache and its TLS session ids across curl_easy_reset, so a request that takes a used handle skips the
// TCP and TLS handshakes. A handle serves one request at a time; the lock only guards the list.
class CEasyPool {
public:
    EasyPtr Take() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!idle_.empty()) {
                EasyPtr easy = std::move(idle_.back());
                idle_.pop_back();
                return easy;
            }
        }
        return EasyPtr(curl_easy_init());
    }

    // Back to the pool with its options cleared (nothing points into the finished request any more); beyond
    // kMaxIdle handles the handle and its connections close.
    void Give(EasyPtr easy) {
        curl_easy_reset(easy.get());
        std::lock_guard<std::mutex> lock(mutex_);
        if (idle_.size() < kMaxIdle) {
            idle_.push_back(std::move(easy));
        }
    }

    std::size_t IdleCount() {
        std::lock_guard<std::mutex> lock(mutex_);
        return idle_.size();
    }

private:
    static constexpr std::size_t kMaxIdle = 8;
    std::mutex mutex_;
    std::vector<EasyPtr> idle_;
};

// Made after libcurl's global state, so it is destroyed (its handles cleaned up) before that state.
CEasyPool& EasyPool() {
    EnsureCurlGlobal();
    static CEasyPool pool;
    return pool;
}

// Returns the handle to the pool when the request is over, whichever way it ends.
class CPooledEasy {
public:
    CPooledEasy() : easy_(EasyPool().Take()) {}
    ~CPooledEasy() {
        if (easy_) {
            EasyPool().Give(std::move(easy_));
        }
    }
    CPooledEasy(const CPooledEasy&) = delete;
    CPooledEasy& operator=(const CPooledEasy&) = delete;
    CURL* get() const { return easy_.get(); }
    explicit operator bool() const { return static_cast<bool>(easy_); }

private:
    EasyPtr easy_;
};
struct SlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

size_t AppendBody(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

}  // namespace

std::string ServerSession::BaseUrl() const {
    std::string h = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    return scheme + "://" + h + ":" + std::to_string(port);
}

CNetCommManager* CNetCommManager::Instance() {
    return Tal::Base::CSingleton<CNetCommManager>::Instance();
}

void CNetCommManager::SetSession(const ServerSession& session) {
    std::lock_guard<std::mutex> lock(mutex_);
    session_ = session;
}

ServerSession CNetCommManager::GetSession() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return session_;
}

void CNetCommManager::ClearSession() {
    std::lock_guard<std::mutex> lock(mutex_);
    session_ = ServerSession();
}

std::size_t CNetCommManager::IdleRequestHandles() {
    return EasyPool().IdleCount();
}

void CNetCommManager::SetTransport(Transport transport) {
    std::lock_guard<std::mutex> lock(mutex_);
    transport_ = std::move(transport);
}

bool CNetCommManager::ClientSynSend(CClientRecvInfo& recv, const CClientSendInfo& send, int timeoutMs) {
    ServerSession session = GetSession();
    if (!session.IsValid()) {
        recv.SetVal_Error_code(
            ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleTransport, CURLE_COULDNT_CONNECT));
        recv.SetVal_Receive_Data("");
        TAL_LOG(5, "NetComm", "[%s]No platform session, request %s %s not sent.[%s(%d)]",
                send.GetVal_Method().c_str(), send.GetVal_URL().c_str());
        return false;
    }
    return SendToServer(session, send, timeoutMs, recv);
}

bool CNetCommManager::SendToServer(const ServerSession& server, const CClientSendInfo& send, int timeoutMs,
                                   CClientRecvInfo& recv) const {
    std::map<std::string, std::string> headers;
    if (!server.token.empty()) {
        headers["Authorization"] = "Bearer " + server.token;
    }
    return Perform(server.BaseUrl() + send.GetVal_URL(), send, headers, timeoutMs, server.caFile, recv);
}

bool CNetCommManager::SendTo(const std::string& url, const CClientSendInfo& send,
                             const std::map<std::string, std::string>& headers, int timeoutMs,
                             CClientRecvInfo& recv) const {
    return Perform(url, send, headers, timeoutMs, GetSession().caFile, recv);
}

bool CNetCommManager::Perform(const std::string& url, const CClientSendInfo& send,
                              const std::map<std::string, std::string>& headers, int timeoutMs,
                              const std::string& caFile, CClientRecvInfo& recv) const {
    recv.SetVal_Receive_Data("");
    recv.SetVal_HttpStatus(0);
    Transport transport;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        transport = transport_;
    }
    if (transport) {
        return transport(url, send, recv);
    }
    CPooledEasy curl;
    if (!curl) {
        recv.SetVal_Error_code(
            ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleTransport, CURLE_FAILED_INIT));
        return false;
    }
    const std::string& body =
        send.GetVal_Request_Data().empty() ? send.GetVal_send_data() : send.GetVal_Request_Data();
    const long timeout = timeoutMs > 0 ? timeoutMs : NetlibWrapper::GetRequestTimeoutMs();
    std::string response;

    std::unique_ptr<curl_slist, SlistDeleter> list;
    auto addHeader = [&list](const std::string& line) {
        curl_slist* grown = curl_slist_append(list.get(), line.c_str());
        if (grown != nullptr) {
            list.release();
            list.reset(grown);
        }
    };
    addHeader("Content-Type: application/json; charset=utf-8");
    addHeader("Accept: application/json");
    addHeader("Expect:");
    for (const auto& header : headers) {
        addHeader(header.first + ": " + header.second);
    }
    const std::string& method = send.GetVal_Method();
    CURL* h = curl.get();
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method.c_str());
    // Bodies go with every method, GET included: the platform's protocol carries queries in GET bodies.
    if (!body.empty() || method == "POST" || method == "PUT") {
        curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    }
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &AppendBody);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &response);
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, timeout);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, timeout);
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!caFile.empty()) {
        curl_easy_setopt(h, CURLOPT_CAINFO, caFile.c_str());
    }

    CURLcode result = curl_easy_perform(h);
    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    recv.SetVal_HttpStatus(static_cast<int>(status));
    recv.SetVal_Receive_Data(response);
    if (result != CURLE_OK) {
        recv.SetVal_Error_code(
            ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleTransport, static_cast<int>(result)));
        TAL_LOG(5, "NetComm", "[%s]%s %s failed: %s[%s(%d)]", method.c_str(), url.c_str(),
                curl_easy_strerror(result));
        return false;
    }
    if (status < 200 || status >= 300) {
        recv.SetVal_Error_code(
            ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleHttp, static_cast<int>(status)));
        TAL_LOG(5, "NetComm", "[%s]%s %s answered HTTP %ld.[%s(%d)]", method.c_str(), url.c_str(), status);
        return false;
    }
    recv.SetVal_Error_code(ErrorCode());
    return true;
}

}  // namespace NetworkCommunication
