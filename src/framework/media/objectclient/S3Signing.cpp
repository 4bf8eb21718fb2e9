#include "framework/media/objectclient/S3Signing.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <vector>

#include "framework/media/objectclient/FileDigest.h"
#include "framework/media/objectclient/ObjectAddress.h"

namespace CloudStorage {

const char* const kSigV4Provider = "aws:amz:us-east-1:s3";

namespace {

// HMAC-SHA-256 of `data` under `key`, raw bytes; empty when OpenSSL fails.
std::string HmacSha256(const std::string& key, const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest, &length) == nullptr) {
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(digest), length);
}

// The colon-separated fields of kSigV4Provider ("aws:amz:<region>:<service>").
std::vector<std::string> ProviderFields() {
    std::vector<std::string> fields;
    std::string text = kSigV4Provider;
    std::size_t start = 0;
    for (;;) {
        const std::size_t colon = text.find(':', start);
        fields.push_back(text.substr(start, colon == std::string::npos ? std::string::npos : colon - start));
        if (colon == std::string::npos) {
            return fields;
        }
        start = colon + 1;
    }
}

}  // namespace

void ConfigureSigV4(CURL* easy, const std::string& accessKey, const std::string& secretKey) {
    curl_easy_setopt(easy, CURLOPT_AWS_SIGV4, kSigV4Provider);
    // Separate options: a ':' inside a key would split CURLOPT_USERPWD in the wrong place.
    curl_easy_setopt(easy, CURLOPT_USERNAME, accessKey.c_str());
    curl_easy_setopt(easy, CURLOPT_PASSWORD, secretKey.c_str());
}

void AddPayloadHash(DevNet::SlistPtr& headers, const std::string& sha256Hex) {
    DevNet::AppendHeader(headers, ("x-amz-content-sha256: " + sha256Hex).c_str());
}

std::string PresignUrl(const SPresignPlan& plan) {
    const std::vector<std::string> provider = ProviderFields();
    const std::string& region = provider.at(2);
    const std::string& service = provider.at(3);

    std::tm utc{};
    gmtime_r(&plan.signedAt, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    const std::string amzDate = stamp;
    const std::string day = amzDate.substr(0, 8);
    const std::string scope = day + "/" + region + "/" + service + "/aws4_request";

    // The Host header an HTTP client sends: the authority of the address without the scheme's default port.
    const std::string base = ServerBase(plan.https, plan.host, plan.port);
    std::string host = base.substr(base.find("://") + 3);
    if (plan.port == (plan.https ? 443 : 80)) {
        host.erase(host.rfind(':'));
    }

    // Parameters in byte order of their names, names and values encoded as RFC 3986 asks.
    const std::string query = "X-Amz-Algorithm=AWS4-HMAC-SHA256&X-Amz-Credential=" +
                              EncodePath(plan.accessKey + "/" + scope, false) + "&X-Amz-Date=" + amzDate +
                              "&X-Amz-Expires=" + std::to_string(plan.expirySeconds) +
                              "&X-Amz-SignedHeaders=host";
    const std::string canonical =
        plan.method + "\n" + plan.path + "\n" + query + "\nhost:" + host + "\n\nhost\nUNSIGNED-PAYLOAD";
    const std::string canonicalHash = Sha256Hex(canonical);
    const std::string stringToSign = "AWS4-HMAC-SHA256\n" + amzDate + "\n" + scope + "\n" + canonicalHash;

    const std::string signingKey = HmacSha256(
        HmacSha256(HmacSha256(HmacSha256("AWS4" + plan.secretKey, day), region), service), "aws4_request");
    const std::string signature = HmacSha256(signingKey, stringToSign);
    if (canonicalHash.empty() || signingKey.empty() || signature.empty()) {
        return std::string();
    }
    return base + plan.path + "?" + query + "&X-Amz-Signature=" +
           ToHex(reinterpret_cast<const unsigned char*>(signature.data()),
                 static_cast<unsigned int>(signature.size()));
}

}  // namespace CloudStorage
