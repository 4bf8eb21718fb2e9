#pragma once
// One signed request to the store over libcurl: HEAD, a GET whose body streams into a file (or, small, is
// kept in the outcome), or a PUT whose body streams from a file. Bounded in time (connect time-out, stall
// limit), cancellable, with progress.

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

#include <curl/curl.h>

namespace CloudStorage {

/// Bytes done and bytes in all (0 when not known yet).
using ProgressFunction = std::function<void(uint64_t done, uint64_t total)>;

struct SRequestPlan {
    std::string method;           ///< "HEAD", "GET" or "PUT"
    std::string url;              ///< path-style, path already encoded
    std::FILE* sink = nullptr;    ///< GET: receives a successful answer's body
    std::FILE* source = nullptr;  ///< PUT: the body, read from its current position
    uint64_t sourceBytes = 0;     ///< PUT: how much of `source` is sent
    std::string payloadSha256;    ///< hex SHA-256 of the body
    long timeoutMs = 0;           ///< a limit on the whole request; 0: only the shared limits
};

struct SRequestOutcome {
    CURLcode code = CURLE_OK;
    long status = 0;             ///< HTTP status of the final answer, 0 when none came
    std::string reason;          ///< its reason phrase
    std::string errorBody;       ///< the body of an answer that is not 2xx (bounded)
    std::string body;            ///< the body of a 2xx answer to a request without a sink (bounded)
    int64_t contentLength = -1;  ///< the answer's Content-Length, -1 when it gave none
    std::string curlError;       ///< libcurl's own description of a failure
    std::string localError;      ///< why the local file could not be read or written
    bool cancelled = false;      ///< ended by the cancel flag
    bool sinkFailed = false;     ///< writing the local file failed
    bool sourceFailed = false;
    bool connected = false;  ///< the connection (and TLS, for https) was set up
    uint64_t bytes = 0;      ///< body bytes moved: received for GET, sent for PUT
    double seconds = 0;
};

/// Limits every request shares.
constexpr long kConnectTimeoutSeconds = 10;
/// A transfer slower than kStallBytesPerSecond for kStallSeconds has stalled and is ended.
constexpr long kStallBytesPerSecond = 1;
constexpr long kStallSeconds = 20;
/// Environment variable naming a PEM bundle that verifies the store's certificate instead of the system's.
extern const char* const kCaFileVariable;

class CSignedRequest {
public:
    CSignedRequest(const std::string& accessKey, const std::string& secretKey,
                   const std::atomic<bool>& cancel, ProgressFunction progress);

    SRequestOutcome Perform(const SRequestPlan& plan);

private:
    std::string accessKey_;
    std::string secretKey_;
    const std::atomic<bool>& cancel_;
    ProgressFunction progress_;
};

}  // namespace CloudStorage
