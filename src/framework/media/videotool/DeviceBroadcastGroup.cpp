#include "framework/media/videotool/DeviceBroadcastGroup.h"

#include <cstdlib>

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/netcomm/PlatformRequest.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/DeviceEntry.h"

namespace TOOL {

namespace {

using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::ErrorCode;

const std::string kStartPath = "/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Start";
const std::string kStopPath = "/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Stop";

}  // namespace

bool ParseDeviceIds(const std::string& text, std::vector<int>& ids) {
    ids.clear();
    std::size_t begin = 0;
    while (begin <= text.size()) {
        std::size_t end = text.find(',', begin);
        if (end == std::string::npos) {
            end = text.size();
        }
        const std::string part = text.substr(begin, end - begin);
        char* rest = nullptr;
        const long id = std::strtol(part.c_str(), &rest, 10);
        const bool digitsOnly = !part.empty() && part.find_first_not_of("0123456789") == std::string::npos;
        if (!digitsOnly || *rest != '\0' || id <= 0 || id > 0x7fffffffL) {
            ids.clear();
            return false;
        }
        ids.push_back(static_cast<int>(id));
        begin = end + 1;
    }
    return !ids.empty();
}

bool RequestDeviceGroup(const std::vector<int>& deviceIds, int type, int record, const std::string& filePath,
                        DeviceGroup& group) {
    CRapidJsonProto request;
    std::string ids = "[";
    for (std::size_t i = 0; i < deviceIds.size(); ++i) {
        ids += (i > 0 ? "," : "") + std::to_string(deviceIds[i]);
    }
    request.set_node_str("/DeviceIDs", ids + "]");
    request.set_v("/Type", type);
    request.set_v("/Record", record);
    request.set_v("/FilePath", filePath);
    CRapidJsonProto reply;
    if (!NetworkCommunication::CallPlatform("POST", kStartPath, request.get_str(0), reply)) {
        TAL_LOG(5, "VideoTool", "[%s]The platform refused the device broadcast group: %s[%s(%d)]",
                NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError()).c_str());
        return false;
    }
    // {"GroupId":"..","SecureEncryptType":1,"DeviceList":[{"DeviceID":201,"Name":"..","DeviceType":2001,
    //  "AccessProtocol":1,"IP":"127.0.0.1","Port":18664,"UserName":"admin","Password":"<enc>","Channel":1,
    //  "EncodeType":1,"Online":true}],"FailedList":[{"DeviceID":4242,"ErrorCode":3,"ErrorModule":30,
    //  "ErrorInfo":"unknown device"}]}
    // "Online" is not read: every device is tried, and its own login says whether it answers.
    const std::string data = NetworkCommunication::kEnvelopeData;
    group = DeviceGroup();
    group.groupId = reply.get_v(data + "/GroupId", "");
    if (group.groupId.empty()) {
        Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemServer,
                                                 Tal::Base::Error::kModuleFramework,
                                                 Tal::Base::Error::kCodeBadServerAnswer));
        TAL_LOG(5, "VideoTool", "[%s]The device broadcast answer has no group id.[%s(%d)]");
        return false;
    }
    const int scheme = reply.get_int_v(data + "/SecureEncryptType", -1);
    const int devices = reply.get_cnt(data + "/DeviceList");
    for (int i = 1; i <= devices; ++i) {
        const std::string item = data + "/DeviceList[" + std::to_string(i) + "]";
        GroupDevice device;
        ResourceManager::DeviceInfo& info = device.info;
        info.id = reply.get_int_v(item + "/DeviceID", -1);
        device.channel = reply.get_int_v(item + "/Channel", 1);
        device.encodeType = reply.get_int_v(item + "/EncodeType", 1);
        if (!ResourceManager::ReadDeviceEntry(reply, item + "/", scheme, info)) {
            return false;
        }
        group.devices.push_back(device);
    }
    const int refused = reply.get_cnt(data + "/FailedList");
    for (int i = 1; i <= refused; ++i) {
        const std::string item = data + "/FailedList[" + std::to_string(i) + "]";
        RefusedDevice device;
        device.deviceId = reply.get_int_v(item + "/DeviceID", -1);
        device.errorModule = reply.get_int_v(item + "/ErrorModule", 0);
        device.errorCode = reply.get_int_v(item + "/ErrorCode", 0);
        device.errorInfo = reply.get_v(item + "/ErrorInfo", "");
        group.refused.push_back(device);
    }
    TAL_LOG(3, "VideoTool", "[%s]Device broadcast group %s: %d devices, %d refused.[%s(%d)]",
            group.groupId.c_str(), devices, refused);
    return true;
}

bool EndDeviceGroup(const std::string& groupId) {
    CRapidJsonProto request;
    request.set_v("/GroupId", groupId);
    CRapidJsonProto reply;
    if (!NetworkCommunication::CallPlatform("POST", kStopPath, request.get_str(0), reply)) {
        TAL_LOG(5, "VideoTool", "[%s]The platform did not end device broadcast group %s: %s[%s(%d)]",
                groupId.c_str(),
                NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError()).c_str());
        return false;
    }
    return true;
}

}  // namespace TOOL
