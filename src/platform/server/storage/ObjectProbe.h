#pragma once
// What the platform asks an object store itself, signed with the store's keys (AWS Signature Version 4,
// through libcurl): whether an object is there and how big it is, and how many objects a pool holds.

#include <cstdint>
#include <string>

namespace Platform {

/// A store and the keys to sign with.
struct StoreEndpoint {
    std::string address;
    int port = 0;
    std::string accessKey;
    std::string secretKey;
};

enum class ProbeResult {
    kFound,
    kMissing,      ///< 404: no such object (or pool)
    kRefused,      ///< 401/403: the store refuses the keys
    kUnreachable,  ///< no answer (stopped, refused connection, time-out)
    kFailed,       ///< any other answer
};

/// A signed HEAD of `pool`/`key`; `bytes` gets the object's size when it is found. `error` describes any
/// other result.
ProbeResult HeadObject(const StoreEndpoint& store, const std::string& pool, const std::string& key,
                       int64_t& bytes, std::string& error);

/// Counts the objects of a pool (a signed ListObjectsV2, up to `limit` objects; `more` tells whether there
/// are more).
ProbeResult CountObjects(const StoreEndpoint& store, const std::string& pool, int64_t& count, bool& more,
                         std::string& error, int limit = 1000);

}  // namespace Platform
