#pragma once
// What a simulated speaker played, as a WAV file: 16-bit mono PCM at 8000 Hz. The header is brought up to
// date after every write, so the file is a complete WAV at any moment, also while a talk still runs.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace Platform {

class CWavRecorder {
public:
    static constexpr int kSampleRate = 8000;

    explicit CWavRecorder(std::string path);
    ~CWavRecorder();
    CWavRecorder(const CWavRecorder&) = delete;
    CWavRecorder& operator=(const CWavRecorder&) = delete;

    /// Creates (or truncates) the file and writes an empty WAV. False when it cannot be created.
    bool Open();
    /// Appends samples and rewrites the header. False on a write error (the file keeps what it had).
    bool Write(const int16_t* samples, std::size_t count);
    /// Writes the final header and closes the file; later writes are ignored.
    void Close();

    bool IsOpen() const { return file_ != nullptr; }
    const std::string& Path() const { return path_; }
    uint64_t Samples() const { return dataBytes_ / 2; }

private:
    struct FileCloser {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    bool WriteHeader();

    const std::string path_;
    std::unique_ptr<std::FILE, FileCloser> file_;
    uint32_t dataBytes_ = 0;
};

}  // namespace Platform
