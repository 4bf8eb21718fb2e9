#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/FileNameChecks.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/PcmFileIO.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/ScopedFile.h"
#include "framework/base/FileSystem.h"
#include "framework/business/BusinessCommon.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/Resampler.h"

namespace BroadCastPlugin {

namespace FS = Tal::Base::FileSystem;
namespace MC = Tal::MediaCodec;

namespace {

constexpr int kG711Rate = 8000;
constexpr int kMp3Rate = 48000;
constexpr int kTypeMP3 = 15;
constexpr uint32_t kEncodeBufferBytes = 8192;
constexpr uint32_t kMp3ReadBytes = 4096;
constexpr uint32_t kMp3InputBufferBytes = 10240;
constexpr uint32_t kSingleChunkBytes = 2 * 1024 * 1024;  // output bytes per chunk of the mono conversion
// More channels than this is taken for a corrupt header: the chunk would be channels × 2 MiB.
constexpr int kMaxChannels = 16;

// The encoders run one at a time in the process: they share the intermediate files.
std::mutex g_encodeRunning;

// Logs why a codec did not open; true when it did.
bool CodecOpened(int result, const char* what) {
    if (result == MC::kCodecInvalidParam) {
        BCAST_LOG(5, "[%s]can not get the correct parameter! error code = 0x%x[%s(%d)]", result);
        return false;
    }
    if (result == MC::kCodecNoMemory) {
        BCAST_LOG(5, "[%s]There is no enough memory![%s(%d)]");
        return false;
    }
    if (result != MC::kCodecOk) {
        BCAST_LOG(5, "[%s]Create %s failed! error code = 0x%x[%s(%d)]", what, result);
        return false;
    }
    return true;
}

std::string TempDirectory() {
    std::string directory = BusinessCommon::CFrameSystemConfigMgr::Instance()->GetClientDataPath();
    if (directory.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        directory = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/bcast-voice-" +
                    std::to_string(static_cast<unsigned>(::getuid())) + "/";
        static std::once_flag warned;
        std::call_once(warned, [&directory] {
            BCAST_LOG(4, "[%s]Client data path is empty, intermediate audio files go to %s.[%s(%d)]",
                      directory.c_str());
        });
    }
    FS::MakeFullDir(directory);
    return directory;
}

}  // namespace

std::string CVoiceFileEncode::TempFilePath(const char* name) {
    return FS::JoinPath(TempDirectory(), name);
}

void CVoiceFileEncode::DeleteTempFiles() {
    for (const char* name : {kSingleFile, kResampleFile, kRawMp3File, kMp3ToWavFile}) {
        FS::DeleteFileW(TempFilePath(name));
    }
}

void CVoiceFileEncode::SetDataCallback(DataCallback callback) {
    dataCallback_.Set(std::move(callback));
}

void CVoiceFileEncode::SetStateCallback(StateCallback callback) {
    stateCallback_.Set(std::move(callback));
}

void CVoiceFileEncode::ReportState(EncodeState state) {
    stateCallback_.Call(state);
}

void CVoiceFileEncode::EmitFrame(const uint8_t* data, std::size_t size) {
    dataCallback_.Call(data, static_cast<int>(size));
}

void CVoiceFileEncode::StopEncode() {
    stopFlag_.store(true);
}

bool CVoiceFileEncode::StartEncode(const std::string& path, int type) {
    std::unique_lock<std::mutex> running(g_encodeRunning, std::try_to_lock);
    if (!running.owns_lock()) {
        BCAST_LOG(5, "[%s]Another file is being encoded, cannot encode %s now.[%s(%d)]", path.c_str());
        return false;
    }
    stopFlag_.store(false);
    ReportState(EncodePrepare);
    BCAST_LOG(3, "[%s]Start encode file: %s, convert to audio type: %d[%s(%d)]", path.c_str(), type);
    if (!IsValidUtf8(path)) {
        BCAST_LOG(5, "[%s]Input param is not utf-8 format. file name:%s.[%s(%d)]", path.c_str());
        stopFlag_.store(true);
        return false;
    }
    int fileType = CheckAudioFileType(path);
    std::string suffix = Suffix(path);
    BCAST_LOG(3,
              "[%s]file suffix is: %s, read file to get file type:%d[0-mp3,1-wav,2-flac,3-unknow].[%s(%d)]",
              suffix.c_str(), fileType);
    bool isMp3 = suffix == "mp3";
    bool isWav = suffix == "wav";
    bool result = false;
    if (!isMp3 && !isWav) {
        BCAST_LOG(5, "[%s]Cannot support this file suffix[%s(%d)]");
    } else if (fileType != AudioFileUnknown &&
               ((isMp3 && fileType != AudioFileMP3) || (isWav && fileType != AudioFileWAV))) {
        BCAST_LOG(5, "[%s]file suffix cannot equal to file type.[%s(%d)]");
    } else if (type == kTypeMP3) {
        result = isWav ? EncodeMP3FromWAV(path) : EncodeMP3FromMP3(path);
    } else {
        result = isWav ? EncodeG711FromWAV(path) : EncodeG711FromMP3(path);
    }
    stopFlag_.store(true);
    return result;
}

bool CVoiceFileEncode::EncodeG711FromWAV(const std::string& path) {
    MC::CG711Encoder encoder(MC::G711Law::kUlaw);
    MC::AudioFormat format;
    format.sampleRate = kG711Rate;
    int result = encoder.Open(format);
    if (result != MC::kCodecOk) {
        BCAST_LOG(5, "[%s]get encode param failed, error code = 0x%x[%s(%d)]", result);
        return false;
    }
    const uint32_t inputBytes = static_cast<uint32_t>(encoder.FrameSamples()) * 2;  // 640

    const std::string current = PrepareWav(path, kG711Rate);
    if (current.empty()) {
        return false;
    }

    CScopedFile file(current, FS::kOpenRead);
    if (!file.IsOpen()) {
        BCAST_LOG(5, "[%s]Read audio file failed. file name: [%s][%s(%d)]", current.c_str());
        return false;
    }
    WavHeader header;
    if (!ReadWavHeader(file.Get(), &header)) {
        BCAST_LOG(5, "[%s]read wav file header failed. file name: [%s][%s(%d)]", current.c_str());
    } else if (header.BitsPerSample() != 16) {
        // Read as 16-bit samples it would be broadcast as loud noise.
        BCAST_LOG(5, "[%s]Wav file[%s] is not 16 bits per sample (%d), cannot encode it.[%s(%d)]",
                  current.c_str(), header.BitsPerSample());
        return false;
    }

    ReportState(EncodeRunning);
    std::vector<uint8_t> buffer(kEncodeBufferBytes);
    std::vector<int16_t> samples(static_cast<std::size_t>(encoder.FrameSamples()));
    auto sink = [this](const uint8_t* data, std::size_t size) { EmitFrame(data, size); };
    uint32_t read = 0;
    do {
        if (stopFlag_.load()) {
            BCAST_LOG(5, "[%s]stop encode for outside ...[%s(%d)]");
            break;
        }
        std::fill(buffer.begin(), buffer.end(), 0);
        if (!FS::ReadFile(file.Get(), buffer.data(), inputBytes, &read)) {
            BCAST_LOG(5, "[%s]Read file failed.[%s(%d)]");
        }
        // A short last chunk keeps its zero tail: the frame is padded with silence.
        BytesToSamples(buffer.data(), samples.size(), samples.data());
        result = encoder.Encode(samples.data(), sink);
        if (result != MC::kCodecOk) {
            BCAST_LOG(5, "[%s]encode 711u failed, error code = %d[%s(%d)]", result);
            break;
        }
    } while (read >= inputBytes);
    return true;
}

bool CVoiceFileEncode::EncodeMP3FromWAV(const std::string& path) {
    const uint32_t channelFrameBytes = MC::CMp3Encoder::kFrameSamples * 2;  // 2304
    if (channelFrameBytes == 0) {
        BCAST_LOG(5, "[%s]get encode param failed, error code = 0x%x[%s(%d)]", MC::kCodecInvalidParam);
        return false;
    }

    const std::string current = PrepareWav(path, kMp3Rate);
    if (current.empty()) {
        return false;
    }
    BCAST_LOG(5, "[%s]RESAMPLE_FILE_out_file_name. file name: [%s][%s(%d)]", current.c_str());

    CScopedFile file(current, FS::kOpenRead);
    if (!file.IsOpen()) {
        BCAST_LOG(5, "[%s]Read audio file failed. file name: [%s][%s(%d)]", current.c_str());
        return false;
    }
    WavHeader header;
    if (!ReadWavHeader(file.Get(), &header)) {
        BCAST_LOG(5, "[%s]Read file failed. file name: [%s][%s(%d)]", current.c_str());
        return false;
    }
    if (header.BitsPerSample() != 16) {
        BCAST_LOG(5, "[%s]Wav file[%s] is not 16 bits per sample (%d), cannot encode it.[%s(%d)]",
                  current.c_str(), header.BitsPerSample());
        return false;
    }
    MC::AudioFormat format;
    format.sampleRate = static_cast<int>(header.SampleRate());
    format.channels = header.Channels();
    format.bitRate = format.sampleRate <= 24000 ? 160000 : 192000;
    format.quality = 3;
    if (!FS::FileSeek(file.Get(), WavHeader::kSize, FS::kSeekBegin)) {
        BCAST_LOG(5, "[%s]seek file failed. file name: [%s][%s(%d)]", current.c_str());
        return false;
    }
    MC::CMp3Encoder encoder;
    if (!CodecOpened(encoder.Open(format), "handle")) {
        return false;
    }
    ReportState(EncodeRunning);
    EncodeMp3Frames(encoder, file.Get(), channelFrameBytes * static_cast<uint32_t>(format.channels));
    return true;
}

void CVoiceFileEncode::EncodeMp3Frames(MC::CMp3Encoder& encoder, int file, uint32_t frameBytes) {
    std::vector<uint8_t> input(kEncodeBufferBytes);
    std::vector<int16_t> samples(frameBytes / 2);
    auto sink = [this](const uint8_t* data, std::size_t size) { EmitFrame(data, size); };
    bool complete = true;
    uint32_t read = 0;
    do {
        if (stopFlag_.load()) {
            BCAST_LOG(4, "[%s]stop encode for outside ...[%s(%d)]");
            complete = false;
            break;
        }
        std::fill(input.begin(), input.end(), 0);
        if (!FS::ReadFile(file, input.data(), frameBytes, &read)) {
            BCAST_LOG(5, "[%s]Read file failed. read count: %ld[%s(%d)]", static_cast<long>(read));
        }
        BytesToSamples(input.data(), samples.size(), samples.data());
        const int result = encoder.Encode(samples.data(), sink);
        if (result != MC::kCodecOk) {
            BCAST_LOG(5, "[%s]encode 711u failed, error code = %d[%s(%d)]", result);
            complete = false;
            break;
        }
    } while (read == frameBytes);
    // The frames the encoder still holds belong to the end of the file.
    if (complete) {
        const int result = encoder.Flush(sink);
        if (result != MC::kCodecOk) {
            BCAST_LOG(5, "[%s]encode 711u failed, error code = %d[%s(%d)]", result);
        }
    }
}

std::string CVoiceFileEncode::PrepareWav(const std::string& path, int rate) {
    std::string current = path;
    const std::string single = TempFilePath(kSingleFile);
    const std::string resampled = TempFilePath(kResampleFile);
    StepResult mono = ConvertToMono(current, single);
    if (mono == StepResult::kProduced) {
        current = single;
    }
    StepResult resample =
        mono == StepResult::kFailed ? StepResult::kFailed : ResampleTo(rate, current, resampled);
    if (resample == StepResult::kProduced) {
        current = resampled;
    }
    if (resample == StepResult::kFailed) {
        // Going on with the unconverted file would broadcast it at the wrong rate or channel layout.
        BCAST_LOG(5, "[%s]Prepare wav file failed, stop encoding. file name: [%s][%s(%d)]", path.c_str());
        return std::string();
    }
    return current;
}

bool CVoiceFileEncode::Convert2SingleChannel(const std::string& inPath, const std::string& outPath) {
    return ConvertToMono(inPath, outPath) == StepResult::kProduced;
}

bool CVoiceFileEncode::ReSample(int rate, const std::string& inPath, const std::string& outPath) {
    return ResampleTo(rate, inPath, outPath) == StepResult::kProduced;
}

bool CVoiceFileEncode::DecodeMP3ToTempWav(const std::string& path, std::string* wavPath) {
    const std::string raw = TempFilePath(kRawMp3File);
    if (!SaveMP3ToRawAudio(path, raw)) {
        BCAST_LOG(5, "[%s]Save mp3 file to raw audio file failed. src file: %s, dst file: %s.[%s(%d)]",
                  path.c_str(), raw.c_str());
        return false;
    }
    *wavPath = TempFilePath(kMp3ToWavFile);
    if (!EncodeWavFromMP3(raw, *wavPath)) {
        BCAST_LOG(5, "[%s]encode mp3 file to wav file failed. src file: %s, dst file: %s.[%s(%d)]",
                  raw.c_str(), wavPath->c_str());
        return false;
    }
    return true;
}

bool CVoiceFileEncode::EncodeG711FromMP3(const std::string& path) {
    std::string wav;
    if (!DecodeMP3ToTempWav(path, &wav)) {
        return false;
    }
    if (!EncodeG711FromWAV(wav)) {
        BCAST_LOG(5, "[%s]encode wav file to G711 file failed. src file: %s.[%s(%d)]", wav.c_str());
        return false;
    }
    return true;
}

bool CVoiceFileEncode::EncodeMP3FromMP3(const std::string& path) {
    std::string wav;
    if (!DecodeMP3ToTempWav(path, &wav)) {
        return false;
    }
    if (!EncodeMP3FromWAV(wav)) {
        BCAST_LOG(5, "[%s]encode wav file to mp3 file failed. src file: %s.[%s(%d)]", wav.c_str());
        return false;
    }
    return true;
}

bool CVoiceFileEncode::SaveMP3ToRawAudio(const std::string& srcPath, const std::string& dstPath) {
    CScopedFile src(srcPath, FS::kOpenRead);
    if (!src.IsOpen()) {
        BCAST_LOG(5, "[%s]infile open error. file path: %s[%s(%d)]", srcPath.c_str());
        return false;
    }
    FS::FileInfo info;
    if (!FS::FileStat(src.Get(), &info)) {
        BCAST_LOG(5, "[%s]Get file info failed.[%s(%d)]");
        return false;
    }
    int skip = GetID3V2HeaderLength(src.Get());
    bool hasID3V1 = CheckID3V1(src.Get());
    int64_t end = info.size - (hasID3V1 ? 128 : 0);
    // A tag length past the end (a corrupt or hostile size field) leaves nothing to decode.
    if (skip >= end) {
        BCAST_LOG(5,
                  "[%s]No audio data after the tags. file: %s, file size: %lld, id3v2 length: %d, id3v1: "
                  "%d[%s(%d)]",
                  srcPath.c_str(), static_cast<long long>(info.size), skip, hasID3V1 ? 1 : 0);
        return false;
    }
    if (!FS::FileSeek(src.Get(), skip, FS::kSeekBegin)) {
        BCAST_LOG(5, "[%s]Read file failed. src file name:%s[%s(%d)]", srcPath.c_str());
        return false;
    }
    CScopedFile dst(dstPath, FS::kOpenWrite);
    if (!dst.IsOpen()) {
        BCAST_LOG(5, "[%s]outfile open error. file path: %s[%s(%d)]", dstPath.c_str());
        return false;
    }
    COutputFileGuard output(dstPath);
    std::vector<uint8_t> chunk(kMp3ReadBytes);
    for (int64_t remaining = end - skip; remaining > 0;) {
        if (stopFlag_.load()) {
            BCAST_LOG(5, "[%s]stop encode for outside ...[%s(%d)]");
            return false;
        }
        uint32_t wanted = static_cast<uint32_t>(std::min<int64_t>(remaining, kMp3ReadBytes));
        uint32_t read = 0;
        if (!FS::ReadFile(src.Get(), chunk.data(), wanted, &read) || read == 0) {
            BCAST_LOG(5, "[%s]Read file failed. src file name:%s[%s(%d)]", srcPath.c_str());
            return false;
        }
        if (!FS::WriteFile(dst.Get(), chunk.data(), read)) {
            BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
            return false;
        }
        remaining -= read;
    }
    output.Keep();
    return true;
}

bool CVoiceFileEncode::EncodeWavFromMP3(const std::string& mp3Path, const std::string& wavPath) {
    MC::CMp3Decoder decoder;
    if (!CodecOpened(decoder.Open(MC::AudioFormat()), "encoder")) {
        return false;
    }
    CScopedFile src(mp3Path, FS::kOpenRead);
    if (!src.IsOpen()) {
        BCAST_LOG(5, "[%s]Read audio file failed. file name: %s[%s(%d)]", mp3Path.c_str());
        return false;
    }
    CScopedFile dst(wavPath, FS::kOpenWrite);
    if (!dst.IsOpen() || !WriteHeaderGap(dst.Get())) {
        BCAST_LOG(5, "[%s]Write WAV file failed. file name: [%s][%s(%d)]", wavPath.c_str());
        return false;
    }
    COutputFileGuard output(wavPath);

    std::vector<uint8_t> input(kMp3InputBufferBytes);
    std::vector<int16_t> pcm;
    uint64_t pcmBytes = 0;
    for (;;) {
        if (stopFlag_.load()) {
            BCAST_LOG(5, "[%s]stop encode for outside ...[%s(%d)]");
            return false;
        }
        uint32_t read = 0;
        if (!FS::ReadFile(src.Get(), input.data(), kMp3ReadBytes, &read)) {
            BCAST_LOG(5, "[%s]Read file failed. src file name:%s[%s(%d)]", mp3Path.c_str());
            return false;
        }
        if (read == 0) {
            BCAST_LOG(3, "[%s]break by dw_read =0[%s(%d)]");
            break;
        }
        pcm.clear();
        const int result = decoder.Decode(input.data(), read, &pcm);
        if (!pcm.empty()) {
            if (!WriteSamples(dst.Get(), pcm.data(), pcm.size())) {
                BCAST_LOG(5, "[%s]Write WAV file failed. file name: [%s][%s(%d)]", wavPath.c_str());
                return false;
            }
            pcmBytes += pcm.size() * 2;
        }
        if (result != MC::kCodecOk) {
            // What was decoded so far is kept: a damaged tail does not spoil the file before it.
            BCAST_LOG(5, "[%s]Decode mp3 data failed, result: %d (%s, %s).[%s(%d)]", result,
                      MC::CodecResultText(result), decoder.LibraryErrorText());
            break;
        }
    }
    MC::AudioFormat decoded = decoder.OutputFormat();
    if (pcmBytes == 0 || decoded.sampleRate <= 0) {
        BCAST_LOG(5, "[%s]No audio decoded from mp3 file: %s[%s(%d)]", mp3Path.c_str());
        return false;
    }
    WavAudioInfo info;
    info.channels = decoded.channels;
    info.sampleRate = decoded.sampleRate;
    if (!WriteWavHeader(dst.Get(), info)) {
        return false;
    }
    output.Keep();
    return true;
}

CVoiceFileEncode::StepResult CVoiceFileEncode::ConvertToMono(const std::string& inPath,
                                                             const std::string& outPath) {
    CScopedFile in(inPath, FS::kOpenRead);
    if (!in.IsOpen()) {
        BCAST_LOG(5, "[%s]Read audio file failed. file name: [%s][%s(%d)]", inPath.c_str());
        return StepResult::kKeepInput;
    }
    WavHeader header;
    if (!ReadWavHeader(in.Get(), &header)) {
        BCAST_LOG(5, "[%s]read wav file header failed. file name: [%s][%s(%d)]", inPath.c_str());
        return StepResult::kKeepInput;
    }
    const int channels = header.Channels();
    if (channels < 2) {
        BCAST_LOG(3,
                  "[%s]File is single source, do not need to convert. file: %s, file channel num: %d[%s(%d)]",
                  inPath.c_str(), channels);
        return StepResult::kKeepInput;
    }
    if (channels > kMaxChannels) {
        BCAST_LOG(5, "[%s]File channel num %d is not supported. file: %s[%s(%d)]", channels, inPath.c_str());
        return StepResult::kFailed;
    }
    CScopedFile out(outPath, FS::kOpenWrite);
    if (!out.IsOpen() || !WriteHeaderGap(out.Get())) {
        BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
        return StepResult::kFailed;
    }
    COutputFileGuard output(outPath);

    const uint32_t inputBytes = static_cast<uint32_t>(channels) * kSingleChunkBytes;
    std::vector<uint8_t> input(inputBytes);
    std::vector<uint8_t> mono(kSingleChunkBytes);
    for (;;) {
        uint32_t read = 0;
        if (!FS::ReadFile(in.Get(), input.data(), inputBytes, &read)) {
            BCAST_LOG(5, "[%s]Read file failed. file name: %s[%s(%d)]", inPath.c_str());
            return StepResult::kFailed;
        }
        // Whole sample frames only; the first channel's sample of each is kept.
        const uint32_t frames = read / (static_cast<uint32_t>(channels) * 2);
        for (uint32_t i = 0; i < frames; ++i) {
            mono[2 * i] = input[i * channels * 2];
            mono[2 * i + 1] = input[i * channels * 2 + 1];
        }
        if (!FS::WriteFile(out.Get(), mono.data(), frames * 2)) {
            BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
            return StepResult::kFailed;
        }
        if (frames * 2 < kSingleChunkBytes) {
            BCAST_LOG(3, "[%s]Has already read file finish.[%s(%d)]");
            break;
        }
        if (stopFlag_.load()) {
            // Cut short: the output is not the whole file and is not used.
            BCAST_LOG(3, "[%s]Has stop convert to single file.[%s(%d)]");
            return StepResult::kKeepInput;
        }
    }
    // The input's header with one channel; byte rate, block align and sizes stay as they were.
    header.SetChannels(1);
    if (!RewriteHeader(out.Get(), header)) {
        return StepResult::kFailed;
    }
    output.Keep();
    BCAST_LOG(3,
              "[%s]Convert file to single channel succ. src file: %s, dst file: %s, channel num: %d[%s(%d)]",
              inPath.c_str(), outPath.c_str(), channels);
    return StepResult::kProduced;
}

CVoiceFileEncode::StepResult CVoiceFileEncode::ResampleTo(int rate, const std::string& inPath,
                                                          const std::string& outPath) {
    CScopedFile in(inPath, FS::kOpenRead);
    if (!in.IsOpen()) {
        BCAST_LOG(5, "[%s]infile open error. file path: %s[%s(%d)]", inPath.c_str());
        return StepResult::kKeepInput;
    }
    WavHeader header;
    if (!ReadWavHeader(in.Get(), &header)) {
        BCAST_LOG(5, "[%s]read wav file header failed. file name: [%s][%s(%d)]", inPath.c_str());
        return StepResult::kKeepInput;
    }
    const uint32_t sourceRate = header.SampleRate();
    if (sourceRate == static_cast<uint32_t>(rate)) {
        BCAST_LOG(3, "[%s]File is src_rate == des_rate, do not need to convert. file: %s[%s(%d)]",
                  inPath.c_str());
        return StepResult::kKeepInput;
    }
    if (header.BitsPerSample() != 16) {
        BCAST_LOG(5,
                  "[%s]Resample file[%s] is not 16short type, resample dll cannot support this type.[%s(%d)]",
                  inPath.c_str());
        return StepResult::kKeepInput;
    }
    CScopedFile out(outPath, FS::kOpenWrite);
    if (!out.IsOpen() || !WriteHeaderGap(out.Get())) {
        BCAST_LOG(5, "[%s]outfile open error. file path: %s[%s(%d)]", outPath.c_str());
        return StepResult::kFailed;
    }
    COutputFileGuard output(outPath);
    // Mono, 16 bits, half a second of input per block.
    const uint32_t frameSamples = sourceRate / 2;
    MC::CResampler resampler;
    int result = sourceRate < 2 || sourceRate > 768000
                     ? static_cast<int>(MC::kCodecInvalidParam)
                     : resampler.Open(static_cast<int>(sourceRate), rate, 1);
    if (result == MC::kCodecInvalidParam) {
        BCAST_LOG(5, "[%s]ERROR: get mem size!:%x \n[%s(%d)]", result);
        return StepResult::kFailed;
    }
    if (result != MC::kCodecOk) {
        BCAST_LOG(5, "[%s]ERROR: create!:%x \n[%s(%d)]", result);
        return StepResult::kFailed;
    }
    const StepResult blocks = ResampleBlocks(resampler, in.Get(), out.Get(), frameSamples);
    if (blocks != StepResult::kProduced) {
        return blocks;
    }
    // The input's header with the new rate; the other fields stay as they were.
    header.SetSampleRate(static_cast<uint32_t>(rate));
    if (!RewriteHeader(out.Get(), header)) {
        return StepResult::kFailed;
    }
    output.Keep();
    return StepResult::kProduced;
}

CVoiceFileEncode::StepResult CVoiceFileEncode::ResampleBlocks(MC::CResampler& resampler, int in, int out,
                                                              uint32_t frameSamples) {
    std::vector<uint8_t> input(frameSamples * 2);
    std::vector<int16_t> samples(frameSamples);
    std::vector<int16_t> converted;
    int frame = 0;
    for (;;) {
        if (stopFlag_.load()) {
            BCAST_LOG(5, "[%s]stop encode for outside ...[%s(%d)]");
            return StepResult::kKeepInput;
        }
        uint32_t read = 0;
        // At least frameSamples bytes, half a block: the count of samples is compared with bytes, so a
        // tail shorter than a quarter of a second is left out.
        if (!FS::ReadFile(in, input.data(), frameSamples * 2, &read) || read < frameSamples) {
            break;
        }
        const uint32_t readSamples = read / 2;
        BytesToSamples(input.data(), readSamples, samples.data());
        converted.clear();
        const int result = resampler.Process(samples.data(), readSamples, &converted);
        if (result != MC::kCodecOk) {
            BCAST_LOG(5, "[%s]frame %d %u %d: need more data\n[%s(%d)]", frame, read, result);
        } else if (!WriteSamples(out, converted.data(), converted.size())) {
            BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
            return StepResult::kFailed;
        }
        ++frame;
    }
    // What the filter still holds is the end of the last block.
    converted.clear();
    if (resampler.Flush(&converted) == MC::kCodecOk &&
        !WriteSamples(out, converted.data(), converted.size())) {
        BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
        return StepResult::kFailed;
    }
    return StepResult::kProduced;
}

}  // namespace BroadCastPlugin
