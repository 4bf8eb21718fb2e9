// Capture and decode playback through the audio intercom library, against a private PulseAudio server:
// a tone played into the null sink "vmic" is what the microphone (its monitor) hears, and what the
// library plays goes into the same sink where parec records it.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "AudioCheck.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "PulseAudioPeer.h"
#include "TestProcess.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/codec/G711Codec.h"

using namespace BroadCastPlugin;
using namespace BcastTest;

namespace {

class VoiceCaptureTest : public ::testing::Test {
public:
    static void SetUpTestSuite() {
        peer_ = std::make_unique<CPulseAudioPeer>();
        if (peer_->Start(&peerError_)) {
            // Before the first use of ALSA in this process.
            peer_->ExportClientEnvironment();
        }
    }
    static void TearDownTestSuite() { peer_.reset(); }

protected:
    void SetUp() override { ASSERT_TRUE(peerError_.empty()) << "PulseAudio peer: " << peerError_; }

    // Plays a tone into the sink and waits until paplay is done (bounded).
    void PlayTone(double frequency, double seconds) {
        std::string wav = dir_.File("tone.wav");
        ASSERT_EQ(MakeToneWav(wav, 48000, {frequency}, seconds), "");
        CBackgroundProcess player;
        ASSERT_TRUE(peer_->StartPlaying(wav, &player));
        int exitCode = -1;
        ASSERT_TRUE(player.Wait(static_cast<int>(seconds * 1000) + 15000, &exitCode))
            << "paplay did not finish";
        ASSERT_EQ(exitCode, 0) << "paplay failed";
        // What is still on its way through the server and the capture buffers.
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
    }

    static std::unique_ptr<CPulseAudioPeer> peer_;
    static std::string peerError_;
    CTempDir dir_{"bcast-capture"};
    Tal::Base::CLogCapture log_;
};

std::unique_ptr<CPulseAudioPeer> VoiceCaptureTest::peer_;
std::string VoiceCaptureTest::peerError_;

// Collects what a callback hands over.
struct Collector {
    std::mutex mutex;
    std::vector<std::vector<uint8_t>> pieces;
    void Add(const uint8_t* data, int size) {
        std::lock_guard<std::mutex> lock(mutex);
        pieces.emplace_back(data, data + size);
    }
    std::vector<uint8_t> All() {
        std::lock_guard<std::mutex> lock(mutex);
        std::vector<uint8_t> all;
        for (const auto& p : pieces) {
            all.insert(all.end(), p.begin(), p.end());
        }
        return all;
    }
};

}  // namespace

TEST_F(VoiceCaptureTest, SoundCardsAndPlayDevicesAreListed) {
    static_assert(sizeof(AUDIOCOM_SOUNDCARD_INFO) == 220, "sound card block");
    static_assert(sizeof(AUDIOCOM_STREAM_PARAM) == 20, "stream parameters");
    uint32_t cards = 0;
    ASSERT_EQ(AUDIOCOM_GetSoundCardNum(&cards), 1);
    ASSERT_GE(cards, 1u);
    AUDIOCOM_SOUNDCARD_INFO info{};
    ASSERT_EQ(AUDIOCOM_GetOneSoundCardInfo(0, &info), 1);
    EXPECT_GT(std::string(info.deviceName).size(), 0u);
    EXPECT_GT(info.maxInputChannels, 0u);
    EXPECT_EQ(AUDIOCOM_GetOneSoundCardInfo(cards, &info), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_PARAM);

    uint32_t players = 0;
    ASSERT_EQ(AUDIOCOM_GetPlayDeviceNum(&players), 1);
    ASSERT_GE(players, 1u);
    ASSERT_EQ(AUDIOCOM_GetOnePlayDeviceName(0, &info), 1);
    EXPECT_GT(info.maxOutputChannels, 0u);

    int32_t handle = 77;
    EXPECT_EQ(AUDIOCOM_CreateCaptureHandle(&handle, "no such card"), 0);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_NO_DEVICE);
    EXPECT_EQ(AUDIOCOM_StartCapture(12345), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_HANDLE);
}

// ALSA's a52 PCM (an AC-3 encoder for S/PDIF) links libavcodec; the device probe must not open it, or every
// client maps libavcodec and its libraries for nothing.
TEST_F(VoiceCaptureTest, TheDeviceProbeLeavesTheA52EncoderUnloaded) {
    const char* a52Definition = "/usr/share/alsa/alsa.conf.d/60-a52-encoder.conf";
    ASSERT_TRUE(std::ifstream(a52Definition).good())
        << a52Definition << " is missing: install libasound2-plugins (scripts/setup.sh does)";
    uint32_t cards = 0;
    ASSERT_EQ(AUDIOCOM_GetSoundCardNum(&cards), 1);
    int32_t handle = -1;
    AUDIOCOM_SOUNDCARD_INFO info{};
    ASSERT_EQ(AUDIOCOM_GetOneSoundCardInfo(0, &info), 1);
    ASSERT_EQ(AUDIOCOM_CreateCaptureHandle(&handle, info.deviceName), 1);
    std::ifstream maps("/proc/self/maps");
    std::stringstream mapped;
    mapped << maps.rdbuf();
    EXPECT_EQ(mapped.str().find("libasound_module_pcm_a52"), std::string::npos)
        << "the probe loaded ALSA's a52 plugin";
    EXPECT_EQ(AUDIOCOM_ReleaseCaptureHandle(handle), 1);
}

TEST_F(VoiceCaptureTest, CapturedToneComesOutAsG711FramesAndIsRecorded) {
    CVoiceCapture capture;
    CVoiceRecord record;
    Collector encoded;
    std::string recordPath = dir_.File("talk.wav");
    ASSERT_TRUE(record.StartRecord(recordPath, 1));
    capture.SetPCMDataCallback([&record](const uint8_t* data, int size) { record.InputData(data, size); });
    capture.SetEncodeDataCallback([&encoded](const uint8_t* data, int size) { encoded.Add(data, size); });

    ASSERT_TRUE(capture.StartCapture(1)) << Tal::Base::Error::GetLastError().ToString();
    EXPECT_TRUE(capture.IsCapturing());
    EXPECT_TRUE(log_.Contains("]Start audio com capture succ.[", 3));
    EXPECT_TRUE(capture.StartCapture(1));
    EXPECT_TRUE(log_.Contains("]Has already capture voice.[", 4));

    PlayTone(1000.0, 2.5);
    capture.StopCapture();
    EXPECT_FALSE(capture.IsCapturing());
    record.StopRecord();
    log_.Clear();
    capture.StopCapture();
    EXPECT_TRUE(log_.Contains("]is not capture data, return back.[", 5));

    {
        std::lock_guard<std::mutex> lock(encoded.mutex);
        ASSERT_FALSE(encoded.pieces.empty());
        for (const auto& frame : encoded.pieces) {
            ASSERT_EQ(frame.size(), 320u) << "40 ms of G.711 per frame";
        }
    }
    std::string ulaw = dir_.File("captured.ul");
    WriteBytes(ulaw, encoded.All());
    std::string error;
    std::vector<int16_t> pcm =
        TrimSilence(DecodeWithSox(ulaw, 8000, {"-t", "ul", "-r", "8000", "-c", "1"}, &error));
    ASSERT_GE(pcm.size(), 2u * 8000) << "the played tone lasts 2.5 s " << error;
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 1000.0, 3.0);
    EXPECT_GT(SineSnrDb(Middle(pcm, 8000), 8000, 1000.0), 25.0);

    std::vector<int16_t> recorded = TrimSilence(DecodeWithSox(recordPath, 8000, {}, &error));
    ASSERT_GE(recorded.size(), 2u * 8000) << error;
    EXPECT_NEAR(DominantFrequency(recorded, 8000), 1000.0, 3.0);
}

TEST_F(VoiceCaptureTest, OtherEncodeTypesDecodeWithFfmpeg) {
    struct Case {
        int encodeType;
        int rate;
        std::vector<std::string> format;
    };
    for (const Case& c :
         {Case{0, 16000, {"-f", "g722"}}, Case{7, 16000, {"-f", "aac"}}, Case{15, 48000, {"-f", "mp3"}}}) {
        CVoiceCapture capture;
        Collector encoded;
        capture.SetEncodeDataCallback([&encoded](const uint8_t* data, int size) { encoded.Add(data, size); });
        ASSERT_TRUE(capture.StartCapture(c.encodeType)) << "type " << c.encodeType;
        PlayTone(700.0, 1.5);
        capture.StopCapture();
        std::string file = dir_.File("captured" + std::to_string(c.encodeType));
        WriteBytes(file, encoded.All());
        std::string error;
        std::vector<int16_t> pcm = TrimSilence(DecodeWithFfmpeg(file, c.rate, c.format, &error));
        ASSERT_GE(pcm.size(), static_cast<std::size_t>(c.rate)) << "type " << c.encodeType << " " << error;
        EXPECT_NEAR(DominantFrequency(pcm, c.rate), 700.0, 3.0) << "type " << c.encodeType;
    }
}

TEST_F(VoiceCaptureTest, EncodeTypesWithoutACodecFailWithTheLibrarysCode) {
    for (auto expected : {std::pair<int, int>{5, AUDIOCOM_ERR_CODEC_UNSUPPORTED},
                          {6, AUDIOCOM_ERR_CODEC_UNSUPPORTED},
                          {3, AUDIOCOM_ERR_PARAM}}) {
        CVoiceCapture capture;
        log_.Clear();
        EXPECT_FALSE(capture.StartCapture(expected.first));
        EXPECT_FALSE(capture.IsCapturing());
        Tal::Base::Error::ErrorCode error = Tal::Base::Error::GetLastError();
        EXPECT_EQ(error.GetSubSystemErrorCode(), 2);
        EXPECT_EQ(error.GetMainErrorCode(), 29);
        EXPECT_EQ(error.GetSubErrorCode(), expected.second) << "type " << expected.first;
        // The output-callback failure repeats the capture-callback text.
        EXPECT_TRUE(log_.Contains("] AUDIOCOM_RegisterOutputDataCallBackEx fail, [Error: ", 5));
        EXPECT_TRUE(log_.Contains(
            "][AudioComRegisterCaptureDataCallBackEx::RegisterCaptureDataCallBackEx] fail[", 5));
    }
}

TEST_F(VoiceCaptureTest, ReceivedG711IsDecodedAndPlayed) {
    std::string raw = dir_.File("played.raw");
    CBackgroundProcess recorder;
    ASSERT_TRUE(peer_->StartRecording(raw, 8000, &recorder));
    // Recording has begun once parec writes.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ReadBytes(raw).size() < 1600 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_GE(ReadBytes(raw).size(), 1600u) << "parec recorded nothing within 10 s";

    CVoiceCapture capture;
    ZPSAudioParam param;
    param.sampleRate = 8000;
    param.bitRate = 64000;
    param.channels = 1;
    param.bitsPerSample = 16;
    param.encodeType = 1;
    ASSERT_TRUE(capture.StartDecodePlay(param)) << Tal::Base::Error::GetLastError().ToString();
    EXPECT_TRUE(
        log_.Contains("][AudioComCreatePlayHandle::struPlayHandle.struSoundCardInfo.strDeviceName;", 5));

    // Two seconds of a 600 Hz tone, sent as 40 ms frames at the pace they would arrive.
    auto next = std::chrono::steady_clock::now();
    for (int frame = 0; frame < 50; ++frame) {
        std::vector<uint8_t> ulaw(320);
        for (int i = 0; i < 320; ++i) {
            double t = (frame * 320 + i) / 8000.0;
            ulaw[i] =
                Tal::MediaCodec::LinearToUlaw(static_cast<int16_t>(12000 * std::sin(2 * M_PI * 600.0 * t)));
        }
        ASSERT_TRUE(capture.InputStreamData(ulaw.data(), static_cast<int>(ulaw.size())));
        next += std::chrono::milliseconds(40);
        std::this_thread::sleep_until(next);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    capture.StopDecodePlay();
    EXPECT_FALSE(capture.InputStreamData(reinterpret_cast<const uint8_t*>("x"), 1))
        << "no play handle any more";
    recorder.Stop();

    std::string error;
    std::vector<int16_t> pcm = TrimSilence(DecodeWithSox(
        raw, 8000, {"-t", "raw", "-e", "signed-integer", "-b", "16", "-L", "-r", "8000", "-c", "1"}, &error));
    ASSERT_GE(pcm.size(), 8000u * 3 / 2) << "about 2 s were played " << error;
    EXPECT_NEAR(DominantFrequency(pcm, 8000), 600.0, 3.0);
}

namespace {

// Polls `condition` every 10 ms until it holds or `timeoutMs` passes.
bool PollUntil(const std::function<bool()>& condition, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// 40 ms of a G.711 µ-law sine of the given amplitude (0: digital silence).
std::vector<uint8_t> UlawFrame(int frame, double amplitude) {
    std::vector<uint8_t> ulaw(320);
    for (int i = 0; i < 320; ++i) {
        const double t = (frame * 320 + i) / 8000.0;
        ulaw[i] =
            Tal::MediaCodec::LinearToUlaw(static_cast<int16_t>(amplitude * std::sin(2 * M_PI * 500.0 * t)));
    }
    return ulaw;
}

}  // namespace

TEST_F(VoiceCaptureTest, TheMicrophoneLevelFollowsLoudAndSilentInputAndIsZeroWhenStopped) {
    CVoiceCapture capture;
    EXPECT_EQ(capture.CaptureLevel(), 0.0f);
    ASSERT_TRUE(capture.StartCapture(1)) << Tal::Base::Error::GetLastError().ToString();
    // Nothing plays into the sink: the microphone hears digital silence.
    EXPECT_TRUE(PollUntil([&] { return capture.CaptureLevel() < 0.01f; }, 3000)) << capture.CaptureLevel();

    // Two tones of known loudness, one after the other; the level is the peak of the latest block.
    struct Tone {
        double volume;
        float low;
        float high;
    };
    for (const Tone& tone : {Tone{0.5, 0.40f, 0.60f}, Tone{0.1, 0.07f, 0.13f}}) {
        SCOPED_TRACE("tone at volume " + std::to_string(tone.volume));
        const std::string wav = dir_.File("level-" + std::to_string(tone.volume) + ".wav");
        ASSERT_EQ(MakeToneWav(wav, 48000, {1000.0}, 2.0, 16, tone.volume), "");
        CBackgroundProcess player;
        ASSERT_TRUE(peer_->StartPlaying(wav, &player));
        ASSERT_TRUE(PollUntil([&] { return capture.CaptureLevel() > tone.low; }, 5000))
            << "the tone reaches the microphone: " << capture.CaptureLevel();
        // A second inside the tone: every reading is its peak.
        float lowest = 1.0f;
        float highest = 0.0f;
        for (int i = 0; i < 50; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            lowest = std::min(lowest, capture.CaptureLevel());
            highest = std::max(highest, capture.CaptureLevel());
        }
        EXPECT_GE(lowest, tone.low);
        EXPECT_LE(highest, tone.high);
        ASSERT_TRUE(player.Wait(15000)) << "paplay did not finish";
        EXPECT_TRUE(PollUntil([&] { return capture.CaptureLevel() < 0.01f; }, 3000))
            << "after the tone the level falls back: " << capture.CaptureLevel();
    }

    // Stopped while a tone is loud: the level reads 0 at once, and stays 0.
    const std::string wav = dir_.File("level-stop.wav");
    ASSERT_EQ(MakeToneWav(wav, 48000, {1000.0}, 3.0, 16, 0.5), "");
    CBackgroundProcess player;
    ASSERT_TRUE(peer_->StartPlaying(wav, &player));
    ASSERT_TRUE(PollUntil([&] { return capture.CaptureLevel() > 0.4f; }, 5000)) << capture.CaptureLevel();
    capture.StopCapture();
    EXPECT_EQ(capture.CaptureLevel(), 0.0f);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(capture.CaptureLevel(), 0.0f);
    player.Stop();
}

TEST_F(VoiceCaptureTest, TheListenLevelIsThePeakOfTheLatestDecodedBlockAndZeroWhenStopped) {
    CVoiceCapture capture;
    EXPECT_EQ(capture.ListenLevel(), 0.0f);
    ZPSAudioParam param;
    param.sampleRate = 8000;
    param.bitRate = 64000;
    param.channels = 1;
    param.bitsPerSample = 16;
    param.encodeType = 1;
    ASSERT_TRUE(capture.StartDecodePlay(param)) << Tal::Base::Error::GetLastError().ToString();
    EXPECT_EQ(capture.ListenLevel(), 0.0f) << "nothing decoded yet";

    // The level is taken as the block is decoded, so each reading belongs to the block just given.
    int frame = 0;
    for (double amplitude : {12000.0, 0.0, 3000.0, 20000.0}) {
        SCOPED_TRACE("amplitude " + std::to_string(amplitude));
        const std::vector<uint8_t> ulaw = UlawFrame(frame++, amplitude);
        ASSERT_TRUE(capture.InputStreamData(ulaw.data(), static_cast<int>(ulaw.size())));
        // G.711 keeps a sample within about 3 % of its value.
        EXPECT_NEAR(capture.ListenLevel(), amplitude / 32768.0, 0.03 * amplitude / 32768.0 + 0.001);
    }
    capture.StopDecodePlay();
    EXPECT_EQ(capture.ListenLevel(), 0.0f);
    EXPECT_FALSE(capture.InputStreamData(UlawFrame(0, 12000).data(), 320));
    EXPECT_EQ(capture.ListenLevel(), 0.0f) << "audio after the stop is not metered";

    // A new stream starts from 0 and meters again.
    ASSERT_TRUE(capture.StartDecodePlay(param));
    EXPECT_EQ(capture.ListenLevel(), 0.0f);
    ASSERT_TRUE(capture.InputStreamData(UlawFrame(0, 12000).data(), 320));
    EXPECT_GT(capture.ListenLevel(), 0.3f);
    capture.StopDecodePlay();
    EXPECT_EQ(capture.ListenLevel(), 0.0f);
}

namespace {

// Peak |sample| of a block.
int Peak(const std::vector<int16_t>& samples) {
    int peak = 0;
    for (int16_t s : samples) {
        peak = std::max(peak, std::abs(static_cast<int>(s)));
    }
    return peak;
}

constexpr double kListenAmplitude = 16000.0;

}  // namespace

TEST_F(VoiceCaptureTest, TheListenVolumeScalesWhatThePlayDeviceOutputs) {
    CVoiceCapture capture;
    EXPECT_EQ(capture.ListenVolume(), 100);
    capture.SetListenVolume(150);
    EXPECT_EQ(capture.ListenVolume(), 100) << "clamped to full";
    capture.SetListenVolume(-3);
    EXPECT_EQ(capture.ListenVolume(), 0) << "clamped to silent";
    capture.SetListenVolume(100);

    ZPSAudioParam param;
    param.sampleRate = 8000;
    param.bitRate = 64000;
    param.channels = 1;
    param.bitsPerSample = 16;
    param.encodeType = 1;
    int frame = 0;
    // Records what the sink plays while 1.6 s of a 500 Hz µ-law tone are sent at their pace, then lets
    // the tail play out.
    auto record = [&](const std::string& name, std::vector<int16_t>* played, float* levelAfter) {
        const std::string raw = dir_.File(name + ".raw");
        CBackgroundProcess recorder;
        ASSERT_TRUE(peer_->StartRecording(raw, 8000, &recorder));
        ASSERT_TRUE(PollUntil([&] { return ReadBytes(raw).size() >= 1600; }, 10000))
            << "parec recorded nothing within 10 s";
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < 40; ++i) {
            const std::vector<uint8_t> ulaw = UlawFrame(frame++, kListenAmplitude);
            ASSERT_TRUE(capture.InputStreamData(ulaw.data(), static_cast<int>(ulaw.size())));
            next += std::chrono::milliseconds(40);
            std::this_thread::sleep_until(next);
        }
        *levelAfter = capture.ListenLevel();
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        recorder.Stop();
        *played = ReadRawPcm(raw);
        ASSERT_GE(played->size(), 8000u) << name << ": at least a second recorded";
    };

    std::vector<int16_t> full;
    std::vector<int16_t> quarter;
    std::vector<int16_t> half;
    std::vector<int16_t> silent;
    float level = 0.0f;
    ASSERT_TRUE(capture.StartDecodePlay(param)) << Tal::Base::Error::GetLastError().ToString();
    record("full", &full, &level);
    {
        SCOPED_TRACE("turned down to 25 while the play runs");
        capture.SetListenVolume(25);
        record("quarter", &quarter, &level);
        EXPECT_NEAR(level, kListenAmplitude / 32768.0, 0.03)
            << "the meter reads the decoded stream, before the volume";
    }
    capture.StopDecodePlay();
    EXPECT_EQ(capture.ListenVolume(), 25) << "kept after the play";
    {
        SCOPED_TRACE("set to 50 between plays: the next play starts at it");
        capture.SetListenVolume(50);
        ASSERT_TRUE(capture.StartDecodePlay(param)) << Tal::Base::Error::GetLastError().ToString();
        record("half", &half, &level);
    }
    {
        SCOPED_TRACE("volume 0 plays silence");
        capture.SetListenVolume(0);
        record("silent", &silent, &level);
        EXPECT_GT(level, 0.4f) << "the stream is still decoded and metered";
    }
    capture.StopDecodePlay();
    EXPECT_EQ(capture.ListenVolume(), 0);

    // The middle half second of each tone; the volume is a linear gain, so RMS and peak scale with it.
    const std::vector<int16_t> reference = Middle(TrimSilence(full), 4000);
    ASSERT_EQ(reference.size(), 4000u) << "the full-volume tone was played";
    EXPECT_NEAR(DominantFrequency(reference, 8000), 500.0, 3.0);
    const double referenceRms = Rms(reference);
    const int referencePeak = Peak(reference);
    ASSERT_GT(referenceRms, 0.2) << "the tone plays near its sent level";
    struct Scaled {
        const char* name;
        const std::vector<int16_t>& played;
        double gain;
    };
    for (const Scaled& scaled : {Scaled{"quarter", quarter, 0.25}, Scaled{"half", half, 0.5}}) {
        SCOPED_TRACE(scaled.name);
        const std::vector<int16_t> tone = Middle(TrimSilence(scaled.played, 300), 4000);
        ASSERT_EQ(tone.size(), 4000u) << "the turned-down tone was played";
        EXPECT_NEAR(DominantFrequency(tone, 8000), 500.0, 3.0);
        EXPECT_NEAR(Rms(tone) / referenceRms, scaled.gain, 0.1 * scaled.gain);
        EXPECT_NEAR(static_cast<double>(Peak(tone)) / referencePeak, scaled.gain, 0.1 * scaled.gain);
    }
    EXPECT_LE(Peak(silent), 16) << "nothing audible at volume 0";
}

TEST_F(VoiceCaptureTest, ThePlayVolumeIsRefusedAboveFullAndOnHandlesThatAreNotPlayHandles) {
    AUDIOCOM_SOUNDCARD_INFO device{};
    ASSERT_EQ(AUDIOCOM_GetOnePlayDeviceName(0, &device), 1);
    int32_t play = -1;
    ASSERT_EQ(AUDIOCOM_CreatePlayHandle(&play, device.deviceName), 1);
    uint32_t volume = 0;
    ASSERT_EQ(AUDIOCOM_GetPlayVolume(play, &volume), 1);
    EXPECT_EQ(volume, 100u) << "a new handle plays unchanged";

    EXPECT_EQ(AUDIOCOM_SetPlayVolume(play, 101), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(play), AUDIOCOM_ERR_PARAM);
    ASSERT_EQ(AUDIOCOM_GetPlayVolume(play, &volume), 1);
    EXPECT_EQ(volume, 100u) << "a refused volume changes nothing";
    EXPECT_EQ(AUDIOCOM_SetPlayVolume(play, 0), 1);
    EXPECT_EQ(AUDIOCOM_GetLastError(play), AUDIOCOM_ERR_NONE);
    ASSERT_EQ(AUDIOCOM_GetPlayVolume(play, &volume), 1);
    EXPECT_EQ(volume, 0u);
    EXPECT_EQ(AUDIOCOM_GetPlayVolume(play, nullptr), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(play), AUDIOCOM_ERR_PARAM);

    EXPECT_EQ(AUDIOCOM_SetPlayVolume(987654, 50), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_HANDLE);
    EXPECT_EQ(AUDIOCOM_GetPlayVolume(987654, &volume), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_HANDLE);

    AUDIOCOM_SOUNDCARD_INFO card{};
    ASSERT_EQ(AUDIOCOM_GetOneSoundCardInfo(0, &card), 1);
    int32_t capture = -1;
    ASSERT_EQ(AUDIOCOM_CreateCaptureHandle(&capture, card.deviceName), 1);
    EXPECT_EQ(AUDIOCOM_SetPlayVolume(capture, 50), 0) << "a capture handle has no play volume";
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_HANDLE);
    EXPECT_EQ(AUDIOCOM_ReleaseCaptureHandle(capture), 1);

    EXPECT_EQ(AUDIOCOM_ReleasePlayHandle(play), 1);
    EXPECT_EQ(AUDIOCOM_SetPlayVolume(play, 50), 0) << "released";
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_HANDLE);
}
