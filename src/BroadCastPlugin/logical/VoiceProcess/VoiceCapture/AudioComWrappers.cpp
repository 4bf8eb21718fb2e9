#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/AudioComWrappers.h"

#include "BroadCastPlugin/BroadcastLog.h"

namespace BroadCastPlugin {

namespace {
constexpr int kAudioComSucceeded = 1;
}  // namespace

bool AudioComCreateCaptureHandle::CreateCaptureHandle() {
    handle = -1;
    soundCardNum = 0;
    if (AUDIOCOM_GetSoundCardNum(&soundCardNum) != kAudioComSucceeded || soundCardNum == 0) {
        error = kAudioComNoSoundCard;
        BCAST_LOG(5,
                  "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_GetSoundCardNum fail, "
                  "[Error: %d], "
                  "sound card num: %u[%s(%d)]",
                  error, soundCardNum);
        return false;
    }
    if (AUDIOCOM_GetOneSoundCardInfo(0, &soundCardInfo) != kAudioComSucceeded) {
        error = kAudioComNoSoundCard;
        BCAST_LOG(5,
                  "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_GetOneSoundCardInfo fail, "
                  "[Error: %d][%s(%d)]",
                  error);
        return false;
    }
    if (AUDIOCOM_CreateCaptureHandle(&handle, soundCardInfo.deviceName) != kAudioComSucceeded) {
        error = kAudioComCreateHandleFailed;
        handle = -1;
        BCAST_LOG(5,
                  "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_CreateCaptureHandle fail, "
                  "[Error: %d], device: %s[%s(%d)]",
                  error, soundCardInfo.deviceName);
        return false;
    }
    error = 0;
    BCAST_LOG(3,
              "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] AUDIOCOM_CreateCaptureHandle succ, "
              "device: %s, "
              "handle: %d[%s(%d)]",
              soundCardInfo.deviceName, handle);
    return true;
}

bool AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx(int32_t handle,
                                                                          AUDIOCOM_DataCallBackEx callback,
                                                                          void* user) {
    if (AUDIOCOM_RegisterCaptureDataCallBackEx(handle, callback, user) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_RegisterOutputDataCallBackEx(handle, &param, callback, user) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_StartCapture(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_StopCapture(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
        BCAST_LOG(
            4,
            "[%s][AudioComStopCaptureAndReleaseHandle::StopCaptureAndReleaseHandle] AUDIOCOM_StopCapture "
            "fail, "
            "[Error: %d][%s(%d)]",
            error);
        ok = error == AUDIOCOM_ERR_ORDER;
    }
    if (AUDIOCOM_ReleaseCaptureHandle(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    handle = -1;
    playDeviceNum = 0;
    if (AUDIOCOM_GetPlayDeviceNum(&playDeviceNum) != kAudioComSucceeded || playDeviceNum == 0) {
        error = kAudioComNoSoundCard;
        BCAST_LOG(5,
                  "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_GetPlayDeviceNum fail, [Error: "
                  "%d], play "
                  "device num: %u[%s(%d)]",
                  error, playDeviceNum);
        return false;
    }
    if (AUDIOCOM_GetOnePlayDeviceName(0, &soundCardInfo) != kAudioComSucceeded) {
        error = kAudioComNoSoundCard;
        BCAST_LOG(5,
                  "[%s][AudioComCreatePlayHandle::CreatePlayHandle] AUDIOCOM_GetOnePlayDeviceName fail, "
                  "[Error: %d][%s(%d)]",
                  error);
        return false;
    }
    BCAST_LOG(5, "[%s][AudioComCreatePlayHandle::struPlayHandle.struSoundCardInfo.strDeviceName;%s[%s(%d)]",
              soundCardInfo.deviceName);
    if (AUDIOCOM_CreatePlayHandle(&handle, soundCardInfo.deviceName) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(-1);
        handle = -1;
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
    if (AUDIOCOM_OpenStreamEx(handle, &param) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
        BCAST_LOG(5,
                  "[%s][AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx] "
                  "AUDIOCOM_OpenStreamEx "
                  "fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    if (AUDIOCOM_RegisterDecodeDataCallBackEx(handle, callback, user) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_StartPlay(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
        BCAST_LOG(5, "[%s][AudioComStartPlay::StartPlay] AUDIOCOM_StartPlay fail, [Error: %d][%s(%d)]",
                  error);
        return false;
    }
    error = 0;
    BCAST_LOG(3, "[%s][AudioComStartPlay::StartPlay] AUDIOCOM_StartPlay succ[%s(%d)]");
    return true;
}

bool AudioComInputStreamData::InputStreamData(int32_t handle, const uint8_t* data, uint32_t size) {
    if (AUDIOCOM_InputStreamData(handle, data, size) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_SetPlayVolume(handle, volume) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
    if (AUDIOCOM_StopPlay(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
        BCAST_LOG(
            4,
            "[%s][AudioComStopPlayAndReleasePlayHandle::StopPlayAndReleasePlayHandle] AUDIOCOM_StopPlay "
            "fail, "
            "[Error: %d][%s(%d)]",
            error);
        ok = error == AUDIOCOM_ERR_ORDER;  // never started: nothing to stop
    }
    if (AUDIOCOM_ReleasePlayHandle(handle) != kAudioComSucceeded) {
        error = AUDIOCOM_GetLastError(handle);
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
