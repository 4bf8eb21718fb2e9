#pragma once
// SHA-256 of request bodies, as the lowercase hex that goes into x-amz-content-sha256.

#include <cstdio>
#include <string>

namespace CloudStorage {

/// The hash of an empty body (GET, HEAD).
extern const char* const kEmptyBodySha256;

/// Hashes the whole of `file` from its start by reading it in fixed-size pieces, and leaves it at its start
/// again. False with the reason in `error` when the file cannot be read.
bool Sha256OfFile(std::FILE* file, std::string& hex, std::string& error);

/// The lowercase hex SHA-256 of `data` (empty when OpenSSL fails).
std::string Sha256Hex(const std::string& data);

/// Lowercase hex of raw bytes.
std::string ToHex(const unsigned char* data, unsigned int length);

}  // namespace CloudStorage
