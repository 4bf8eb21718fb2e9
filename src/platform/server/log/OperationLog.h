#pragma once
// The platform's operation log: business actions the clients report (broadcast start 265001, stop 265002,
// listen start 203001, listen stop 203002, and any other type they send).

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Platform {

struct OperationLogEntry {
    int64_t sequence = 0;
    int logType = 0;
    int64_t occurTime = 0;  ///< seconds since the epoch, as the client reported it
    std::string elementName;
    std::string userName;    ///< the session that reported it
    int64_t receivedMs = 0;  ///< arrival, milliseconds since the epoch
};

class COperationLog {
public:
    static constexpr size_t kMaxEntries = 20000;

    void Add(OperationLogEntry entry);
    std::vector<OperationLogEntry> Snapshot() const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<OperationLogEntry> entries_;
    int64_t nextSequence_ = 1;
};

}  // namespace Platform
