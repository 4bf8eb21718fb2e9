#include "platform/server/log/OperationLog.h"

#include "framework/base/LockedCopy.h"

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
    return Tal::Base::LockedCopy(mutex_, entries_);
}

void COperationLog::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

}  // namespace Platform
