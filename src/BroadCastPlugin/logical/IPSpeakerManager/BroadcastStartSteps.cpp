#include "BroadCastPlugin/logical/IPSpeakerManager/BroadcastStartSteps.h"

#include <ctime>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerElements.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerStateTable.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/business/OperatLogManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

bool CBroadcastStartSteps::Prepare(const std::vector<int32_t>& elementIDs, bool filePlayback,
                                   PreparedBroadcast& prepared) {
    BroadcastBaseConfig& config = prepared.config;
    if (!details::DownloadElements(elementIDs)) {
        BCAST_LOG(5, "[%s]Download broadcast element ids failed.[%s(%d)]");
        return false;
    }
    if (!states_.IsStopped() && !CIPSpeakerConfigManager::Instance()->DownloadConfig()) {
        BCAST_LOG(5, "[%s]get broadcast config failed.[%s(%d)]");
        return false;
    }
    config = CIPSpeakerConfigManager::Instance()->GetConfig();
    if (!states_.IsStopped() &&
        !CSpeakerTargets::RequestUrls(prepared.urls, elementIDs, filePlayback, config.BroadcastMode,
                                      config.IsPromptToneActivated)) {
        BCAST_LOG(5, "[%s]Request IPSpeaker url failed.[%s(%d)]");
        return false;
    }
    states_.RecordSpeakers(prepared.urls);
    return true;
}

bool CBroadcastStartSteps::StartDeviceTransports(const BroadcastTargets& targets) {
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    if (!targets.sdk.empty() && !states_.IsStopped() && !transfer->StartSendToSDK(targets.sdk)) {
        return false;
    }
    if (!targets.oem.empty() && !states_.IsStopped()) {
        transfer->StartSendToOEM(targets.oem);
    }
    return true;
}

bool CBroadcastStartSteps::Conclude(bool result, const std::vector<int32_t>& elementIDs, bool deviceTargets,
                                    const StartEnding& ending) {
    const ErrorCode failure = GetLastError();
    AddOperationLog(kOperationLogBroadcastStart, elementIDs);
    SetLastError(failure);
    if (states_.IsStopped()) {
        ending.logStopped();
        return true;
    }
    ending.reportSpeakers(failure);
    if (deviceTargets) {
        ReportServerStatus(result ? kServerStarted : kServerFailed);
        SetLastError(failure);
    }
    ending.logFinished();
    return result;
}

void CBroadcastStartSteps::ReportServerStatus(int32_t status) {
    const std::vector<DeviceGroup> groups = CSpeakerTargets::DeviceGroups(states_.Snapshot());
    const ErrorCode error = GetLastError();
    for (const DeviceGroup& group : groups) {
        if (!CBroadcastSession::NotifyServerBroadcastStatus(status, group.first, group.second, error)) {
            BCAST_LOG(5, "[%s]Notify server broadcast status failed.[%s(%d)]");
        }
    }
}

void CBroadcastStartSteps::AddOperationLog(int logType, const std::vector<int32_t>& elementIDs) {
    std::string names;
    for (int32_t id : elementIDs) {
        if (auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(id)) {
            names += (names.empty() ? "" : ",") + element->GetName();
        }
    }
    BusinessCommon::COperationLogStruct entry;
    entry.SetVal_log_type(logType);
    entry.SetVal_tmOccur(std::time(nullptr));
    entry.SetVal_strElementName(names);
    BusinessCommon::COperatLogManager::Instance()->AddOperationLog(entry);
}

}  // namespace BroadCastPlugin
