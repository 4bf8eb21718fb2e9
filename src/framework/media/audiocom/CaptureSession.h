#pragma once
// One capture handle: a PortAudio input stream, a worker that converts, encodes and calls back.

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/audiocom/DeviceSession.h"
#include "framework/media/audiocom/PaStreamHandle.h"
#include "framework/media/audiocom/PcmConverter.h"
#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace AudioCom {

class CCaptureSession final : public CDeviceSession {
public:
    explicit CCaptureSession(int32_t handle);
    ~CCaptureSession();

    /// Each operation returns an AUDIOCOM_ERR_* code.
    int SetCaptureCallback(AUDIOCOM_DataCallBackEx callback, void* user);
    int SetOutput(const AUDIOCOM_STREAM_PARAM& param, AUDIOCOM_DataCallBackEx callback, void* user);
    int Start();

    /// True on the thread that runs this session's callbacks.
    bool IsWorkerThread() const { return workerId_.load() == std::this_thread::get_id(); }

private:
    static int OnAudio(const void* input, void* output, unsigned long frames,
                       const PaStreamCallbackTimeInfo* time, PaStreamCallbackFlags flags, void* user);
    void WorkerLoop();
    void Deliver(const std::vector<int16_t>& pcm);
    int StopLocked() override;

    // Start, Stop and the settings run under controlMutex_.
    PaStreamPtr stream_;
    std::thread worker_;
    std::atomic<std::thread::id> workerId_{};
    std::atomic<bool> running_{false};

    // Filled by the PortAudio thread, emptied by the worker.
    std::mutex queueMutex_;
    std::condition_variable queueReady_;
    std::vector<int16_t> queue_;
    bool stopWorker_ = false;

    // Used by the worker; changed only while stopped, read under callbackMutex_.
    std::mutex callbackMutex_;
    AUDIOCOM_DataCallBackEx captureCallback_ = nullptr;
    void* captureUser_ = nullptr;
    AUDIOCOM_DataCallBackEx outputCallback_ = nullptr;
    void* outputUser_ = nullptr;
    std::unique_ptr<MediaCodec::IAudioEncoder> encoder_;
    int captureRate_ = 16000;
    std::unique_ptr<CPcmConverter> converter_;  // device rate -> capture rate, when they differ
    std::vector<int16_t> pending_;              // samples waiting for a whole encoder frame
};

}  // namespace AudioCom
}  // namespace Tal
