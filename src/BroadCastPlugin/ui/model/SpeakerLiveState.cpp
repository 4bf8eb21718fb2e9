#include "BroadCastPlugin/ui/model/SpeakerLiveState.h"

#include <QCoreApplication>

#include "framework/errortext/ErrorCodeTrans.h"

namespace BroadCastPlugin {

namespace {
bool SetState(SpeakerLive& speaker, SpeakerLiveState state) {
    if (speaker.state == state) {
        return false;
    }
    speaker.state = state;
    return true;
}
}  // namespace

bool ApplySpeakerEvent(const IPSpeakerNotifyParam& event, SpeakerLive& speaker) {
    switch (event.type) {
        case kNotifyStage:
            // Per-element results of a start: a failure, or the end of a file sent in full.
            if (event.broadcastStatus == kStageFailed) {
                speaker.error = event.error;
                SetState(speaker, SpeakerLiveState::Failed);
                return true;
            }
            return false;
        case kNotifyResourceStatus:
            if (event.resourceStatus == kResourceOffline && speaker.online) {
                speaker.online = false;
                return true;
            }
            return false;
        case kNotifySpeakerStatus:
            break;
        default:
            return false;
    }
    switch (event.speakerStatus) {
        case kPushConnecting:
            speaker.promptTone = event.promptVoiceActive;
            return SetState(speaker, SpeakerLiveState::Connecting);
        case kPushPlaying:
            speaker.online = true;
            speaker.promptTone = false;
            return SetState(speaker, SpeakerLiveState::Playing);
        case kPushFailed:
            speaker.error = event.error;
            speaker.promptTone = false;
            SetState(speaker, SpeakerLiveState::Failed);
            return true;
        case kPushStopped:
            speaker.promptTone = false;
            // A failure stays visible after the stop that follows it.
            return speaker.state != SpeakerLiveState::Failed && SetState(speaker, SpeakerLiveState::Idle);
        case kPushPromptFinished:
        case kPushPromptStopped: {
            // The event carries whether the prompt tone still plays.
            const bool changed = speaker.promptTone != event.promptVoiceActive;
            speaker.promptTone = event.promptVoiceActive;
            return changed;
        }
        default:
            return false;
    }
}

bool ResetSpeaker(SpeakerLive& speaker, bool clearFailures) {
    bool changed = false;
    if (speaker.state == SpeakerLiveState::Connecting || speaker.state == SpeakerLiveState::Playing ||
        (clearFailures && speaker.state == SpeakerLiveState::Failed)) {
        speaker.state = SpeakerLiveState::Idle;
        changed = true;
    }
    if (clearFailures) {
        speaker.error = ErrorCode();
    }
    if (speaker.promptTone) {
        speaker.promptTone = false;
        changed = true;
    }
    return changed;
}

SpeakerLiveState ShownState(const SpeakerLive& speaker) {
    return speaker.online ? speaker.state : SpeakerLiveState::Offline;
}

QString StateText(SpeakerLiveState state) {
    switch (state) {
        case SpeakerLiveState::Idle:
            return QCoreApplication::translate("BroadCastPlugin::SpeakerState", "Idle");
        case SpeakerLiveState::Connecting:
            return QCoreApplication::translate("BroadCastPlugin::SpeakerState", "Connecting");
        case SpeakerLiveState::Playing:
            return QCoreApplication::translate("BroadCastPlugin::SpeakerState", "Playing");
        case SpeakerLiveState::Failed:
            return QCoreApplication::translate("BroadCastPlugin::SpeakerState", "Failed");
        case SpeakerLiveState::Offline:
            return QCoreApplication::translate("BroadCastPlugin::SpeakerState", "Offline");
    }
    return QString();
}

QString ErrorText(const ErrorCode& error) {
    if (error.IsSucceed()) {
        return QString();
    }
    return QString::fromStdString(ErrorCodeTrans::GetErrorInfoByErrorCode(error));
}

}  // namespace BroadCastPlugin
