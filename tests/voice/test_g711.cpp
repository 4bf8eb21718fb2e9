// G.711 against sox for every input and code word, its quality on a full-scale sine, and the framing.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "AudioCheck.h"
#include "TestProcess.h"
#include "framework/media/codec/G711Codec.h"

using namespace Tal::MediaCodec;
using namespace BcastTest;

namespace {

std::vector<int16_t> AllSamples() {
    std::vector<int16_t> all;
    for (int v = -32768; v <= 32767; ++v) {
        all.push_back(static_cast<int16_t>(v));
    }
    return all;
}

std::vector<uint8_t> LittleEndian(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> bytes;
    for (int16_t s : samples) {
        bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) & 0xFF));
        bytes.push_back(static_cast<uint8_t>(static_cast<uint16_t>(s) >> 8));
    }
    return bytes;
}

// sox's encoding of every 16-bit value (dither off), in input order.
std::vector<uint8_t> SoxEncodeAll(const CTempDir& dir, const char* encoding) {
    WriteBytes(dir.File("all.raw"), LittleEndian(AllSamples()));
    ProcessResult result = RunProcess({"sox",
                                       "-D",
                                       "-t",
                                       "raw",
                                       "-r",
                                       "8000",
                                       "-e",
                                       "signed-integer",
                                       "-b",
                                       "16",
                                       "-L",
                                       "-c",
                                       "1",
                                       dir.File("all.raw"),
                                       "-t",
                                       "raw",
                                       "-e",
                                       encoding,
                                       "-b",
                                       "8",
                                       dir.File("all.g711")},
                                      30000);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return ReadBytes(dir.File("all.g711"));
}

// sox's decoding of all 256 code words.
std::vector<int16_t> SoxDecodeAll(const CTempDir& dir, const char* type) {
    std::vector<uint8_t> codes;
    for (int c = 0; c < 256; ++c) {
        codes.push_back(static_cast<uint8_t>(c));
    }
    WriteBytes(dir.File("codes.g711"), codes);
    std::string error;
    std::vector<int16_t> decoded =
        DecodeWithSox(dir.File("codes.g711"), 8000, {"-t", type, "-r", "8000", "-c", "1"}, &error);
    EXPECT_TRUE(error.empty()) << error;
    return decoded;
}

std::vector<int16_t> FullScaleSine(int samples, double frequency, int rate) {
    std::vector<int16_t> sine;
    for (int i = 0; i < samples; ++i) {
        sine.push_back(
            static_cast<int16_t>(std::lround(32767.0 * std::sin(2 * M_PI * frequency * i / rate))));
    }
    return sine;
}

}  // namespace

// sox is the reference for every 16-bit input and every code word of both laws: the segment edges and the
// largest levels of the standard's tables are among them.
TEST(G711, EveryInputAndCodeAgreesWithSox) {
    CTempDir dir("bcast-g711");
    ASSERT_FALSE(dir.Path().empty());
    const std::vector<int16_t> all = AllSamples();
    struct Law {
        const char* name;
        const char* soxEncoding;
        const char* soxType;
        uint8_t (*encode)(int16_t);
        int16_t (*decode)(uint8_t);
    };
    for (const Law& law : {Law{"u-law", "u-law", "ul", LinearToUlaw, UlawToLinear},
                           Law{"A-law", "a-law", "al", LinearToAlaw, AlawToLinear}}) {
        SCOPED_TRACE(law.name);
        const std::vector<uint8_t> encoded = SoxEncodeAll(dir, law.soxEncoding);
        ASSERT_EQ(encoded.size(), all.size());
        int mismatches = 0;
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (law.encode(all[i]) != encoded[i] && ++mismatches <= 5) {
                ADD_FAILURE() << all[i] << ": ours " << int(law.encode(all[i])) << ", sox "
                              << int(encoded[i]);
            }
        }
        EXPECT_EQ(mismatches, 0);
        const std::vector<int16_t> levels = SoxDecodeAll(dir, law.soxType);
        ASSERT_EQ(levels.size(), 256u);
        for (int code = 0; code < 256; ++code) {
            EXPECT_EQ(law.decode(static_cast<uint8_t>(code)), levels[code]) << "code " << code;
        }
    }
}

TEST(G711, FullScaleSineKeepsAbout38dB) {
    std::vector<int16_t> sine = FullScaleSine(8000, 1020.0, 8000);
    for (G711Law law : {G711Law::kUlaw, G711Law::kAlaw}) {
        std::vector<int16_t> decoded;
        for (int16_t s : sine) {
            decoded.push_back(law == G711Law::kUlaw ? UlawToLinear(LinearToUlaw(s))
                                                    : AlawToLinear(LinearToAlaw(s)));
        }
        double snr = SineSnrDb(decoded, 8000, 1020.0);
        EXPECT_GT(snr, 36.0) << (law == G711Law::kUlaw ? "u-law" : "A-law");
        EXPECT_LT(snr, 41.0) << (law == G711Law::kUlaw ? "u-law" : "A-law");
    }
}

TEST(G711, EncoderEmitsFixedFramesAndDecoderTakesAnyPieces) {
    CG711Encoder encoder(G711Law::kUlaw, 320);
    Tal::MediaCodec::AudioFormat stereo;
    stereo.channels = 2;
    EXPECT_EQ(encoder.Open(stereo), kCodecInvalidParam);
    std::vector<int16_t> pcm(320, 0);
    EXPECT_EQ(encoder.Encode(pcm.data(), [](const uint8_t*, std::size_t) {}), kCodecNotOpen);

    Tal::MediaCodec::AudioFormat mono;
    mono.sampleRate = 8000;
    ASSERT_EQ(encoder.Open(mono), kCodecOk);
    std::vector<int16_t> sine = FullScaleSine(640, 1000.0, 8000);
    std::vector<std::vector<uint8_t>> frames;
    auto sink = [&frames](const uint8_t* data, std::size_t size) { frames.emplace_back(data, data + size); };
    ASSERT_EQ(encoder.Encode(sine.data(), sink), kCodecOk);
    ASSERT_EQ(encoder.Encode(sine.data() + 320, sink), kCodecOk);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].size(), 320u);

    CG711Decoder decoder(G711Law::kUlaw);
    ASSERT_EQ(decoder.Open(mono), kCodecOk);
    std::vector<int16_t> decoded;
    ASSERT_EQ(decoder.Decode(frames[0].data(), 7, &decoded), kCodecOk);
    ASSERT_EQ(decoder.Decode(frames[0].data() + 7, 313, &decoded), kCodecOk);
    ASSERT_EQ(decoder.Decode(frames[1].data(), 320, &decoded), kCodecOk);
    ASSERT_EQ(decoded.size(), 640u);
    for (std::size_t i = 0; i < decoded.size(); ++i) {
        EXPECT_EQ(decoded[i], UlawToLinear(LinearToUlaw(sine[i])));
    }
}
