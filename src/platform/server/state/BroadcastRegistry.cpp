#include "platform/server/state/BroadcastRegistry.h"

#include "framework/base/LockedCopy.h"
#include "platform/server/MapValues.h"

namespace Platform {

void CBroadcastRegistry::AddGroup(const BroadcastGroup& group) {
    std::lock_guard<std::mutex> lock(mutex_);
    groups_.push_back(group);
    if (groups_.size() > kMaxGroups) {
        groups_.erase(groups_.begin());
    }
}

bool CBroadcastRegistry::FindGroup(const std::string& guid, BroadcastGroup& group) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const BroadcastGroup& g : groups_) {
        if (g.guid == guid) {
            group = g;
            return true;
        }
    }
    return false;
}

bool CBroadcastRegistry::UpdateGroup(const std::string& guid,
                                     const std::function<void(BroadcastGroup&)>& change) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (BroadcastGroup& g : groups_) {
        if (g.guid == guid) {
            change(g);
            return true;
        }
    }
    return false;
}

std::vector<BroadcastGroup> CBroadcastRegistry::Groups() const {
    return Tal::Base::LockedCopy(mutex_, groups_);
}

void CBroadcastRegistry::StartTts(const std::vector<TtsPlay>& plays) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const TtsPlay& play : plays) {
        tts_[play.elementId] = play;
    }
}

std::vector<int> CBroadcastRegistry::StopTts(const std::vector<int>& elementIds) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<int> stopped;
    for (int id : elementIds) {
        if (tts_.erase(id) > 0) {
            stopped.push_back(id);
        }
    }
    return stopped;
}

std::vector<TtsPlay> CBroadcastRegistry::TtsPlays() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return MapValues(tts_);
}

int64_t CBroadcastRegistry::AddRecord(BroadcastRecord record) {
    std::lock_guard<std::mutex> lock(mutex_);
    record.sequence = nextRecord_++;
    records_.push_back(std::move(record));
    return records_.back().sequence;
}

std::vector<BroadcastRecord> CBroadcastRegistry::Records() const {
    return Tal::Base::LockedCopy(mutex_, records_);
}

int CBroadcastRegistry::SecureEncryptType() const {
    return Tal::Base::LockedCopy(mutex_, secureType_);
}

void CBroadcastRegistry::SetSecureEncryptType(int type) {
    std::lock_guard<std::mutex> lock(mutex_);
    secureType_ = type;
}

void CBroadcastRegistry::Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    groups_.clear();
    tts_.clear();
    records_.clear();
    secureType_ = initialSecureType_;
}

}  // namespace Platform
