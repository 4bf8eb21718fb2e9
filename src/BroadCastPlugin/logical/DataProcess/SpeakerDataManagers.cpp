#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"

#include "BroadCastPlugin/BroadcastConstants.h"
#include "framework/base/Singleton.h"

namespace BroadCastPlugin {

namespace {
// The platform's REST client is not part of this build: downloads fail and keep the cached data.
void SetPlatformNotAvailable() {
    Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                             Tal::Base::Error::kModuleFramework,
                                             Tal::Base::Error::kCodeNotAvailable));
}
}  // namespace

CIPSpeakerConfigManager* CIPSpeakerConfigManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerConfigManager>::Instance();
}

bool CIPSpeakerConfigManager::DownloadConfig() {
    SetPlatformNotAvailable();
    BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
    return false;
}

bool CIPSpeakerConfigManager::DownloadTTSLanguages() {
    SetPlatformNotAvailable();
    BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
    return false;
}

BroadcastBaseConfig CIPSpeakerConfigManager::GetConfig() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return config_;
}

TTSLanguageInfo CIPSpeakerConfigManager::GetTTSLanguages() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return languages_;
}

void CIPSpeakerConfigManager::ClearCache() {
    std::lock_guard<std::mutex> lock(mutex_);
    config_ = BroadcastBaseConfig();
    languages_ = TTSLanguageInfo();
}

CIPSpeakerPartitionManager* CIPSpeakerPartitionManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerPartitionManager>::Instance();
}

bool CIPSpeakerPartitionManager::DownloadAllPartitions() {
    SetPlatformNotAvailable();
    BCAST_LOG(5, "[%s]Get broadcast partition list failed.[%s(%d)]");
    return false;
}

std::vector<BroadcastPartition> CIPSpeakerPartitionManager::GetPartitions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return partitions_;
}

void CIPSpeakerPartitionManager::ClearCache() {
    std::lock_guard<std::mutex> lock(mutex_);
    partitions_.clear();
}

CIPSpeakerTerminalManager* CIPSpeakerTerminalManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerTerminalManager>::Instance();
}

bool CIPSpeakerTerminalManager::DownloadAllTerminals() {
    SetPlatformNotAvailable();
    BCAST_LOG(5, "[%s]Get broadcast terminal list failed.[%s(%d)]");
    return false;
}

std::vector<BroadcastTerminal> CIPSpeakerTerminalManager::GetTerminals() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return terminals_;
}

void CIPSpeakerTerminalManager::ClearCache() {
    std::lock_guard<std::mutex> lock(mutex_);
    terminals_.clear();
}

}  // namespace BroadCastPlugin
