// File, text-to-speech, prompt-tone and recording broadcasts of the speaker manager.

#include <set>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/PollWait.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"

namespace BroadCastPlugin {

namespace {
constexpr int kFrameIntervalG711Ms = 40;
constexpr int kFrameIntervalMp3Ms = 24;

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

void CIPSpeakerManager::OnEncodeState(EncodeState state, int64_t requestID) {
    IPSpeakerNotifyParam event = StageEvent(-1, requestID);
    if (state == EncodePrepare) {
        event.broadcastStatus = kStageEncodePrepare;
    } else if (state == EncodeRunning) {
        event.broadcastStatus = kStageEncodeRunning;
    }
    Notify({event});
}

bool CIPSpeakerManager::WaitStreamingSpeakers(const std::vector<BroadcastUrlInfo>& urls) {
    BCAST_LOG(3, "[%s]Start to wait all device connect finish by zps.[%s(%d)]");
    const std::set<std::string> streamingGroups = StreamingGroups(urls);
    PollWhile([&] { return !IsStopped() && states_.AnySpeakerConnecting(streamingGroups); });
    BCAST_LOG(3, "[%s]Finish to wait all device connect by zps.[%s(%d)]");
    if (states_.AllSpeakersFailed()) {
        BCAST_LOG(4, "[%s]All device has connect failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CIPSpeakerManager::StartPlayAudioFile(const std::vector<int32_t>& elementIDs,
                                           const std::string& filePath, int64_t requestID) {
    BCAST_LOG(3, "[%s]Start ipspeaker play audio file. broadcast element id count:%d, file path: %s.[%s(%d)]",
              static_cast<int>(elementIDs.size()), filePath.c_str());
    BeginBroadcast(kBroadcastFile, requestID, filePath);
    BroadcastTargets targets;
    const bool result = RunPlayFileSteps(elementIDs, filePath, requestID, targets);
    return FinishPlayFile(result, elementIDs, requestID, targets.HasDeviceTargets());
}

bool CIPSpeakerManager::RunPlayFileSteps(const std::vector<int32_t>& elementIDs, const std::string& filePath,
                                         int64_t requestID, BroadcastTargets& targets) {
    PreparedBroadcast prepared;
    if (!steps_.Prepare(elementIDs, true, prepared)) {
        return false;
    }
    const int32_t encodeType = prepared.config.AudioCompressionType;
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    if (encodeType == kEncodeG711U) {
        transfer->SetFrameInterval(kFrameIntervalG711Ms);
    } else if (encodeType == kEncodeMP3) {
        transfer->SetFrameInterval(kFrameIntervalMp3Ms);
    }
    targets = CSpeakerTargets::Build(prepared.urls, encodeType);
    if (!IsStopped() && !targets.zps.empty()) {
        if (!transfer->StartSendToZPS(targets.zps) || !WaitStreamingSpeakers(prepared.urls)) {
            return false;
        }
    }
    if (!steps_.StartDeviceTransports(targets)) {
        return false;
    }
    fileEncoder_->SetDataCallback(
        [transfer](const uint8_t* data, int size) { transfer->SendData(data, static_cast<int32_t>(size)); });
    fileEncoder_->SetStateCallback([this, requestID](EncodeState state) { OnEncodeState(state, requestID); });
    if (!IsStopped() && !fileEncoder_->StartEncode(filePath, encodeType)) {
        BCAST_LOG(5, "[%s]Start local file encode failed. [%s(%d)]");
        return false;
    }
    transfer->SetInputFinished();
    transfer->WaitTransferFinish();
    return true;
}

bool CIPSpeakerManager::FinishPlayFile(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                                       bool deviceTargets) {
    StartEnding ending;
    ending.logStopped = [] { BCAST_LOG(3, "[%s]Play audio file has stopped.[%s(%d)]"); };
    ending.reportSpeakers = [&](const ErrorCode& failure) {
        states_.NotifyFilePlayed(elementIDs, requestID, failure, result);
    };
    ending.logFinished = [] { BCAST_LOG(3, "[%s]ipspeaker play audio file finish.[%s(%d)]"); };
    return steps_.Conclude(result, elementIDs, deviceTargets, ending);
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
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ttsRequest_ = request;
        broadcastKind_ = kBroadcastTTS;
    }
    states_.AddSpeakers(request.elementIDs);
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
    const std::vector<std::string> groups = states_.Groups();
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
    const std::vector<std::string> groups = states_.Groups();
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
    PollWhile([this] { return IsPromptVoiceActive() && !IsStopped() && !states_.AnyPromptToneFinished(); });
    BCAST_LOG(3, "[%s]Finish play prompt voice.[%s(%d)]");
}

bool CIPSpeakerManager::StartVoiceRecord(int32_t encodeType) {
    if (!voiceRecorder_) {
        BCAST_LOG(5, "[%s]start voice record failed, input param is nullptr.[%s(%d)]");
        return false;
    }
    return recording_.Start(encodeType);
}

void CIPSpeakerManager::UploadRecordFile() {
    RecordSource source;
    source.speakers = GetSpeakerStates();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        source.startTime = startTime_;
        source.kind = broadcastKind_;
        source.playFilePath = playFilePath_;
    }
    recording_.Upload(source);
}

}  // namespace BroadCastPlugin
