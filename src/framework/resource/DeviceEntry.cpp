#include "framework/resource/DeviceEntry.h"

#include "framework/business/ServerSecret.h"

namespace ResourceManager {

bool ReadDeviceEntry(const NetworkCommunication::CRapidJsonProto& answer, const std::string& entry,
                     int secureEncryptType, DeviceInfo& info) {
    info.name = answer.get_v(entry + "Name", "");
    info.deviceType = answer.get_int_v(entry + "DeviceType", 0);
    info.accessProtocol = answer.get_int_v(entry + "AccessProtocol", 0);
    info.ipAddress = answer.get_v(entry + "IP", "");
    info.port = answer.get_int_v(entry + "Port", 0);
    info.userName = answer.get_v(entry + "UserName", "");
    return BusinessCommon::DecryptServerSecret(secureEncryptType, answer.get_v(entry + "Password", ""),
                                               info.password, "device password");
}

}  // namespace ResourceManager
