#include "platform/server/log/OperationLog.h"

namespace Platform {

void COperationLog::Add(OperationLogEntry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    entry.sequence = nextSequence_++;
    entries_.push_back(std::move(entry));
    if (entries_.size() > kMaxEntries) {
        entries_.erase(entries_.begin(), entries_.begin() + static_cast<long>(entries_.size() - kMaxEntries));
    }
}

std::vector<OperationLogEntry> COperationLog::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return entries_;
}

void COperationLog::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

}  // namespace Platform
