#pragma once
// Broadcast business logic: live talk, file and text-to-speech broadcasts, prompt tones, recording,
// listening, and the state of each speaker as the platform reports it.

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
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"

namespace BroadCastPlugin {

class CVoiceCapture;
class CVoiceFileEncode;
class CVoiceRecord;
class CVoiceTransferManager;

/// What the manager remembers of one speaker of the running broadcast.
struct SpeakerEntry {
    std::string groupGUID;
    bool promptToneFinished = false;
    int32_t playState = -1;  ///< 1 play finished, 2 play failed, -1 neither
    int32_t status = -1;     ///< last status the server reported
    ErrorCode error;         ///< last error the server reported
};

/// Kinds of broadcast.
enum BroadcastKind { kBroadcastNone = -1, kBroadcastSpeak = 0, kBroadcastFile = 1, kBroadcastTTS = 2 };

/// Stream access types of speakers.
enum StreamAccessType {
    kAccessAuto = 0,
    kAccessDelegate = 2,
    kAccessDirect = 3,
    kAccessSystemDefault = 4,
    kAccessCenterDelegate = 20,
};

/// The transport targets of one broadcast, built from the platform's addresses.
struct BroadcastTargets {
    std::vector<ZPSTransferTarget> zps;
    std::vector<SDKTransferTarget> sdk;
    std::vector<OEMTransferTarget> oem;
};

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
    // Caller holds mutex_.
    void NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params);
    void ClearBroadcastParamLocked();
    void SetStopFlagLocked(bool stopped);
    IPSpeakerNotifyParam StageEvent(int32_t broadcastStatus, int64_t requestID) const;
    /// Shared by the live talk and the file broadcast: records the speakers of the addresses.
    void RecordSpeakers(const std::vector<BroadcastUrlInfo>& urls);
    /// The steps both starts share: elements, configuration, addresses and speaker entries. False (with
    /// the step's log line) when one fails; a step skipped by a stop does not fail.
    bool PrepareBroadcast(const std::vector<int32_t>& elementIDs, bool filePlayback,
                          BroadcastBaseConfig& config, std::vector<BroadcastUrlInfo>& urls);
    /// The end of a live talk; returns what the start returns.
    bool FinishSpeak(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                     bool deviceTargets);
    bool FinishPlayFile(bool result, const std::vector<int32_t>& elementIDs, int64_t requestID,
                        bool deviceTargets);
    /// Starts the SDK and RTP senders; false when the SDK start fails.
    bool StartDeviceTransports(const BroadcastTargets& targets);
    void AddOperationLog(int logType, const std::vector<int32_t>& elementIDs) const;
    std::vector<std::string> PromptGroups() const;
    bool AnyPromptToneFinished() const;
    /// Whether a speaker of these broadcast groups has not reported, or reports connecting or a prompt tone.
    bool AnySpeakerConnecting(const std::set<std::string>& groups) const;
    bool AllSpeakersFailed() const;
    void OnEncodeState(EncodeState state, int64_t requestID);

    mutable std::mutex mutex_;  // guards the record below; the notify callback runs under it
    NotifyCallback notifyCallback_;
    int32_t broadcastKind_ = kBroadcastNone;
    bool promptVoiceActive_ = false;
    bool stopped_ = true;
    std::map<int32_t, SpeakerEntry> speakerStates_;
    TTSRequestParam ttsRequest_;
    std::string playFilePath_;
    std::string startTime_;
    bool listenStopped_ = true;
    int32_t listenDeviceID_ = -1;

    std::unique_ptr<CVoiceCapture> capture_;
    std::unique_ptr<CVoiceFileEncode> fileEncoder_;
    std::unique_ptr<CVoiceRecord> voiceRecorder_;
};

/// Whether the prompt-tone-finished event was already sent in the running broadcast.
extern std::atomic<bool> g_promptToneReported;

namespace details {
/// Element id to the id of its encoding device, downloading the element first; -1 when unknown.
int32_t BroadcastElementID2DeviceID(int32_t elementID);
/// Makes every element known locally; false when one cannot be downloaded.
bool DownloadElements(const std::vector<int32_t>& elementIDs);
/// The device behind an element, null when unknown.
std::shared_ptr<ResourceManager::CDevice> DeviceOfElement(int32_t elementID);
/// The device to listen to for an id that names a speaker's broadcast element (what the controller and the
/// web page pass) or a device: the element's device when the id is an element, else the id itself.
int32_t ListenDeviceID(int32_t id);
}  // namespace details

}  // namespace BroadCastPlugin
