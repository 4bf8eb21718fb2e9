// MP3, G.722, AAC and resampling, checked by decoding with ffmpeg and by measuring the tone.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "AudioCheck.h"
#include "TestProcess.h"
#include "framework/media/codec/G722Codec.h"
#include "framework/media/codec/Mp3Decoder.h"
#include "framework/media/codec/Mp3Encoder.h"
#include "framework/media/codec/Mp3Frame.h"
#include "framework/media/codec/PcmCodec.h"
#include "framework/media/codec/Resampler.h"

using namespace Tal::MediaCodec;
using namespace BcastTest;

namespace {

// Interleaved sine, one frequency per channel, amplitude 0.5.
std::vector<int16_t> Sine(int rate, double seconds, const std::vector<double>& frequencies) {
    std::vector<int16_t> pcm;
    int frames = static_cast<int>(rate * seconds);
    for (int i = 0; i < frames; ++i) {
        for (double f : frequencies) {
            pcm.push_back(static_cast<int16_t>(std::lround(16384.0 * std::sin(2 * M_PI * f * i / rate))));
        }
    }
    return pcm;
}

struct Encoded {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint8_t> Stream() const {
        std::vector<uint8_t> all;
        for (const auto& frame : frames) {
            all.insert(all.end(), frame.begin(), frame.end());
        }
        return all;
    }
};

// Feeds whole encoder frames (the tail padded with silence) and flushes.
Encoded EncodeAll(IAudioEncoder& encoder, std::vector<int16_t> pcm, int channels) {
    Encoded out;
    auto sink = [&out](const uint8_t* data, std::size_t size) { out.frames.emplace_back(data, data + size); };
    std::size_t frame = static_cast<std::size_t>(encoder.FrameSamples() * channels);
    pcm.resize((pcm.size() + frame - 1) / frame * frame, 0);
    for (std::size_t i = 0; i < pcm.size(); i += frame) {
        EXPECT_EQ(encoder.Encode(pcm.data() + i, sink), kCodecOk);
    }
    EXPECT_EQ(encoder.Flush(sink), kCodecOk);
    return out;
}

AudioFormat Format(int rate, int channels, int bitRate, int quality = 3) {
    AudioFormat format;
    format.sampleRate = rate;
    format.channels = channels;
    format.bitRate = bitRate;
    format.quality = quality;
    return format;
}

}  // namespace

TEST(Mp3Encoder, EmitsWholeFramesThatFfmpegDecodesToTheTone) {
    CTempDir dir("bcast-mp3");
    CMp3Encoder encoder;
    EXPECT_EQ(encoder.Open(Format(96000, 1, 192000)), kCodecInvalidParam);
    EXPECT_EQ(encoder.Open(Format(48000, 3, 192000)), kCodecInvalidParam);
    ASSERT_EQ(encoder.Open(Format(48000, 1, 192000)), kCodecOk);
    EXPECT_EQ(encoder.FrameSamples(), 1152);

    Encoded encoded = EncodeAll(encoder, Sine(48000, 2.0, {1000.0}), 1);
    ASSERT_FALSE(encoded.frames.empty());
    for (const auto& frame : encoded.frames) {
        Mp3FrameInfo info;
        ASSERT_TRUE(ParseMp3FrameHeader(frame.data(), frame.size(), &info));
        EXPECT_EQ(frame.size(), 576u);  // 144 × 192000 / 48000, never padded at 48 kHz
        EXPECT_EQ(info.sampleRate, 48000);
        EXPECT_EQ(info.bitRate, 192000);
        EXPECT_EQ(info.channels, 1);
    }
    // Two seconds are 83.3 frames; the encoder delay adds about one more.
    EXPECT_GE(encoded.frames.size(), 84u);
    EXPECT_LE(encoded.frames.size(), 87u);

    ASSERT_TRUE(WriteBytes(dir.File("tone.mp3"), encoded.Stream()));
    std::string error;
    std::vector<int16_t> decoded = DecodeWithFfmpeg(dir.File("tone.mp3"), 48000, {}, &error);
    ASSERT_FALSE(decoded.empty()) << error;
    EXPECT_NEAR(DominantFrequency(decoded, 48000), 1000.0, 2.0);
    EXPECT_GT(SineSnrDb(Middle(decoded, 48000), 48000, 1000.0), 30.0);
    EXPECT_NEAR(static_cast<double>(decoded.size()), 96000.0, 3 * 1152.0);
}

TEST(Mp3Encoder, StereoAndLowRates) {
    CTempDir dir("bcast-mp3");
    std::string error;
    {
        // Stereo keeps the channels apart: left 1 kHz, right 3 kHz.
        CMp3Encoder encoder;
        ASSERT_EQ(encoder.Open(Format(48000, 2, 192000)), kCodecOk);
        Encoded encoded = EncodeAll(encoder, Sine(48000, 1.0, {1000.0, 3000.0}), 2);
        Mp3FrameInfo info;
        ASSERT_TRUE(ParseMp3FrameHeader(encoded.frames.front().data(), encoded.frames.front().size(), &info));
        EXPECT_EQ(info.channels, 2);
        ASSERT_TRUE(WriteBytes(dir.File("stereo.mp3"), encoded.Stream()));
        std::vector<int16_t> left =
            DecodeWithFfmpeg(dir.File("stereo.mp3"), 48000, {}, &error, "pan=mono|c0=c0");
        std::vector<int16_t> right =
            DecodeWithFfmpeg(dir.File("stereo.mp3"), 48000, {}, &error, "pan=mono|c0=c1");
        ASSERT_FALSE(left.empty() || right.empty()) << error;
        EXPECT_NEAR(DominantFrequency(left, 48000), 1000.0, 3.0);
        EXPECT_NEAR(DominantFrequency(right, 48000), 3000.0, 3.0);
    }
    // Below 32000 Hz frames hold 576 samples: two per 1152 samples in. 160 kbit/s is kept where the
    // layer allows it (MPEG-2, 16-24 kHz); MPEG-2.5 (8-12 kHz) tops out at 64 kbit/s and LAME lowers it.
    for (auto rates : {std::pair<int, int>{24000, 160000}, {8000, 64000}}) {
        CMp3Encoder encoder;
        ASSERT_EQ(encoder.Open(Format(rates.first, 1, 160000)), kCodecOk);
        Encoded encoded = EncodeAll(encoder, Sine(rates.first, 2.0, {440.0}), 1);
        Mp3FrameInfo info;
        ASSERT_TRUE(ParseMp3FrameHeader(encoded.frames.front().data(), encoded.frames.front().size(), &info));
        EXPECT_EQ(info.sampleRate, rates.first);
        EXPECT_EQ(info.samplesPerFrame, 576);
        EXPECT_EQ(info.bitRate, rates.second);
        std::string file = dir.File("low" + std::to_string(rates.first) + ".mp3");
        ASSERT_TRUE(WriteBytes(file, encoded.Stream()));
        std::vector<int16_t> decoded = DecodeWithFfmpeg(file, rates.first, {}, &error);
        ASSERT_FALSE(decoded.empty()) << error;
        EXPECT_NEAR(DominantFrequency(decoded, rates.first), 440.0, 2.0);
        EXPECT_NEAR(static_cast<double>(decoded.size()), 2.0 * rates.first, 4 * 576.0);
    }
}

TEST(Mp3Decoder, DecodesFfmpegMp3InAnyPieceSize) {
    CTempDir dir("bcast-mp3dec");
    std::string path = dir.File("in.mp3");
    ProcessResult made =
        RunProcess({"ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    "sine=frequency=1000:duration=2:sample_rate=44100", "-ac", "2", "-c:a", "libmp3lame",
                    "-b:a", "128k", "-write_xing", "0", "-id3v2_version", "0", path},
                   60000);
    ASSERT_EQ(made.exitCode, 0) << made.output;
    std::vector<uint8_t> mp3 = ReadBytes(path);

    auto decodeInPieces = [&mp3](std::size_t piece, AudioFormat* format) {
        CMp3Decoder decoder;
        EXPECT_EQ(decoder.Open(AudioFormat()), kCodecOk);
        std::vector<int16_t> pcm;
        for (std::size_t i = 0; i < mp3.size(); i += piece) {
            EXPECT_EQ(decoder.Decode(mp3.data() + i, std::min(piece, mp3.size() - i), &pcm), kCodecOk);
        }
        *format = decoder.OutputFormat();
        return pcm;
    };
    AudioFormat format;
    std::vector<int16_t> pcm = decodeInPieces(4096, &format);
    EXPECT_EQ(format.sampleRate, 44100);
    EXPECT_EQ(format.channels, 2);
    std::vector<int16_t> left;
    for (std::size_t i = 0; i < pcm.size(); i += 2) {
        left.push_back(pcm[i]);
    }
    EXPECT_NEAR(DominantFrequency(left, 44100), 1000.0, 2.0);
    std::string error;
    std::vector<int16_t> reference = DecodeWithFfmpeg(path, 44100, {}, &error);
    ASSERT_FALSE(reference.empty()) << error;
    EXPECT_NEAR(static_cast<double>(left.size()), static_cast<double>(reference.size()), 2 * 1152.0);

    AudioFormat byteFormat;
    EXPECT_EQ(decodeInPieces(1, &byteFormat), pcm) << "feeding byte by byte must give the same PCM";

    // Bytes that are no MP3 at all: nothing decoded, no failure that stops a caller dead.
    CMp3Decoder garbage;
    ASSERT_EQ(garbage.Open(AudioFormat()), kCodecOk);
    std::vector<uint8_t> text(20000, 'x');
    std::vector<int16_t> none;
    garbage.Decode(text.data(), text.size(), &none);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(garbage.OutputFormat().sampleRate, 0);
}

TEST(Resampler, HalfSecondBlocksKeepLengthAndTone) {
    for (auto rates : {std::pair<int, int>{44100, 8000}, {8000, 48000}, {22050, 48000}}) {
        CResampler resampler;
        ASSERT_EQ(resampler.Open(rates.first, rates.second), kCodecOk);
        std::vector<int16_t> in = Sine(rates.first, 2.0, {700.0});
        std::vector<int16_t> out;
        const std::size_t block = static_cast<std::size_t>(rates.first / 2);
        for (std::size_t i = 0; i < in.size(); i += block) {
            ASSERT_EQ(resampler.Process(in.data() + i, std::min(block, in.size() - i), &out), kCodecOk);
        }
        ASSERT_EQ(resampler.Flush(&out), kCodecOk);
        EXPECT_NEAR(static_cast<double>(out.size()), 2.0 * rates.second, 2.0)
            << rates.first << "->" << rates.second;
        EXPECT_NEAR(DominantFrequency(out, rates.second), 700.0, 1.0);
        EXPECT_GT(SineSnrDb(Middle(out, static_cast<std::size_t>(rates.second)), rates.second, 700.0), 60.0);
    }
    CResampler invalid;
    EXPECT_EQ(invalid.Open(0, 8000), kCodecInvalidParam);
    std::vector<int16_t> out;
    EXPECT_EQ(invalid.Flush(&out), kCodecNotOpen);
}

TEST(G722, FramesDecodeWithFfmpegAndOurDecoder) {
    CTempDir dir("bcast-g722");
    CG722Encoder encoder;
    EXPECT_EQ(encoder.Open(Format(8000, 1, 64000)), kCodecInvalidParam);
    ASSERT_EQ(encoder.Open(Format(16000, 1, 16000)), kCodecOk);  // an unknown bit rate is coded at 64 kbit/s
    Encoded encoded = EncodeAll(encoder, Sine(16000, 1.0, {1000.0}), 1);
    ASSERT_EQ(encoded.frames.size(), 25u);  // 40 ms each
    for (const auto& frame : encoded.frames) {
        EXPECT_EQ(frame.size(), 320u);
    }
    std::vector<uint8_t> stream = encoded.Stream();
    ASSERT_TRUE(WriteBytes(dir.File("tone.g722"), stream));
    std::string error;
    std::vector<int16_t> decoded = DecodeWithFfmpeg(dir.File("tone.g722"), 16000, {"-f", "g722"}, &error);
    ASSERT_FALSE(decoded.empty()) << error;
    EXPECT_NEAR(DominantFrequency(decoded, 16000), 1000.0, 2.0);
    EXPECT_GT(SineSnrDb(Middle(decoded, 8000), 16000, 1000.0), 25.0);

    CG722Decoder decoder;
    ASSERT_EQ(decoder.Open(Format(16000, 1, 64000)), kCodecOk);
    std::vector<int16_t> ours;
    ASSERT_EQ(decoder.Decode(stream.data(), 100, &ours), kCodecOk);
    ASSERT_EQ(decoder.Decode(stream.data() + 100, stream.size() - 100, &ours), kCodecOk);
    EXPECT_EQ(ours.size(), 16000u);
    EXPECT_GT(SineSnrDb(Middle(ours, 8000), 16000, 1000.0), 25.0);
}

TEST(Aac, AdtsFramesDecodeWithFfmpegAndOurDecoder) {
    CTempDir dir("bcast-aac");
    // From the AAC plug-in, through the factory as every user gets it.
    std::unique_ptr<IAudioEncoder> aacEncoder = CreateEncoder(CodecId::kAac);
    ASSERT_TRUE(aacEncoder);
    IAudioEncoder& encoder = *aacEncoder;
    EXPECT_EQ(encoder.Open(Format(15000, 1, 64000)), kCodecInvalidParam);
    ASSERT_EQ(encoder.Open(Format(16000, 1, 64000)), kCodecOk);
    EXPECT_EQ(encoder.FrameSamples(), 1024);
    Encoded encoded = EncodeAll(encoder, Sine(16000, 2.0, {1000.0}), 1);
    ASSERT_GE(encoded.frames.size(), 32u);
    for (const auto& frame : encoded.frames) {
        ASSERT_GE(frame.size(), 7u);
        EXPECT_EQ(frame[0], 0xFF);
        EXPECT_EQ(frame[1] & 0xF6, 0xF0);
        std::size_t length = (frame[3] & 0x03u) << 11 | frame[4] << 3 | frame[5] >> 5;
        EXPECT_EQ(length, frame.size());
    }
    std::vector<uint8_t> stream = encoded.Stream();
    ASSERT_TRUE(WriteBytes(dir.File("tone.aac"), stream));
    std::string error;
    std::vector<int16_t> decoded = DecodeWithFfmpeg(dir.File("tone.aac"), 16000, {"-f", "aac"}, &error);
    ASSERT_FALSE(decoded.empty()) << error;
    EXPECT_NEAR(DominantFrequency(decoded, 16000), 1000.0, 2.0);
    EXPECT_NEAR(static_cast<double>(decoded.size()), 32000.0, 3 * 1024.0);

    std::unique_ptr<IAudioDecoder> aacDecoder = CreateDecoder(CodecId::kAac);
    ASSERT_TRUE(aacDecoder);
    IAudioDecoder& decoder = *aacDecoder;
    ASSERT_EQ(decoder.Open(AudioFormat()), kCodecOk);
    std::vector<int16_t> ours;
    for (std::size_t i = 0; i < stream.size(); i += 333) {
        ASSERT_EQ(decoder.Decode(stream.data() + i, std::min<std::size_t>(333, stream.size() - i), &ours),
                  kCodecOk);
    }
    EXPECT_EQ(decoder.OutputFormat().sampleRate, 16000);
    EXPECT_NEAR(DominantFrequency(ours, 16000), 1000.0, 2.0);
}

TEST(PcmCodec, FramesOf40MsRoundTrip) {
    CPcmEncoder encoder;
    ASSERT_EQ(encoder.Open(Format(16000, 1, 0)), kCodecOk);
    EXPECT_EQ(encoder.FrameSamples(), 640);
    std::vector<int16_t> pcm = Sine(16000, 0.08, {500.0});
    pcm[3] = -32768;
    Encoded encoded = EncodeAll(encoder, pcm, 1);
    ASSERT_EQ(encoded.frames.size(), 2u);
    EXPECT_EQ(encoded.frames[0].size(), 1280u);
    CPcmDecoder decoder;
    ASSERT_EQ(decoder.Open(Format(16000, 1, 0)), kCodecOk);
    std::vector<uint8_t> stream = encoded.Stream();
    std::vector<int16_t> decoded;
    ASSERT_EQ(decoder.Decode(stream.data(), 3, &decoded), kCodecOk);  // a sample split across pieces
    ASSERT_EQ(decoder.Decode(stream.data() + 3, stream.size() - 3, &decoded), kCodecOk);
    EXPECT_EQ(decoded, pcm);
}
