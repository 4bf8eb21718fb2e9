#pragma once
// Writes the audio a channel receives to a file: G.711 µ-law decoded to 16-bit PCM in a WAV file (8000 Hz,
// mono), MP3 frames kept as they are in an .mp3 file.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "framework/base/NonCopyable.h"
#include "framework/media/mediakit/WavFile.h"

namespace DeviceSim {

class CChannelRecorder : private Tal::Base::CNonCopyable {
public:
    /// `path` ends in .wav for G.711 µ-law, anything else is written raw.
    explicit CChannelRecorder(std::string path);
    ~CChannelRecorder();

    bool Open();
    void Write(const char* data, std::size_t size);
    /// Puts what was written into the file; a WAV file is complete after every write already.
    void Flush();
    const std::string& Path() const { return path_; }

private:
    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    const std::string path_;
    const bool wav_;
    Tal::MediaKit::CWavWriter wavFile_;
    std::unique_ptr<std::FILE, FileCloser> file_;  ///< the raw file (MP3)
};

}  // namespace DeviceSim
