// G.711 against values derived from the ITU-T G.711 segment tables and, for every input, against sox.

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

TEST(G711, UlawMatchesTheStandardsLevels) {
    // Zero, the largest levels (8031 in 14-bit units) and the inverted sign bit.
    EXPECT_EQ(LinearToUlaw(0), 0xFF);
    EXPECT_EQ(LinearToUlaw(32767), 0x80);
    EXPECT_EQ(LinearToUlaw(-32768), 0x00);
    EXPECT_EQ(UlawToLinear(0xFF), 0);
    EXPECT_EQ(UlawToLinear(0x7F), 0);
    EXPECT_EQ(UlawToLinear(0x80), 32124);
    EXPECT_EQ(UlawToLinear(0x00), -32124);
    // The first segment ends at decision value 31 (14-bit): 30 is its last step, 31 opens the next one.
    EXPECT_EQ(LinearToUlaw(30 * 4), 0xF0);
    EXPECT_EQ(LinearToUlaw(31 * 4), 0xEF);
    // Segment 7 starts at 4063 (14-bit) with steps of 256.
    EXPECT_EQ(LinearToUlaw(4062 * 4), 0x90);
    EXPECT_EQ(LinearToUlaw(4063 * 4), 0x8F);
}

TEST(G711, AlawMatchesTheStandardsLevels) {
    EXPECT_EQ(LinearToAlaw(0), 0xD5);
    EXPECT_EQ(LinearToAlaw(-8), 0x55);  // -1 in 13 bits: the smallest negative level
    EXPECT_EQ(AlawToLinear(0xD5), 8);
    EXPECT_EQ(AlawToLinear(0x55), -8);
    EXPECT_EQ(AlawToLinear(0xAA), 32256);
    EXPECT_EQ(AlawToLinear(0x2A), -32256);
    EXPECT_EQ(LinearToAlaw(32767), 0xAA);
    EXPECT_EQ(LinearToAlaw(-32768), 0x2A);
    // Segments 0 and 1 share the step of 2 (13-bit); segment 1 starts at 32.
    EXPECT_EQ(LinearToAlaw(31 * 8), 0xDA);
    EXPECT_EQ(LinearToAlaw(32 * 8), 0xC5);
}

TEST(G711, EveryInputAndCodeAgreesWithSox) {
    CTempDir dir("bcast-g711");
    ASSERT_FALSE(dir.Path().empty());
    std::vector<int16_t> all = AllSamples();

    std::vector<uint8_t> soxUlaw = SoxEncodeAll(dir, "u-law");
    ASSERT_EQ(soxUlaw.size(), all.size());
    int ulawMismatches = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (LinearToUlaw(all[i]) != soxUlaw[i] && ++ulawMismatches <= 5) {
            ADD_FAILURE() << "u-law of " << all[i] << ": ours " << int(LinearToUlaw(all[i])) << ", sox "
                          << int(soxUlaw[i]);
        }
    }
    EXPECT_EQ(ulawMismatches, 0);

    std::vector<uint8_t> soxAlaw = SoxEncodeAll(dir, "a-law");
    ASSERT_EQ(soxAlaw.size(), all.size());
    int alawMismatches = 0;
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (LinearToAlaw(all[i]) != soxAlaw[i] && ++alawMismatches <= 5) {
            ADD_FAILURE() << "A-law of " << all[i] << ": ours " << int(LinearToAlaw(all[i])) << ", sox "
                          << int(soxAlaw[i]);
        }
    }
    EXPECT_EQ(alawMismatches, 0);

    std::vector<int16_t> ulawLevels = SoxDecodeAll(dir, "ul");
    std::vector<int16_t> alawLevels = SoxDecodeAll(dir, "al");
    ASSERT_EQ(ulawLevels.size(), 256u);
    ASSERT_EQ(alawLevels.size(), 256u);
    for (int code = 0; code < 256; ++code) {
        EXPECT_EQ(UlawToLinear(static_cast<uint8_t>(code)), ulawLevels[code]) << "u-law code " << code;
        EXPECT_EQ(AlawToLinear(static_cast<uint8_t>(code)), alawLevels[code]) << "A-law code " << code;
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
