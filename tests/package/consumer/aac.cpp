// Codes one second of a tone as AAC through the installed codec library, which loads its AAC plug-in from
// its own directory; prints the number of ADTS frames, or the codec's result text.
#include <cmath>
#include <iostream>
#include <vector>

#include "framework/media/codec/AudioCodec.h"

using namespace Tal::MediaCodec;

int main() {
    std::unique_ptr<IAudioEncoder> encoder = CreateEncoder(CodecId::kAac);
    AudioFormat format;
    format.sampleRate = 16000;
    format.bitRate = 64000;
    int result = encoder ? encoder->Open(format) : kCodecLibraryError;
    int frames = 0;
    const FrameSink count = [&](const uint8_t* data, std::size_t size) {
        frames += size > 7 && data[0] == 0xFF && (data[1] & 0xF0) == 0xF0 ? 1 : 0;
    };
    std::vector<int16_t> pcm(static_cast<std::size_t>(encoder->FrameSamples()));
    for (int block = 0, at = 0; block < 16 && result == kCodecOk; ++block) {
        for (int16_t& sample : pcm) {
            sample = static_cast<int16_t>(std::lround(8000.0 * std::sin(2 * M_PI * 440.0 * at++ / 16000)));
        }
        result = encoder->Encode(pcm.data(), count);
    }
    result = result == kCodecOk ? encoder->Flush(count) : result;
    if (result != kCodecOk) {
        std::cout << "aac: " << CodecResultText(result) << std::endl;
        return 1;
    }
    std::cout << "aac frames " << frames << std::endl;
    return 0;
}
