#pragma once
// A server push as the module reads it: the frame's data part and the broadcast statuses in it, read once
// from the parsed frame and handed on by const reference to everything that needs them.

#include <cstdint>
#include <string>
#include <vector>

#include "framework/media/videotool/DeviceStateBoard.h"

namespace NetworkCommunication {
class CRapidJsonProto;
}

namespace BroadCastPlugin {

/// One entry of "/Event/BroadcastStatusList"; a missing field keeps the default.
/// {"BoardcastGroupGUID":"g1","ResourceID":1001,"ResourceType":1027,"ResourceStatus":3,"Status":1,
///  "ErrorModule":0,"ErrorCode":0,"PromptToneBeginEnd":0}
struct BroadcastStatusItem {
    std::string groupGUID;
    int32_t resourceID = -1;
    int32_t errorModule = -1;
    int32_t errorCode = -1;
    int32_t resourceType = -1;
    int32_t resourceStatus = -1;
    int32_t status = -1;
    int32_t promptToneBeginEnd = -1;
};

struct PushMessage {
    /// The data part as text ("/Msg/Data" of a frame); empty when the frame has none or is not JSON.
    std::string data;
    std::vector<BroadcastStatusItem> statusList;
    /// The data carries "/Event/UpdateVersion".
    bool updateVersion = false;
    /// The device broadcast status fields of the data, for the device broadcast manager.
    TOOL::DeviceStatusNotice deviceNotice;

    /// Reads a parsed frame whose data part sits at `dataPath` ("/Msg/Data").
    static PushMessage FromDocument(const NetworkCommunication::CRapidJsonProto& document,
                                    const std::string& dataPath);
    /// Parses a data text; a text that is not JSON gives a message without statuses.
    static PushMessage FromData(const std::string& data);
};

}  // namespace BroadCastPlugin
