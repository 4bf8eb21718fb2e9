#pragma once
// Turns a local WAV or MP3 file into broadcast frames: G.711 µ-law (320 bytes, 40 ms at 8000 Hz) or MP3
// (one frame per 1152 samples of mono 48000 Hz). Runs on the caller's thread and can be stopped from
// another one; intermediate files go to the client data directory.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "framework/base/GuardedCallback.h"

namespace Tal {
namespace MediaCodec {
class CMp3Encoder;
class CResampler;
}  // namespace MediaCodec
}  // namespace Tal

namespace BroadCastPlugin {

class CVoiceFileEncode {
public:
    using DataCallback = std::function<void(const uint8_t* data, int size)>;
    using StateCallback = std::function<void(EncodeState)>;

    /// Intermediate files, in the client data directory.
    static constexpr const char* kSingleFile = "broadcast_single_file.wav";
    static constexpr const char* kResampleFile = "broadcast_resample_file.wav";
    static constexpr const char* kRawMp3File = "broadcast_raw_mp3_file.mp3";
    static constexpr const char* kMp3ToWavFile = "broadcast_mp3_to_wav_file.wav";

    /// Encodes the whole file (UTF-8 path) to `type`: 15 MP3, anything else G.711 µ-law. Only one
    /// encoding runs at a time in the process (they share the intermediate files); a second is refused.
    bool StartEncode(const std::string& path, int type);
    /// Makes the running encoding end at its next chunk; callable from any thread.
    void StopEncode();
    /// Receives each encoded frame, on the encoding thread.
    void SetDataCallback(DataCallback callback);
    void SetStateCallback(StateCallback callback);

    bool EncodeG711FromWAV(const std::string& path);
    bool EncodeG711FromMP3(const std::string& path);
    bool EncodeMP3FromWAV(const std::string& path);
    bool EncodeMP3FromMP3(const std::string& path);
    /// Decodes an MP3 byte stream (tags removed) into a 16-bit WAV file.
    bool EncodeWavFromMP3(const std::string& mp3Path, const std::string& wavPath);
    /// Keeps the first channel of a multi-channel WAV; false when the input is mono or on failure.
    bool Convert2SingleChannel(const std::string& inPath, const std::string& outPath);
    /// Resamples a mono 16-bit WAV; false when the rate already matches or on failure.
    bool ReSample(int rate, const std::string& inPath, const std::string& outPath);
    /// Copies an MP3 file without its ID3v2 and ID3v1 tags.
    bool SaveMP3ToRawAudio(const std::string& srcPath, const std::string& dstPath);

    /// Full path of an intermediate file. Without a client data directory a private directory under
    /// $TMPDIR (or /tmp) is used, and a warning says so once.
    static std::string TempFilePath(const char* name);
    /// Removes the four intermediate files.
    static void DeleteTempFiles();

private:
    /// Outcome of a preparation step: its output is used, the input is kept (not needed, not possible,
    /// or stopped), or it failed part-way and nothing sound can be broadcast.
    enum class StepResult { kProduced, kKeepInput, kFailed };
    StepResult ConvertToMono(const std::string& inPath, const std::string& outPath);
    StepResult ResampleTo(int rate, const std::string& inPath, const std::string& outPath);
    /// Resamples the samples of `in` (past its header) in half-second blocks into `out`.
    StepResult ResampleBlocks(Tal::MediaCodec::CResampler& resampler, int in, int out, uint32_t frameSamples);
    /// Mono conversion and resampling to `rate`; the file to encode, empty when a step failed.
    std::string PrepareWav(const std::string& path, int rate);

    void ReportState(EncodeState state);
    void EmitFrame(const uint8_t* data, std::size_t size);
    /// Encodes `file` from its current position to the end, `frameBytes` of PCM a frame, then flushes.
    void EncodeMp3Frames(Tal::MediaCodec::CMp3Encoder& encoder, int file, uint32_t frameBytes);
    /// The first two steps of the MP3 paths: strip the tags, decode to the intermediate WAV file.
    bool DecodeMP3ToTempWav(const std::string& path, std::string* wavPath);

    Tal::Base::CGuardedCallback<void(const uint8_t*, int)> dataCallback_;
    Tal::Base::CGuardedCallback<void(EncodeState)> stateCallback_;
    std::atomic<bool> stopFlag_{true};
};

}  // namespace BroadCastPlugin
