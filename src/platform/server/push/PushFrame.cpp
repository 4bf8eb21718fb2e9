#include "platform/server/push/PushFrame.h"

#include "platform/server/json/Json.h"

namespace Platform {

std::string PushFrameText(const PushFrame& frame) {
    Json::CWriter w;
    w.BeginObject();
    w.Int("MessageType", frame.messageType).Int("EventType", frame.eventType);
    w.BeginObject("Msg").Int("ProtocolType", frame.protocolType).Int("Module", frame.module);
    w.Raw("Data", frame.dataJson.empty() ? "{}" : frame.dataJson);
    w.EndObject().EndObject();
    return w.Text();
}

std::string BroadcastStatusData(const std::vector<SpeakerStatus>& list) {
    Json::CWriter w;
    w.BeginObject().BeginObject("Event").BeginArray("BroadcastStatusList");
    for (const SpeakerStatus& s : list) {
        w.BeginObject();
        w.String("BoardcastGroupGUID", s.groupGuid).Int("ResourceID", s.resourceId);
        w.Int("ErrorCode", s.errorCode).Int("ErrorModule", s.errorModule).Int("ResourceType", s.resourceType);
        w.Int("ResourceStatus", s.resourceStatus).Int("Status", s.status);
        if (s.promptToneBeginEnd != kPromptNone) {
            w.Int("PromptToneBeginEnd", s.promptToneBeginEnd);
        }
        w.EndObject();
    }
    w.EndArray().EndObject().EndObject();
    return w.Text();
}

PushFrame BroadcastStatusFrame(const std::vector<SpeakerStatus>& list) {
    PushFrame frame;
    frame.dataJson = BroadcastStatusData(list);
    return frame;
}

}  // namespace Platform
