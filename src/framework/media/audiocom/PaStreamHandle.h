#pragma once
// Owner of an open PortAudio stream: stopped and closed on destruction.

#include <portaudio.h>

#include <memory>

namespace Tal {
namespace AudioCom {

struct PaStreamCloser {
    void operator()(PaStream* stream) const;
};
using PaStreamPtr = std::unique_ptr<PaStream, PaStreamCloser>;

/// Opens a mono 16-bit stream on the device at `rate`; null with `error` set on failure.
PaStreamPtr OpenMonoStream(bool capture, int device, int rate, PaStreamCallback* callback, void* user,
                           PaError* error);

}  // namespace AudioCom
}  // namespace Tal
