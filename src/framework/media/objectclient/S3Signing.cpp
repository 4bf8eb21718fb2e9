#include "framework/media/objectclient/S3Signing.h"

namespace CloudStorage {

const char* const kSigV4Provider = "aws:amz:us-east-1:s3";

void ConfigureSigV4(CURL* easy, const std::string& accessKey, const std::string& secretKey) {
    curl_easy_setopt(easy, CURLOPT_AWS_SIGV4, kSigV4Provider);
    // Separate options: a ':' inside a key would split CURLOPT_USERPWD in the wrong place.
    curl_easy_setopt(easy, CURLOPT_USERNAME, accessKey.c_str());
    curl_easy_setopt(easy, CURLOPT_PASSWORD, secretKey.c_str());
}

void AddPayloadHash(DevNet::SlistPtr& headers, const std::string& sha256Hex) {
    DevNet::AppendHeader(headers, ("x-amz-content-sha256: " + sha256Hex).c_str());
}

}  // namespace CloudStorage
