#pragma once
// How the platform streams to each IP speaker: its stream access type, asked per device or, once the cache
// is filled, answered from the cache.

#include <map>
#include <mutex>

namespace BusinessCommon {

/// Stream access types of the platform.
enum StreamAccessType {
    kStreamAccessAutomatic = 0,
    kStreamAccessDelegate = 2,
    kStreamAccessDirect = 3,
    kStreamAccessSystemDefault = 4,
    kStreamAccessCentreDelegate = 20,
};

class CStreamConfigManager {
public:
    static CStreamConfigManager* Instance();

    /// The stream access type of an IP speaker device. From the cache when RefreshStreamAccessTypes has
    /// filled it and it knows the device, otherwise asked from the platform (and remembered while the
    /// cache is on). When the platform cannot be asked or does not know the device: a log line, the
    /// thread's last error, and kStreamAccessSystemDefault (4), so that the caller uses its configured
    /// default access.
    int GetStreamAccessTypeByIpspeakerID(int deviceId);

    /// Fetches every device's access type in one request and answers later lookups from it. False (cache
    /// unchanged, last error set) when the platform cannot be asked.
    bool RefreshStreamAccessTypes();
    /// Drops the cache: every lookup asks the platform again (also done at logout).
    void ClearStreamAccessTypes();
    bool IsCacheEnabled() const;

private:
    mutable std::mutex mutex_;
    bool cacheEnabled_ = false;
    std::map<int, int> accessTypes_;  ///< device id -> stream access type
};

}  // namespace BusinessCommon
