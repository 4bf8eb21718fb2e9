#pragma once
// Records read from the platform's broadcast REST interface.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"

namespace BroadCastPlugin {

struct BroadcastPartition {
    int32_t ID = -1;
    std::string Name;
};

/// One IP speaker. A terminal outside every partition has the partition list [-1].
struct BroadcastTerminal {
    int32_t ID = -1;
    std::string Name;
    std::vector<int32_t> PartitionIDList{-1};
    int32_t PeerTaskHandling = -1;
    int32_t AudioCount = -1;
    int32_t Volume = -1;
    int32_t TerminalStatus = -1;
    int32_t AreaID = -1;
    std::string AreaName;
};

struct MediaDirectory {
    int32_t ID = -1;
    std::string Name;
    int32_t ParentID = 0;
    bool HasChildDirectory = false;
    std::vector<MediaDirectory> Children;
};

/// The platform's broadcast configuration.
struct BroadcastBaseConfig {
    bool Record = false;
    int32_t AudioCompressionType = kEncodeG711U;
    int32_t DefaultStreamAccessType = 0;
    bool IsPromptToneActivated = false;
    int32_t RecordStorageType = 0;
    int32_t RecordStorageServerID = -1;
    std::string RecordPoolID;
    int32_t StorageType = 0;
    int32_t StorageServerID = -1;
    std::string PoolID;
    int32_t BroadcastMode = -1;
    std::string SamplingRate;
    std::string BitRate;
    int32_t PromptToneMediaID = -1;
    int32_t PromptToneDuration = -1;
    bool IsTTSDelayedPlayActivated = false;
    bool IsMediaDelayedPlayActivated = false;
    int32_t TTSPlayDelayedTime = -1;
};

struct TTSLanguageInfo {
    std::map<std::string, std::string> Languages;
    std::string DisplayLanguageKey;
    std::string DisplayLanguageValue;
};

}  // namespace BroadCastPlugin
