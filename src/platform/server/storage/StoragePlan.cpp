#include "platform/server/storage/StoragePlan.h"

#include <algorithm>
#include <cctype>

#include "framework/media/objectclient/ObjectAddress.h"
#include "platform/server/FindFirst.h"
#include "platform/server/storage/PortHold.h"

namespace Platform {

namespace {

constexpr char kLocalStorage[] = "localStorage";
constexpr char kServerStorage[] = "pStorage";
constexpr int kMediaPoolType = 4;

void AddPool(std::vector<std::string>& pools, const std::string& pool) {
    if (!pool.empty() && std::find(pools.begin(), pools.end(), pool) == pools.end()) {
        pools.push_back(pool);
    }
}

// The pools a media file uses: its pool id and the pool its address names.
void AddFilePools(std::vector<std::string>& pools, const MediaFileEntry& file) {
    AddPool(pools, file.storagePoolId);
    ObjectUrl url;
    if (ParseObjectUrl(file.storeUrl, url)) {
        AddPool(pools, url.pool);
    }
}

bool CheckPools(const PlannedStore& planned, std::string& error) {
    for (const std::string& pool : planned.pools) {
        if (!IsBucketName(pool)) {
            error = "object store " + planned.name + ": the pool \"" + pool +
                    "\" cannot be a bucket (3..63 lower-case letters, digits, dots and dashes)";
            return false;
        }
    }
    return true;
}

bool PlanLocal(const Fixture& f, const std::string& fallbackAddress, StoragePlan& plan, std::string& error) {
    const LocalCloudStorage& s = f.storage;
    UnservedStorage unserved{0, kLocalStoreName, ""};
    bool used = !s.poolName.empty();
    for (const MediaFileEntry& m : f.files) {
        used = used || m.storageType == kLocalStorage;
    }
    if (!used) {
        unserved.reason = "the fixture has no local cloud storage";
    } else if (s.accessKey.empty() || s.secretKey.empty()) {
        unserved.reason = "StorageConfig has no AccessKey and SecretKey";
    } else if (s.enableHttps != 0) {
        unserved.reason = "EnableHttps is 1: the stores serve http only";
    } else if (!s.serverIp.empty() && !IsLocalAddress(s.serverIp)) {
        unserved.reason = "ServerIp " + s.serverIp + " is no address of this machine";
    }
    if (!unserved.reason.empty()) {
        plan.notServed.push_back(unserved);
        return true;
    }
    if (s.objectUploadPort != s.objectDownloadPort) {
        error = "StorageConfig: ObjectUploadPort (" + std::to_string(s.objectUploadPort) +
                ") and ObjectDownloadPort (" + std::to_string(s.objectDownloadPort) +
                ") must be equal: one object store serves both";
        return false;
    }
    if (s.objectUploadPort < 0 || s.objectUploadPort > 65535) {
        error = "StorageConfig: ObjectUploadPort is out of range";
        return false;
    }
    PlannedStore planned;
    planned.name = kLocalStoreName;
    planned.address = s.serverIp.empty() ? fallbackAddress : s.serverIp;
    planned.port = s.objectUploadPort;
    planned.accessKey = s.accessKey;
    planned.secretKey = s.secretKey;
    AddPool(planned.pools, s.poolName);
    const BaseConfig& c = f.baseConfig;
    if (c.recordStorageType == kLocalStorage) {
        AddPool(planned.pools, c.recordPoolId);
    }
    if (c.storageType == kLocalStorage) {
        AddPool(planned.pools, c.poolId);
    }
    for (const MediaFileEntry& m : f.files) {
        if (m.storageType == kLocalStorage) {
            AddFilePools(planned.pools, m);
        }
    }
    if (!CheckPools(planned, error)) {
        return false;
    }
    plan.stores.push_back(planned);
    return true;
}

bool PlanServer(const Fixture& f, const StorageServer& server, StoragePlan& plan, std::string& error) {
    UnservedStorage unserved{server.id, std::to_string(server.id), ""};
    if (server.accessType == 1) {
        unserved.reason = "reached by access path (AccessType 1), which names a host elsewhere";
    } else if (server.accessType != 0) {
        unserved.reason = "AccessType " + std::to_string(server.accessType) + " is no object storage";
    } else if (server.protocol != "http") {
        unserved.reason = "protocol " + server.protocol + ": the stores serve http only";
    } else if (server.accessKey.empty() || server.secretKey.empty()) {
        unserved.reason = "no AccessKey and SecretKey";
    } else if (server.deviceIp.empty() || !IsLocalAddress(server.deviceIp)) {
        unserved.reason = "DeviceIP " + server.deviceIp + " is no address of this machine";
    }
    if (!unserved.reason.empty()) {
        plan.notServed.push_back(unserved);
        return true;
    }
    if (server.objectPort < 0 || server.objectPort > 65535) {
        error = "StorageServers: ObjectPort of " + std::to_string(server.id) + " is out of range";
        return false;
    }
    PlannedStore planned;
    planned.name = std::to_string(server.id);
    planned.storageServerId = server.id;
    planned.address = server.deviceIp;
    planned.port = server.objectPort;
    planned.accessKey = server.accessKey;
    planned.secretKey = server.secretKey;
    for (const StorageDisk& d : server.disks) {
        if (d.poolType == kMediaPoolType) {
            AddPool(planned.pools, d.poolName);
        }
    }
    const BaseConfig& c = f.baseConfig;
    if (c.recordStorageType == kServerStorage && c.recordStorageServerId == server.id) {
        AddPool(planned.pools, c.recordPoolId);
    }
    if (c.storageType == kServerStorage && c.storageServerId == server.id) {
        AddPool(planned.pools, c.poolId);
    }
    for (const MediaFileEntry& m : f.files) {
        if (m.storageType == kServerStorage && m.storageServerId == server.id) {
            AddFilePools(planned.pools, m);
        }
    }
    if (!CheckPools(planned, error)) {
        return false;
    }
    plan.stores.push_back(planned);
    return true;
}

}  // namespace

const PlannedStore* StoragePlan::Find(const std::string& name) const {
    return FindFirst(stores, [&name](const PlannedStore& s) { return s.name == name; });
}

bool PlanStorage(const Fixture& fixture, const std::string& fallbackAddress, StoragePlan& plan,
                 std::string& error) {
    plan = StoragePlan();
    if (!PlanLocal(fixture, fallbackAddress, plan, error)) {
        return false;
    }
    for (const StorageServer& server : fixture.storageServers) {
        if (!PlanServer(fixture, server, plan, error)) {
            return false;
        }
    }
    return true;
}

std::string StoreNameOf(const MediaFileEntry& file, const StoragePlan& plan) {
    const std::string name =
        file.storageType == kServerStorage ? std::to_string(file.storageServerId) : kLocalStoreName;
    return plan.Find(name) != nullptr ? name : std::string();
}

bool ParseObjectUrl(const std::string& url, ObjectUrl& out) {
    out = ObjectUrl();
    std::string path = url;
    const size_t scheme = url.find("://");
    if (scheme != std::string::npos) {
        out.scheme = url.substr(0, scheme);
        const size_t hostStart = scheme + 3;
        const size_t slash = url.find('/', hostStart);
        const std::string authority =
            url.substr(hostStart, slash == std::string::npos ? std::string::npos : slash - hostStart);
        path = slash == std::string::npos ? std::string() : url.substr(slash);
        const size_t close = authority.rfind(']');
        const size_t colon = authority.rfind(':');
        if (colon != std::string::npos && (close == std::string::npos || colon > close)) {
            out.host = authority.substr(0, colon);
            const std::string port = authority.substr(colon + 1);
            if (port.empty() || port.size() > 5 ||
                port.find_first_not_of("0123456789") != std::string::npos) {
                return false;
            }
            out.port = std::stoi(port);
        } else {
            out.host = authority;
        }
        if (out.host.empty()) {
            return false;
        }
    }
    const size_t query = path.find_first_of("?#");
    if (query != std::string::npos) {
        path = path.substr(0, query);
    }
    std::string decoded;
    if (!out.scheme.empty()) {
        if (!CloudStorage::DecodePercent(path, decoded)) {
            return false;
        }
        path = decoded;
    }
    if (path.size() < 2 || path[0] != '/') {
        return false;
    }
    const size_t split = path.find('/', 1);
    if (split == std::string::npos || split + 1 >= path.size()) {
        return false;
    }
    out.pool = path.substr(1, split - 1);
    out.key = path.substr(split + 1);
    return !out.pool.empty() && !out.key.empty();
}

std::string WithPort(const ObjectUrl& url, int port) {
    return (url.scheme.empty() ? "http" : url.scheme) + "://" + url.host + ":" + std::to_string(port) + "/" +
           CloudStorage::EncodePath(url.pool, false) + "/" + CloudStorage::EncodePath(url.key);
}

bool IsBucketName(const std::string& name) {
    if (name.size() < 3 || name.size() > 63) {
        return false;
    }
    for (char c : name) {
        if (!(std::islower(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c)) ||
              c == '.' || c == '-')) {
            return false;
        }
    }
    return std::isalnum(static_cast<unsigned char>(name.front())) &&
           std::isalnum(static_cast<unsigned char>(name.back()));
}

}  // namespace Platform
