#pragma once
// Broadcast business logic: live talk, file and text-to-speech broadcasts, listening, and the state of each
// speaker as the platform reports it.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"

namespace BroadCastPlugin {

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

class CIPSpeakerManager {
public:
    using NotifyCallback = std::function<void(const std::vector<IPSpeakerNotifyParam>&)>;

    static CIPSpeakerManager* Instance();
    CIPSpeakerManager();
    ~CIPSpeakerManager();

    /// Stores the broadcast-state callback; the manager starts idle.
    bool Init(NotifyCallback callback);
    /// Ends any broadcast and listen and drops the callback.
    void Uninit();

    bool StartSpeakVoice(const std::vector<int32_t>& elementIDs, int64_t requestID);
    bool StartPlayAudioFile(const std::vector<int32_t>& elementIDs, const std::string& filePath,
                            int64_t requestID);
    bool StartTTSBroadcast(std::vector<TTSResponseError>& errors, const TTSRequestParam& request);
    void StopTTSBroadcast();
    /// Starts listening to a device; on failure it undoes itself. Returns whether listening runs.
    bool StartBroadcastListen(int32_t deviceID);
    bool StopBroadcastListen();
    /// Ends the running broadcast of any kind.
    void Stop();
    /// Resets the shared record to idle.
    void ClearBroadcastParam();
    /// Turns a broadcast status push into events and per-speaker state.
    void HandleWebsocketMessage(const std::string& text);

    /// Kind of the running broadcast, -1 when none.
    int GetBroadcastKind() const;
    /// Requests a stop of the running start; read at every step of a start.
    void SetStopFlag(bool stopped);
    bool IsStopped() const;
    bool IsListening() const;
    void SetListenStopFlag(bool stopped);
    /// Path of the live talk's recording, empty when none.
    std::string GetRecordedFilePath() const;
    /// Start time of the running broadcast ("YYYY-MM-DD HH:MM:SS"), empty when none.
    std::string GetStartTime() const;
    std::map<int32_t, SpeakerEntry> GetSpeakerStates() const;
    bool IsPromptVoiceActive() const;

private:
    // Caller holds mutex_.
    void NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params);
    void ClearBroadcastParamLocked();

    mutable std::mutex mutex_;
    NotifyCallback notifyCallback_;
    int32_t broadcastKind_ = kBroadcastNone;
    bool promptVoiceActive_ = false;
    bool stopped_ = true;
    std::map<int32_t, SpeakerEntry> speakerStates_;
    TTSRequestParam ttsRequest_;
    std::string playFilePath_;
    std::string startTime_;
    std::string recordedFilePath_;
    bool listenStopped_ = true;
    int32_t listenDeviceID_ = -1;
};

/// Whether the prompt-tone-finished event was already sent in the running broadcast.
extern std::atomic<bool> g_promptToneReported;

}  // namespace BroadCastPlugin
