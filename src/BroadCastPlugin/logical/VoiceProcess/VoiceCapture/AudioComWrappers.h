#pragma once
// One small object per audio intercom call sequence. Each operation returns true when every library
// call returned 1, logs its outcome and keeps the library's error code in `error`.

#include <cstdint>

#include "framework/media/audiocom/AudioCom.h"

namespace BroadCastPlugin {

/// Error codes kept when the library gives none of its own.
constexpr int kAudioComNoSoundCard = 5;
constexpr int kAudioComCreateHandleFailed = 99;

/// Capture handle on the first sound card.
struct AudioComCreateCaptureHandle {
    bool CreateCaptureHandle();
    uint32_t soundCardNum = 0;
    AUDIOCOM_SOUNDCARD_INFO soundCardInfo{};
    int32_t handle = -1;
    int error = 0;
};

struct AudioComRegisterCaptureDataCallBackEx {
    bool RegisterCaptureDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback, void* user);
    int error = 0;
};

struct AudioComRegisterOutputDataCallBackEx {
    bool RegisterOutputDataCallBackEx(int32_t handle, const AUDIOCOM_STREAM_PARAM& param,
                                      AUDIOCOM_DataCallBackEx callback, void* user);
    int error = 0;
};

struct AudioComStartCapture {
    bool StartCapture(int32_t handle);
    int error = 0;
};

struct AudioComStopCaptureAndReleaseHandle {
    bool StopCaptureAndReleaseHandle(int32_t handle);
    int error = 0;
};

/// Play handle on the first play device.
struct AudioComCreatePlayHandle {
    bool CreatePlayHandle();
    uint32_t playDeviceNum = 0;
    AUDIOCOM_SOUNDCARD_INFO soundCardInfo{};
    int32_t handle = -1;
    int error = 0;
};

struct AudioComOpenAndRegisterDecodeDataCallBack {
    bool RegisterDecodeDataCallBackEx(int32_t handle, const AUDIOCOM_STREAM_PARAM& param,
                                      AUDIOCOM_DataCallBackEx callback, void* user);
    int error = 0;
};

struct AudioComStartPlay {
    bool StartPlay(int32_t handle);
    int error = 0;
};

struct AudioComInputStreamData {
    bool InputStreamData(int32_t handle, const uint8_t* data, uint32_t size);
    int error = 0;
};

/// Volume (0..100) of what a play handle plays.
struct AudioComSetPlayVolume {
    bool SetPlayVolume(int32_t handle, uint32_t volume);
    int error = 0;
};

struct AudioComStopPlayAndReleasePlayHandle {
    bool StopPlayAndReleasePlayHandle(int32_t handle);
    int error = 0;
};

}  // namespace BroadCastPlugin
