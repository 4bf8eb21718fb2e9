#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerTargets.h"

#include <algorithm>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerElements.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerStateTable.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

bool CSpeakerTargets::RequestUrls(std::vector<BroadcastUrlInfo>& urls, const std::vector<int32_t>& elementIDs,
                                  bool filePlayback, int32_t defaultAccessType, bool promptVoice) {
    // One list per access type, sent in this order.
    const int32_t kTypes[] = {kAccessAuto, kAccessDelegate, kAccessDirect, kAccessCenterDelegate};
    std::map<int32_t, std::vector<int32_t>> byType;
    for (int32_t id : elementIDs) {
        const int32_t deviceID = details::BroadcastElementID2DeviceID(id);
        int32_t accessType =
            BusinessCommon::CStreamConfigManager::Instance()->GetStreamAccessTypeByIpspeakerID(deviceID);
        if (accessType == kAccessSystemDefault || accessType == kAccessAuto) {
            accessType = defaultAccessType;
        }
        BCAST_LOG(
            3,
            "[%s]Broadcast channel id: %d, device id: %d, access type: %d[0--AutoJudgement, 2--Delegate, "
            "3--DirectConnect, 4--SystemDefaultConfig, 20--CenterDelegate].[%s(%d)]",
            id, deviceID, accessType);
        if (accessType != kAccessDelegate && accessType != kAccessDirect &&
            accessType != kAccessCenterDelegate) {
            accessType = kAccessAuto;  // anything else is left to the platform's judgement
        }
        byType[accessType].push_back(id);
    }
    std::vector<BroadcastUrlRequest> requests;
    for (int32_t type : kTypes) {
        auto list = byType.find(type);
        if (list == byType.end()) {
            continue;
        }
        BroadcastUrlRequest request;
        request.ResourceType = ResourceManager::kSourceTypeBroadcastElement;
        for (std::size_t i = 0; i < list->second.size(); ++i) {
            request.ResourceIDs += (i == 0 ? "" : ",") + std::to_string(list->second[i]);
        }
        request.AudioSource = filePlayback ? kAudioSourceFile : kAudioSourceLive;
        request.NetworkMode = type;
        request.IsPromptToneSupportedInFront = promptVoice;
        requests.push_back(request);
    }
    BroadcastUrlResult result;
    if (!CBroadcastSession::GetBroadcastUrl(requests, result)) {
        BCAST_LOG(5, "[%s]GetBroadcastUrl failed. error code [%d][%d][%s(%d)]",
                  result.Error.GetMainErrorCode(), result.Error.GetSubErrorCode());
        Tal::Base::Error::SetLastError(result.Error);
        return false;
    }
    urls = result.Urls;
    return true;
}

BroadcastTargets CSpeakerTargets::Build(const std::vector<BroadcastUrlInfo>& urls, int32_t encodeType) {
    BroadcastTargets targets;
    for (const BroadcastUrlInfo& url : urls) {
        if (url.Method == kMethodStreamingV1) {
            ZPSTransferTarget zps;
            const std::size_t bracket = url.Url.find(']');
            zps.url = bracket == std::string::npos ? url.Url : url.Url.substr(bracket + 1);
            zps.token = url.Token;
            zps.userName = "username";
            zps.password = "password";
            targets.zps.push_back(zps);
            continue;
        }
        if (url.Method != kMethodDeviceSdk) {
            continue;  // method 1 starts no transport
        }
        for (const BroadcastUrlResource& resource : url.Resources) {
            auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(resource.ID);
            auto device = details::DeviceOfElement(resource.ID);
            if (!element || !device) {
                continue;
            }
            if (details::IsRtpDevice(*device)) {
                OEMTransferTarget oem;
                oem.elementID = resource.ID;
                oem.ipAddress = device->GetIPAddress();
                oem.port = device->GetPort();
                oem.encodeType = encodeType;
                targets.oem.push_back(oem);
            } else if (details::IsSdkDevice(*device)) {
                SDKChannelTarget channel{element->GetName(), element->GetChannel()};
                auto same =
                    std::find_if(targets.sdk.begin(), targets.sdk.end(),
                                 [&](const SDKTransferTarget& t) { return t.deviceID == device->GetID(); });
                if (same != targets.sdk.end()) {
                    same->channels.push_back(channel);
                } else {
                    targets.sdk.push_back(SDKTransferTarget{device->GetID(), encodeType, {channel}});
                }
            }
        }
    }
    return targets;
}

std::vector<DeviceGroup> CSpeakerTargets::DeviceGroups(const std::map<int32_t, SpeakerEntry>& speakers) {
    std::vector<DeviceGroup> groups;
    for (const auto& speaker : speakers) {
        auto device = details::DeviceOfElement(speaker.first);
        if (!device || !(details::IsRtpDevice(*device) || details::IsSdkDevice(*device))) {
            continue;
        }
        auto group = std::find_if(groups.begin(), groups.end(),
                                  [&](const auto& g) { return g.first == speaker.second.groupGUID; });
        if (group == groups.end()) {
            groups.emplace_back(speaker.second.groupGUID, std::vector<std::string>{});
            group = groups.end() - 1;
        }
        group->second.push_back(std::to_string(speaker.first));
    }
    return groups;
}

}  // namespace BroadCastPlugin
