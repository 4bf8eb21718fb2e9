#pragma once
// The numbers of the broadcast events and of the platform's speaker pushes, by name. The values are the
// protocol's and the UI's: they never change.

#include <cstdint>

namespace BroadCastPlugin {

/// Speaker status values pushed by the platform ("Status").
enum SpeakerPushStatus {
    kPushConnecting = 0,
    kPushPlaying = 1,
    kPushFailed = 2,
    kPushStopped = 3,
    kPushPromptFinished = 100,
    kPushPromptStopped = 101,
};
/// Statuses 100 to 103 are the prompt tone's: the speaker has not started the broadcast yet.
constexpr int32_t kPushPromptToneFirst = 100;
constexpr int32_t kPushPromptToneLast = 103;

/// Whole-broadcast stages of type 0 events.
enum BroadcastStage {
    kStageStarted = 0,
    kStageFileDone = 1,
    kStageFailed = 2,
    kStagePromptFinished = 3,
    kStagePromptWaited = 4,
    kStageTalkReady = 5,
    kStageEncodePrepare = 6,
    kStageEncodeRunning = 7,
};

/// Event kinds of IPSpeakerNotifyParam::type.
enum NotifyKind { kNotifyStage = 0, kNotifySpeakerStatus = 1, kNotifyResourceStatus = 2 };

/// What became of a speaker's play in this broadcast (SpeakerEntry::playState).
enum SpeakerPlayState { kPlayNone = -1, kPlayFinished = 1, kPlayFailed = 2 };

/// The broadcast status the module reports to the platform for its device targets.
enum ServerBroadcastStatus { kServerStarted = 1, kServerFailed = 2, kServerStopped = 3 };

/// "PromptToneBeginEnd" of a push.
enum PromptToneEdge { kPromptToneBegins = 0, kPromptToneEnds = 1 };

/// "AudioSource" of an address request.
enum AudioSource { kAudioSourceLive = 1, kAudioSourceFile = 2 };

}  // namespace BroadCastPlugin
