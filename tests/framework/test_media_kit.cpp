// The media kit: WAV files in and out of libsndfile, the canonical header's bytes, RTP packets built and
// parsed (and the malformed ones refused), the encode-type table, and the FFT-based measures.

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "framework/media/mediakit/EncodeTypes.h"
#include "framework/media/mediakit/Fourier.h"
#include "framework/media/mediakit/RtpPacket.h"
#include "framework/media/mediakit/WavFile.h"

using namespace Tal::MediaKit;

namespace {

std::string TempPath(const std::string& name) {
    return ::testing::TempDir() + "/mediakit-" + std::to_string(::getpid()) + "-" + name;
}

std::vector<int16_t> Ramp(std::size_t count) {
    std::vector<int16_t> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        samples[i] = static_cast<int16_t>(static_cast<int>(i * 37 % 65536) - 32768);
    }
    return samples;
}

}  // namespace

TEST(MediaKitWav, WrittenFileReadsBackThroughLibsndfile) {
    const std::string path = TempPath("stereo.wav");
    PcmAudio audio{22050, 2, Ramp(2 * 1000)};
    ASSERT_TRUE(WriteWav(path, audio));

    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(info.samplerate, 22050);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::vector<int16_t> back(audio.samples.size());
    EXPECT_EQ(sf_readf_short(file, back.data(), 1000), 1000);
    sf_close(file);
    EXPECT_EQ(back, audio.samples);
    std::remove(path.c_str());
}

TEST(MediaKitWav, ReadsWhatLibsndfileWrote) {
    const std::string path = TempPath("mono.wav");
    const std::vector<int16_t> samples = Ramp(777);
    SF_INFO info{};
    info.samplerate = 8000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);

    PcmAudio audio;
    WavFacts facts;
    std::string error;
    ASSERT_TRUE(ReadWav(path, audio, error, &facts)) << error;
    EXPECT_EQ(audio.sampleRate, 8000);
    EXPECT_EQ(audio.channels, 1);
    EXPECT_EQ(facts.bitsPerSample, 16);
    EXPECT_EQ(audio.samples, samples);
    std::remove(path.c_str());
}

TEST(MediaKitWav, CanonicalHeaderBeforeRawSamplesIsTheFileLibsndfileReads) {
    const std::vector<int16_t> samples = Ramp(100);
    const auto header = CanonicalWavHeader(16000, 1, static_cast<uint32_t>(samples.size() * 2));
    const std::vector<uint8_t> expected = {'R', 'I', 'F',  'F',  236, 0,   0,    0,    'W', 'A', 'V',
                                           'E', 'f', 'm',  't',  ' ', 16,  0,    0,    0,   1,   0,
                                           1,   0,   0x80, 0x3E, 0,   0,   0x00, 0x7D, 0,   0,   2,
                                           0,   16,  0,    'd',  'a', 't', 'a',  200,  0,   0,   0};
    EXPECT_EQ(std::vector<uint8_t>(header.begin(), header.end()), expected);

    const std::string path = TempPath("canonical.wav");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fwrite(header.data(), 1, header.size(), file);
    std::fwrite(samples.data(), 2, samples.size(), file);
    std::fclose(file);
    PcmAudio audio;
    std::string error;
    ASSERT_TRUE(ReadWav(path, audio, error)) << error;
    EXPECT_EQ(audio.sampleRate, 16000);
    EXPECT_EQ(audio.samples, samples);
    std::remove(path.c_str());
}

TEST(MediaKitWav, StreamingWriterLeavesACompleteFileAfterEachWrite) {
    const std::string path = TempPath("stream.wav");
    CWavWriter writer;
    ASSERT_TRUE(writer.Open(path, 8000, 1));
    const std::vector<int16_t> samples = Ramp(160);
    ASSERT_TRUE(writer.Write(samples.data(), samples.size()));
    PcmAudio audio;
    std::string error;
    ASSERT_TRUE(ReadWav(path, audio, error)) << error;  // still open
    EXPECT_EQ(audio.samples, samples);
    ASSERT_TRUE(writer.Write(samples.data(), samples.size()));
    EXPECT_EQ(writer.Frames(), 320u);
    writer.Close();
    EXPECT_FALSE(writer.Write(samples.data(), samples.size()));
    ASSERT_TRUE(ReadWav(path, audio, error)) << error;
    EXPECT_EQ(audio.samples.size(), 320u);
    std::remove(path.c_str());
}

TEST(MediaKitWav, RefusesMissingAndForeignFiles) {
    PcmAudio audio;
    std::string error;
    EXPECT_FALSE(ReadWav("/nonexistent/x.wav", audio, error));
    EXPECT_EQ(error, "cannot open /nonexistent/x.wav");

    const std::string path = TempPath("text.wav");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs("RIFF is not enough to make a WAV file of this text", file);
    std::fclose(file);
    EXPECT_FALSE(ReadWav(path, audio, error));
    EXPECT_EQ(error, path + " is not a WAV file");
    std::remove(path.c_str());
}

TEST(MediaKitWav, MixesAndSplitsChannels) {
    PcmAudio audio{8000, 2, {100, 300, -50, 50, 32767, 32767}};
    EXPECT_EQ(MixToMono(audio), (std::vector<int16_t>{200, 0, 32767}));
    EXPECT_EQ(ChannelOf(audio, 1), (std::vector<int16_t>{300, 50, 32767}));
    EXPECT_TRUE(ChannelOf(audio, 2).empty());
}

TEST(MediaKitRtp, BuiltPacketParsesToItsFields) {
    const std::vector<uint8_t> payload = {1, 2, 3, 4, 5};
    RtpHeader header;
    header.payloadType = 14;
    header.marker = true;
    header.sequence = 0xBEEF;
    header.timestamp = 0x01020304;
    header.ssrc = 0xA1B2C3D4;
    const std::vector<uint8_t> packet = BuildRtp(header, payload.data(), payload.size());
    ASSERT_EQ(packet.size(), 17u);
    EXPECT_EQ(std::vector<uint8_t>(packet.begin(), packet.begin() + 12),
              (std::vector<uint8_t>{0x80, 0x8E, 0xBE, 0xEF, 1, 2, 3, 4, 0xA1, 0xB2, 0xC3, 0xD4}));

    RtpPacket parsed;
    ASSERT_TRUE(ParseRtp(packet.data(), packet.size(), parsed));
    EXPECT_EQ(parsed.payloadType, 14);
    EXPECT_TRUE(parsed.marker);
    EXPECT_EQ(parsed.sequence, 0xBEEF);
    EXPECT_EQ(parsed.timestamp, 0x01020304u);
    EXPECT_EQ(parsed.ssrc, 0xA1B2C3D4u);
    EXPECT_EQ(std::vector<uint8_t>(parsed.payload, parsed.payload + parsed.payloadSize), payload);
}

TEST(MediaKitRtp, StreamMarksTheFirstPacketAndAdvances) {
    CRtpStream stream(0, 7);
    const uint8_t frame[160] = {};
    RtpPacket first;
    RtpPacket second;
    const std::vector<uint8_t> a = stream.Next(frame, sizeof(frame), 160);
    const std::vector<uint8_t> b = stream.Next(frame, sizeof(frame), 160);
    ASSERT_TRUE(ParseRtp(a.data(), a.size(), first));
    ASSERT_TRUE(ParseRtp(b.data(), b.size(), second));
    EXPECT_TRUE(first.marker);
    EXPECT_FALSE(second.marker);
    EXPECT_EQ(second.sequence, first.sequence + 1);
    EXPECT_EQ(second.timestamp, first.timestamp + 160);
    EXPECT_EQ(second.ssrc, 7u);
}

TEST(MediaKitRtp, SkipsCsrcExtensionAndPadding) {
    // Two CSRCs, a one-word extension, three payload bytes and two bytes of padding.
    const std::vector<uint8_t> packet = {0xB2, 0x00, 0,    1, 0, 0, 0, 2, 0, 0, 0, 3,  // fixed header
                                         9,    9,    9,    9, 8, 8, 8, 8,              // CSRCs
                                         0xBE, 0xDE, 0,    1, 7, 7, 7, 7,              // extension
                                         0x11, 0x22, 0x33, 0, 2};
    RtpPacket parsed;
    ASSERT_TRUE(ParseRtp(packet.data(), packet.size(), parsed));
    EXPECT_EQ(std::vector<uint8_t>(parsed.payload, parsed.payload + parsed.payloadSize),
              (std::vector<uint8_t>{0x11, 0x22, 0x33}));
}

TEST(MediaKitRtp, RefusesMalformedPackets) {
    RtpPacket parsed;
    const std::vector<uint8_t> good = BuildRtp(RtpHeader{}, nullptr, 0);
    EXPECT_TRUE(ParseRtp(good.data(), good.size(), parsed));
    EXPECT_FALSE(ParseRtp(nullptr, 12, parsed));
    EXPECT_FALSE(ParseRtp(good.data(), 11, parsed)) << "shorter than the fixed header";
    std::vector<uint8_t> bad = good;
    bad[0] = 0x40;
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "version 1";
    bad = good;
    bad[0] = 0x81;
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "a CSRC that is not there";
    bad = good;
    bad[0] = 0x90;
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "an extension that is not there";
    bad.insert(bad.end(), {0, 0, 0, 2, 1, 1, 1, 1});
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "an extension longer than the packet";
    bad = good;
    bad[0] = 0xA0;
    bad.push_back(0);
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "zero padding";
    bad.back() = 2;
    EXPECT_FALSE(ParseRtp(bad.data(), bad.size(), parsed)) << "padding longer than the payload";
}

TEST(MediaKitEncodeTypes, TableAgreesWithTheCodecs) {
    const EncodeTypeInfo* pcmu = EncodeTypeOf(1);
    ASSERT_NE(pcmu, nullptr);
    EXPECT_EQ(pcmu->payloadType, 0);
    EXPECT_EQ(pcmu->frameBytes, pcmu->frameSamples);  // one byte per sample
    EXPECT_EQ(pcmu->frameMs * pcmu->sampleRate / 1000, pcmu->frameSamples);
    EXPECT_EQ(EncodeTypeOf(0)->frameMs * EncodeTypeOf(0)->sampleRate / 1000, EncodeTypeOf(0)->frameSamples);
    EXPECT_EQ(EncodeTypeOf(15)->frameSamples * 1000 / EncodeTypeOf(15)->sampleRate,
              EncodeTypeOf(15)->frameMs);
    EXPECT_EQ(EncodeTypeOf(3), nullptr);
    for (int payloadType : {0, 8, 9, 14}) {
        const EncodeTypeInfo* type = EncodeTypeOfPayload(payloadType);
        ASSERT_NE(type, nullptr) << payloadType;
        EXPECT_EQ(type->payloadType, payloadType);
        EXPECT_EQ(&EncodeTypeOf(type->codec), type);
    }
    EXPECT_EQ(EncodeTypeOfPayload(-1), nullptr) << "AAC has no static payload type";
    EXPECT_EQ(EncodeTypeOfPayload(96), nullptr);
}

TEST(MediaKitFourier, CorrelationPeaksAtTheDelay) {
    std::vector<int16_t> reference(500);
    for (std::size_t i = 0; i < reference.size(); ++i) {
        reference[i] = static_cast<int16_t>((i * 7919 % 2001) - 1000);  // noise-like
    }
    std::vector<int16_t> delayed(37, 0);
    delayed.insert(delayed.end(), reference.begin(), reference.end());
    const std::vector<double> c = CrossCorrelation(reference, delayed, 1024);
    ASSERT_EQ(c.size(), 1024u);
    std::size_t peak = 0;
    for (std::size_t i = 0; i < c.size(); ++i) {
        peak = c[i] > c[peak] ? i : peak;
    }
    EXPECT_EQ(peak, 37u);
    double energy = 0;
    for (int16_t v : reference) {
        energy += static_cast<double>(v) * v;
    }
    EXPECT_NEAR(c[peak], energy, energy * 1e-9);
    // The other way round the lag is negative: it sits at the end.
    const std::vector<double> back = CrossCorrelation(delayed, reference, 1024);
    EXPECT_NEAR(back[1024 - 37], energy, energy * 1e-9);
}

TEST(MediaKitFourier, SineHasItsBin) {
    std::vector<double> signal(256);
    for (std::size_t i = 0; i < signal.size(); ++i) {
        signal[i] = std::sin(2 * M_PI * 16 * static_cast<double>(i) / 256);
    }
    const std::vector<double> bins = FourierMagnitudes(signal);
    ASSERT_EQ(bins.size(), 129u);
    EXPECT_NEAR(bins[16], 128.0, 1e-9);
    EXPECT_NEAR(bins[15], 0.0, 1e-9);
}
