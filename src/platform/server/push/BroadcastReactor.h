#pragma once
// Turns what clients tell the platform about their broadcasts into speaker status pushes. For now the
// platform reacts to the calls themselves (a prompt tone lasts the configured time); simulated speakers and
// a streaming server report through the same publisher later.

#include <string>
#include <vector>

#include "platform/server/fixture/Fixture.h"
#include "platform/server/push/PushFrame.h"
#include "platform/server/state/BroadcastRegistry.h"

namespace Platform {

class CBroadcastReactor {
public:
    CBroadcastReactor(const Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink,
                      IScheduler& scheduler);

    /// A group was handed out. A streaming-server group asked with the prompt tone in front plays it now:
    /// the streaming server puts it before the talk.
    void OnGroupCreated(const BroadcastGroup& group);
    /// Pushes 102 then 103 for every speaker of the groups, and 100 once the prompt tone has played.
    void OnPromptToneStart(const std::vector<std::string>& guids);
    /// Pushes 101 for the speakers of groups whose prompt tone was still playing.
    void OnPromptToneStop(const std::vector<std::string>& guids);
    /// A client's UpdateBroadcastStatus: 1 started (speakers playing), 2 failed (with the client's error),
    /// 3 stopped. `elementIds` empty means the whole group.
    void OnBroadcastStatus(const std::string& guid, const std::vector<int>& elementIds, int status,
                           int errorModule, int errorCode);
    /// Text-to-speech plays started and stopped; the client knows them by no group, so the GUID is empty.
    void OnTtsStarted(const std::vector<int>& elementIds);
    void OnTtsStopped(const std::vector<int>& elementIds);

    /// How long a prompt tone plays.
    int PromptToneMs() const;

private:
    void StartPromptTone(const BroadcastGroup& group);
    void FinishPromptTone(const std::string& guid, int sequence);
    void PublishStatuses(const std::vector<SpeakerStatus>& list);

    const Fixture& fixture_;
    CBroadcastRegistry& registry_;
    IPushSink& sink_;
    IScheduler& scheduler_;
};

}  // namespace Platform
