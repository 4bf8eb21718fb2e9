#include "framework/media/objectclient/SignedRequest.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "framework/media/devnet/CurlHandles.h"
#include "framework/media/objectclient/S3Signing.h"

namespace CloudStorage {

const char* const kCaFileVariable = "BCAST_OBJECT_CA_FILE";

namespace {

// An error answer is a short XML document; more than this is not kept.
constexpr std::size_t kMaxErrorBody = 64 * 1024;
// A body kept in the outcome (a listing) is small; more than this is not a store's answer.
constexpr std::size_t kMaxKeptBody = 8u << 20;

void EnsureCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// What the callbacks of one request share.
struct SRequestState {
    const SRequestPlan* plan = nullptr;
    CURL* easy = nullptr;
    SRequestOutcome* outcome = nullptr;
    const std::atomic<bool>* cancel = nullptr;
    const ProgressFunction* progress = nullptr;
    uint64_t left = 0;  // PUT: bytes of the body still to send
    uint64_t reportedDone = UINT64_MAX;
    uint64_t reportedTotal = UINT64_MAX;

    bool Successful() const {
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        return status >= 200 && status < 300;
    }
};

size_t OnHeader(char* data, size_t size, size_t count, void* user) {
    auto* state = static_cast<SRequestState*>(user);
    const size_t bytes = size * count;
    std::string line(data, bytes);
    if (line.compare(0, 5, "HTTP/") == 0) {
        // "HTTP/1.1 404 Not Found\r\n": the text after the status code.
        std::size_t code = line.find(' ');
        std::size_t reason = code == std::string::npos ? std::string::npos : line.find(' ', code + 1);
        std::string text = reason == std::string::npos ? std::string() : line.substr(reason + 1);
        while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
            text.pop_back();
        }
        state->outcome->reason = text;
    }
    return bytes;
}

size_t OnBody(char* data, size_t size, size_t count, void* user) {
    auto* state = static_cast<SRequestState*>(user);
    const size_t bytes = size * count;
    if (!state->Successful()) {
        // A refusal's explanation, never part of the file.
        std::string& body = state->outcome->errorBody;
        if (body.size() < kMaxErrorBody) {
            body.append(data, std::min(bytes, kMaxErrorBody - body.size()));
        }
        return bytes;
    }
    if (state->plan->sink == nullptr) {
        std::string& body = state->outcome->body;
        if (body.size() + bytes > kMaxKeptBody) {
            return 0;
        }
        body.append(data, bytes);
        return bytes;
    }
    if (std::fwrite(data, 1, bytes, state->plan->sink) != bytes) {
        state->outcome->sinkFailed = true;
        state->outcome->localError = std::strerror(errno);
        return 0;
    }
    return bytes;
}

size_t OnReadBody(char* buffer, size_t size, size_t count, void* user) {
    auto* state = static_cast<SRequestState*>(user);
    size_t wanted = size * count;
    if (wanted > state->left) {
        wanted = static_cast<size_t>(state->left);
    }
    if (wanted == 0) {
        return 0;
    }
    size_t got = std::fread(buffer, 1, wanted, state->plan->source);
    if (got < wanted) {
        state->outcome->sourceFailed = true;
        state->outcome->localError = std::ferror(state->plan->source) != 0
                                         ? std::string(std::strerror(errno))
                                         : std::string("the file became shorter while it was sent");
        return CURL_READFUNC_ABORT;
    }
    state->left -= got;
    return got;
}

// libcurl rewinds the body when it has to send it again.
int OnSeekBody(void* user, curl_off_t offset, int origin) {
    auto* state = static_cast<SRequestState*>(user);
    if (origin != SEEK_SET || offset < 0 || static_cast<uint64_t>(offset) > state->plan->sourceBytes) {
        return CURL_SEEKFUNC_CANTSEEK;
    }
    if (std::fseek(state->plan->source, static_cast<long>(offset), SEEK_SET) != 0) {
        return CURL_SEEKFUNC_FAIL;
    }
    state->left = state->plan->sourceBytes - static_cast<uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int OnProgress(void* user, curl_off_t downTotal, curl_off_t downNow, curl_off_t upTotal, curl_off_t upNow) {
    auto* state = static_cast<SRequestState*>(user);
    if (state->cancel->load()) {
        state->outcome->cancelled = true;
        return 1;
    }
    if (!*state->progress) {
        return 0;
    }
    uint64_t done = 0;
    uint64_t total = 0;
    if (state->plan->source != nullptr) {
        done = static_cast<uint64_t>(upNow);
        total = static_cast<uint64_t>(upTotal);
    } else if (state->plan->sink != nullptr && state->Successful()) {
        done = static_cast<uint64_t>(downNow);
        total = static_cast<uint64_t>(downTotal);
    } else {
        return 0;
    }
    if (done != state->reportedDone || total != state->reportedTotal) {
        state->reportedDone = done;
        state->reportedTotal = total;
        (*state->progress)(done, total);
    }
    return 0;
}

void ApplyLimits(CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, kStallBytesPerSecond);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, kStallSeconds);
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    const char* caFile = std::getenv(kCaFileVariable);
    if (caFile != nullptr && *caFile != '\0') {
        curl_easy_setopt(easy, CURLOPT_CAINFO, caFile);
    }
    // The path is signed as sent: libcurl must not tidy "." or ".." segments of a key away.
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
}

}  // namespace

CSignedRequest::CSignedRequest(const std::string& accessKey, const std::string& secretKey,
                               const std::atomic<bool>& cancel, ProgressFunction progress)
    : accessKey_(accessKey), secretKey_(secretKey), cancel_(cancel), progress_(std::move(progress)) {}

SRequestOutcome CSignedRequest::Perform(const SRequestPlan& plan) {
    SRequestOutcome outcome;
    // Everything the handle points at is declared before it, so that it outlives the handle.
    char errorBuffer[CURL_ERROR_SIZE] = {};
    DevNet::SlistPtr headers;
    AddPayloadHash(headers, plan.payloadSha256);
    SRequestState state;
    EnsureCurl();
    DevNet::EasyPtr easy(curl_easy_init());
    if (!easy) {
        outcome.code = CURLE_OUT_OF_MEMORY;
        outcome.curlError = "cannot create a libcurl handle";
        return outcome;
    }
    CURL* handle = easy.get();
    state.plan = &plan;
    state.easy = handle;
    state.outcome = &outcome;
    state.cancel = &cancel_;
    state.progress = &progress_;
    state.left = plan.sourceBytes;

    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(handle, CURLOPT_URL, plan.url.c_str());
    ApplyLimits(handle);
    if (plan.timeoutMs > 0) {
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, plan.timeoutMs);
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, plan.timeoutMs);
    }
    ConfigureSigV4(handle, accessKey_, secretKey_);
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());

    if (plan.method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    } else if (plan.method == "PUT") {
        curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(plan.sourceBytes));
        curl_easy_setopt(handle, CURLOPT_READFUNCTION, &OnReadBody);
        curl_easy_setopt(handle, CURLOPT_READDATA, &state);
        curl_easy_setopt(handle, CURLOPT_SEEKFUNCTION, &OnSeekBody);
        curl_easy_setopt(handle, CURLOPT_SEEKDATA, &state);
    } else {
        curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
    }
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &OnHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &state);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &OnBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &state);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &OnProgress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &state);

    outcome.code = curl_easy_perform(handle);
    if (outcome.code != CURLE_OK) {
        outcome.curlError = errorBuffer[0] != '\0' ? errorBuffer : curl_easy_strerror(outcome.code);
    }
    curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &outcome.status);
    curl_off_t length = -1;
    curl_easy_getinfo(handle, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    outcome.contentLength = static_cast<int64_t>(length);

    curl_off_t connectUs = 0;
    curl_off_t tlsUs = 0;
    curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connectUs);
    curl_easy_getinfo(handle, CURLINFO_APPCONNECT_TIME_T, &tlsUs);
    const bool https = plan.url.compare(0, 8, "https://") == 0;
    outcome.connected = https ? tlsUs > 0 : connectUs > 0;

    curl_off_t moved = 0;
    curl_easy_getinfo(handle, plan.method == "PUT" ? CURLINFO_SIZE_UPLOAD_T : CURLINFO_SIZE_DOWNLOAD_T,
                      &moved);
    outcome.bytes = static_cast<uint64_t>(moved);
    curl_off_t totalUs = 0;
    curl_easy_getinfo(handle, CURLINFO_TOTAL_TIME_T, &totalUs);
    outcome.seconds = static_cast<double>(totalUs) / 1e6;
    return outcome;
}

}  // namespace CloudStorage
