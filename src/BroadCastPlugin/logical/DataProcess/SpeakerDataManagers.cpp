#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/base/Singleton.h"
#include "framework/business/BusinessCommon.h"

namespace BroadCastPlugin {

// Every download asks the platform without holding the lock and replaces the cache only on success.

CIPSpeakerConfigManager* CIPSpeakerConfigManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerConfigManager>::Instance();
}

bool CIPSpeakerConfigManager::DownloadConfig() {
    BroadcastBaseConfig config;
    if (!CBroadcastSession::GetBaseConfig(config)) {
        BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    config_ = config;
    return true;
}

bool CIPSpeakerConfigManager::DownloadTTSLanguages() {
    TTSLanguageInfo languages;
    if (!CBroadcastSession::GetBroadCastTTSLanuage(BusinessCommon::GetLanguage(), languages)) {
        BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    languages_ = languages;
    return true;
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
    std::vector<BroadcastPartition> partitions;
    if (!CBroadcastSession::GetBroadcastPartitionList(partitions)) {
        BCAST_LOG(5, "[%s]Get broadcast partition list failed.[%s(%d)]");
        return false;
    }
    partitions_.Set(std::move(partitions));
    return true;
}

CIPSpeakerTerminalManager* CIPSpeakerTerminalManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerTerminalManager>::Instance();
}

bool CIPSpeakerTerminalManager::DownloadAllTerminals() {
    std::vector<BroadcastTerminal> terminals;
    if (!CBroadcastSession::GetAllBroadcastTerminalList(terminals)) {
        BCAST_LOG(5, "[%s]Get broadcast terminal list failed.[%s(%d)]");
        return false;
    }
    terminals_.Set(std::move(terminals));
    return true;
}

}  // namespace BroadCastPlugin
