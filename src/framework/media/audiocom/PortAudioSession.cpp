#include "framework/media/audiocom/PortAudioSession.h"

#include <alsa/asoundlib.h>
#include <dlfcn.h>
#include <portaudio.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "framework/base/FormatLog.h"

namespace Tal {
namespace AudioCom {

namespace {

// ALSA prints every failed probe of a configured device on stderr while PortAudio enumerates;
// failures are reported through PortAudio's results instead.
void SilentAlsaError(const char* /*file*/, int /*line*/, const char* /*function*/, int /*err*/,
                     const char* /*fmt*/, ...) {}

void SilentJackMessage(const char* /*message*/) {}

// PortAudio's JACK back end tries to reach a JACK server on every initialisation and libjack prints
// each failure; PortAudio installs its own handler only once connected. libjack comes in with
// PortAudio, so its setters are looked up rather than linked.
void SilenceJack() {
    using SetHandler = void (*)(void (*)(const char*));
    for (const char* name : {"jack_set_error_function", "jack_set_info_function"}) {
        if (auto set = reinterpret_cast<SetHandler>(dlsym(RTLD_DEFAULT, name))) {
            set(&SilentJackMessage);
        }
    }
}

void SilenceProbesOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        snd_lib_error_set_handler(&SilentAlsaError);
        SilenceJack();
        // PortAudio's JACK back end must not start a JACK server while it probes (a setting of the
        // environment wins).
        ::setenv("JACK_NO_START_SERVER", "1", 0);
    });
}

// PortAudio's ALSA probe opens every PCM the configuration defines. ALSA's a52 PCM, an AC-3 encoder for
// S/PDIF outputs that is never a microphone nor an intercom's loudspeaker, loads libavcodec and the
// libraries it links (about 10 MB mapped into the client) and keeps them. Its definition is taken out of the
// process's copy of the configuration before a probe; PortAudio frees that copy when its last user
// terminates, so this runs before each first initialisation. Called under PortAudioLock.
void DropPcmsNoIntercomUses() {
    if (snd_config_update() < 0 || snd_config == nullptr) {
        return;
    }
    for (const char* key : {"pcm.a52"}) {
        snd_config_t* node = nullptr;
        if (snd_config_search(snd_config, key, &node) >= 0) {
            snd_config_delete(node);
        }
    }
}

/// How many sessions hold PortAudio initialised (guarded by PortAudioLock): the probe runs for the first.
int g_sessionCount = 0;

void CopyName(char* target, std::size_t capacity, const char* source) {
    std::strncpy(target, source != nullptr ? source : "", capacity - 1);
    target[capacity - 1] = '\0';
}

}  // namespace

std::mutex& PortAudioLock() {
    static std::mutex lock;
    return lock;
}

CPortAudioSession::CPortAudioSession() {
    SilenceProbesOnce();
    std::lock_guard<std::mutex> lock(PortAudioLock());
    if (g_sessionCount == 0) {
        DropPcmsNoIntercomUses();
    }
    error_ = Pa_Initialize();
    if (error_ == paNoError) {
        ++g_sessionCount;
    }
}

CPortAudioSession::~CPortAudioSession() {
    if (error_ == paNoError) {
        std::lock_guard<std::mutex> lock(PortAudioLock());
        Pa_Terminate();
        --g_sessionCount;
    }
}

std::string CPortAudioSession::ErrorText() const {
    return Pa_GetErrorText(error_);
}

std::vector<DeviceEntry> ListDevices(DeviceDirection direction) {
    std::vector<DeviceEntry> devices;
    std::lock_guard<std::mutex> lock(PortAudioLock());
    int count = Pa_GetDeviceCount();
    PaDeviceIndex defaultDevice =
        direction == DeviceDirection::kCapture ? Pa_GetDefaultInputDevice() : Pa_GetDefaultOutputDevice();
    for (int i = 0; i < count; ++i) {
        const PaDeviceInfo* device = Pa_GetDeviceInfo(i);
        if (device == nullptr) {
            continue;
        }
        int channels =
            direction == DeviceDirection::kCapture ? device->maxInputChannels : device->maxOutputChannels;
        if (channels <= 0) {
            continue;
        }
        DeviceEntry entry;
        entry.portAudioIndex = i;
        CopyName(entry.info.deviceName, sizeof(entry.info.deviceName), device->name);
        const PaHostApiInfo* hostApi = Pa_GetHostApiInfo(device->hostApi);
        CopyName(entry.info.hostApiName, sizeof(entry.info.hostApiName),
                 hostApi != nullptr ? hostApi->name : "");
        entry.info.index = static_cast<uint32_t>(devices.size());
        entry.info.maxInputChannels = static_cast<uint32_t>(device->maxInputChannels);
        entry.info.maxOutputChannels = static_cast<uint32_t>(device->maxOutputChannels);
        entry.info.defaultSampleRate = static_cast<uint32_t>(device->defaultSampleRate);
        entry.info.isDefault = i == defaultDevice ? 1 : 0;
        devices.push_back(entry);
    }
    return devices;
}

int FindDevice(const CPortAudioSession& session, DeviceDirection direction, const std::string& name,
               DeviceEntry* entry) {
    if (!session.IsOpen()) {
        TAL_LOG(5, "AudioCom", "[%s]PortAudio initialisation failed: %s[%s(%d)]",
                session.ErrorText().c_str());
        return AUDIOCOM_ERR_AUDIO_SYSTEM;
    }
    for (const DeviceEntry& device : ListDevices(direction)) {
        if (name == device.info.deviceName) {
            *entry = device;
            return AUDIOCOM_ERR_NONE;
        }
    }
    TAL_LOG(5, "AudioCom", "[%s]No %s device named \"%s\".[%s(%d)]",
            direction == DeviceDirection::kCapture ? "capture" : "play", name.c_str());
    return AUDIOCOM_ERR_NO_DEVICE;
}

}  // namespace AudioCom
}  // namespace Tal
