#pragma once
// The state of each speaker of the running broadcast as the platform reports it, the broadcast's stop and
// prompt-tone flags, and the broadcast events that follow from them. One lock guards it all; the event
// callback runs under it, so that events leave in the order the states changed.

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

struct PushMessage;

/// What the manager remembers of one speaker of the running broadcast.
struct SpeakerEntry {
    std::string groupGUID;
    bool promptToneFinished = false;
    int32_t playState = -1;  ///< 1 play finished, 2 play failed, -1 neither
    int32_t status = -1;     ///< last status the server reported
    ErrorCode error;         ///< last error the server reported
};

/// Whether the prompt-tone-finished event was already sent in the running broadcast.
extern std::atomic<bool> g_promptToneReported;

class CSpeakerStateTable {
public:
    using NotifyCallback = std::function<void(const std::vector<IPSpeakerNotifyParam>&)>;
    /// Runs under the lock whenever the stop flag is set, with its new value.
    using StopHook = std::function<void(bool stopped)>;

    explicit CSpeakerStateTable(StopHook stopHook);

    void SetNotifyCallback(NotifyCallback callback);
    void Notify(const std::vector<IPSpeakerNotifyParam>& params);

    /// Forgets the speakers and the prompt tone and sets the stop flag.
    void Clear();
    void SetStopped(bool stopped);
    bool IsStopped() const;
    void SetPromptVoiceActive(bool active);
    bool IsPromptVoiceActive() const;

    /// Enters the speakers behind the addresses, each with its broadcast group.
    void RecordSpeakers(const std::vector<BroadcastUrlInfo>& urls);
    /// Enters speakers with no group (a text-to-speech broadcast).
    void AddSpeakers(const std::vector<int32_t>& elementIDs);
    std::map<int32_t, SpeakerEntry> Snapshot() const;
    /// The broadcast groups of the speakers, each once, in the order of the speaker ids.
    std::vector<std::string> Groups() const;

    /// Whether a speaker of these broadcast groups has not reported, or reports connecting or a prompt tone.
    bool AnySpeakerConnecting(const std::set<std::string>& groups) const;
    bool AllSpeakersFailed() const;
    bool AnyPromptToneFinished() const;

    /// A live talk failed: a failed stage event for each element, whose speaker is marked failed.
    void NotifyTalkFailed(const std::vector<int32_t>& elementIDs, int64_t requestID,
                          const ErrorCode& failure);
    /// A file broadcast ended: an event for each element, finished or failed by its speaker's own last
    /// error (or `failure` when that one is clean) and `result`.
    void NotifyFilePlayed(const std::vector<int32_t>& elementIDs, int64_t requestID, const ErrorCode& failure,
                          bool result);

    /// Turns a broadcast status push into events and per-speaker state.
    void ApplyStatusPush(const PushMessage& message);

private:
    // Caller holds mutex_.
    void NotifyLocked(const std::vector<IPSpeakerNotifyParam>& params);
    void SetStoppedLocked(bool stopped);
    bool OwnGroupLocked(const std::string& groupGUID) const;
    /// The speaker's part of a push: its status, error and prompt tone; false when the push is not for it.
    bool ApplySpeakerStatusLocked(IPSpeakerNotifyParam& event, int32_t status, int32_t promptTone);

    const StopHook stopHook_;
    mutable std::mutex mutex_;  // guards what follows; the notify callback runs under it
    NotifyCallback notifyCallback_;
    bool stopped_ = true;
    bool promptVoiceActive_ = false;
    std::map<int32_t, SpeakerEntry> speakers_;
};

/// A whole-broadcast event of the given stage.
IPSpeakerNotifyParam StageEvent(int32_t broadcastStatus, int64_t requestID);

}  // namespace BroadCastPlugin
