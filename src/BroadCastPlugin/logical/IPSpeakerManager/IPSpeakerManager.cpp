#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"

#include <ctime>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/base/Singleton.h"
#include "framework/base/TimeUtil.h"
#include "framework/business/OperatLogManager.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

std::atomic<bool> g_promptToneReported{false};

using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

namespace {
/// Frames a group may fall behind a live talk before its oldest are dropped: one to two seconds of capture
/// frames (20 or 40 ms each). A group further behind than that would only play stale speech.
constexpr std::size_t kLiveQueueFrames = 50;
constexpr int kDeviceTypeSpeaker = 2020;
constexpr int kDeviceTypeEncoder = 2001;
constexpr int kProtocolDeviceSdk = 1;
constexpr int kProtocolRtp = 23;
constexpr int kElementDownloadRequestType = 4;

bool IsSdkDevice(const ResourceManager::CDevice& device) {
    return (device.GetDeviceType() == kDeviceTypeSpeaker || device.GetDeviceType() == kDeviceTypeEncoder) &&
           device.GetAccessProtocol() == kProtocolDeviceSdk;
}

bool IsRtpDevice(const ResourceManager::CDevice& device) {
    return device.GetDeviceType() == kDeviceTypeSpeaker && device.GetAccessProtocol() == kProtocolRtp;
}
}  // namespace

namespace details {

int32_t BroadcastElementID2DeviceID(int32_t elementID) {
    ResourceManager::CDownloadLogicalResource request;
    request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
    request.SetVal_extra_ids({elementID});
    if (!ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
            request)) {
        BCAST_LOG(5, "[%s]Download broadcast failed. id: %u[%s(%d)]", static_cast<unsigned>(elementID));
        return -1;
    }
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(elementID);
    if (!element) {
        BCAST_LOG(5, "[%s]Find ipspeaker empty. element id: %u[%s(%d)]", static_cast<unsigned>(elementID));
        return -1;
    }
    return element->GetEncodeDeviceAttribute().GetDeviceID();
}

bool DownloadElements(const std::vector<int32_t>& elementIDs) {
    auto* elements = ResourceManager::CElementManager::Instance();
    for (int32_t id : elementIDs) {
        if (elements->FindOtherElementByID(id)) {
            continue;
        }
        ResourceManager::CDownloadLogicalResource request;
        request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
        request.SetVal_extra_ids({id});
        request.SetVal_extra_request_type(kElementDownloadRequestType);
        request.SetVal_page_index(0);
        if (!ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
                request)) {
            BCAST_LOG(5, "[%s]Download element failed. id :%d[%s(%d)]", id);
            return false;
        }
    }
    return true;
}

std::shared_ptr<ResourceManager::CDevice> DeviceOfElement(int32_t elementID) {
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(elementID);
    if (!element) {
        return nullptr;
    }
    return ResourceManager::CDeviceManager::Instance()->FindDeviceByID(
        element->GetEncodeDeviceAttribute().GetDeviceID());
}

int32_t ListenDeviceID(int32_t id) {
    if (auto device = DeviceOfElement(id)) {
        return device->GetID();
    }
    if (ResourceManager::CDeviceManager::Instance()->FindDeviceByID(id)) {
        return id;
    }
    // Neither is known here yet: an element the platform knows is downloaded; anything else goes to the
    // platform as a device id, which answers for it.
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(id);
    if (!element && DownloadElements({id})) {
        if (auto device = DeviceOfElement(id)) {
            return device->GetID();
        }
    }
    return id;
}

}  // namespace details

CIPSpeakerManager* CIPSpeakerManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerManager>::Instance();
}

CIPSpeakerManager::CIPSpeakerManager()
    : capture_(std::make_unique<CVoiceCapture>()),
      fileEncoder_(std::make_unique<CVoiceFileEncode>()),
      voiceRecorder_(std::make_unique<CVoiceRecord>()) {}

CIPSpeakerManager::~CIPSpeakerManager() = default;

bool CIPSpeakerManager::Init(NotifyCallback callback) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        notifyCallback_ = std::move(callback);
        ClearBroadcastParamLocked();
    }
    // Per-device transport results become speaker events of the running broadcast.
    CVoiceTransferManager::Instance()->SetResultCallback(
        [this](const IPSpeakerNotifyParam& param) { Notify({param}); });
    return true;
}

void CIPSpeakerManager::Uninit() {
    if (GetBroadcastKind() != kBroadcastNone) {
        Stop();
    }
    if (IsListening()) {
        StopBroadcastListen();
    }
    CVoiceTransferManager::Instance()->SetResultCallback(nullptr);
    std::lock_guard<std::mutex> lock(mutex_);
    notifyCallback_ = nullptr;
}

void CIPSpeakerManager::Notify(const std::vector<IPSpeakerNotifyParam>& params) {
    std::lock_guard<std::mutex> lock(mutex_);
    NotifyLocked(params);
}

void CIPSpeakerManager::NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params) {
    if (notifyCallback_) {
        notifyCallback_(params);
    }
}

IPSpeakerNotifyParam CIPSpeakerManager::StageEvent(int32_t broadcastStatus, int64_t requestID) const {
    IPSpeakerNotifyParam event;
    event.type = 0;
    event.broadcastStatus = broadcastStatus;
    event.requestID = requestID;
    return event;
}

void CIPSpeakerManager::RecordSpeakers(const std::vector<BroadcastUrlInfo>& urls) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const BroadcastUrlInfo& url : urls) {
        for (const BroadcastUrlResource& resource : url.Resources) {
            SpeakerEntry entry;
            entry.groupGUID = url.ResourceGuid;
            speakerStates_[resource.ID] = entry;
            BCAST_LOG(3, "[%s]Get broadcast element id:%d, url:%s, resource guid:%s.[%s(%d)]", resource.ID,
                      url.Url.c_str(), url.ResourceGuid.c_str());
        }
    }
}

bool CIPSpeakerManager::PrepareBroadcast(const std::vector<int32_t>& elementIDs, bool filePlayback,
                                         BroadcastBaseConfig& config, std::vector<BroadcastUrlInfo>& urls) {
    if (!details::DownloadElements(elementIDs)) {
        BCAST_LOG(5, "[%s]Download broadcast element ids failed.[%s(%d)]");
        return false;
    }
    if (!IsStopped() && !CIPSpeakerConfigManager::Instance()->DownloadConfig()) {
        BCAST_LOG(5, "[%s]get broadcast config failed.[%s(%d)]");
        return false;
    }
    config = CIPSpeakerConfigManager::Instance()->GetConfig();
    if (!IsStopped() && !RequestIPSPeakerUrl(urls, elementIDs, filePlayback, config.BroadcastMode,
                                             config.IsPromptToneActivated)) {
        BCAST_LOG(5, "[%s]Request IPSpeaker url failed.[%s(%d)]");
        return false;
    }
    RecordSpeakers(urls);
    return true;
}

bool CIPSpeakerManager::StartSpeakVoice(const std::vector<int32_t>& elementIDs, int64_t requestID) {
    BCAST_LOG(3, "[%s]Start ipspeaker voice speak. broadcast element id count:%d.[%s(%d)]",
              static_cast<int>(elementIDs.size()));
    Notify({StageEvent(0, requestID)});
    ClearBroadcastParam();
    SetStopFlag(false);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        startTime_ = Tal::Base::TimeUtil::TimeT2StrDatetime(std::time(nullptr));
        broadcastKind_ = kBroadcastSpeak;
    }
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    BroadcastTargets targets;
    bool result = false;
    // One pass through the steps; a failing step leaves with the result false.
    do {
        BroadcastBaseConfig config;
        std::vector<BroadcastUrlInfo> urls;
        if (!PrepareBroadcast(elementIDs, false, config, urls)) {
            break;
        }
        const int32_t encodeType = config.AudioCompressionType;
        const bool promptVoice = config.IsPromptToneActivated;

        capture_->SetPCMDataCallback(
            [this](const uint8_t* data, int size) { voiceRecorder_->InputData(data, size); });
        capture_->SetEncodeDataCallback([transfer](const uint8_t* data, int size) {
            transfer->SendData(data, static_cast<int32_t>(size));
        });
        transfer->SetLiveQueueLimit(kLiveQueueFrames);
        if (!IsStopped() && !capture_->StartCapture(encodeType)) {
            BCAST_LOG(5, "[%s]Start voice capture failed.[%s(%d)]");
            break;
        }

        targets = BuildTargets(urls, encodeType);
        if (!IsStopped() && !targets.zps.empty() && !transfer->StartSendToZPS(targets.zps)) {
            break;
        }
        if (promptVoice) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                promptVoiceActive_ = true;
            }
            g_promptToneReported.store(false);
            // With streaming-server targets the prompt tone travelled with the address request.
            if (targets.zps.empty() && !IsStopped() && !StartPromptVoice()) {
                break;
            }
            WaitPromptVoicePlayFinish();
            if (AnyPromptToneFinished()) {
                Notify({StageEvent(4, requestID)});
            }
        }
        if (IsStopped()) {
            BCAST_LOG(3, "[%s]Has stop broadcast,break out.[%s(%d)]");
            break;
        }
        Notify({StageEvent(5, requestID)});
        if (!StartDeviceTransports(targets)) {
            break;
        }
        if (!IsStopped() && config.Record && !StartVoiceRecord(encodeType)) {
            BCAST_LOG(5, "[%s]Start voice record failed.[%s(%d)]");
        }
        result = true;
    } while (false);
    return FinishSpeak(result, elementIDs, requestID, !targets.sdk.empty() || !targets.oem.empty());
}

bool CIPSpeakerManager::StartDeviceTransports(const BroadcastTargets& targets) {
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    if (!targets.sdk.empty() && !IsStopped() && !transfer->StartSendToSDK(targets.sdk)) {
        return false;
    }
    if (!targets.oem.empty() && !IsStopped()) {
        transfer->StartSendToOEM(targets.oem);
    }
    return true;
}

bool CIPSpeakerManager::FinishSpeak(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                                    bool deviceTargets) {
    // The reason of a failure is kept across the calls of the end sequence.
    const ErrorCode failure = GetLastError();
    AddOperationLog(kOperationLogBroadcastStart, elementIDs);
    SetLastError(failure);
    if (IsStopped()) {
        BCAST_LOG(3, "[%s]Broadcast has already: %d.[%s(%d)]", result ? 1 : 0);
        return true;
    }
    if (!result) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<IPSpeakerNotifyParam> events;
        for (int32_t id : elementIDs) {
            IPSpeakerNotifyParam event = StageEvent(2, requestID);
            event.elementID = id;
            event.error = failure;
            events.push_back(event);
            auto entry = speakerStates_.find(id);
            if (entry != speakerStates_.end()) {
                entry->second.playState = 2;
            }
        }
        NotifyLocked(events);
    }
    if (deviceTargets) {
        UpdateSeverBroadcastStatus(result ? 1 : 2);
        SetLastError(failure);
    }
    BCAST_LOG(3, "[%s]Start ipspeaker voice speak finish, result: %d.[%s(%d)]", result ? 1 : 0);
    return result;
}

bool CIPSpeakerManager::RequestIPSPeakerUrl(std::vector<BroadcastUrlInfo>& urls,
                                            const std::vector<int32_t>& elementIDs, bool filePlayback,
                                            int32_t defaultAccessType, bool promptVoice) {
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
        request.AudioSource = filePlayback ? 2 : 1;
        request.NetworkMode = type;
        request.IsPromptToneSupportedInFront = promptVoice;
        requests.push_back(request);
    }
    BroadcastUrlResult result;
    if (!CBroadcastSession::GetBroadcastUrl(requests, result)) {
        BCAST_LOG(5, "[%s]GetBroadcastUrl failed. error code [%d][%d][%s(%d)]",
                  result.Error.GetMainErrorCode(), result.Error.GetSubErrorCode());
        SetLastError(result.Error);
        return false;
    }
    urls = result.Urls;
    return true;
}

BroadcastTargets CIPSpeakerManager::BuildTargets(const std::vector<BroadcastUrlInfo>& urls,
                                                 int32_t encodeType) {
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
            if (IsRtpDevice(*device)) {
                OEMTransferTarget oem;
                oem.elementID = resource.ID;
                oem.ipAddress = device->GetIPAddress();
                oem.port = device->GetPort();
                oem.encodeType = encodeType;
                targets.oem.push_back(oem);
            } else if (IsSdkDevice(*device)) {
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

void CIPSpeakerManager::UpdateSeverBroadcastStatus(int32_t status) {
    const std::map<int32_t, SpeakerEntry> speakers = GetSpeakerStates();
    // Element ids of the device targets, grouped by broadcast group in first-seen order.
    std::vector<std::pair<std::string, std::vector<std::string>>> groups;
    for (const auto& speaker : speakers) {
        auto device = details::DeviceOfElement(speaker.first);
        if (!device || !(IsRtpDevice(*device) || IsSdkDevice(*device))) {
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
    const ErrorCode error = GetLastError();
    for (const auto& group : groups) {
        if (!CBroadcastSession::NotifyServerBroadcastStatus(status, group.first, group.second, error)) {
            BCAST_LOG(5, "[%s]Notify server broadcast status failed.[%s(%d)]");
        }
    }
}

void CIPSpeakerManager::AddOperationLog(int logType, const std::vector<int32_t>& elementIDs) const {
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

void CIPSpeakerManager::Stop() {
    BCAST_LOG(3, "[%s]Start to stop broadcast.[%s(%d)]");
    SetStopFlag(true);
    StopPromptVoice();
    capture_->StopCapture();
    CVoiceTransferManager::Instance()->StopTransfer();
    voiceRecorder_->StopRecord();
    UploadRecordFile();
    fileEncoder_->StopEncode();
    StopTTSBroadcast();
    UpdateSeverBroadcastStatus(3);
    const int kind = GetBroadcastKind();
    if (kind == kBroadcastSpeak || kind == kBroadcastFile) {
        std::vector<int32_t> ids;
        for (const auto& speaker : GetSpeakerStates()) {
            ids.push_back(speaker.first);
        }
        AddOperationLog(kOperationLogBroadcastStop, ids);
    }
    ClearBroadcastParam();
    BCAST_LOG(3, "[%s]Stop broadcast succ.[%s(%d)]");
}

void CIPSpeakerManager::ClearBroadcastParam() {
    BCAST_LOG(3, "[%s]Start to Clear braodcast params.[%s(%d)]");
    std::lock_guard<std::mutex> lock(mutex_);
    ClearBroadcastParamLocked();
}

void CIPSpeakerManager::ClearBroadcastParamLocked() {
    speakerStates_.clear();
    ttsRequest_ = TTSRequestParam();
    ttsRequest_.PlayType = false;
    playFilePath_.clear();
    startTime_.clear();
    broadcastKind_ = kBroadcastNone;
    promptVoiceActive_ = false;
    SetStopFlagLocked(true);
    voiceRecorder_->ClearRecordFilePath();
}

int CIPSpeakerManager::GetBroadcastKind() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return broadcastKind_;
}

void CIPSpeakerManager::SetStopFlag(bool stopped) {
    std::lock_guard<std::mutex> lock(mutex_);
    SetStopFlagLocked(stopped);
}

void CIPSpeakerManager::SetStopFlagLocked(bool stopped) {
    stopped_ = stopped;
    // The senders and a file conversion in progress see the request at once: a stop ends a file broadcast
    // within a frame interval even while its task still waits for the sending to finish.
    CVoiceTransferManager::Instance()->SetStopFlag(stopped);
    if (stopped) {
        fileEncoder_->StopEncode();
    }
}

bool CIPSpeakerManager::IsStopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

bool CIPSpeakerManager::IsListening() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return listenDeviceID_ != -1;
}

float CIPSpeakerManager::GetCaptureLevel() const {
    return capture_->CaptureLevel();
}

float CIPSpeakerManager::GetListenLevel() const {
    return capture_->ListenLevel();
}

void CIPSpeakerManager::SetListenVolume(int volume) {
    capture_->SetListenVolume(volume);
}

int CIPSpeakerManager::GetListenVolume() const {
    return capture_->ListenVolume();
}

void CIPSpeakerManager::SetListenStopFlag(bool stopped) {
    std::lock_guard<std::mutex> lock(mutex_);
    listenStopped_ = stopped;
}

std::string CIPSpeakerManager::GetRecordedFilePath() const {
    return voiceRecorder_->RecordFilePath();
}

std::string CIPSpeakerManager::GetStartTime() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return startTime_;
}

std::map<int32_t, SpeakerEntry> CIPSpeakerManager::GetSpeakerStates() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return speakerStates_;
}

bool CIPSpeakerManager::IsPromptVoiceActive() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return promptVoiceActive_;
}

}  // namespace BroadCastPlugin
