#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/PushMessage.h"

#include "framework/netcomm/RapidJsonProto.h"

namespace BroadCastPlugin {

namespace {

// {"Event":{"BroadcastStatusList":[..]}} or {"Event":{"UpdateVersion":{..}}} at dataPath.
void ReadEvents(const NetworkCommunication::CRapidJsonProto& document, const std::string& dataPath,
                PushMessage& message) {
    message.updateVersion = document.is_exist(dataPath + "/Event/UpdateVersion");
    message.deviceNotice = TOOL::DeviceStatusNotice::Read(document, dataPath);
    const std::string list = dataPath + "/Event/BroadcastStatusList";
    const int count = document.get_cnt(list);
    std::vector<BroadcastStatusItem>& out = message.statusList;
    out.reserve(count > 0 ? static_cast<std::size_t>(count) : 0);
    for (int i = 1; i <= count; ++i) {
        const std::string p = list + "[" + std::to_string(i) + "]/";
        BroadcastStatusItem item;
        item.groupGUID = document.get_v(p + "BoardcastGroupGUID", "");
        item.resourceID = document.get_int_v(p + "ResourceID", -1);
        item.errorModule = document.get_int_v(p + "ErrorModule", -1);
        item.errorCode = document.get_int_v(p + "ErrorCode", -1);
        item.resourceType = document.get_int_v(p + "ResourceType", -1);
        item.resourceStatus = document.get_int_v(p + "ResourceStatus", -1);
        item.status = document.get_int_v(p + "Status", -1);
        item.promptToneBeginEnd = document.get_int_v(p + "PromptToneBeginEnd", -1);
        out.push_back(std::move(item));
    }
}

}  // namespace

PushMessage PushMessage::FromDocument(const NetworkCommunication::CRapidJsonProto& document,
                                      const std::string& dataPath) {
    PushMessage message;
    message.data = document.get_node_str(dataPath);
    ReadEvents(document, dataPath, message);
    return message;
}

PushMessage PushMessage::FromData(const std::string& data) {
    NetworkCommunication::CRapidJsonProto document;
    const bool parsed =
        document.set_str(data);  // a text that does not parse reads as a message without the list
    PushMessage message;
    message.data = data;
    if (parsed) {
        ReadEvents(document, "", message);
    }
    return message;
}

}  // namespace BroadCastPlugin
