#pragma once
// One device's part of a device broadcast: login through the device registry, the real-time audio format,
// a voice talk on the device's first voice channel, and the audio sent to it.

#include <cstdint>
#include <memory>

#include "framework/base/ErrorCode.h"
#include "framework/base/NonCopyable.h"
#include "framework/media/videotool/DeviceBroadcastGroup.h"

namespace ResourceManager {
class CDevice;
}

namespace TOOL {

class CDeviceTalk : private Tal::Base::CNonCopyable {
public:
    explicit CDeviceTalk(const GroupDevice& device);
    ~CDeviceTalk();

    /// Logs in, configures the format and opens the talk. Blocks on the device. False with `error`.
    bool Open(Tal::Base::Error::ErrorCode& error);
    /// Queues audio for the device; does not wait for it. False with `error` when the device takes no more.
    bool Send(const char* data, uint32_t size, Tal::Base::Error::ErrorCode& error);
    /// Sends what is queued and ends the talk on the device (bounded wait); a login made for this talk ends
    /// too, so that devices do not keep sessions of broadcasts long past. Repeatable.
    void Close();

    int DeviceId() const { return device_.info.id; }
    const GroupDevice& Device() const { return device_; }

private:
    const GroupDevice device_;
    std::shared_ptr<ResourceManager::CDevice> registryDevice_;
    bool loggedInHere_ = false;  ///< the login was made for this talk, not found open
    int32_t handle_ = -1;
};

}  // namespace TOOL
