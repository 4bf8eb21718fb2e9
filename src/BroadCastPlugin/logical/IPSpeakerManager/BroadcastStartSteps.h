#pragma once
// The steps the live talk and the file broadcast share: the elements, configuration, addresses and speaker
// entries before the audio starts; the device senders; and the end of a start (operation log, the
// speakers' events, the status reported to the platform for device targets).

#include <cstdint>
#include <functional>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerTargets.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

class CSpeakerStateTable;

/// What a start knows once its speakers are entered: the broadcast configuration and their addresses.
struct PreparedBroadcast {
    BroadcastBaseConfig config;
    std::vector<BroadcastUrlInfo> urls;
};

/// What differs at the end of a start: its log lines and the events its speakers get.
struct StartEnding {
    std::function<void()> logStopped;                              ///< a stop came during the start
    std::function<void(const ErrorCode& failure)> reportSpeakers;  ///< the start ran to its end
    std::function<void()> logFinished;
};

class CBroadcastStartSteps {
public:
    explicit CBroadcastStartSteps(CSpeakerStateTable& states) : states_(states) {}

    /// Elements, configuration, addresses and speaker entries. False (with the step's log line) when one
    /// fails; a step skipped by a stop does not fail.
    bool Prepare(const std::vector<int32_t>& elementIDs, bool filePlayback, PreparedBroadcast& prepared);
    /// Starts the SDK and RTP senders; false when the SDK start fails.
    bool StartDeviceTransports(const BroadcastTargets& targets);
    /// The end of a start; returns what the start returns (true when a stop came). The reason of a
    /// failure stays the thread's last error across the calls of the end.
    bool Conclude(bool result, const std::vector<int32_t>& elementIDs, bool deviceTargets,
                  const StartEnding& ending);
    /// Reports the broadcast status of the device targets to the platform, one call per broadcast group.
    void ReportServerStatus(int32_t status);
    static void AddOperationLog(int logType, const std::vector<int32_t>& elementIDs);

private:
    CSpeakerStateTable& states_;
};

}  // namespace BroadCastPlugin
