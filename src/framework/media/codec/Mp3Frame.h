#pragma once
// MPEG audio layer III frame headers: enough to cut an encoder's byte stream into whole frames.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

struct Mp3FrameInfo {
    int sampleRate = 0;
    int channels = 0;
    int bitRate = 0;          ///< bit/s
    int samplesPerFrame = 0;  ///< 1152 (MPEG-1) or 576 (MPEG-2 and 2.5)
    std::size_t frameBytes = 0;
};

/// Parses the 4-byte header at `data`; false when it is not a valid layer III header.
bool ParseMp3FrameHeader(const uint8_t* data, std::size_t size, Mp3FrameInfo* info);

/// Collects bytes and hands out whole frames; bytes before a valid header are skipped.
class CMp3FrameSplitter {
public:
    void Push(const uint8_t* data, std::size_t size, const FrameSink& sink);
    /// Hands out what is left (an incomplete frame at the end of a stream) and empties the buffer.
    void Drain(const FrameSink& sink);

private:
    std::vector<uint8_t> pending_;
};

}  // namespace MediaCodec
}  // namespace Tal
