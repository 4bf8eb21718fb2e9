#pragma once
// Caches of platform data read by the broadcast logic: the broadcast configuration with the TTS languages,
// the partitions and the terminals. A failed download keeps the previous data.

#include <mutex>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

/// A list read and replaced whole under its own lock.
template <typename Item>
class CGuardedList {
public:
    std::vector<Item> Get() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return items_;
    }
    void Set(std::vector<Item> items) {
        std::lock_guard<std::mutex> lock(mutex_);
        items_ = std::move(items);
    }
    void Clear() { Set({}); }

private:
    mutable std::mutex mutex_;
    std::vector<Item> items_;
};

class CIPSpeakerConfigManager {
public:
    static CIPSpeakerConfigManager* Instance();
    bool DownloadConfig();
    bool DownloadTTSLanguages();
    BroadcastBaseConfig GetConfig() const;
    TTSLanguageInfo GetTTSLanguages() const;
    void ClearCache();

private:
    mutable std::mutex mutex_;
    BroadcastBaseConfig config_;
    TTSLanguageInfo languages_;
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
