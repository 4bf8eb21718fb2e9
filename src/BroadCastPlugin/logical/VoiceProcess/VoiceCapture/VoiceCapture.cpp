#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"

#include <algorithm>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/AudioComWrappers.h"
#include "framework/base/ErrorCode.h"

namespace BroadCastPlugin {

namespace {

void SetCaptureError(int code) {
    Tal::Base::Error::SetLastError(
        ErrorCode(Tal::Base::Error::kSubSystemClient, kVoiceCaptureErrorModule, code));
}

// Sample rate, bit rate and codec number of an encode type; false for types without a row.
bool StreamOfEncodeType(int encodeType, uint32_t* sampleRate, uint32_t* bitRate, uint32_t* codec) {
    switch (encodeType) {
        case 0:
            *sampleRate = 16000, *bitRate = 16000, *codec = 3;
            return true;
        case 1:
            *sampleRate = 8000, *bitRate = 64000, *codec = 2;
            return true;
        case 2:
            *sampleRate = 8000, *bitRate = 64000, *codec = 1;
            return true;
        case 5:
            *sampleRate = 16000, *bitRate = 64000, *codec = 5;
            return true;
        case 6:
            *sampleRate = 8000, *bitRate = 16000, *codec = 4;
            return true;
        case 7:
            *sampleRate = 16000, *bitRate = 64000, *codec = 6;
            return true;
        case 15:
            *sampleRate = 48000, *bitRate = 192000, *codec = 10;
            return true;
        default:
            return false;
    }
}

}  // namespace

CVoiceCapture::~CVoiceCapture() {
    if (capturing_) {
        StopCapture();
    }
    StopDecodePlay();
}

void CVoiceCapture::SetPCMDataCallback(DataCallback callback) {
    pcmCallback_.Set(std::move(callback));
}

void CVoiceCapture::SetEncodeDataCallback(DataCallback callback) {
    encodedCallback_.Set(std::move(callback));
}

AUDIOCOM_STREAM_PARAM CVoiceCapture::CaptureStreamParam(int encodeType) {
    AUDIOCOM_STREAM_PARAM param{};
    if (StreamOfEncodeType(encodeType, &param.sampleRate, &param.bitRate, &param.codec)) {
        param.channels = 1;
        param.bitsPerSample = 16;
    }
    return param;
}

AUDIOCOM_STREAM_PARAM CVoiceCapture::DecodeStreamParam(const ZPSAudioParam& audioParam) {
    AUDIOCOM_STREAM_PARAM param{};
    param.channels = 1;
    param.bitsPerSample = 16;
    param.sampleRate = static_cast<uint32_t>(audioParam.sampleRate);
    param.bitRate = static_cast<uint32_t>(audioParam.bitRate);
    uint32_t unusedRate = 0;
    uint32_t unusedBitRate = 0;
    if (audioParam.encodeType == 8) {
        param.codec = AUDIOCOM_CODEC_PCM;
    } else if (!StreamOfEncodeType(audioParam.encodeType, &unusedRate, &unusedBitRate, &param.codec)) {
        param.codec = 0;
    }
    return param;
}

void CVoiceCapture::StoreLevel(std::atomic<float>& level, const std::atomic<bool>& metered,
                               const uint8_t* data, uint32_t size) {
    int peak = 0;
    // Little-endian samples read byte by byte: the library does not promise an aligned buffer.
    for (uint32_t i = 0; i + 1 < size; i += 2) {
        const int sample = static_cast<int16_t>(static_cast<uint16_t>(data[i] | (data[i + 1] << 8)));
        peak = std::max(peak, sample < 0 ? -sample : sample);
    }
    level.store(static_cast<float>(peak) / 32768.0f);
    if (!metered.load()) {
        level.store(0.0f);
    }
}

void CVoiceCapture::OnCaptureData(int32_t /*handle*/, const uint8_t* data, uint32_t size, void* user) {
    auto* self = static_cast<CVoiceCapture*>(user);
    if (data == nullptr) {
        return;
    }
    StoreLevel(self->captureLevel_, self->captureMetered_, data, size);
    self->pcmCallback_.Call(data, static_cast<int>(size));
}

void CVoiceCapture::OnOutputData(int32_t /*handle*/, const uint8_t* data, uint32_t size, void* user) {
    auto* self = static_cast<CVoiceCapture*>(user);
    if (data == nullptr) {
        return;
    }
    self->encodedCallback_.Call(data, static_cast<int>(size));
}

void CVoiceCapture::OnDecodeData(int32_t /*handle*/, const uint8_t* data, uint32_t size, void* user) {
    // The library plays what it decodes (16-bit PCM, interleaved when stereo); only its level is kept.
    auto* self = static_cast<CVoiceCapture*>(user);
    if (data != nullptr) {
        StoreLevel(self->listenLevel_, self->listenMetered_, data, size);
    }
}

void CVoiceCapture::ReleaseCaptureHandle(int32_t handle) {
    AudioComStopCaptureAndReleaseHandle release;
    release.StopCaptureAndReleaseHandle(handle);
}

bool CVoiceCapture::AbandonCapture(int32_t handle, int error) {
    SetCaptureError(error);
    ReleaseCaptureHandle(handle);
    capturing_ = false;
    return false;
}

void CVoiceCapture::ReleasePlayHandle(int32_t handle) {
    {
        std::lock_guard<std::mutex> lock(volumeMutex_);
        if (volumeHandle_ == handle) {
            volumeHandle_ = -1;
        }
    }
    AudioComStopPlayAndReleasePlayHandle release;
    release.StopPlayAndReleasePlayHandle(handle);
}

bool CVoiceCapture::StartCapture(int encodeType) {
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (capturing_) {
        BCAST_LOG(4, "[%s]Has already capture voice.[%s(%d)]");
        return true;
    }
    AudioComCreateCaptureHandle create;
    if (!create.CreateCaptureHandle()) {
        if (create.soundCardNum == 0) {
            BCAST_LOG(
                5, "[%s][AudioComCreateCaptureHandle::CreateCaptureHandle] fail，[iSoundCardNum：%u][%s(%d)]",
                create.soundCardNum);
        }
        SetCaptureError(create.error);
        BCAST_LOG(5, "[%s][AudioComCreateCaptureHandle::CreateCaptureHandlebyDeviceName] fail[%s(%d)]");
        capturing_ = false;
        return false;
    }
    const int32_t handle = create.handle;
    AudioComRegisterCaptureDataCallBackEx registerCapture;
    if (!registerCapture.RegisterCaptureDataCallBackEx(handle, &CVoiceCapture::OnCaptureData, this)) {
        BCAST_LOG(5,
                  "[%s][AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx] fail[%s(%d)]");
        return AbandonCapture(handle, registerCapture.error);
    }
    AudioComRegisterOutputDataCallBackEx registerOutput;
    if (!registerOutput.RegisterOutputDataCallBackEx(handle, CaptureStreamParam(encodeType),
                                                     &CVoiceCapture::OnOutputData, this)) {
        // The capture-callback text is repeated here on purpose.
        BCAST_LOG(5,
                  "[%s][AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx] fail[%s(%d)]");
        return AbandonCapture(handle, registerOutput.error);
    }
    captureMetered_ = true;
    AudioComStartCapture start;
    if (!start.StartCapture(handle)) {
        BCAST_LOG(5, "[%s][AudioComStartCapture::StartCapture] fail[%s(%d)]");
        captureMetered_ = false;
        captureLevel_ = 0.0f;
        return AbandonCapture(handle, start.error);
    }
    captureHandle_ = handle;
    capturing_ = true;
    BCAST_LOG(3, "[%s]Start audio com capture succ.[%s(%d)]");
    return true;
}

void CVoiceCapture::StopCapture() {
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (!capturing_) {
        BCAST_LOG(5, "[%s]is not capture data, return back.[%s(%d)]");
        return;
    }
    captureMetered_ = false;
    AudioComStopCaptureAndReleaseHandle release;
    if (!release.StopCaptureAndReleaseHandle(captureHandle_)) {
        BCAST_LOG(5, "[%s][CVoiceInterComm::UninitAudioCom] StopCaptureAndReleaseHandle fail[%s(%d)]");
    }
    captureLevel_ = 0.0f;
    captureHandle_ = -1;
    capturing_ = false;
}

bool CVoiceCapture::StartDecodePlay(const ZPSAudioParam& audioParam) {
    std::lock_guard<std::mutex> lock(controlMutex_);
    listenMetered_ = false;
    if (playHandle_ >= 0) {
        ReleasePlayHandle(playHandle_);  // a new listening stream replaces the old one
        playHandle_ = -1;
    }
    listenLevel_ = 0.0f;
    AudioComCreatePlayHandle create;
    if (!create.CreatePlayHandle()) {
        SetCaptureError(create.error);
        BCAST_LOG(5, "[%s][AudioComCreatePlayHandle::CreatePlayHandle] fail[%s(%d)]");
        return false;
    }
    AudioComOpenAndRegisterDecodeDataCallBack open;
    if (!open.RegisterDecodeDataCallBackEx(create.handle, DecodeStreamParam(audioParam),
                                           &CVoiceCapture::OnDecodeData, this)) {
        SetCaptureError(open.error);
        BCAST_LOG(
            5, "[%s][AudioComOpenAndRegisterDecodeDataCallBack::RegisterDecodeDataCallBackEx] fail[%s(%d)]");
        ReleasePlayHandle(create.handle);
        return false;
    }
    // Before the start, so that the first block already plays at the operator's volume.
    AudioComSetPlayVolume volume;
    bool volumeSet = false;
    {
        std::lock_guard<std::mutex> volumeLock(volumeMutex_);
        volumeSet = volume.SetPlayVolume(create.handle, static_cast<uint32_t>(listenVolume_.load()));
        if (volumeSet) {
            volumeHandle_ = create.handle;
        }
    }
    if (!volumeSet) {
        SetCaptureError(volume.error);
        ReleasePlayHandle(create.handle);
        return false;
    }
    AudioComStartPlay start;
    if (!start.StartPlay(create.handle)) {
        SetCaptureError(start.error);
        BCAST_LOG(5, "[%s][AudioComStartPlay::StartPlay] fail[%s(%d)]");
        ReleasePlayHandle(create.handle);
        return false;
    }
    listenMetered_ = true;
    playHandle_ = create.handle;
    return true;
}

bool CVoiceCapture::InputStreamData(const uint8_t* data, int size) {
    int32_t handle;
    {
        std::lock_guard<std::mutex> lock(controlMutex_);
        handle = playHandle_;
    }
    if (handle < 0 || data == nullptr || size <= 0) {
        return false;
    }
    AudioComInputStreamData input;
    if (!input.InputStreamData(handle, data, static_cast<uint32_t>(size))) {
        SetCaptureError(input.error);
        return false;
    }
    return true;
}

void CVoiceCapture::SetListenVolume(int volume) {
    const int clamped = std::clamp(volume, 0, 100);
    std::lock_guard<std::mutex> lock(volumeMutex_);
    listenVolume_.store(clamped);
    if (volumeHandle_ >= 0) {
        AudioComSetPlayVolume set;
        set.SetPlayVolume(volumeHandle_, static_cast<uint32_t>(clamped));  // logs a failure
    }
}

void CVoiceCapture::StopDecodePlay() {
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (playHandle_ < 0) {
        return;
    }
    listenMetered_ = false;
    ReleasePlayHandle(playHandle_);
    listenLevel_ = 0.0f;
    playHandle_ = -1;
}

}  // namespace BroadCastPlugin
