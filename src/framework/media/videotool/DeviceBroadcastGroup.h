#pragma once
// The platform's side of a device broadcast: asks for a group of devices and their login data, and ends it.
//
//   POST /DXAPI/Galewing/Platform/V1/DeviceBroadcast/Start
//   {"DeviceIDs":[201,202],"Type":0,"Record":0,"FilePath":""} POST
//   /DXAPI/Galewing/Platform/V1/DeviceBroadcast/Stop   {"GroupId":"..."}

#include <cstdint>
#include <string>
#include <vector>

#include "framework/resource/ResourceManager.h"

namespace TOOL {

/// A device the platform hands out for the group: what the device registry keeps of it (with the login,
/// password decrypted) and how to talk to it.
struct GroupDevice {
    ResourceManager::DeviceInfo info;
    int channel = 1;
    int encodeType = 1;
};

/// A device the platform refused for the group.
struct RefusedDevice {
    int deviceId = -1;
    int errorModule = 0;
    int errorCode = 0;
    std::string errorInfo;
};

struct DeviceGroup {
    std::string groupId;
    std::vector<GroupDevice> devices;
    std::vector<RefusedDevice> refused;
};

/// Parses "201,202" into ids; false for an empty list or a part that is not a positive integer.
bool ParseDeviceIds(const std::string& text, std::vector<int>& ids);

/// Asks the platform for a group. False with the thread's last error set when the platform refuses or
/// cannot be asked, or its answer lacks the group id.
bool RequestDeviceGroup(const std::vector<int>& deviceIds, int type, int record, const std::string& filePath,
                        DeviceGroup& group);

/// Tells the platform that the group ended. False with the thread's last error set.
bool EndDeviceGroup(const std::string& groupId);

}  // namespace TOOL
