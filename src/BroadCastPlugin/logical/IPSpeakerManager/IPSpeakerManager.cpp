#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"

#include <ctime>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/base/Singleton.h"
#include "framework/base/TimeUtil.h"

namespace BroadCastPlugin {

namespace {
/// Frames a group may fall behind a live talk before its oldest are dropped: one to two seconds of capture
/// frames (20 or 40 ms each). A group further behind than that would only play stale speech.
constexpr std::size_t kLiveQueueFrames = 50;
}  // namespace

CIPSpeakerManager* CIPSpeakerManager::Instance() {
    return Tal::Base::CSingleton<CIPSpeakerManager>::Instance();
}

CIPSpeakerManager::CIPSpeakerManager()
    : capture_(std::make_unique<CVoiceCapture>()),
      fileEncoder_(std::make_unique<CVoiceFileEncode>()),
      voiceRecorder_(std::make_unique<CVoiceRecord>()),
      // The senders and a file conversion in progress see a stop at once: a stop ends a file broadcast
      // within a frame interval even while its task still waits for the sending to finish.
      states_([this](bool stopped) {
          CVoiceTransferManager::Instance()->SetStopFlag(stopped);
          if (stopped) {
              fileEncoder_->StopEncode();
          }
      }),
      steps_(states_),
      recording_(*voiceRecorder_) {}

CIPSpeakerManager::~CIPSpeakerManager() = default;

bool CIPSpeakerManager::Init(NotifyCallback callback) {
    states_.SetNotifyCallback(std::move(callback));
    ResetRecord();
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
    states_.SetNotifyCallback(nullptr);
}

void CIPSpeakerManager::Notify(const std::vector<IPSpeakerNotifyParam>& params) {
    states_.Notify(params);
}

void CIPSpeakerManager::BeginBroadcast(BroadcastKind kind, int64_t requestID, const std::string& filePath) {
    Notify({StageEvent(kStageStarted, requestID)});
    ClearBroadcastParam();
    SetStopFlag(false);
    std::lock_guard<std::mutex> lock(mutex_);
    playFilePath_ = filePath;
    startTime_ = Tal::Base::TimeUtil::TimeT2StrDatetime(std::time(nullptr));
    broadcastKind_ = kind;
}

bool CIPSpeakerManager::StartSpeakVoice(const std::vector<int32_t>& elementIDs, int64_t requestID) {
    BCAST_LOG(3, "[%s]Start ipspeaker voice speak. broadcast element id count:%d.[%s(%d)]",
              static_cast<int>(elementIDs.size()));
    BeginBroadcast(kBroadcastSpeak, requestID, std::string());
    BroadcastTargets targets;
    const bool result = RunSpeakSteps(elementIDs, requestID, targets);
    return FinishSpeak(result, elementIDs, requestID, targets.HasDeviceTargets());
}

bool CIPSpeakerManager::RunSpeakSteps(const std::vector<int32_t>& elementIDs, int64_t requestID,
                                      BroadcastTargets& targets) {
    PreparedBroadcast prepared;
    if (!steps_.Prepare(elementIDs, false, prepared)) {
        return false;
    }
    const BroadcastBaseConfig& config = prepared.config;
    CVoiceTransferManager* transfer = CVoiceTransferManager::Instance();
    capture_->SetPCMDataCallback(
        [this](const uint8_t* data, int size) { voiceRecorder_->InputData(data, size); });
    capture_->SetEncodeDataCallback(
        [transfer](const uint8_t* data, int size) { transfer->SendData(data, static_cast<int32_t>(size)); });
    transfer->SetLiveQueueLimit(kLiveQueueFrames);
    if (!IsStopped() && !capture_->StartCapture(config.AudioCompressionType)) {
        BCAST_LOG(5, "[%s]Start voice capture failed.[%s(%d)]");
        return false;
    }
    targets = CSpeakerTargets::Build(prepared.urls, config.AudioCompressionType);
    if (!IsStopped() && !targets.zps.empty() && !transfer->StartSendToZPS(targets.zps)) {
        return false;
    }
    if (config.IsPromptToneActivated && !RunPromptTone(!targets.zps.empty(), requestID)) {
        return false;
    }
    if (IsStopped()) {
        BCAST_LOG(3, "[%s]Has stop broadcast,break out.[%s(%d)]");
        return false;
    }
    Notify({StageEvent(kStageTalkReady, requestID)});
    if (!steps_.StartDeviceTransports(targets)) {
        return false;
    }
    if (!IsStopped() && config.Record && !StartVoiceRecord(config.AudioCompressionType)) {
        BCAST_LOG(5, "[%s]Start voice record failed.[%s(%d)]");
    }
    return true;
}

bool CIPSpeakerManager::RunPromptTone(bool streamingTargets, int64_t requestID) {
    states_.SetPromptVoiceActive(true);
    g_promptToneReported.store(false);
    // With streaming-server targets the prompt tone travelled with the address request.
    if (!streamingTargets && !IsStopped() && !StartPromptVoice()) {
        return false;
    }
    WaitPromptVoicePlayFinish();
    if (states_.AnyPromptToneFinished()) {
        Notify({StageEvent(kStagePromptWaited, requestID)});
    }
    return true;
}

bool CIPSpeakerManager::FinishSpeak(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                                    bool deviceTargets) {
    StartEnding ending;
    ending.logStopped = [result] { BCAST_LOG(3, "[%s]Broadcast has already: %d.[%s(%d)]", result ? 1 : 0); };
    ending.reportSpeakers = [&](const ErrorCode& failure) {
        if (!result) {
            states_.NotifyTalkFailed(elementIDs, requestID, failure);
        }
    };
    ending.logFinished = [result] {
        BCAST_LOG(3, "[%s]Start ipspeaker voice speak finish, result: %d.[%s(%d)]", result ? 1 : 0);
    };
    return steps_.Conclude(result, elementIDs, deviceTargets, ending);
}

bool CIPSpeakerManager::RequestIPSPeakerUrl(std::vector<BroadcastUrlInfo>& urls,
                                            const std::vector<int32_t>& elementIDs, bool filePlayback,
                                            int32_t defaultAccessType, bool promptVoice) {
    return CSpeakerTargets::RequestUrls(urls, elementIDs, filePlayback, defaultAccessType, promptVoice);
}

BroadcastTargets CIPSpeakerManager::BuildTargets(const std::vector<BroadcastUrlInfo>& urls,
                                                 int32_t encodeType) {
    return CSpeakerTargets::Build(urls, encodeType);
}

void CIPSpeakerManager::UpdateSeverBroadcastStatus(int32_t status) {
    steps_.ReportServerStatus(status);
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
    UpdateSeverBroadcastStatus(kServerStopped);
    const int kind = GetBroadcastKind();
    if (kind == kBroadcastSpeak || kind == kBroadcastFile) {
        std::vector<int32_t> ids;
        for (const auto& speaker : GetSpeakerStates()) {
            ids.push_back(speaker.first);
        }
        CBroadcastStartSteps::AddOperationLog(kOperationLogBroadcastStop, ids);
    }
    ClearBroadcastParam();
    BCAST_LOG(3, "[%s]Stop broadcast succ.[%s(%d)]");
}

void CIPSpeakerManager::ClearBroadcastParam() {
    BCAST_LOG(3, "[%s]Start to Clear braodcast params.[%s(%d)]");
    ResetRecord();
}

void CIPSpeakerManager::ResetRecord() {
    states_.Clear();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ttsRequest_ = TTSRequestParam();
        ttsRequest_.PlayType = false;
        playFilePath_.clear();
        startTime_.clear();
        broadcastKind_ = kBroadcastNone;
    }
    voiceRecorder_->ClearRecordFilePath();
}

int CIPSpeakerManager::GetBroadcastKind() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return broadcastKind_;
}

void CIPSpeakerManager::SetStopFlag(bool stopped) {
    states_.SetStopped(stopped);
}

bool CIPSpeakerManager::IsStopped() const {
    return states_.IsStopped();
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
    return states_.Snapshot();
}

bool CIPSpeakerManager::IsPromptVoiceActive() const {
    return states_.IsPromptVoiceActive();
}

}  // namespace BroadCastPlugin
