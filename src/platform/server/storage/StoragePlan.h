#pragma once
// Which object stores the fixture's storage needs: one for the local cloud storage and one per storage
// server reached by a local device IP, each with its pools (buckets), keys and port; and which storage is
// not served, with the reason. Also reads object addresses ("http://host:port/<pool>/<key>").

#include <string>
#include <vector>

#include "platform/server/fixture/Fixture.h"

namespace Platform {

/// Name of the local cloud storage's store; storage servers' stores are named by their id.
constexpr char kLocalStoreName[] = "local";

struct PlannedStore {
    std::string name;         ///< "local" or the storage server's id
    int storageServerId = 0;  ///< 0 for the local cloud storage
    std::string address;
    int port = 0;  ///< the fixture's port (0: any free port)
    std::string accessKey;
    std::string secretKey;
    std::vector<std::string> pools;
};

struct UnservedStorage {
    int storageServerId = 0;
    std::string name;
    std::string reason;
};

struct StoragePlan {
    std::vector<PlannedStore> stores;
    std::vector<UnservedStorage> notServed;

    const PlannedStore* Find(const std::string& name) const;
};

/// Works out the stores. `fallbackAddress` is where the local cloud storage listens when the fixture names
/// no ServerIp. False with a reason when the fixture asks for something a store cannot be (an upload port
/// that differs from the download port, a pool name that is no bucket name).
bool PlanStorage(const Fixture& fixture, const std::string& fallbackAddress, StoragePlan& plan,
                 std::string& error);

/// The store a media file lives in: "local" for local storage, the server id for a storage server;
/// empty when that storage is not served.
std::string StoreNameOf(const MediaFileEntry& file, const StoragePlan& plan);

/// "http://127.0.0.1:18655/broadcast/prompt/bell.wav" -> scheme http, host 127.0.0.1, port 18655, pool
/// broadcast, key prompt/bell.wav. The path of an address is percent-decoded (as the object client reads
/// it); "/pool/key" (no host) is read literally. The port is 0 when the address has none. False when there
/// is no pool and key.
struct ObjectUrl {
    std::string scheme;
    std::string host;  ///< as written, IPv6 in brackets
    int port = 0;
    std::string pool;
    std::string key;
};
bool ParseObjectUrl(const std::string& url, ObjectUrl& out);
/// The address with another port (pool and key encoded again).
std::string WithPort(const ObjectUrl& url, int port);

/// S3 bucket naming: 3..63 lower-case letters, digits, dots and dashes, beginning and ending with a letter
/// or digit.
bool IsBucketName(const std::string& name);

}  // namespace Platform
