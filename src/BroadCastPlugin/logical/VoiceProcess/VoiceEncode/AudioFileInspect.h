#pragma once
// Recognising an audio file by its content, MP3 tag lengths, and the canonical 44-byte WAV header.
// Multi-byte fields are little-endian.

#include <cstdint>
#include <string>

namespace BroadCastPlugin {

/// Result of CheckAudioFileType.
enum AudioFileType { AudioFileMP3 = 0, AudioFileWAV = 1, AudioFileFLAC = 2, AudioFileUnknown = 3 };

/// What write_wav_header takes from its caller.
struct WavAudioInfo {
    int channels = 1;
    int sampleRate = 8000;
};

/// The 44-byte header at offset 0 of a WAV file, read as a plain block (no chunk walking).
struct WavHeader {
    static constexpr uint32_t kSize = 44;
    uint8_t bytes[kSize] = {};

    uint32_t RiffSize() const { return U32(4); }
    int16_t Channels() const { return static_cast<int16_t>(U16(22)); }
    uint32_t SampleRate() const { return U32(24); }
    uint32_t ByteRate() const { return U32(28); }
    uint16_t BitsPerSample() const { return U16(34); }
    void SetChannels(uint16_t channels) { PutU16(22, channels); }
    void SetSampleRate(uint32_t rate) { PutU32(24, rate); }

    /// Fills the canonical header of a 16-bit PCM file of `fileSize` bytes.
    void Fill(const WavAudioInfo& info, int64_t fileSize);

private:
    uint16_t U16(int at) const { return static_cast<uint16_t>(bytes[at] | bytes[at + 1] << 8); }
    uint32_t U32(int at) const { return U16(at) | static_cast<uint32_t>(U16(at + 2)) << 16; }
    void PutU16(int at, uint16_t value) {
        bytes[at] = static_cast<uint8_t>(value & 0xFF);
        bytes[at + 1] = static_cast<uint8_t>(value >> 8);
    }
    void PutU32(int at, uint32_t value) {
        PutU16(at, static_cast<uint16_t>(value & 0xFFFF));
        PutU16(at + 2, static_cast<uint16_t>(value >> 16));
    }
};

/// AudioFileType of the file at `path`, from its first 12 bytes; AudioFileUnknown when it cannot be read.
int CheckAudioFileType(const std::string& path);
/// Bytes to skip for the ID3v2 tag at the start of the open file (positioned at 0); 0 when there is none.
int GetID3V2HeaderLength(int file);
/// True when the last 128 bytes of the open file are an ID3v1 tag; leaves the file at offset 0.
bool CheckID3V1(int file);
/// Writes the canonical header at offset 0, sizes taken from the file as it is now.
void write_wav_header(int file, const WavAudioInfo& info);
/// write_wav_header that also says whether the header was written.
bool WriteWavHeader(int file, const WavAudioInfo& info);
/// Reads the 44-byte header at the current position; false on a failed or short read.
bool ReadWavHeader(int file, WavHeader* header, uint32_t* bytesRead = nullptr);
/// Playing time in milliseconds from the header's RIFF size and byte rate; 0 on failure.
int GetWavDuration(const std::string& path);

}  // namespace BroadCastPlugin
