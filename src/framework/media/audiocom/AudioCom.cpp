#include "framework/media/audiocom/AudioCom.h"

#include <map>
#include <memory>
#include <mutex>

#include "framework/media/audiocom/CaptureSession.h"
#include "framework/media/audiocom/PlaySession.h"
#include "framework/media/audiocom/PortAudioSession.h"

namespace Tal {
namespace AudioCom {
namespace {

constexpr int kSuccess = 1;
constexpr int kFailure = 0;

// Error of the calling thread's last call that had no valid handle to keep it.
thread_local int t_lastError = AUDIOCOM_ERR_NONE;

// Open handles of both kinds; numbers are never reused within a process.
class CHandleTable {
public:
    std::shared_ptr<CCaptureSession> Capture(int32_t handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = captures_.find(handle);
        return it != captures_.end() ? it->second : nullptr;
    }
    std::shared_ptr<CPlaySession> Play(int32_t handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = plays_.find(handle);
        return it != plays_.end() ? it->second : nullptr;
    }
    std::shared_ptr<CCaptureSession> TakeCapture(int32_t handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = captures_.find(handle);
        if (it == captures_.end()) {
            return nullptr;
        }
        auto session = it->second;
        captures_.erase(it);
        return session;
    }
    std::shared_ptr<CPlaySession> TakePlay(int32_t handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = plays_.find(handle);
        if (it == plays_.end()) {
            return nullptr;
        }
        auto session = it->second;
        plays_.erase(it);
        return session;
    }
    int32_t NextHandle() {
        std::lock_guard<std::mutex> lock(mutex_);
        return next_++;
    }
    void Insert(int32_t handle, std::shared_ptr<CCaptureSession> session) {
        std::lock_guard<std::mutex> lock(mutex_);
        captures_[handle] = std::move(session);
    }
    void Insert(int32_t handle, std::shared_ptr<CPlaySession> session) {
        std::lock_guard<std::mutex> lock(mutex_);
        plays_[handle] = std::move(session);
    }

private:
    std::mutex mutex_;
    int32_t next_ = 1;
    std::map<int32_t, std::shared_ptr<CCaptureSession>> captures_;
    std::map<int32_t, std::shared_ptr<CPlaySession>> plays_;
};

CHandleTable& Handles() {
    // Handles still open at exit are stopped and released when the table goes.
    static CHandleTable table;
    return table;
}

int Fail(int error) {
    t_lastError = error;
    return kFailure;
}

// Records the result of an operation on a handle; 1 when it succeeded.
template <class Session>
int Finish(Session& session, int error) {
    session.SetLastError(error);
    t_lastError = error;
    return error == AUDIOCOM_ERR_NONE ? kSuccess : kFailure;
}

int DeviceCount(DeviceDirection direction, uint32_t* count) {
    if (count == nullptr) {
        return Fail(AUDIOCOM_ERR_PARAM);
    }
    CPortAudioSession portAudio;
    if (!portAudio.IsOpen()) {
        return Fail(AUDIOCOM_ERR_AUDIO_SYSTEM);
    }
    *count = static_cast<uint32_t>(ListDevices(direction).size());
    t_lastError = AUDIOCOM_ERR_NONE;
    return kSuccess;
}

int DeviceInfo(DeviceDirection direction, uint32_t index, AUDIOCOM_SOUNDCARD_INFO* info) {
    if (info == nullptr) {
        return Fail(AUDIOCOM_ERR_PARAM);
    }
    CPortAudioSession portAudio;
    if (!portAudio.IsOpen()) {
        return Fail(AUDIOCOM_ERR_AUDIO_SYSTEM);
    }
    std::vector<DeviceEntry> devices = ListDevices(direction);
    if (index >= devices.size()) {
        return Fail(devices.empty() ? AUDIOCOM_ERR_NO_DEVICE : AUDIOCOM_ERR_PARAM);
    }
    *info = devices[index].info;
    t_lastError = AUDIOCOM_ERR_NONE;
    return kSuccess;
}

template <class Session>
int CreateHandle(int32_t* handle, const char* deviceName) {
    if (handle == nullptr || deviceName == nullptr) {
        return Fail(AUDIOCOM_ERR_PARAM);
    }
    *handle = -1;
    int32_t number = Handles().NextHandle();
    auto session = std::make_shared<Session>(number);
    int error = session->Open(deviceName);
    if (error != AUDIOCOM_ERR_NONE) {
        return Fail(error);
    }
    Handles().Insert(number, std::move(session));
    *handle = number;
    t_lastError = AUDIOCOM_ERR_NONE;
    return kSuccess;
}

}  // namespace
}  // namespace AudioCom
}  // namespace Tal

using namespace Tal::AudioCom;

int AUDIOCOM_GetLastError(int32_t handle) {
    if (auto capture = Handles().Capture(handle)) {
        return capture->LastError();
    }
    if (auto play = Handles().Play(handle)) {
        return play->LastError();
    }
    return t_lastError;
}

int AUDIOCOM_GetSoundCardNum(uint32_t* count) {
    return DeviceCount(DeviceDirection::kCapture, count);
}

int AUDIOCOM_GetOneSoundCardInfo(uint32_t index, AUDIOCOM_SOUNDCARD_INFO* info) {
    return DeviceInfo(DeviceDirection::kCapture, index, info);
}

int AUDIOCOM_GetPlayDeviceNum(uint32_t* count) {
    return DeviceCount(DeviceDirection::kPlay, count);
}

int AUDIOCOM_GetOnePlayDeviceName(uint32_t index, AUDIOCOM_SOUNDCARD_INFO* info) {
    return DeviceInfo(DeviceDirection::kPlay, index, info);
}

int AUDIOCOM_CreateCaptureHandle(int32_t* handle, const char* deviceName) {
    return CreateHandle<CCaptureSession>(handle, deviceName);
}

int AUDIOCOM_RegisterCaptureDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback, void* user) {
    auto session = Handles().Capture(handle);
    return session ? Finish(*session, session->SetCaptureCallback(callback, user))
                   : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_RegisterOutputDataCallBackEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param,
                                          AUDIOCOM_DataCallBackEx callback, void* user) {
    auto session = Handles().Capture(handle);
    if (!session) {
        return Fail(AUDIOCOM_ERR_HANDLE);
    }
    if (param == nullptr) {
        return Finish(*session, AUDIOCOM_ERR_PARAM);
    }
    return Finish(*session, session->SetOutput(*param, callback, user));
}

int AUDIOCOM_StartCapture(int32_t handle) {
    auto session = Handles().Capture(handle);
    return session ? Finish(*session, session->Start()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StopCapture(int32_t handle) {
    auto session = Handles().Capture(handle);
    return session ? Finish(*session, session->Stop()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_ReleaseCaptureHandle(int32_t handle) {
    auto current = Handles().Capture(handle);
    if (current && current->IsWorkerThread()) {
        return Finish(*current, AUDIOCOM_ERR_ORDER);  // from inside its own callback
    }
    // The session stops its capture when the last reference goes, here or in a call still running.
    auto session = Handles().TakeCapture(handle);
    return session ? kSuccess : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_CreatePlayHandle(int32_t* handle, const char* deviceName) {
    return CreateHandle<CPlaySession>(handle, deviceName);
}

int AUDIOCOM_OpenStreamEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param) {
    auto session = Handles().Play(handle);
    if (!session) {
        return Fail(AUDIOCOM_ERR_HANDLE);
    }
    if (param == nullptr) {
        return Finish(*session, AUDIOCOM_ERR_PARAM);
    }
    return Finish(*session, session->OpenStream(*param));
}

int AUDIOCOM_RegisterDecodeDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback, void* user) {
    auto session = Handles().Play(handle);
    return session ? Finish(*session, session->SetDecodeCallback(callback, user)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StartPlay(int32_t handle) {
    auto session = Handles().Play(handle);
    return session ? Finish(*session, session->Start()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_InputStreamData(int32_t handle, const uint8_t* data, uint32_t size) {
    auto session = Handles().Play(handle);
    return session ? Finish(*session, session->Input(data, size)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StopPlay(int32_t handle) {
    auto session = Handles().Play(handle);
    return session ? Finish(*session, session->Stop()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_SetPlayVolume(int32_t handle, uint32_t volume) {
    auto session = Handles().Play(handle);
    return session ? Finish(*session, session->SetVolume(volume)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_GetPlayVolume(int32_t handle, uint32_t* volume) {
    auto session = Handles().Play(handle);
    if (!session) {
        return Fail(AUDIOCOM_ERR_HANDLE);
    }
    if (volume == nullptr) {
        return Finish(*session, AUDIOCOM_ERR_PARAM);
    }
    *volume = session->Volume();
    return Finish(*session, AUDIOCOM_ERR_NONE);
}

int AUDIOCOM_ReleasePlayHandle(int32_t handle) {
    auto session = Handles().TakePlay(handle);
    return session ? kSuccess : Fail(AUDIOCOM_ERR_HANDLE);
}
