#include "framework/media/audiocom/PlaySession.h"

#include <algorithm>
#include <cstring>

#include "framework/base/FormatLog.h"
#include "framework/media/audiocom/StreamCodec.h"

namespace Tal {
namespace AudioCom {

namespace {
// Seconds of decoded audio kept ahead of the card; beyond it the oldest is dropped (a live stream
// that arrives faster than it plays would otherwise grow without bound).
constexpr int kMaxBufferedSeconds = 5;
}  // namespace

CPlaySession::CPlaySession(int32_t handle) : CDeviceSession(handle, DeviceDirection::kPlay) {}

CPlaySession::~CPlaySession() {
    Stop();
}

int CPlaySession::OpenStream(const AUDIOCOM_STREAM_PARAM& param) {
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (stream_) {
        return AUDIOCOM_ERR_ORDER;
    }
    std::unique_ptr<MediaCodec::IAudioDecoder> decoder;
    int error = MakeDecoder(param, &decoder);
    if (error != AUDIOCOM_ERR_NONE) {
        return error;
    }
    decoder_ = std::move(decoder);
    converter_.reset();
    playRate_ = static_cast<int>(param.sampleRate);
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::SetDecodeCallback(AUDIOCOM_DataCallBackEx callback, void* user) {
    std::lock_guard<std::mutex> lock(controlMutex_);
    decodeCallback_ = callback;
    decodeUser_ = user;
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::Start() {
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (!decoder_ || stream_) {
        return AUDIOCOM_ERR_ORDER;
    }
    // A card that refuses the stream's rate plays at its own; decoded audio is converted to it.
    PaStreamPtr stream =
        OpenDeviceStream(false, device_, playRate_, &CPlaySession::OnAudio, this, &playRate_);
    if (!stream) {
        return AUDIOCOM_ERR_DEVICE;
    }
    {
        std::lock_guard<std::mutex> fifo(fifoMutex_);
        fifo_.clear();
        fifoRead_ = 0;
    }
    PaError error = Pa_StartStream(stream.get());
    if (error != paNoError) {
        TAL_LOG(5, "AudioCom", "[%s]Start play stream on \"%s\" failed: %s[%s(%d)]", device_.info.deviceName,
                Pa_GetErrorText(error));
        return AUDIOCOM_ERR_DEVICE;
    }
    stream_ = std::move(stream);
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::Input(const uint8_t* data, uint32_t size) {
    if (data == nullptr && size > 0) {
        return AUDIOCOM_ERR_PARAM;
    }
    std::lock_guard<std::mutex> lock(controlMutex_);
    if (!decoder_) {
        return AUDIOCOM_ERR_ORDER;
    }
    decoded_.clear();
    int result = decoder_->Decode(data, size, &decoded_);
    if (result != MediaCodec::kCodecOk) {
        TAL_LOG(5, "AudioCom", "[%s]Decoding %u received bytes failed: %s[%s(%d)]", size,
                MediaCodec::CodecResultText(result));
        return AUDIOCOM_ERR_CODEC;
    }
    if (decoded_.empty()) {
        return AUDIOCOM_ERR_NONE;
    }
    if (decodeCallback_ != nullptr) {
        decodeCallback_(handle_, reinterpret_cast<const uint8_t*>(decoded_.data()),
                        static_cast<uint32_t>(decoded_.size() * sizeof(int16_t)), decodeUser_);
    }
    if (!stream_) {
        return AUDIOCOM_ERR_NONE;  // decoded but not playing
    }
    MediaCodec::AudioFormat format = decoder_->OutputFormat();
    if (!converter_ || converter_->InputRate() != format.sampleRate ||
        converter_->InputChannels() != format.channels || converter_->OutputRate() != playRate_) {
        converter_ = std::make_unique<CPcmConverter>();
        if (converter_->Open(format.sampleRate, format.channels, playRate_) != MediaCodec::kCodecOk) {
            converter_.reset();
            return AUDIOCOM_ERR_CODEC;
        }
    }
    converted_.clear();
    converter_->Convert(decoded_.data(), decoded_.size() / static_cast<std::size_t>(format.channels),
                        &converted_);
    std::lock_guard<std::mutex> fifo(fifoMutex_);
    fifo_.erase(fifo_.begin(), fifo_.begin() + static_cast<std::ptrdiff_t>(fifoRead_));
    fifoRead_ = 0;
    fifo_.insert(fifo_.end(), converted_.begin(), converted_.end());
    const std::size_t limit = static_cast<std::size_t>(playRate_) * kMaxBufferedSeconds;
    if (fifo_.size() > limit) {
        fifo_.erase(fifo_.begin(), fifo_.begin() + static_cast<std::ptrdiff_t>(fifo_.size() - limit));
    }
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::SetVolume(uint32_t volume) {
    if (volume > kMaxVolume) {
        return AUDIOCOM_ERR_PARAM;
    }
    volume_.store(volume);
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::StopLocked() {
    if (!stream_) {
        return AUDIOCOM_ERR_ORDER;
    }
    Pa_StopStream(stream_.get());
    stream_.reset();
    std::lock_guard<std::mutex> fifo(fifoMutex_);
    fifo_.clear();
    fifoRead_ = 0;
    return AUDIOCOM_ERR_NONE;
}

int CPlaySession::OnAudio(const void* /*input*/, void* output, unsigned long frames,
                          const PaStreamCallbackTimeInfo* /*time*/, PaStreamCallbackFlags /*flags*/,
                          void* user) {
    auto* self = static_cast<CPlaySession*>(user);
    auto* out = static_cast<int16_t*>(output);
    std::size_t copied = 0;
    {
        std::lock_guard<std::mutex> lock(self->fifoMutex_);
        copied = std::min<std::size_t>(frames, self->fifo_.size() - self->fifoRead_);
        if (copied > 0) {
            std::memcpy(out, self->fifo_.data() + self->fifoRead_, copied * sizeof(int16_t));
            self->fifoRead_ += copied;
        }
    }
    // The volume is applied here rather than when decoded audio is queued, so that a change also reaches
    // the up to five seconds already queued. Gain volume/100, rounded to nearest; it never exceeds 1.
    const int32_t volume = static_cast<int32_t>(self->volume_.load(std::memory_order_relaxed));
    if (volume < static_cast<int32_t>(kMaxVolume)) {
        for (std::size_t i = 0; i < copied; ++i) {
            const int32_t scaled = out[i] * volume;
            out[i] = static_cast<int16_t>((scaled + (scaled < 0 ? -50 : 50)) / 100);
        }
    }
    // Nothing received in time: play silence rather than stop.
    std::memset(out + copied, 0, (frames - copied) * sizeof(int16_t));
    return paContinue;
}

}  // namespace AudioCom
}  // namespace Tal
