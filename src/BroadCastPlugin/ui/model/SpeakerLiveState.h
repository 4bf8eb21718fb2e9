#pragma once
// What the console shows of one speaker during broadcasts: a small state machine fed by the controller's
// broadcast events and the terminal list's online flag.

#include <QString>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerEventCodes.h"

namespace BroadCastPlugin {

/// The states an operator filters by. Offline is the terminal's own state; the others follow broadcasts.
enum class SpeakerLiveState { Idle = 0, Connecting = 1, Playing = 2, Failed = 3, Offline = 4 };

/// The platform's mapped resource status of an offline speaker.
constexpr int32_t kResourceOffline = 4;

struct SpeakerLive {
    SpeakerLiveState state = SpeakerLiveState::Idle;
    bool online = true;       ///< from the terminal list and offline pushes
    bool promptTone = false;  ///< a prompt tone plays before the talk
    ErrorCode error;          ///< the failure shown with the Failed state
};

/// Applies one event about this speaker. Returns true when what is shown changed.
bool ApplySpeakerEvent(const IPSpeakerNotifyParam& event, SpeakerLive& speaker);
/// A broadcast ended (or a new one starts): connecting and playing speakers are idle again. With
/// `clearFailures` the failures of the previous broadcast are forgotten too. True when anything changed.
bool ResetSpeaker(SpeakerLive& speaker, bool clearFailures);
/// The state as shown, offline winning over the rest.
SpeakerLiveState ShownState(const SpeakerLive& speaker);
/// Translated name of a state.
QString StateText(SpeakerLiveState state);
/// The user's text for a failure, from the error-text library.
QString ErrorText(const ErrorCode& error);

}  // namespace BroadCastPlugin
