#pragma once
// How requests for the store are signed: a libcurl handle signs with AWS Signature Version 4 done by libcurl,
// with the payload hash header that libcurl 7.88 does not add by itself (it signs the value it finds there);
// a presigned address carries the same signature in its query (query-string authentication) so that a client
// without the keys, such as a browser, can fetch the object until it expires.

#include <curl/curl.h>

#include <ctime>
#include <string>

#include "framework/media/devnet/CurlHandles.h"

namespace CloudStorage {

/// Provider, region and service that libcurl puts into the signature.
extern const char* const kSigV4Provider;

/// Makes `easy` sign its requests with the key pair.
void ConfigureSigV4(CURL* easy, const std::string& accessKey, const std::string& secretKey);

/// Adds "x-amz-content-sha256: <hex>" to `headers`; the hex is the SHA-256 of the body.
void AddPayloadHash(DevNet::SlistPtr& headers, const std::string& sha256Hex);

/// The longest validity of a presigned address, in seconds (seven days).
constexpr long kPresignMaxSeconds = 604800;

/// What a presigned address names and how it is signed.
struct SPresignPlan {
    std::string method = "GET";
    bool https = false;
    std::string host;  ///< address or host name; an IPv6 literal with or without brackets
    int port = 0;
    std::string path;  ///< "/<pool>/<key>", already encoded as ObjectUrl encodes it
    std::string accessKey;
    std::string secretKey;
    long expirySeconds = 0;    ///< 1..kPresignMaxSeconds
    std::time_t signedAt = 0;  ///< when the validity starts (seconds since the epoch)
};

/// "<scheme>://<host>:<port><path>?X-Amz-Algorithm=..&X-Amz-Signature=<hex>": SigV4 query-string
/// authentication with the provider's region and service, signed header `host` (with the port unless it is
/// the scheme's default, as HTTP clients send it) and payload UNSIGNED-PAYLOAD. Empty when OpenSSL fails.
std::string PresignUrl(const SPresignPlan& plan);

}  // namespace CloudStorage
