#pragma once
// Object addresses: which pool and key a caller's address names, and the path-style URL that reaches it.
// Keys are percent-encoded the way S3 builds its canonical URI (RFC 3986 unreserved characters and the '/'
// between segments kept, every other byte as %XX) because libcurl signs the path exactly as it is sent.

#include <string>

namespace CloudStorage {

struct SObjectName {
    std::string pool;
    std::string key;
};

/// Encodes `text` for a URL path; '/' is kept when `keepSlash`.
std::string EncodePath(const std::string& text, bool keepSlash = true);

/// Decodes %XX sequences; false when one is malformed.
bool DecodePercent(const std::string& text, std::string& decoded);

/// Reads the object a caller names: "http(s)://host[:port]/<pool>/<key>" (the path is percent-decoded;
/// query and fragment are ignored), "/<pool>/<key>" or a bare key of `defaultPool` (both taken literally).
/// False with the reason in `why` when no pool and key can be read.
bool ParseObjectName(const std::string& address, const std::string& defaultPool, SObjectName& name,
                     std::string& why);

/// "http(s)://host:port" with an IPv6 literal in brackets.
std::string ServerBase(bool https, const std::string& host, int port);

/// "<base>/<pool>/<encoded key>"; the bucket itself when `key` is empty.
std::string ObjectUrl(const std::string& base, const std::string& pool, const std::string& key = {});

}  // namespace CloudStorage
