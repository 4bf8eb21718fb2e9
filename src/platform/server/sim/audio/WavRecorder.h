#pragma once
// A 16-bit PCM WAV file written as audio comes: what a simulated speaker played (mono, 8000 Hz), or a media
// file of the library (any rate, mono or stereo). The header is brought up to date after every write, so
// the file is a complete WAV at any moment, also while a talk still runs.

#include <cstddef>
#include <cstdint>
#include <string>

#include "framework/base/NonCopyable.h"
#include "framework/media/mediakit/WavFile.h"

namespace Platform {

class CWavRecorder : private Tal::Base::CNonCopyable {
public:
    static constexpr int kSampleRate = 8000;

    /// `channels` 1 or 2; samples are interleaved.
    explicit CWavRecorder(std::string path, int sampleRate = kSampleRate, int channels = 1);
    ~CWavRecorder();

    /// Creates (or truncates) the file and writes an empty WAV. False when it cannot be created.
    bool Open();
    /// Appends `count` samples (count / channels frames) and rewrites the header. False on a write error (the
    /// file keeps what it had).
    bool Write(const int16_t* samples, std::size_t count);
    /// Writes the final header and closes the file; later writes are ignored.
    void Close();

    bool IsOpen() const { return file_.IsOpen(); }
    const std::string& Path() const { return path_; }
    /// Sample frames written.
    uint64_t Samples() const { return file_.Frames(); }

private:
    const std::string path_;
    const int sampleRate_;
    const int channels_;
    Tal::MediaKit::CWavWriter file_;
};

}  // namespace Platform
