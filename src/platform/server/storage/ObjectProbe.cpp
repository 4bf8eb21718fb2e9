#include "platform/server/storage/ObjectProbe.h"

#include <curl/curl.h>

#include <memory>

#include "framework/media/objectclient/ObjectAddress.h"
#include "platform/server/storage/StoragePlan.h"

namespace Platform {

namespace {

// SHA-256 of an empty body: what the store checks the (empty) payload against.
constexpr char kEmptyPayloadHash[] =
    "x-amz-content-sha256: e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr long kTimeoutMs = 5000;

struct CurlDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
};
struct SlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

size_t Collect(char* data, size_t size, size_t count, void* user) {
    auto* body = static_cast<std::string*>(user);
    // A listing is small; more than this is not a store's answer to our requests.
    if (body->size() + size * count > (8u << 20)) {
        return 0;
    }
    body->append(data, size * count);
    return size * count;
}

std::string HostOf(const std::string& address) {
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

struct Answer {
    bool reached = false;
    long status = 0;
    curl_off_t length = -1;
    std::string body;
    std::string error;
};

// One signed request without a body.
Answer Signed(const StoreEndpoint& store, const std::string& pathAndQuery, bool head) {
    Answer answer;
    std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
    std::unique_ptr<curl_slist, SlistDeleter> headers(curl_slist_append(nullptr, kEmptyPayloadHash));
    if (!curl || !headers) {
        answer.error = "cannot set up libcurl";
        return answer;
    }
    const std::string url =
        "http://" + HostOf(store.address) + ":" + std::to_string(store.port) + pathAndQuery;
    char curlError[CURL_ERROR_SIZE] = {0};
    curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, kTimeoutMs);
    curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT_MS, kTimeoutMs);
    curl_easy_setopt(curl.get(), CURLOPT_ERRORBUFFER, curlError);
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl.get(), CURLOPT_AWS_SIGV4, "aws:amz:us-east-1:s3");
    curl_easy_setopt(curl.get(), CURLOPT_USERNAME, store.accessKey.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PASSWORD, store.secretKey.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer.body);
    if (head) {
        curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
    }
    const CURLcode rc = curl_easy_perform(curl.get());
    if (rc != CURLE_OK) {
        answer.error = curlError[0] != '\0' ? curlError : curl_easy_strerror(rc);
        return answer;
    }
    answer.reached = true;
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    curl_easy_getinfo(curl.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &answer.length);
    return answer;
}

ProbeResult Classify(const Answer& answer, const std::string& what, std::string& error) {
    if (!answer.reached) {
        error = "the store at " + what + " does not answer: " + answer.error;
        return ProbeResult::kUnreachable;
    }
    if (answer.status == 404) {
        error = what + " does not exist";
        return ProbeResult::kMissing;
    }
    if (answer.status == 401 || answer.status == 403) {
        error = "the store refuses the keys for " + what + " (HTTP " + std::to_string(answer.status) + ")";
        return ProbeResult::kRefused;
    }
    if (answer.status != 200) {
        error = "the store answered HTTP " + std::to_string(answer.status) + " for " + what;
        return ProbeResult::kFailed;
    }
    return ProbeResult::kFound;
}

std::string XmlValue(const std::string& xml, const std::string& tag) {
    const std::string open = "<" + tag + ">";
    const size_t at = xml.find(open);
    if (at == std::string::npos) {
        return std::string();
    }
    const size_t start = at + open.size();
    const size_t end = xml.find("</" + tag + ">", start);
    return end == std::string::npos ? std::string() : xml.substr(start, end - start);
}

}  // namespace

ProbeResult HeadObject(const StoreEndpoint& store, const std::string& pool, const std::string& key,
                       int64_t& bytes, std::string& error) {
    const std::string path =
        "/" + CloudStorage::EncodePath(pool, false) + "/" + CloudStorage::EncodePath(key);
    const Answer answer = Signed(store, path, true);
    const std::string what = "object " + pool + "/" + key;
    const ProbeResult result = Classify(
        answer, answer.reached ? what : HostOf(store.address) + ":" + std::to_string(store.port), error);
    if (result == ProbeResult::kFound) {
        bytes = static_cast<int64_t>(answer.length);
        if (bytes < 0) {
            error = "the store gave no size for " + what;
            return ProbeResult::kFailed;
        }
    }
    return result;
}

ProbeResult CountObjects(const StoreEndpoint& store, const std::string& pool, int64_t& count, bool& more,
                         std::string& error, int limit) {
    const std::string path =
        "/" + CloudStorage::EncodePath(pool, false) + "?list-type=2&max-keys=" + std::to_string(limit);
    const Answer answer = Signed(store, path, false);
    const ProbeResult result = Classify(
        answer, answer.reached ? "pool " + pool : HostOf(store.address) + ":" + std::to_string(store.port),
        error);
    if (result != ProbeResult::kFound) {
        return result;
    }
    const std::string keys = XmlValue(answer.body, "KeyCount");
    if (keys.empty() || keys.find_first_not_of("0123456789") != std::string::npos) {
        error = "the store's listing of pool " + pool + " has no key count";
        return ProbeResult::kFailed;
    }
    count = std::stoll(keys);
    more = XmlValue(answer.body, "IsTruncated") == "true";
    return ProbeResult::kFound;
}

}  // namespace Platform
