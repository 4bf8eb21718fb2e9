#include "framework/media/audiocom/AudioCom.h"

#include <atomic>
#include <memory>
#include <mutex>

#include "framework/base/HandleTable.h"
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

// Open handles of both kinds share one numbering that starts at 1 and never reuses a number within a
// process, so that AUDIOCOM_GetLastError can look a handle up in either table.
std::atomic<int32_t> g_nextHandle{1};

// Handles still open at exit are stopped and released when the tables go.
Base::CHandleTable<CCaptureSession>& Captures() {
    static Base::CHandleTable<CCaptureSession> table;
    return table;
}

Base::CHandleTable<CPlaySession>& Plays() {
    static Base::CHandleTable<CPlaySession> table;
    return table;
}

void Insert(int32_t handle, std::shared_ptr<CCaptureSession> session) {
    Captures().Insert(handle, std::move(session));
}

void Insert(int32_t handle, std::shared_ptr<CPlaySession> session) {
    Plays().Insert(handle, std::move(session));
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
    const int32_t number = g_nextHandle++;
    auto session = std::make_shared<Session>(number);
    int error = session->Open(deviceName);
    if (error != AUDIOCOM_ERR_NONE) {
        return Fail(error);
    }
    Insert(number, std::move(session));
    *handle = number;
    t_lastError = AUDIOCOM_ERR_NONE;
    return kSuccess;
}

}  // namespace
}  // namespace AudioCom
}  // namespace Tal

using namespace Tal::AudioCom;

int AUDIOCOM_GetLastError(int32_t handle) {
    if (auto capture = Captures().Find(handle)) {
        return capture->LastError();
    }
    if (auto play = Plays().Find(handle)) {
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
    auto session = Captures().Find(handle);
    return session ? Finish(*session, session->SetCaptureCallback(callback, user))
                   : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_RegisterOutputDataCallBackEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param,
                                          AUDIOCOM_DataCallBackEx callback, void* user) {
    auto session = Captures().Find(handle);
    if (!session) {
        return Fail(AUDIOCOM_ERR_HANDLE);
    }
    if (param == nullptr) {
        return Finish(*session, AUDIOCOM_ERR_PARAM);
    }
    return Finish(*session, session->SetOutput(*param, callback, user));
}

int AUDIOCOM_StartCapture(int32_t handle) {
    auto session = Captures().Find(handle);
    return session ? Finish(*session, session->Start()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StopCapture(int32_t handle) {
    auto session = Captures().Find(handle);
    return session ? Finish(*session, session->Stop()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_ReleaseCaptureHandle(int32_t handle) {
    auto current = Captures().Find(handle);
    if (current && current->IsWorkerThread()) {
        return Finish(*current, AUDIOCOM_ERR_ORDER);  // from inside its own callback
    }
    // The session stops its capture when the last reference goes, here or in a call still running.
    auto session = Captures().Remove(handle);
    return session ? kSuccess : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_CreatePlayHandle(int32_t* handle, const char* deviceName) {
    return CreateHandle<CPlaySession>(handle, deviceName);
}

int AUDIOCOM_OpenStreamEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param) {
    auto session = Plays().Find(handle);
    if (!session) {
        return Fail(AUDIOCOM_ERR_HANDLE);
    }
    if (param == nullptr) {
        return Finish(*session, AUDIOCOM_ERR_PARAM);
    }
    return Finish(*session, session->OpenStream(*param));
}

int AUDIOCOM_RegisterDecodeDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback, void* user) {
    auto session = Plays().Find(handle);
    return session ? Finish(*session, session->SetDecodeCallback(callback, user)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StartPlay(int32_t handle) {
    auto session = Plays().Find(handle);
    return session ? Finish(*session, session->Start()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_InputStreamData(int32_t handle, const uint8_t* data, uint32_t size) {
    auto session = Plays().Find(handle);
    return session ? Finish(*session, session->Input(data, size)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_StopPlay(int32_t handle) {
    auto session = Plays().Find(handle);
    return session ? Finish(*session, session->Stop()) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_SetPlayVolume(int32_t handle, uint32_t volume) {
    auto session = Plays().Find(handle);
    return session ? Finish(*session, session->SetVolume(volume)) : Fail(AUDIOCOM_ERR_HANDLE);
}

int AUDIOCOM_GetPlayVolume(int32_t handle, uint32_t* volume) {
    auto session = Plays().Find(handle);
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
    auto session = Plays().Remove(handle);
    return session ? kSuccess : Fail(AUDIOCOM_ERR_HANDLE);
}
