#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/AudioComWrappers.h"

#include "BroadCastPlugin/BroadcastLog.h"

namespace BroadCastPlugin {

namespace {
constexpr int kAudioComSucceeded = 1;

/// True when a library call on `handle` failed; the library's error for the handle is then kept in `error`.
bool Failed(int result, int32_t handle, int& error) {
    if (result == kAudioComSucceeded) {
        return false;
    }
    error = AUDIOCOM_GetLastError(handle);
    return true;
}

/// How far opening a handle on the first device of a kind got.
enum class DeviceOpen { kOpened, kNoDevice, kNoInfo, kNoHandle };

/// The library calls that find and open the devices of one kind (capture or play).
struct DeviceCalls {
    int (*count)(uint32_t*);
    int (*info)(uint32_t, AUDIOCOM_SOUNDCARD_INFO*);
    int (*create)(int32_t*, const char*);
};

constexpr DeviceCalls kCaptureDevices{AUDIOCOM_GetSoundCardNum, AUDIOCOM_GetOneSoundCardInfo,
                                      AUDIOCOM_CreateCaptureHandle};
constexpr DeviceCalls kPlayDevices{AUDIOCOM_GetPlayDeviceNum, AUDIOCOM_GetOnePlayDeviceName,
                                   AUDIOCOM_CreatePlayHandle};

/// Counts the devices, reads the first one's card info and opens a handle on it; `handle` stays -1 unless
/// it opened. `error` becomes kAudioComNoSoundCard when there is no device or its info cannot be read.
DeviceOpen OpenFirstDevice(const DeviceCalls& calls, uint32_t& deviceNum, AUDIOCOM_SOUNDCARD_INFO& card,
                           int32_t& handle, int& error) {
    handle = -1;
    deviceNum = 0;
    if (calls.count(&deviceNum) != kAudioComSucceeded || deviceNum == 0) {
        error = kAudioComNoSoundCard;
        return DeviceOpen::kNoDevice;
    }
    if (calls.info(0, &card) != kAudioComSucceeded) {
        error = kAudioComNoSoundCard;
        return DeviceOpen::kNoInfo;
    }
    if (calls.create(&handle, card.deviceName) != kAudioComSucceeded) {
        handle = -1;
        return DeviceOpen::kNoHandle;
    }
    return DeviceOpen::kOpened;
}
}  // namespace

bool AudioComCreateCaptureHandle::CreateCaptureHandle() {
    switch (OpenFirstDevice(kCaptureDevices, soundCardNum, soundCardInfo, handle, error)) {
        case DeviceOpen::kNoDevice:
            BCAST_LOG(5,
                      "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_GetSoundCardNum fail, "
                      "[Error: %d], sound card num: %u[%s(%d)]",
                      error, soundCardNum);
            return false;
        case DeviceOpen::kNoInfo:
            BCAST_LOG(5,
                      "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_GetOneSoundCardInfo "
                      "fail, [Error: %d][%s(%d)]",
                      error);
            return false;
        case DeviceOpen::kNoHandle:
            error = kAudioComCreateHandleFailed;
            BCAST_LOG(5,
                      "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_CreateCaptureHandle "
                      "fail, [Error: %d], device: %s[%s(%d)]",
                      error, soundCardInfo.deviceName);
            return false;
        case DeviceOpen::kOpened:
            break;
    }
    error = 0;
    BCAST_LOG(3,
              "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_CreateCaptureHandle succ, "
              "device: %s, handle: %d[%s(%d)]",
              soundCardInfo.deviceName, handle);
    return true;
}

bool AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx(int32_t handle,
                                                                          AUDIOCOM_DataCallBackEx callback,
                                                                          void* user) {
    if (Failed(AUDIOCOM_RegisterCaptureDataCallBackEx(handle, callback, user), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx] "
                  "AUDIOCOM_RegisterCaptureDataCallBackEx fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3,
              "[%s][AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx] "
              "AUDIOCOM_RegisterCaptureDataCallBackEx succ[%s(%d)]");
    return true;
}

bool AudioComRegisterOutputDataCallBackEx::RegisterOutputDataCallBackEx(int32_t handle,
                                                                        const AUDIOCOM_STREAM_PARAM& param,
                                                                        AUDIOCOM_DataCallBackEx callback,
                                                                        void* user) {
    if (Failed(AUDIOCOM_RegisterOutputDataCallBackEx(handle, &param, callback, user), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComRegisterOutputDataCallBackEx::RegisterOutputDataCallBackEx] "
                  "AUDIOCOM_RegisterOutputDataCallBackEx fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3,
              "[%s][AudioComRegisterOutputDataCallBackEx::RegisterOutputDataCallBackEx] "
              "AUDIOCOM_RegisterOutputDataCallBackEx succ[%s(%d)]");
    return true;
}

bool AudioComStartCapture::StartCapture(int32_t handle) {
    if (Failed(AUDIOCOM_StartCapture(handle), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComStartCapture::StartCapture] AUDIOCOM_StartCapture fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3, "[%s][AudioComStartCapture::StartCapture] AUDIOCOM_StartCapture succ[%s(%d)]");
    return true;
}

bool AudioComStopCaptureAndReleaseHandle::StopCaptureAndReleaseHandle(int32_t handle) {
    bool ok = true;
    // A capture that never started cannot stop; the handle is released all the same.
    if (Failed(AUDIOCOM_StopCapture(handle), handle, error)) {
        BCAST_LOG(
            4,
            "[%s][AudioComStopCaptureAndReleaseHandle::StopCaptureAndReleaseHandle] AUDIOCOM_StopCapture "
            "fail, "
            "[Error: %d][%s(%d)]",
            error);
        ok = error == AUDIOCOM_ERR_ORDER;
    }
    if (Failed(AUDIOCOM_ReleaseCaptureHandle(handle), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComStopCaptureAndReleaseHandle::StopCaptureAndReleaseHandle] "
                  "AUDIOCOM_ReleaseCaptureHandle fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    if (ok) {
        error = 0;
        BCAST_LOG(3,
                  "[%s][AudioComStopCaptureAndReleaseHandle::StopCaptureAndReleaseHandle] "
                  "AUDIOCOM_ReleaseCaptureHandle succ[%s(%d)]");
    }
    return ok;
}

bool AudioComCreatePlayHandle::CreatePlayHandle() {
    // The device's name is logged once it is found, before its handle is opened.
    const DeviceOpen opened = OpenFirstDevice(kPlayDevices, playDeviceNum, soundCardInfo, handle, error);
    if (opened == DeviceOpen::kNoDevice) {
        BCAST_LOG(5,
                  "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_GetPlayDeviceNum fail, [Error: "
                  "%d], play device num: %u[%s(%d)]",
                  error, playDeviceNum);
        return false;
    }
    if (opened == DeviceOpen::kNoInfo) {
        BCAST_LOG(5,
                  "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_GetOnePlayDeviceName fail, "
                  "[Error: %d][%s(%d)]",
                  error);
        return false;
    }
    BCAST_LOG(5, "[%s][AudioComCreatePlayHandle::struPlayHandle.struSoundCardInfo.strDeviceName;%s[%s(%d)]",
              soundCardInfo.deviceName);
    if (opened == DeviceOpen::kNoHandle) {
        error = AUDIOCOM_GetLastError(-1);
        BCAST_LOG(5,
                  "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_CreatePlayHandle fail, [Error: "
                  "%d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(
        3,
        "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_CreatePlayHandle succ, handle: %d[%s(%d)]",
        handle);
    return true;
}

bool AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx(
    int32_t handle, const AUDIOCOM_STREAM_PARAM& param, AUDIOCOM_DataCallBackEx callback, void* user) {
    if (Failed(AUDIOCOM_OpenStreamEx(handle, &param), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx] "
                  "AUDIOCOM_OpenStreamEx "
                  "fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    if (Failed(AUDIOCOM_RegisterDecodeDataCallBackEx(handle, callback, user), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx] "
                  "AUDIOCOM_RegisterDecodeDataCallBackEx fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3,
              "[%s][AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx] "
              "AUDIOCOM_RegisterDecodeDataCallBackEx succ[%s(%d)]");
    return true;
}

bool AudioComStartPlay::StartPlay(int32_t handle) {
    if (Failed(AUDIOCOM_StartPlay(handle), handle, error)) {
        BCAST_LOG(5, "[%s][AudioComStartPlay::StartPlay] AUDIOCOM_StartPlay fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3, "[%s][AudioComStartPlay::StartPlay] AUDIOCOM_StartPlay succ[%s(%d)]");
    return true;
}

bool AudioComInputStreamData::InputStreamData(int32_t handle, const uint8_t* data, uint32_t size) {
    if (Failed(AUDIOCOM_InputStreamData(handle, data, size), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComInputStreamData::InputStreamData] AUDIOCOM_InputStreamData fail, [Error: "
                  "%d][%s(%d)]",
                  error);
        return false;
    }
    // Called for every received packet: success is not logged.
    error = 0;
    return true;
}

bool AudioComSetPlayVolume::SetPlayVolume(int32_t handle, uint32_t volume) {
    if (Failed(AUDIOCOM_SetPlayVolume(handle, volume), handle, error)) {
        BCAST_LOG(
            5,
            "[%s][AudioComSetPlayVolume::SetPlayVolume] AUDIOCOM_SetPlayVolume fail, volume: %u, [Error: "
            "%d][%s(%d)]",
            volume, error);
        return false;
    }
    // Follows a volume slider, many calls a second: success is not logged.
    error = 0;
    return true;
}

bool AudioComStopPlayAndReleasePlayHandle::StopPlayAndReleasePlayHandle(int32_t handle) {
    bool ok = true;
    if (Failed(AUDIOCOM_StopPlay(handle), handle, error)) {
        BCAST_LOG(
            4,
            "[%s][AudioComStopPlayAndReleasePlayHandle::StopPlayAndReleasePlayHandle] AUDIOCOM_StopPlay "
            "fail, "
            "[Error: %d][%s(%d)]",
            error);
        ok = error == AUDIOCOM_ERR_ORDER;  // never started: nothing to stop
    }
    if (Failed(AUDIOCOM_ReleasePlayHandle(handle), handle, error)) {
        BCAST_LOG(5,
                  "[%s][AudioComStopPlayAndReleasePlayHandle::StopPlayAndReleasePlayHandle] "
                  "AUDIOCOM_ReleasePlayHandle "
                  "fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    if (ok) {
        error = 0;
        BCAST_LOG(3,
                  "[%s][AudioComStopPlayAndReleasePlayHandle::StopPlayAndReleasePlayHandle] "
                  "AUDIOCOM_ReleasePlayHandle "
                  "succ[%s(%d)]");
    }
    return ok;
}

}  // namespace BroadCastPlugin
