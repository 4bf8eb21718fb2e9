#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/PcmFileIO.h"

#include <vector>

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/base/FileSystem.h"

namespace BroadCastPlugin {

namespace FS = Tal::Base::FileSystem;

void BytesToSamples(const uint8_t* bytes, std::size_t samples, int16_t* out) {
    for (std::size_t i = 0; i < samples; ++i) {
        out[i] = static_cast<int16_t>(static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8));
    }
}

bool WriteSamples(int file, const int16_t* samples, std::size_t count) {
    std::vector<uint8_t> bytes(count * 2);
    for (std::size_t i = 0; i < count; ++i) {
        auto value = static_cast<uint16_t>(samples[i]);
        bytes[2 * i] = static_cast<uint8_t>(value & 0xFF);
        bytes[2 * i + 1] = static_cast<uint8_t>(value >> 8);
    }
    return FS::WriteFile(file, bytes.data(), static_cast<uint32_t>(bytes.size()));
}

bool WriteHeaderGap(int file) {
    uint8_t gap[WavHeader::kSize] = {};
    return FS::WriteFile(file, gap, sizeof(gap));
}

bool RewriteHeader(int file, const WavHeader& header) {
    if (!FS::FileSeek(file, 0, FS::kSeekBegin) || !FS::WriteFile(file, header.bytes, WavHeader::kSize)) {
        BCAST_LOG(5, "[%s]Write file failed.[%s(%d)]");
        return false;
    }
    return true;
}

}  // namespace BroadCastPlugin
