#pragma once
// What bcast-tool tells about an audio file: type, tags, header fields and playing time.

#include <cstdint>
#include <string>

namespace BcastTool {

struct AudioFileFacts {
    int type = 3;  ///< CheckAudioFileType: 0 MP3, 1 WAV, 2 FLAC, 3 unknown
    int64_t size = 0;
    int id3v2Length = 0;  ///< bytes of the ID3v2 tag, 0 when there is none
    bool hasId3v1 = false;
    // WAV header fields (type 1).
    int channels = 0;
    int sampleRate = 0;
    int bitsPerSample = 0;
    int wavDurationMs = 0;  ///< GetWavDuration: from the RIFF size, as the broadcast computes it
    // MP3 frames (type 0, or unknown content walked as MP3).
    int64_t mp3Frames = 0;
    /// Playing time from the audio data (WAV data bytes, or MP3 frames); negative when unknown.
    double playSeconds = -1.0;
};

/// False with `error` set when the file cannot be read.
bool InspectAudioFile(const std::string& path, AudioFileFacts* facts, std::string* error);

}  // namespace BcastTool
