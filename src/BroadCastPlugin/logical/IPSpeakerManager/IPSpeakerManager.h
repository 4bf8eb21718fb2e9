#pragma once
// Broadcast business logic: live talk, file and text-to-speech broadcasts, prompt tones, recording,
// listening, and the state of each speaker as the platform reports it. The manager runs the steps in their
// order; the speaker states (CSpeakerStateTable), the addresses and transport targets (CSpeakerTargets),
// the steps the starts share (CBroadcastStartSteps) and the recording (CTalkRecording) are its
// collaborators.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/BroadcastStartSteps.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerElements.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerStateTable.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerTargets.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/TalkRecording.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"

namespace BroadCastPlugin {

class CVoiceCapture;
class CVoiceFileEncode;
class CVoiceRecord;
class CVoiceTransferManager;

/// Kinds of broadcast.
enum BroadcastKind { kBroadcastNone = -1, kBroadcastSpeak = 0, kBroadcastFile = 1, kBroadcastTTS = 2 };

class CIPSpeakerManager {
public:
    using NotifyCallback = std::function<void(const std::vector<IPSpeakerNotifyParam>&)>;

    static CIPSpeakerManager* Instance();
    CIPSpeakerManager();
    ~CIPSpeakerManager();
    CIPSpeakerManager(const CIPSpeakerManager&) = delete;
    CIPSpeakerManager& operator=(const CIPSpeakerManager&) = delete;

    /// Stores the broadcast-state callback; the manager starts idle.
    bool Init(NotifyCallback callback);
    /// Ends any broadcast and listen and drops the callback.
    void Uninit();

    // Live talk.
    bool StartSpeakVoice(const std::vector<int32_t>& elementIDs, int64_t requestID);
    /// Ends the running broadcast of any kind.
    void Stop();
    /// Resets the shared record to idle.
    void ClearBroadcastParam();
    /// Reports the broadcast status of the device targets (status 1 started, 2 failed, 3 stopped).
    void UpdateSeverBroadcastStatus(int32_t status);
    /// Asks the platform for the addresses of the elements, grouped by their stream access types.
    bool RequestIPSPeakerUrl(std::vector<BroadcastUrlInfo>& urls, const std::vector<int32_t>& elementIDs,
                             bool filePlayback, int32_t defaultAccessType, bool promptVoice);

    // File, text-to-speech, prompt tone and recording.
    bool StartPlayAudioFile(const std::vector<int32_t>& elementIDs, const std::string& filePath,
                            int64_t requestID);
    bool StartTTSBroadcast(std::vector<TTSResponseError>& errors, const TTSRequestParam& request);
    void StopTTSBroadcast();
    bool StartPromptVoice();
    void StopPromptVoice();
    void WaitPromptVoicePlayFinish();
    bool StartVoiceRecord(int32_t encodeType);
    void UploadRecordFile();

    // Listening and server pushes.
    /// Starts listening to a device; on failure it undoes itself. Returns whether listening runs.
    /// `id`: the speaker's broadcast element id, or a device id (see details::ListenDeviceID).
    bool StartBroadcastListen(int32_t id);
    bool StopBroadcastListen();
    /// Turns a broadcast status push into events and per-speaker state.
    void HandleWebsocketMessage(const PushMessage& message);
    /// The same for a push's data text (parsed here).
    void HandleWebsocketMessage(const std::string& text);

    /// Kind of the running broadcast, -1 when none.
    int GetBroadcastKind() const;
    /// Requests a stop of the running start; read at every step of a start.
    void SetStopFlag(bool stopped);
    bool IsStopped() const;
    bool IsListening() const;
    /// Meter levels, lock-free: the peak of the most recent block as a fraction of full scale (0..1). The
    /// microphone of the live talk; 0 while no live talk captures.
    float GetCaptureLevel() const;
    /// The decoded stream being listened to, before the listen volume; 0 while not listening.
    float GetListenLevel() const;
    /// Volume of what the operator hears while listening, 0..100 (clamped; default 100). Kept across
    /// listens, applied at once to a listen that runs. Safe from the UI thread while a listen starts or
    /// runs on a worker.
    void SetListenVolume(int volume);
    int GetListenVolume() const;
    void SetListenStopFlag(bool stopped);
    /// Path of the live talk's recording, empty when none.
    std::string GetRecordedFilePath() const;
    /// Start time of the running broadcast ("YYYY-MM-DD HH:MM:SS"), empty when none.
    std::string GetStartTime() const;
    std::map<int32_t, SpeakerEntry> GetSpeakerStates() const;
    bool IsPromptVoiceActive() const;

    /// The transport targets of addresses: streaming-server addresses of method 7; device SDK and RTP
    /// speakers behind addresses of method 2, by their devices' type and access protocol.
    static BroadcastTargets BuildTargets(const std::vector<BroadcastUrlInfo>& urls, int32_t encodeType);

private:
    void Notify(const std::vector<IPSpeakerNotifyParam>& params);
    /// Back to idle: no speakers, no prompt tone, the stop flag set, no kind, request, file or recording.
    void ResetRecord();
    /// The first steps of a live talk or a file broadcast: the started stage, a clean record, the kind.
    void BeginBroadcast(BroadcastKind kind, int64_t requestID, const std::string& filePath);
    /// The steps of a live talk after its beginning; false when one fails. `targets` receives the targets.
    bool RunSpeakSteps(const std::vector<int32_t>& elementIDs, int64_t requestID, BroadcastTargets& targets);
    bool RunPlayFileSteps(const std::vector<int32_t>& elementIDs, const std::string& filePath,
                          int64_t requestID, BroadcastTargets& targets);
    /// The end of a live talk; returns what the start returns.
    bool FinishSpeak(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                     bool deviceTargets);
    bool FinishPlayFile(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                        bool deviceTargets);
    /// The prompt tone of a live talk, when the configuration asks for one; false when it cannot start.
    bool RunPromptTone(bool streamingTargets, int64_t requestID);
    /// Waits for the streaming-server speakers of a file broadcast to connect; false when all failed.
    bool WaitStreamingSpeakers(const std::vector<BroadcastUrlInfo>& urls);
    void OnEncodeState(EncodeState state, int64_t requestID);

    std::unique_ptr<CVoiceCapture> capture_;
    std::unique_ptr<CVoiceFileEncode> fileEncoder_;
    std::unique_ptr<CVoiceRecord> voiceRecorder_;
    CSpeakerStateTable states_;
    CBroadcastStartSteps steps_;
    CTalkRecording recording_;

    mutable std::mutex mutex_;  // guards the record below
    int32_t broadcastKind_ = kBroadcastNone;
    TTSRequestParam ttsRequest_;
    std::string playFilePath_;
    std::string startTime_;
    bool listenStopped_ = true;
    int32_t listenDeviceID_ = -1;
};

}  // namespace BroadCastPlugin
