#include "BroadCastPlugin/logical/IPSpeakerManager/PollWait.h"

#include "framework/business/BusinessCommon.h"

namespace BroadCastPlugin {

void PollWhile(const std::function<bool()>& waiting) {
    while (waiting()) {
        BusinessCommon::MSleep(kPollIntervalMs);
    }
}

}  // namespace BroadCastPlugin
