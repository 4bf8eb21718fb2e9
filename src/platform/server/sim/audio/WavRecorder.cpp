#include "platform/server/sim/audio/WavRecorder.h"

namespace Platform {

CWavRecorder::CWavRecorder(std::string path, int sampleRate, int channels)
    : path_(std::move(path)), sampleRate_(sampleRate), channels_(channels == 2 ? 2 : 1) {}

CWavRecorder::~CWavRecorder() {
    Close();
}

bool CWavRecorder::Open() {
    return file_.Open(path_, sampleRate_, channels_);
}

bool CWavRecorder::Write(const int16_t* samples, std::size_t count) {
    return file_.Write(samples, count);
}

void CWavRecorder::Close() {
    file_.Close();
}

}  // namespace Platform
