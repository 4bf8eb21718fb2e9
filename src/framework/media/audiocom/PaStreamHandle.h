#pragma once
// Owner of an open PortAudio stream: stopped and closed on destruction.

#include <portaudio.h>

#include <memory>

#include "framework/media/audiocom/PortAudioSession.h"

namespace Tal {
namespace AudioCom {

struct PaStreamCloser {
    void operator()(PaStream* stream) const;
};
using PaStreamPtr = std::unique_ptr<PaStream, PaStreamCloser>;

/// Opens a mono 16-bit stream on the device at `rate`, or, when the card refuses that rate, at the card's
/// own default rate; `openedRate` says which. Null (and logged) when neither opens.
PaStreamPtr OpenDeviceStream(bool capture, const DeviceEntry& device, int rate, PaStreamCallback* callback,
                             void* user, int* openedRate);

}  // namespace AudioCom
}  // namespace Tal
