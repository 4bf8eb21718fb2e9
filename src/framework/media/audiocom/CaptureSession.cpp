#include "framework/media/audiocom/CaptureSession.h"

#include <chrono>

#include "framework/base/FormatLog.h"
#include "framework/media/audiocom/StreamCodec.h"

namespace Tal {
namespace AudioCom {

namespace {
// Capture rate when only raw PCM is asked for.
constexpr int kDefaultCaptureRate = 16000;
// Samples the worker may fall behind before the oldest are dropped (10 s at 48 kHz).
constexpr std::size_t kMaxQueuedSamples = 480000;
}  // namespace

CCaptureSession::CCaptureSession(int32_t handle) : CDeviceSession(handle, DeviceDirection::kCapture) {}

CCaptureSession::~CCaptureSession() {
    Stop();
}

int CCaptureSession::SetCaptureCallback(AUDIOCOM_DataCallBackEx callback, void* user) {
    std::lock_guard<std::mutex> lock(callbackMutex_);
    captureCallback_ = callback;
    captureUser_ = user;
    return AUDIOCOM_ERR_NONE;
}

int CCaptureSession::SetOutput(const AUDIOCOM_STREAM_PARAM& param, AUDIOCOM_DataCallBackEx callback,
                               void* user) {
    std::lock_guard<std::mutex> control(controlMutex_);
    if (running_) {
        return AUDIOCOM_ERR_ORDER;  // the capture rate follows the output stream
    }
    std::unique_ptr<MediaCodec::IAudioEncoder> encoder;
    int error = MakeEncoder(param, &encoder);
    if (error != AUDIOCOM_ERR_NONE) {
        return error;
    }
    std::lock_guard<std::mutex> lock(callbackMutex_);
    encoder_ = std::move(encoder);
    outputCallback_ = callback;
    outputUser_ = user;
    captureRate_ = static_cast<int>(param.sampleRate);
    return AUDIOCOM_ERR_NONE;
}

int CCaptureSession::Start() {
    std::lock_guard<std::mutex> control(controlMutex_);
    if (running_) {
        return AUDIOCOM_ERR_ORDER;
    }
    int rate = encoder_ ? captureRate_ : kDefaultCaptureRate;
    captureRate_ = rate;
    converter_.reset();
    pending_.clear();
    int openedRate = rate;
    PaStreamPtr stream = OpenDeviceStream(true, device_, rate, &CCaptureSession::OnAudio, this, &openedRate);
    if (!stream) {
        return AUDIOCOM_ERR_DEVICE;
    }
    if (openedRate != rate) {
        // The card does not take the stream's rate: it captures at its own, converted here.
        converter_ = std::make_unique<CPcmConverter>();
        if (converter_->Open(openedRate, 1, rate) != MediaCodec::kCodecOk) {
            return AUDIOCOM_ERR_CODEC;
        }
    }
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        queue_.clear();
        stopWorker_ = false;
    }
    worker_ = std::thread(&CCaptureSession::WorkerLoop, this);
    PaError error = Pa_StartStream(stream.get());
    if (error != paNoError) {
        TAL_LOG(5, "AudioCom", "[%s]Start capture stream on \"%s\" failed: %s[%s(%d)]",
                device_.info.deviceName, Pa_GetErrorText(error));
        {
            std::lock_guard<std::mutex> lock(queueMutex_);
            stopWorker_ = true;
        }
        queueReady_.notify_all();
        worker_.join();
        return AUDIOCOM_ERR_DEVICE;
    }
    stream_ = std::move(stream);
    running_ = true;
    return AUDIOCOM_ERR_NONE;
}

int CCaptureSession::StopLocked() {
    if (!running_) {
        return AUDIOCOM_ERR_ORDER;
    }
    if (IsWorkerThread()) {
        return AUDIOCOM_ERR_ORDER;  // from inside a callback: joining would wait for ourselves
    }
    // No more audio callbacks once the stream is stopped; the worker then hands out what is queued.
    Pa_StopStream(stream_.get());
    {
        std::lock_guard<std::mutex> lock(queueMutex_);
        stopWorker_ = true;
    }
    queueReady_.notify_all();
    worker_.join();
    stream_.reset();
    running_ = false;
    return AUDIOCOM_ERR_NONE;
}

int CCaptureSession::OnAudio(const void* input, void* /*output*/, unsigned long frames,
                             const PaStreamCallbackTimeInfo* /*time*/, PaStreamCallbackFlags /*flags*/,
                             void* user) {
    auto* self = static_cast<CCaptureSession*>(user);
    if (input == nullptr || frames == 0) {
        return paContinue;
    }
    const auto* samples = static_cast<const int16_t*>(input);
    {
        std::lock_guard<std::mutex> lock(self->queueMutex_);
        std::vector<int16_t>& queue = self->queue_;
        queue.insert(queue.end(), samples, samples + frames);
        if (queue.size() > kMaxQueuedSamples) {
            queue.erase(queue.begin(),
                        queue.begin() + static_cast<std::ptrdiff_t>(queue.size() - kMaxQueuedSamples));
        }
    }
    self->queueReady_.notify_one();
    return paContinue;
}

void CCaptureSession::WorkerLoop() {
    workerId_ = std::this_thread::get_id();
    std::vector<int16_t> block;
    std::vector<int16_t> converted;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(queueMutex_);
            queueReady_.wait(lock, [this] { return !queue_.empty() || stopWorker_; });
            if (queue_.empty()) {
                workerId_ = std::thread::id();
                return;  // stopped and drained
            }
            block.swap(queue_);
            queue_.clear();
        }
        if (converter_) {
            converted.clear();
            converter_->Convert(block.data(), block.size(), &converted);
            Deliver(converted);
        } else {
            Deliver(block);
        }
    }
}

void CCaptureSession::Deliver(const std::vector<int16_t>& pcm) {
    if (pcm.empty()) {
        return;
    }
    std::lock_guard<std::mutex> lock(callbackMutex_);
    if (captureCallback_ != nullptr) {
        captureCallback_(handle_, reinterpret_cast<const uint8_t*>(pcm.data()),
                         static_cast<uint32_t>(pcm.size() * sizeof(int16_t)), captureUser_);
    }
    if (!encoder_) {
        return;
    }
    pending_.insert(pending_.end(), pcm.begin(), pcm.end());
    const std::size_t frame = static_cast<std::size_t>(encoder_->FrameSamples());
    std::size_t used = 0;
    auto sink = [this](const uint8_t* data, std::size_t size) {
        if (outputCallback_ != nullptr) {
            outputCallback_(handle_, data, static_cast<uint32_t>(size), outputUser_);
        }
    };
    while (pending_.size() - used >= frame) {
        int result = encoder_->Encode(pending_.data() + used, sink);
        if (result != MediaCodec::kCodecOk) {
            lastError_ = AUDIOCOM_ERR_CODEC;
            TAL_LOG(5, "AudioCom", "[%s]Encoding a captured frame failed: %s[%s(%d)]",
                    MediaCodec::CodecResultText(result));
        }
        used += frame;
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(used));
}

}  // namespace AudioCom
}  // namespace Tal
