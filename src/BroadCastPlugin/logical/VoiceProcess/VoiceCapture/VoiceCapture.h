#pragma once
// The client's sound card for broadcasting: microphone capture encoded to the broadcast's encode type,
// and decoding and playing of a stream received while listening.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "framework/base/GuardedCallback.h"
#include "framework/media/audiocom/AudioCom.h"

namespace BroadCastPlugin {

/// Module number of the errors this class sets as the thread's last error.
constexpr int kVoiceCaptureErrorModule = 29;

class CVoiceCapture {
public:
    using DataCallback = std::function<void(const uint8_t* data, int size)>;

    CVoiceCapture() = default;
    /// Stops capture and playback still running.
    ~CVoiceCapture();
    CVoiceCapture(const CVoiceCapture&) = delete;
    CVoiceCapture& operator=(const CVoiceCapture&) = delete;

    /// Raw PCM (mono, 16-bit, at the encode type's sample rate), on the library's thread.
    void SetPCMDataCallback(DataCallback callback);
    /// Encoded frames, on the library's thread.
    void SetEncodeDataCallback(DataCallback callback);

    /// Opens the first sound card and starts capture encoded to `encodeType`. False with the thread's last
    /// error set (category 2, module 29, the library's code; 5 when there is no sound card). A capture
    /// already running is left as it is and counts as success.
    bool StartCapture(int encodeType);
    void StopCapture();
    bool IsCapturing() const { return capturing_; }

    /// Opens the first play device and a decoding stream for audio of these parameters.
    bool StartDecodePlay(const ZPSAudioParam& audioParam);
    /// Received audio for the decoding stream.
    bool InputStreamData(const uint8_t* data, int size);
    void StopDecodePlay();

    /// Levels for meters, lock-free from any thread: the peak of the most recent block as a fraction of full
    /// scale (|sample| / 32768, 0..1). The microphone's raw PCM while capturing, the decoded PCM of the
    /// received stream while playing; 0 when stopped.
    float CaptureLevel() const { return captureLevel_.load(); }
    /// Measured on the decoded stream before the listen volume: it shows what the speaker sends.
    float ListenLevel() const { return listenLevel_.load(); }

    /// Volume of what is heard while listening, 0..100 (clamped; 100, the default, plays the stream as
    /// decoded, 0 is silent). Kept across listens: applied when StartDecodePlay opens the play device and
    /// at once to a play that runs. Any thread; never waits for a start or stop in progress.
    void SetListenVolume(int volume);
    int ListenVolume() const { return listenVolume_.load(); }

    /// Stream parameters of capture output for an encode type; zeroed for an unknown type.
    static AUDIOCOM_STREAM_PARAM CaptureStreamParam(int encodeType);
    /// Stream parameters for decoding a received stream: its rates, the codec of its encode type.
    static AUDIOCOM_STREAM_PARAM DecodeStreamParam(const ZPSAudioParam& audioParam);

private:
    static void OnCaptureData(int32_t handle, const uint8_t* data, uint32_t size, void* user);
    static void OnOutputData(int32_t handle, const uint8_t* data, uint32_t size, void* user);
    static void OnDecodeData(int32_t handle, const uint8_t* data, uint32_t size, void* user);
    /// Keeps the peak of a block of 16-bit PCM in `level`; a block that races with the stop (`metered`
    /// already false) leaves 0 behind.
    static void StoreLevel(std::atomic<float>& level, const std::atomic<bool>& metered, const uint8_t* data,
                           uint32_t size);
    /// Gives up a capture start after its handle opened: `error` becomes the thread's last error and the
    /// handle is released. Always false.
    bool AbandonCapture(int32_t handle, int error);
    void ReleaseCaptureHandle(int32_t handle);
    void ReleasePlayHandle(int32_t handle);

    std::atomic<bool> capturing_{false};
    std::mutex controlMutex_;  // start and stop of capture and playback
    int32_t captureHandle_ = -1;
    int32_t playHandle_ = -1;
    // The volume and the play handle it goes to, apart from controlMutex_ (held while devices open). The
    // handle is set here before the play starts and cleared before it is released, so a volume change
    // always reaches a live handle and none is lost between the two.
    std::mutex volumeMutex_;
    std::atomic<int> listenVolume_{100};
    int32_t volumeHandle_ = -1;
    static_assert(std::atomic<float>::is_always_lock_free, "meters read the levels without locks");
    std::atomic<bool> captureMetered_{false};
    std::atomic<float> captureLevel_{0.0f};
    std::atomic<bool> listenMetered_{false};
    std::atomic<float> listenLevel_{0.0f};
    Tal::Base::CGuardedCallback<void(const uint8_t*, int)> pcmCallback_;
    Tal::Base::CGuardedCallback<void(const uint8_t*, int)> encodedCallback_;
};

}  // namespace BroadCastPlugin
