#pragma once
// Readers of the devices' JSON answers.

#include <string>

#include "framework/media/devnet/DevNet.h"

namespace DevNet {

/// The login answer {"DeviceInfo":{"deviceName":..,"serialNumber":..,"model":..,"firmwareVersion":..,
/// "channelCount":4,"voiceChannelCount":4}}: texts cut to their fields, missing values empty or 0. False,
/// with `info` untouched, for anything without a "DeviceInfo" object.
bool ParseDeviceInfo(const std::string& body, DEVNET_DEVICEINFO& info);

/// The "VoiceTalk/talkID" text of the answer to opening a talk; empty when there is none.
std::string ParseTalkId(const std::string& body);

}  // namespace DevNet
