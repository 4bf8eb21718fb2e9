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
    if (!config_.Refresh(&CBroadcastSession::GetBaseConfig)) {
        BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CIPSpeakerConfigManager::DownloadTTSLanguages() {
    const std::string language = BusinessCommon::GetLanguage();
    if (!languages_.Refresh([&language](TTSLanguageInfo& languages) {
            return CBroadcastSession::GetBroadCastTTSLanuage(language, languages);
        })) {
        BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
        return false;
    }
    return true;
}

CIPSpeakerPartitionManager* CIPSpeakerPartitionManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerPartitionManager>::Instance();
}

bool CIPSpeakerPartitionManager::DownloadAllPartitions() {
    if (!partitions_.Refresh(&CBroadcastSession::GetBroadcastPartitionList)) {
        BCAST_LOG(5, "[%s]Get broadcast partition list failed.[%s(%d)]");
        return false;
    }
    return true;
}

CIPSpeakerTerminalManager* CIPSpeakerTerminalManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerTerminalManager>::Instance();
}

bool CIPSpeakerTerminalManager::DownloadAllTerminals() {
    if (!terminals_.Refresh(&CBroadcastSession::GetAllBroadcastTerminalList)) {
        BCAST_LOG(5, "[%s]Get broadcast terminal list failed.[%s(%d)]");
        return false;
    }
    return true;
}

}  // namespace BroadCastPlugin
