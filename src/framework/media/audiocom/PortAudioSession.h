#pragma once
// PortAudio for the library's own use: initialised in pairs with its termination, device lists.

#include <mutex>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/media/audiocom/AudioCom.h"

namespace Tal {
namespace AudioCom {

/// PortAudio keeps a global initialisation count and is not thread-safe around it or around opening
/// and closing streams: those calls are made under this lock.
std::mutex& PortAudioLock();

/// Holds one PortAudio initialisation for its lifetime.
class CPortAudioSession : private Base::CNonCopyable {
public:
    CPortAudioSession();
    ~CPortAudioSession();

    bool IsOpen() const { return error_ == 0; }
    /// PortAudio's initialisation error (0 when open).
    int Error() const { return error_; }
    /// PortAudio's text for the initialisation error.
    std::string ErrorText() const;

private:
    int error_ = 0;
};

enum class DeviceDirection { kCapture, kPlay };

struct DeviceEntry {
    int portAudioIndex = -1;
    AUDIOCOM_SOUNDCARD_INFO info{};
};

/// Devices able to capture or to play, in PortAudio's order. Needs an open session.
std::vector<DeviceEntry> ListDevices(DeviceDirection direction);
/// The device of that direction whose name is `name`, in an open session; an AUDIOCOM_ERR_* code, logged.
int FindDevice(const CPortAudioSession& session, DeviceDirection direction, const std::string& name,
               DeviceEntry* entry);

}  // namespace AudioCom
}  // namespace Tal
