#pragma once
// 16-bit little-endian PCM in the intermediate WAV files: samples to and from bytes, and the header gap that
// is filled in once the data is complete.

#include <cstddef>
#include <cstdint>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"

namespace BroadCastPlugin {

/// `samples` samples from `bytes`; an odd byte count leaves the half sample with a zero high byte.
void BytesToSamples(const uint8_t* bytes, std::size_t samples, int16_t* out);
bool WriteSamples(int file, const int16_t* samples, std::size_t count);
/// Room for the header, zeros until the header is written: not a WAV file before it is complete.
bool WriteHeaderGap(int file);
/// Writes the final header over the gap at the start of a converted file.
bool RewriteHeader(int file, const WavHeader& header);

}  // namespace BroadCastPlugin
