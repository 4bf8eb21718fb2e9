#include "platform/server/storage/ObjectProbe.h"

#include <atomic>

#include "framework/media/objectclient/FileDigest.h"
#include "framework/media/objectclient/ObjectAddress.h"
#include "framework/media/objectclient/SignedRequest.h"
#include "platform/server/storage/StoragePlan.h"

namespace Platform {

namespace {

constexpr long kTimeoutMs = 5000;

std::string HostOf(const std::string& address) {
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

// One signed request without a body, through the object client's signed request.
CloudStorage::SRequestOutcome Signed(const StoreEndpoint& store, const std::string& pathAndQuery, bool head) {
    static const std::atomic<bool> kNeverCancelled{false};
    CloudStorage::CSignedRequest request(store.accessKey, store.secretKey, kNeverCancelled, nullptr);
    CloudStorage::SRequestPlan plan;
    plan.method = head ? "HEAD" : "GET";
    plan.url = CloudStorage::ServerBase(false, store.address, store.port) + pathAndQuery;
    plan.payloadSha256 = CloudStorage::kEmptyBodySha256;
    plan.timeoutMs = kTimeoutMs;
    return request.Perform(plan);
}

bool Reached(const CloudStorage::SRequestOutcome& answer) {
    return answer.code == CURLE_OK;
}

ProbeResult Classify(const CloudStorage::SRequestOutcome& answer, const std::string& what,
                     std::string& error) {
    if (!Reached(answer)) {
        error = "the store at " + what + " does not answer: " + answer.curlError;
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
    const CloudStorage::SRequestOutcome answer = Signed(store, path, true);
    const std::string what = "object " + pool + "/" + key;
    const ProbeResult result = Classify(
        answer, Reached(answer) ? what : HostOf(store.address) + ":" + std::to_string(store.port), error);
    if (result == ProbeResult::kFound) {
        bytes = answer.contentLength;
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
    const CloudStorage::SRequestOutcome answer = Signed(store, path, false);
    const ProbeResult result = Classify(
        answer, Reached(answer) ? "pool " + pool : HostOf(store.address) + ":" + std::to_string(store.port),
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
