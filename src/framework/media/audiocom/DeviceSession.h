#pragma once
// What a capture session and a play session share: the handle they serve, one PortAudio initialisation held
// for their lifetime, the device they open and the last error of their handle.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "framework/base/NonCopyable.h"
#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/audiocom/PortAudioSession.h"

namespace Tal {
namespace AudioCom {

class CDeviceSession : private Base::CNonCopyable {
public:
    /// Looks the device up by name; an AUDIOCOM_ERR_* code.
    int Open(const std::string& deviceName) {
        return FindDevice(portAudio_, direction_, deviceName, &device_);
    }

    /// Stops the session under the control lock; an AUDIOCOM_ERR_* code.
    int Stop() {
        std::lock_guard<std::mutex> lock(controlMutex_);
        return StopLocked();
    }

    int LastError() const { return lastError_; }
    void SetLastError(int error) { lastError_ = error; }

protected:
    CDeviceSession(int32_t handle, DeviceDirection direction) : handle_(handle), direction_(direction) {}
    ~CDeviceSession() = default;

    /// Stops what runs, with controlMutex_ held; an AUDIOCOM_ERR_* code.
    virtual int StopLocked() = 0;

    const int32_t handle_;
    CPortAudioSession portAudio_;  // in the base: outlives the derived session's stream
    DeviceEntry device_;
    std::atomic<int> lastError_{AUDIOCOM_ERR_NONE};
    std::mutex controlMutex_;  // the session's operations

private:
    const DeviceDirection direction_;
};

}  // namespace AudioCom
}  // namespace Tal
