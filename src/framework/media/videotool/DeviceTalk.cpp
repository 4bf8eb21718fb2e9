#include "framework/media/videotool/DeviceTalk.h"

#include "framework/base/FormatLog.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/media/devnet/RealtimeFormat.h"
#include "framework/resource/ResourceManager.h"

namespace TOOL {

namespace {

using Tal::Base::Error::ErrorCode;

// Channels from 1001 up are direct broadcast channels that need no format configuration.
constexpr int kDirectChannelBase = 1001;

ErrorCode DeviceError(uint32_t code) {
    return ErrorCode(Tal::Base::Error::kSubSystemClient, DevNet::kErrorModule, static_cast<int>(code));
}

}  // namespace

CDeviceTalk::CDeviceTalk(const GroupDevice& device) : device_(device) {}

CDeviceTalk::~CDeviceTalk() {
    Close();
}

bool CDeviceTalk::Open(ErrorCode& error) {
    const ResourceManager::DeviceInfo& info = device_.info;
    registryDevice_ = ResourceManager::CDeviceManager::Instance()->AddOrUpdateDevice(info);
    const auto& device = registryDevice_;
    ResourceManager::CLoginParam login;
    login.SetVal_strLoginAddress(info.ipAddress);
    login.SetVal_uLoginPort(static_cast<uint16_t>(info.port));
    login.SetVal_strUserName(info.userName);
    login.SetVal_strUserPwd(info.password);
    device->SetIPModeLoginParam(login);
    loggedInHere_ = !device->IsLogin();
    const int userId = device->Login(error);
    if (userId < 0) {
        TAL_LOG(5, "VideoTool", "[%s]Login to device %d failed, error: %d.[%s(%d)]", device_.info.id,
                error.GetSubErrorCode());
        return false;
    }
    int32_t channel = device_.channel;
    if (channel < kDirectChannelBase) {
        const DevNet::RealtimeFormatResult format =
            DevNet::ConfigureRealtimeFormat(userId, device_.encodeType);
        if (!format.stdConfigOk && !format.fallbackOk) {
            TAL_LOG(4, "VideoTool", "[%s]Device %d took no audio format (%u, %u); the talk goes on.[%s(%d)]",
                    device_.info.id, format.stdConfigError, format.fallbackError);
        }
        channel = 1;
    }
    handle_ = DEVNET_StartVoiceTalk(userId, channel, nullptr, nullptr);
    if (handle_ < 0) {
        error = DeviceError(DEVNET_GetLastError());
        TAL_LOG(5, "VideoTool", "[%s]Device %d refused the voice talk on channel %d, error: %d.[%s(%d)]",
                device_.info.id, channel, error.GetSubErrorCode());
        return false;
    }
    TAL_LOG(3, "VideoTool", "[%s]Voice talk to device %d (%s:%d) open, handle %d.[%s(%d)]", device_.info.id,
            device_.info.ipAddress.c_str(), device_.info.port, handle_);
    return true;
}

bool CDeviceTalk::Send(const char* data, uint32_t size, ErrorCode& error) {
    if (handle_ < 0) {
        error = DeviceError(DEVNET_INVALID_HANDLE);
        return false;
    }
    if (DEVNET_SendVoiceData(handle_, data, size) == 0) {
        error = DeviceError(DEVNET_GetLastError());
        return false;
    }
    return true;
}

void CDeviceTalk::Close() {
    if (handle_ >= 0 && DEVNET_StopVoiceTalk(handle_) == 0) {
        TAL_LOG(4, "VideoTool", "[%s]Voice talk to device %d ended with error %u.[%s(%d)]", device_.info.id,
                DEVNET_GetLastError());
    }
    handle_ = -1;
    if (loggedInHere_ && registryDevice_) {
        registryDevice_->Logout();
    }
    loggedInHere_ = false;
}

}  // namespace TOOL
