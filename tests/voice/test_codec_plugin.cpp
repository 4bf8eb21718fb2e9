// The AAC plug-in: found beside the codec library in the build tree, and loaded only when AAC is first
// used, so that loading the module maps neither libavcodec nor libavformat. The checks on the process's
// mappings run in a fresh child (a death test re-runs this program), where nothing has used AAC before.

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "AudioCheck.h"
#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/CodecPluginLoader.h"

using namespace Tal::MediaCodec;

namespace {

std::string Mappings() {
    std::ifstream in("/proc/self/maps");
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Exits with a message and code 1 when `ok` is false; the death test then shows the message.
void Require(bool ok, const std::string& what) {
    if (!ok) {
        std::fprintf(stderr, "%s\n", what.c_str());
        std::fflush(stderr);
        std::_Exit(1);
    }
}

// One second of a 1 kHz tone through the AAC encoder and decoder of the factory; the decoded tone's
// dominant frequency, 0 when a step failed.
double AacRoundTripFrequency() {
    std::unique_ptr<IAudioEncoder> encoder = CreateEncoder(CodecId::kAac);
    std::unique_ptr<IAudioDecoder> decoder = CreateDecoder(CodecId::kAac);
    AudioFormat format;
    format.sampleRate = 16000;
    format.bitRate = 64000;
    if (!encoder || !decoder || encoder->Open(format) != kCodecOk || decoder->Open(format) != kCodecOk) {
        return 0;
    }
    std::vector<int16_t> pcm(static_cast<std::size_t>(encoder->FrameSamples()));
    std::vector<int16_t> decoded;
    int result = kCodecOk;
    const FrameSink sink = [&](const uint8_t* data, std::size_t size) {
        result = result == kCodecOk ? decoder->Decode(data, size, &decoded) : result;
    };
    for (int frame = 0, at = 0; frame < 16 && result == kCodecOk; ++frame) {
        for (int16_t& sample : pcm) {
            sample = static_cast<int16_t>(std::lround(16384.0 * std::sin(2 * M_PI * 1000.0 * at++ / 16000)));
        }
        result = encoder->Encode(pcm.data(), sink);
    }
    if (result != kCodecOk || encoder->Flush(sink) != kCodecOk || result != kCodecOk || decoded.empty()) {
        return 0;
    }
    return BcastTest::DominantFrequency(decoded, 16000);
}

void LoadModuleThenUseAac() {
    void* module = dlopen(BCAST_MODULE_FILE, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const char* reason = module == nullptr ? dlerror() : "";
    Require(module != nullptr, std::string("cannot load the module: ") + (reason != nullptr ? reason : ""));
    const std::string before = Mappings();
    Require(before.find("libavcodec") == std::string::npos, "the module's load maps libavcodec:\n" + before);
    Require(before.find("libavformat") == std::string::npos,
            "the module's load maps libavformat:\n" + before);
    Require(before.find(kAacPluginFile) == std::string::npos, "the AAC plug-in is loaded before its use");
    const double frequency = AacRoundTripFrequency();
    Require(std::fabs(frequency - 1000.0) < 20.0, "AAC round trip: " + std::to_string(frequency) + " Hz");
    const std::string after = Mappings();
    Require(after.find(CodecLibraryDir() + "/" + kAacPluginFile) != std::string::npos,
            "the AAC plug-in is not mapped from " + CodecLibraryDir());
    Require(after.find("libavcodec") != std::string::npos, "AAC works without libavcodec mapped?");
    std::_Exit(0);
}

}  // namespace

TEST(CodecPlugin, LoadingTheModuleMapsNoLibavcodecUntilAacIsUsed) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(LoadModuleThenUseAac(), ::testing::ExitedWithCode(0), "");
}

TEST(CodecPlugin, TheAacPluginLiesBesideTheCodecLibrary) {
    CCodecPlugin plugin;
    std::string error;
    ASSERT_TRUE(plugin.Load(CodecLibraryDir() + "/" + kAacPluginFile, error)) << error;
    ASSERT_NE(plugin.Codecs(), nullptr);
    std::unique_ptr<IAudioEncoder> encoder = plugin.Codecs()->CreateEncoder();
    ASSERT_TRUE(encoder);
    EXPECT_EQ(encoder->FrameSamples(), 1024);
    EXPECT_NE(AacPlugin(), nullptr);
}

TEST(CodecPlugin, AMissingOrWrongPluginIsAReasonNotACrash) {
    CCodecPlugin missing;
    std::string error;
    EXPECT_FALSE(missing.Load(CodecLibraryDir() + "/libtal_codec_none.so", error));
    EXPECT_EQ(missing.Codecs(), nullptr);
    EXPECT_NE(error.find("cannot load codec plug-in " + CodecLibraryDir() + "/libtal_codec_none.so: "),
              std::string::npos)
        << error;
    // A shared library that is no codec plug-in: the codec library itself has no entry symbol.
    CCodecPlugin wrong;
    Dl_info self{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&CodecResultText), &self), 0);
    EXPECT_FALSE(wrong.Load(self.dli_fname, error));
    EXPECT_EQ(wrong.Codecs(), nullptr);
    EXPECT_NE(error.find(std::string("lacks ") + kCodecPluginEntry), std::string::npos) << error;
    EXPECT_STREQ(CodecResultText(kCodecUnavailable), "codec plug-in not loaded");
}
