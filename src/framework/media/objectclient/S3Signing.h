#pragma once
// How a libcurl handle signs its requests for the store: AWS Signature Version 4 done by libcurl, with the
// payload hash header that libcurl 7.88 does not add by itself (it signs the value it finds there).

#include <curl/curl.h>

#include <string>

#include "framework/media/devnet/CurlHandles.h"

namespace CloudStorage {

/// Provider, region and service that libcurl puts into the signature.
extern const char* const kSigV4Provider;

/// Makes `easy` sign its requests with the key pair.
void ConfigureSigV4(CURL* easy, const std::string& accessKey, const std::string& secretKey);

/// Adds "x-amz-content-sha256: <hex>" to `headers`; the hex is the SHA-256 of the body.
void AddPayloadHash(DevNet::SlistPtr& headers, const std::string& sha256Hex);

}  // namespace CloudStorage
