#include "framework/media/audiocom/PaStreamHandle.h"

#include <mutex>

#include "framework/base/FormatLog.h"

namespace Tal {
namespace AudioCom {

void PaStreamCloser::operator()(PaStream* stream) const {
    if (Pa_IsStreamStopped(stream) == 0) {
        Pa_AbortStream(stream);
    }
    std::lock_guard<std::mutex> lock(PortAudioLock());
    Pa_CloseStream(stream);
}

namespace {

PaStreamPtr OpenMonoStream(bool capture, int device, int rate, PaStreamCallback* callback, void* user,
                           PaError* error) {
    std::lock_guard<std::mutex> lock(PortAudioLock());
    const PaDeviceInfo* info = Pa_GetDeviceInfo(device);
    if (info == nullptr) {
        *error = paInvalidDevice;
        return nullptr;
    }
    PaStreamParameters parameters{};
    parameters.device = device;
    parameters.channelCount = 1;
    parameters.sampleFormat = paInt16;
    // The high latency of the device: a sound server between us and the card needs the margin.
    parameters.suggestedLatency = capture ? info->defaultHighInputLatency : info->defaultHighOutputLatency;
    PaStream* stream = nullptr;
    // 20 ms per callback.
    *error = Pa_OpenStream(&stream, capture ? &parameters : nullptr, capture ? nullptr : &parameters, rate,
                           static_cast<unsigned long>(rate / 50), paClipOff, callback, user);
    if (*error != paNoError) {
        return nullptr;
    }
    return PaStreamPtr(stream);
}

}  // namespace

PaStreamPtr OpenDeviceStream(bool capture, const DeviceEntry& device, int rate, PaStreamCallback* callback,
                             void* user, int* openedRate) {
    PaError error = paNoError;
    *openedRate = rate;
    PaStreamPtr stream = OpenMonoStream(capture, device.portAudioIndex, rate, callback, user, &error);
    const int deviceRate = static_cast<int>(device.info.defaultSampleRate);
    if (!stream && deviceRate > 0 && deviceRate != rate) {
        *openedRate = deviceRate;
        stream = OpenMonoStream(capture, device.portAudioIndex, deviceRate, callback, user, &error);
    }
    if (!stream) {
        TAL_LOG(5, "AudioCom", "[%s]Open %s stream on \"%s\" failed: %s[%s(%d)]",
                capture ? "capture" : "play", device.info.deviceName, Pa_GetErrorText(error));
    }
    return stream;
}

}  // namespace AudioCom
}  // namespace Tal
