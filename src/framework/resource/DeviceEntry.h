#pragma once
// A device as the platform's answers list it (resource download, device broadcast groups).

#include <string>

#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/ResourceManager.h"

namespace ResourceManager {

/// Reads the address and login of the device listed at `entry` (its path, ending in '/'): Name, DeviceType,
/// AccessProtocol, IP, Port, UserName and Password, the password decrypted under `secureEncryptType`. The
/// id is left to the caller, whose lists name it differently. False when the password does not decrypt.
bool ReadDeviceEntry(const NetworkCommunication::CRapidJsonProto& answer, const std::string& entry,
                     int secureEncryptType, DeviceInfo& info);

}  // namespace ResourceManager
