#pragma once
// Caches of platform data read by the broadcast logic: the broadcast configuration with the TTS languages,
// the partitions and the terminals. A failed download keeps the previous data.

#include <mutex>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

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
    std::vector<BroadcastPartition> GetPartitions() const;
    void ClearCache();

private:
    mutable std::mutex mutex_;
    std::vector<BroadcastPartition> partitions_;
};

class CIPSpeakerTerminalManager {
public:
    static CIPSpeakerTerminalManager* Instance();
    bool DownloadAllTerminals();
    std::vector<BroadcastTerminal> GetTerminals() const;
    void ClearCache();

private:
    mutable std::mutex mutex_;
    std::vector<BroadcastTerminal> terminals_;
};

}  // namespace BroadCastPlugin
