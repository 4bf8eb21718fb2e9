// File, text-to-speech, prompt-tone and recording broadcasts of the speaker manager.

#include <algorithm>
#include <ctime>
#include <set>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/base/FileSystem.h"
#include "framework/base/TimeUtil.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/UserCommonManager.h"

namespace BroadCastPlugin {

using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

namespace {
constexpr int kPollMs = 500;
constexpr int kFrameIntervalG711Ms = 40;
constexpr int kFrameIntervalMp3Ms = 24;

// A speaker still connecting: connecting (0) or in the prompt tone (100-103).
bool IsConnecting(int32_t status) {
    return status == 0 || (status >= 100 && status <= 103);
}

// Broadcast groups whose audio goes through the streaming server.
std::set<std::string> StreamingGroups(const std::vector<BroadcastUrlInfo>& urls) {
    std::set<std::string> groups;
    for (const BroadcastUrlInfo& url : urls) {
        if (url.Method == kMethodStreamingV1) {
            groups.insert(url.ResourceGuid);
        }
    }
    return groups;
}
}  // namespace

bool CIPSpeakerManager::AnySpeakerConnecting(const std::set<std::string>& groups) const {
    std::lock_guard<std::mutex> lock(mutex_);
    // Only speakers of these groups: device and RTP speakers cannot connect before their senders start,
    // which is after this wait. A speaker that has not reported yet (-1) has not connected either.
    return std::any_of(speakerStates_.begin(), speakerStates_.end(), [&groups](const auto& s) {
        return groups.count(s.second.groupGUID) != 0 &&
               (s.second.status == -1 || IsConnecting(s.second.status));
    });
}

bool CIPSpeakerManager::AllSpeakersFailed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return !speakerStates_.empty() && std::all_of(speakerStates_.begin(), speakerStates_.end(),
                                                  [](const auto& s) { return s.second.status == 2; });
}

bool CIPSpeakerManager::AnyPromptToneFinished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(speakerStates_.begin(), speakerStates_.end(),
                       [](const auto& s) { return s.second.promptToneFinished; });
}

std::vector<std::string> CIPSpeakerManager::PromptGroups() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> groups;
    for (const auto& speaker : speakerStates_) {
        if (std::find(groups.begin(), groups.end(), speaker.second.groupGUID) == groups.end()) {
            groups.push_back(speaker.second.groupGUID);
        }
    }
    return groups;
}

void CIPSpeakerManager::OnEncodeState(EncodeState state, int64_t requestID) {
    IPSpeakerNotifyParam event = StageEvent(-1, requestID);
    if (state == EncodePrepare) {
        event.broadcastStatus = 6;
    } else if (state == EncodeRunning) {
        event.broadcastStatus = 7;
    }
    Notify({event});
}

bool CIPSpeakerManager::StartPlayAudioFile(const std::vector<int32_t>& elementIDs,
                                           const std::string& filePath, int64_t requestID) {
    BCAST_LOG(3, "[%s]Start ipspeaker play audio file. broadcast element id count:%d, file path: %s.[%s(%d)]",
              static_cast<int>(elementIDs.size()), filePath.c_str());
    Notify({StageEvent(0, requestID)});
    ClearBroadcastParam();
    SetStopFlag(false);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        playFilePath_ = filePath;
        startTime_ = Tal::Base::TimeUtil::TimeT2StrDatetime(std::time(nullptr));
        broadcastKind_ = kBroadcastFile;
    }
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    BroadcastTargets targets;
    bool result = false;
    do {
        BroadcastBaseConfig config;
        std::vector<BroadcastUrlInfo> urls;
        if (!PrepareBroadcast(elementIDs, true, config, urls)) {
            break;
        }
        const int32_t encodeType = config.AudioCompressionType;
        if (encodeType == kEncodeG711U) {
            transfer->SetFrameInterval(kFrameIntervalG711Ms);
        } else if (encodeType == kEncodeMP3) {
            transfer->SetFrameInterval(kFrameIntervalMp3Ms);
        }
        targets = BuildTargets(urls, encodeType);
        if (!IsStopped() && !targets.zps.empty()) {
            if (!transfer->StartSendToZPS(targets.zps)) {
                break;
            }
            BCAST_LOG(3, "[%s]Start to wait all device connect finish by zps.[%s(%d)]");
            const std::set<std::string> streamingGroups = StreamingGroups(urls);
            while (!IsStopped() && AnySpeakerConnecting(streamingGroups)) {
                BusinessCommon::MSleep(kPollMs);
            }
            BCAST_LOG(3, "[%s]Finish to wait all device connect by zps.[%s(%d)]");
            if (AllSpeakersFailed()) {
                BCAST_LOG(4, "[%s]All device has connect failed.[%s(%d)]");
                break;
            }
        }
        if (!StartDeviceTransports(targets)) {
            break;
        }
        fileEncoder_->SetDataCallback([transfer](const uint8_t* data, int size) {
            transfer->SendData(data, static_cast<int32_t>(size));
        });
        fileEncoder_->SetStateCallback(
            [this, requestID](EncodeState state) { OnEncodeState(state, requestID); });
        if (!IsStopped() && !fileEncoder_->StartEncode(filePath, encodeType)) {
            BCAST_LOG(5, "[%s]Start local file encode failed. [%s(%d)]");
            break;
        }
        transfer->SetInputFinished();
        transfer->WaitTransferFinish();
        result = true;
    } while (false);
    return FinishPlayFile(result, elementIDs, requestID, !targets.sdk.empty() || !targets.oem.empty());
}

bool CIPSpeakerManager::FinishPlayFile(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                                       bool deviceTargets) {
    const ErrorCode failure = GetLastError();
    AddOperationLog(kOperationLogBroadcastStart, elementIDs);
    SetLastError(failure);
    if (IsStopped()) {
        BCAST_LOG(3, "[%s]Play audio file has stopped.[%s(%d)]");
        return true;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<IPSpeakerNotifyParam> events;
        for (int32_t id : elementIDs) {
            IPSpeakerNotifyParam event = StageEvent(2, requestID);
            event.elementID = id;
            auto entry = speakerStates_.find(id);
            // The speaker's own last error from the platform, or the framework's when that one is clean.
            event.error = entry != speakerStates_.end() && entry->second.error.GetSubErrorCode() != 0
                              ? entry->second.error
                              : failure;
            event.broadcastStatus = event.error.GetSubErrorCode() == 0 && result ? 1 : 2;
            if (entry != speakerStates_.end()) {
                entry->second.playState = event.broadcastStatus;
            }
            events.push_back(event);
        }
        NotifyLocked(events);
    }
    if (deviceTargets) {
        UpdateSeverBroadcastStatus(result ? 1 : 2);
        SetLastError(failure);
    }
    BCAST_LOG(3, "[%s]ipspeaker play audio file finish.[%s(%d)]");
    return result;
}

bool CIPSpeakerManager::StartTTSBroadcast(std::vector<TTSResponseError>& errors,
                                          const TTSRequestParam& request) {
    BCAST_LOG(3, "[%s]Start TTSRequest.[%s(%d)]");
    ClearBroadcastParam();
    SetStopFlag(false);
    if (!IsStopped() && !CBroadcastSession::StartBroadcastByTTS(request, errors)) {
        BCAST_LOG(5, "[%s]Start broadcast by tts failed.[%s(%d)]");
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    ttsRequest_ = request;
    broadcastKind_ = kBroadcastTTS;
    for (int32_t id : request.elementIDs) {
        speakerStates_[id] = SpeakerEntry();
    }
    BCAST_LOG(3, "[%s]Start tts request succ.[%s(%d)]");
    return true;
}

void CIPSpeakerManager::StopTTSBroadcast() {
    TTSRequestParam request;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        request = ttsRequest_;
    }
    if (!request.PlayType) {
        return;  // no text-to-speech broadcast runs
    }
    // The stop is the same request with its start flag cleared.
    request.PlayType = false;
    std::vector<TTSResponseError> errors;
    if (!CBroadcastSession::StartBroadcastByTTS(request, errors)) {
        BCAST_LOG(5, "[%s]Stop broadcast by tts failed.[%s(%d)]");
    }
}

bool CIPSpeakerManager::StartPromptVoice() {
    const std::vector<std::string> groups = PromptGroups();
    if (groups.empty()) {
        BCAST_LOG(4, "[%s]Donot need to start prompt voice.[%s(%d)]");
        return true;
    }
    if (!CBroadcastSession::StartPromptVoice(groups)) {
        BCAST_LOG(5, "[%s]Start prompt voice failed.[%s(%d)]");
        return false;
    }
    return true;
}

void CIPSpeakerManager::StopPromptVoice() {
    if (!IsPromptVoiceActive()) {
        BCAST_LOG(4, "[%s]Do not need to stop prompt voice.[%s(%d)]");
        return;
    }
    const std::vector<std::string> groups = PromptGroups();
    if (groups.empty()) {
        BCAST_LOG(4, "[%s]Donot need to stop prompt voice.[%s(%d)]");
        return;
    }
    if (!CBroadcastSession::StopPromptVoice(groups)) {
        BCAST_LOG(5, "[%s]stop prompt voice failed.[%s(%d)]");
    }
}

void CIPSpeakerManager::WaitPromptVoicePlayFinish() {
    BCAST_LOG(3, "[%s]Start to wait prompt voice play finish[%s(%d)]");
    // No time-out: the wait ends when a speaker finishes its prompt tone, the tone is over, or on a stop.
    while (IsPromptVoiceActive() && !IsStopped() && !AnyPromptToneFinished()) {
        BusinessCommon::MSleep(kPollMs);
    }
    BCAST_LOG(3, "[%s]Finish play prompt voice.[%s(%d)]");
}

bool CIPSpeakerManager::StartVoiceRecord(int32_t encodeType) {
    if (!voiceRecorder_) {
        BCAST_LOG(5, "[%s]start voice record failed, input param is nullptr.[%s(%d)]");
        return false;
    }
    std::string dir = BusinessCommon::CFrameSystemConfigMgr::Instance()->GetVideoCaptureDataPath();
    std::replace(dir.begin(), dir.end(), '\\', '/');
    const std::string now = Tal::Base::TimeUtil::TimeT2StrShortDatetime(std::time(nullptr));
    dir += "Audio/" + now.substr(0, 8) + "/";
    BCAST_LOG(3, "[%s]Voice record save to: %s[%s(%d)]", dir.c_str());
    if (!Tal::Base::FileSystem::DirectoryExists(dir) && !Tal::Base::FileSystem::MakeFullDir(dir)) {
        BCAST_LOG(5, "[%s]Make full dir failed.[%s(%d)]");
        return false;
    }
    const std::string path =
        dir + now + "_" + std::to_string(static_cast<long long>(clock())) + "_broadcast.wav";
    if (!voiceRecorder_->StartRecord(path, encodeType)) {
        BCAST_LOG(5, "[%s]Start record failed. file save path: %s, encode type: %d[%s(%d)]", path.c_str(),
                  encodeType);
        Tal::Base::FileSystem::DeleteFileW(path);
        return false;
    }
    return true;
}

void CIPSpeakerManager::UploadRecordFile() {
    if (BusinessCommon::CUserCommonManager::Instance()->GetClientType() == 1) {
        return;
    }
    const BroadcastBaseConfig config = CIPSpeakerConfigManager::Instance()->GetConfig();
    RecordTaskParam record;
    int kind;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& speaker : speakerStates_) {
            record.recordDevice += (record.recordDevice.empty() ? "" : ",") + std::to_string(speaker.first);
        }
        record.recordStartTime = startTime_;
        kind = broadcastKind_;
        record.recordFilePath = kind == kBroadcastFile ? playFilePath_ : std::string();
    }
    if (record.recordDevice.empty() || !config.Record) {
        return;
    }
    bool ok = true;
    if (kind == kBroadcastSpeak) {
        record.mode = 0;
        record.recordFilePath = voiceRecorder_->RecordFilePath();
        if (record.recordFilePath.empty()) {
            return;  // the talk ended before its recording began: nothing to upload, nothing failed
        }
        ok = CMediaFileManager::Instance()->UploadRecordFile(record);
    } else if (kind == kBroadcastFile) {
        record.mode = 1;
        ok = CMediaFileManager::Instance()->UpdateMediaRecord(record);
    }
    if (!ok) {
        BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
    }
}

}  // namespace BroadCastPlugin
