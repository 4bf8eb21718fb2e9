#pragma once
// Caches of platform data read by the broadcast logic: the broadcast configuration with the TTS languages,
// the partitions and the terminals. A failed download keeps the previous data.

#include <mutex>
#include <utility>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

/// A value (a configuration, a list) read and replaced whole under its own lock.
template <typename Value>
class CGuardedValue {
public:
    Value Get() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return value_;
    }
    void Set(Value value) {
        std::lock_guard<std::mutex> lock(mutex_);
        value_ = std::move(value);
    }
    void Clear() { Set(Value()); }
    /// Replaces the value with what `fetch` (bool(Value&)) reads into a fresh one, without the lock held; a
    /// failed fetch keeps the value. The fetch's result.
    template <typename Fetch>
    bool Refresh(Fetch fetch) {
        Value value;
        if (!fetch(value)) {
            return false;
        }
        Set(std::move(value));
        return true;
    }

private:
    mutable std::mutex mutex_;
    Value value_;
};

template <typename Item>
using CGuardedList = CGuardedValue<std::vector<Item>>;

class CIPSpeakerConfigManager {
public:
    static CIPSpeakerConfigManager* Instance();
    bool DownloadConfig();
    bool DownloadTTSLanguages();
    BroadcastBaseConfig GetConfig() const { return config_.Get(); }
    TTSLanguageInfo GetTTSLanguages() const { return languages_.Get(); }
    void ClearCache() {
        config_.Clear();
        languages_.Clear();
    }

private:
    CGuardedValue<BroadcastBaseConfig> config_;
    CGuardedValue<TTSLanguageInfo> languages_;
};

class CIPSpeakerPartitionManager {
public:
    static CIPSpeakerPartitionManager* Instance();
    bool DownloadAllPartitions();
    std::vector<BroadcastPartition> GetPartitions() const { return partitions_.Get(); }
    void ClearCache() { partitions_.Clear(); }

private:
    CGuardedList<BroadcastPartition> partitions_;
};

class CIPSpeakerTerminalManager {
public:
    static CIPSpeakerTerminalManager* Instance();
    bool DownloadAllTerminals();
    std::vector<BroadcastTerminal> GetTerminals() const { return terminals_.Get(); }
    void ClearCache() { terminals_.Clear(); }

private:
    CGuardedList<BroadcastTerminal> terminals_;
};

}  // namespace BroadCastPlugin
