// Units of the simulated site: RTP reading, the speakers' recordings, tones, decoding to the speakers'
// format, speech helpers, the playout, and the speakers' status rules with a recording push sink and a
// scheduler the test runs by hand.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <functional>
#include <mutex>
#include <thread>

#include "AudioCheck.h"
#include "ManualScheduler.h"
#include "framework/media/codec/AudioCodec.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/codec/Mp3Frame.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/audio/SpeakerDecoder.h"
#include "platform/server/sim/audio/ToneGenerator.h"
#include "platform/server/sim/audio/WavRecorder.h"
#include "platform/server/sim/speakers/Playout.h"
#include "platform/server/sim/speakers/SpeakerSim.h"
#include "platform/server/sim/streaming/StreamingServer.h"
#include "platform/server/sim/tts/TtsSynthesizer.h"

using namespace Platform;

namespace {

std::string TempDir(const std::string& tag) {
    std::string pattern = "/tmp/bcast-" + tag + "-XXXXXX";
    char* dir = mkdtemp(&pattern[0]);
    return dir != nullptr ? dir : "";
}

std::vector<int16_t> Sine(double hz, int rate, double seconds, double amplitude = 0.5) {
    std::vector<int16_t> out(static_cast<std::size_t>(rate * seconds));
    for (std::size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<int16_t>(std::lround(amplitude * 32767 * std::sin(2 * M_PI * hz * i / rate)));
    }
    return out;
}

}  // namespace

TEST(SimWavRecorder, TheFileIsACompleteWavAfterEveryWriteAndANewTalkStartsItAgain) {
    const std::string path = TempDir("wav") + "/1001.wav";
    CWavRecorder wav(path);
    ASSERT_TRUE(wav.Open());
    std::vector<int16_t> read;
    int rate = 0;
    std::string error;
    ASSERT_TRUE(ReadPcmWav(path, read, rate, error)) << error;
    EXPECT_TRUE(read.empty());
    EXPECT_EQ(rate, 8000);

    const std::vector<int16_t> first = Sine(1000, 8000, 0.1);
    ASSERT_TRUE(wav.Write(first.data(), first.size()));
    ASSERT_TRUE(ReadPcmWav(path, read, rate, error)) << "readable in the middle of a talk: " << error;
    EXPECT_EQ(read, first);
    ASSERT_TRUE(wav.Write(first.data(), first.size()));
    wav.Close();
    EXPECT_FALSE(wav.Write(first.data(), first.size())) << "closed";
    ASSERT_TRUE(ReadPcmWav(path, read, rate, error)) << error;
    EXPECT_EQ(read.size(), 2 * first.size());
    EXPECT_EQ(wav.Samples(), 2 * first.size());
    std::string soxError;
    EXPECT_EQ(BcastTest::DecodeWithSox(path, 8000, {}, &soxError).size(), 2 * first.size()) << soxError;

    CWavRecorder again(path);
    ASSERT_TRUE(again.Open());
    ASSERT_TRUE(ReadPcmWav(path, read, rate, error)) << error;
    EXPECT_TRUE(read.empty()) << "a new talk starts the file again";
    CWavRecorder nowhere("/nonexistent/dir/1.wav");
    EXPECT_FALSE(nowhere.Open());
}

TEST(SimTones, TheChimeRingsAt880HzForItsLengthAndTheSineContinuesAcrossBlocks) {
    const std::vector<int16_t> chime = MakeChime(2.0, 8000);
    EXPECT_EQ(chime.size(), 16000u);
    EXPECT_NEAR(BcastTest::DominantFrequency(chime, 8000), kChimeFrequencyHz, 2.0);
    EXPECT_GT(BcastTest::Rms(chime), 0.1);
    EXPECT_LT(std::abs(chime.front()), 100) << "fades in";
    EXPECT_TRUE(MakeChime(0.0, 8000).empty());

    CSineTone blocks(480.0, 0.3, 8000);
    CSineTone whole(480.0, 0.3, 8000);
    std::vector<int16_t> a(160 * 50);
    std::vector<int16_t> b(160 * 50);
    for (std::size_t at = 0; at < a.size(); at += 160) {
        blocks.Fill(a.data() + at, 160);
    }
    whole.Fill(b.data(), b.size());
    EXPECT_EQ(a, b) << "no phase jump between blocks";
    EXPECT_NEAR(BcastTest::DominantFrequency(a, 8000), 480.0, 1.0);
}

TEST(SimDecoder, EveryCodecDecodesToEightKilohertzMono) {
    const std::vector<int16_t> tone = Sine(1000, 8000, 0.5);
    for (bool alaw : {false, true}) {
        std::vector<uint8_t> encoded;
        std::vector<int16_t> expected;
        for (int16_t s : tone) {
            const uint8_t code = alaw ? Tal::MediaCodec::LinearToAlaw(s) : Tal::MediaCodec::LinearToUlaw(s);
            encoded.push_back(code);
            expected.push_back(alaw ? Tal::MediaCodec::AlawToLinear(code)
                                    : Tal::MediaCodec::UlawToLinear(code));
        }
        CSpeakerDecoder decoder(alaw ? SpeakerCodec::kPcma : SpeakerCodec::kPcmu);
        std::vector<int16_t> out;
        std::string error;
        ASSERT_TRUE(decoder.Decode(encoded.data(), encoded.size(), out, error)) << error;
        EXPECT_EQ(out, expected) << (alaw ? "A-law" : "µ-law");
    }

    // G.722 (16 kHz) and MP3 (48 kHz) come out at the speakers' 8 kHz, with the tone where it was.
    struct Case {
        Tal::MediaCodec::CodecId id;
        SpeakerCodec codec;
        int rate;
    };
    for (const Case& c : {Case{Tal::MediaCodec::CodecId::kG722, SpeakerCodec::kG722, 16000},
                          Case{Tal::MediaCodec::CodecId::kMp3, SpeakerCodec::kMp3, 48000}}) {
        auto encoder = Tal::MediaCodec::CreateEncoder(c.id);
        ASSERT_NE(encoder, nullptr);
        Tal::MediaCodec::AudioFormat format;
        format.sampleRate = c.rate;
        format.channels = 1;
        format.bitRate = c.id == Tal::MediaCodec::CodecId::kMp3 ? 128000 : 64000;
        ASSERT_EQ(encoder->Open(format), Tal::MediaCodec::kCodecOk);
        const std::vector<int16_t> input = Sine(1000, c.rate, 1.0);
        std::vector<uint8_t> stream;
        const auto sink = [&stream](const uint8_t* data, std::size_t size) {
            stream.insert(stream.end(), data, data + size);
        };
        const std::size_t frame = static_cast<std::size_t>(encoder->FrameSamples());
        for (std::size_t at = 0; at + frame <= input.size(); at += frame) {
            encoder->Encode(input.data() + at, sink);
        }
        encoder->Flush(sink);
        CSpeakerDecoder decoder(c.codec);
        std::vector<int16_t> out;
        std::string error;
        // In pieces of any size, as packets bring them.
        for (std::size_t at = 0; at < stream.size(); at += 333) {
            ASSERT_TRUE(decoder.Decode(stream.data() + at, std::min<std::size_t>(333, stream.size() - at),
                                       out, error))
                << CodecName(c.codec) << ": " << error;
        }
        EXPECT_NEAR(static_cast<double>(out.size()), 8000.0, 1200.0) << CodecName(c.codec);
        EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(out, 4096), 8000), 1000.0, 5.0)
            << CodecName(c.codec);
        if (c.codec != SpeakerCodec::kMp3) {
            continue;
        }
        // As a device receives MP3: each frame in 160-byte pieces, the last one padded with zeros.
        CSpeakerDecoder device(c.codec);
        std::vector<int16_t> played;
        std::size_t frames = 0;
        Tal::MediaCodec::CMp3FrameSplitter splitter;
        splitter.Push(stream.data(), stream.size(), [&](const uint8_t* data, std::size_t size) {
            ++frames;
            for (std::size_t at = 0; at < size; at += 160) {
                uint8_t piece[160] = {};
                std::copy(data + at, data + std::min(size, at + 160), piece);
                ASSERT_TRUE(device.Decode(piece, sizeof(piece), played, error)) << error;
            }
        });
        ASSERT_GT(frames, 30u);
        EXPECT_NEAR(static_cast<double>(played.size()), static_cast<double>(out.size()), 400.0)
            << "the padding is skipped, not played";
        EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(played, 4096), 8000), 1000.0, 5.0);
    }

    SpeakerCodec codec = SpeakerCodec::kPcmu;
    for (SpeakerCodec known :
         {SpeakerCodec::kPcmu, SpeakerCodec::kPcma, SpeakerCodec::kG722, SpeakerCodec::kMp3}) {
        ASSERT_TRUE(CodecOfPayloadType(PayloadTypeOf(known), codec));
        EXPECT_EQ(codec, known);
    }
    EXPECT_FALSE(CodecOfPayloadType(96, codec));
    EXPECT_TRUE(BackchannelCodecOf("", "G711_u", codec) && codec == SpeakerCodec::kPcmu);
    EXPECT_TRUE(BackchannelCodecOf("", "MP3", codec) && codec == SpeakerCodec::kMp3);
    EXPECT_TRUE(BackchannelCodecOf("PCMA", "MP3", codec) && codec == SpeakerCodec::kPcma)
        << "the fixture's choice wins";
    EXPECT_FALSE(BackchannelCodecOf("", "AAC", codec));
    EXPECT_FALSE(BackchannelCodecOf("OPUS", "G711_u", codec));
}

TEST(SimSpeech, VoicesWavReadingAndFailuresOfTheSynthesizer) {
    EXPECT_EQ(CTtsSynthesizer::VoiceFor("en-US"), "en-us");
    EXPECT_EQ(CTtsSynthesizer::VoiceFor("zh-CN"), "cmn");
    EXPECT_EQ(CTtsSynthesizer::VoiceFor("de-DE"), "de");
    EXPECT_EQ(CTtsSynthesizer::VoiceFor("fr"), "fr");

    // A stereo file with an extra chunk before the data: read and mixed down.
    const std::string dir = TempDir("tts");
    const std::string path = dir + "/stereo.wav";
    {
        std::ofstream out(path, std::ios::binary);
        auto le32 = [&out](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
        auto le16 = [&out](uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
        out << "RIFF";
        le32(4 + 24 + 12 + 16);
        out << "WAVEfmt ";
        le32(16);
        le16(1);
        le16(2);
        le32(22050);
        le32(22050 * 4);
        le16(4);
        le16(16);
        out << "LIST";
        le32(3);
        out << "abc" << '\0';  // odd chunk, padded
        out << "data";
        le32(16);  // four frames
        for (int16_t s : {100, 300, -100, -300, 1000, 2000, 0, 0}) {
            le16(static_cast<uint16_t>(s));
        }
    }
    std::vector<int16_t> samples;
    int rate = 0;
    std::string error;
    ASSERT_TRUE(ReadPcmWav(path, samples, rate, error)) << error;
    EXPECT_EQ(rate, 22050);
    EXPECT_EQ(samples, (std::vector<int16_t>{200, -200, 1500, 0}));
    std::ofstream(dir + "/text.wav") << "not a wav";
    EXPECT_FALSE(ReadPcmWav(dir + "/text.wav", samples, rate, error));
    EXPECT_NE(error.find("not a WAV"), std::string::npos);

    std::atomic<bool> cancelled{false};
    CTtsSynthesizer missing(dir, "no-such-speech-program");
    EXPECT_FALSE(missing.Synthesize("hello", "en-us", cancelled, samples, error));
    EXPECT_NE(error.find("no-such-speech-program"), std::string::npos) << error;
    CTtsSynthesizer failing(dir, "false");
    EXPECT_FALSE(failing.Synthesize("hello", "en-us", cancelled, samples, error));
    EXPECT_NE(error.find("failed (1)"), std::string::npos) << error;
    CTtsSynthesizer espeak(dir);
    ASSERT_TRUE(espeak.Synthesize("hello", "en-us", cancelled, samples, error)) << error;
    EXPECT_GT(samples.size(), 2000u) << "speech at 8000 Hz";
    EXPECT_GT(BcastTest::Rms(samples), 0.01);
    cancelled = true;
    EXPECT_FALSE(espeak.Synthesize("hello", "en-us", cancelled, samples, error));
    EXPECT_EQ(error, "cancelled");
}

TEST(SimPlayout, HandsOutEveryBlockInOrderAndEndsOnceCompletedOrCancelled) {
    std::mutex mutex;
    std::condition_variable done;
    std::vector<int16_t> played;
    std::vector<CPlayout::Result> results;
    auto prepare = [](const std::atomic<bool>&, std::vector<int16_t>& samples, std::string&) {
        samples.resize(1000);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = static_cast<int16_t>(i);
        }
        return true;
    };
    auto block = [&](const int16_t* s, std::size_t n) {
        std::lock_guard<std::mutex> lock(mutex);
        played.insert(played.end(), s, s + n);
    };
    auto finish = [&](CPlayout::Result r, const std::string&) {
        std::lock_guard<std::mutex> lock(mutex);
        results.push_back(r);
        done.notify_all();
    };
    {
        CPlayout playout(prepare, block, finish);
        playout.Start();
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(done.wait_for(lock, std::chrono::seconds(10), [&] { return !results.empty(); }));
    }
    ASSERT_EQ(played.size(), 1000u);
    for (std::size_t i = 0; i < played.size(); ++i) {
        ASSERT_EQ(played[i], static_cast<int16_t>(i));
    }
    EXPECT_EQ(results, (std::vector<CPlayout::Result>{CPlayout::Result::kCompleted}));

    results.clear();
    CPlayout failing(
        [](const std::atomic<bool>&, std::vector<int16_t>&, std::string& e) {
            e = "no";
            return false;
        },
        block, finish);
    failing.Start();
    CPlayout endless(
        [](const std::atomic<bool>&, std::vector<int16_t>& s, std::string&) {
            s.assign(8000 * 600, 1);
            return true;
        },
        block, finish);
    endless.Start();
    endless.Cancel();
    std::unique_lock<std::mutex> lock(mutex);
    ASSERT_TRUE(done.wait_for(lock, std::chrono::seconds(10), [&] { return results.size() == 2; }));
    EXPECT_NE(std::find(results.begin(), results.end(), CPlayout::Result::kFailed), results.end());
    EXPECT_NE(std::find(results.begin(), results.end(), CPlayout::Result::kCancelled), results.end());
}

// --- The speakers' status rules ---

namespace {

// Collects the pushes; waits, bounded, for one that matches.
class CRecordingSink : public IPushSink {
public:
    void Publish(const PushFrame& frame) override {
        rapidjson::Document doc;
        std::string error;
        ASSERT_TRUE(Json::Parse(frame.dataJson, doc, error)) << error;
        std::lock_guard<std::mutex> lock(mutex_);
        for (const rapidjson::Value& s : doc["Event"]["BroadcastStatusList"].GetArray()) {
            Item item;
            item.guid = s["BoardcastGroupGUID"].GetString();
            item.id = s["ResourceID"].GetInt();
            item.status = s["Status"].GetInt();
            item.resourceStatus = s["ResourceStatus"].GetInt();
            item.errorCode = s["ErrorCode"].GetInt();
            item.prompt = s.HasMember("PromptToneBeginEnd") ? s["PromptToneBeginEnd"].GetInt() : -1;
            items_.push_back(item);
        }
        changed_.notify_all();
    }

    struct Item {
        std::string guid;
        int id = 0;
        int status = 0;
        int resourceStatus = 0;
        int errorCode = 0;
        int prompt = -1;
    };

    std::vector<int> StatusesOf(int id) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<int> out;
        for (const Item& i : items_) {
            if (i.id == id) {
                out.push_back(i.status);
            }
        }
        return out;
    }

    bool Wait(int id, int status, Item* found = nullptr) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] {
            for (const Item& i : items_) {
                if (i.id == id && i.status == status) {
                    if (found != nullptr) {
                        *found = i;
                    }
                    return true;
                }
            }
            return false;
        });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Item> items_;
};

using PlatformTest::CManualScheduler;

// A streaming speaker (1), a two-channel device (2, 3), and an offline UDP speaker (4); a chime of
// `promptSeconds`.
std::string SiteText(int promptSeconds) {
    return R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],)"
           R"("Devices":[{"ID":10,"Name":"a","DeviceType":2020,"AccessProtocol":1},)"
           R"({"ID":20,"Name":"b","DeviceType":2001,"AccessProtocol":1,"IdleToneHz":700},)"
           R"({"ID":30,"Name":"c","DeviceType":2020,"AccessProtocol":23}],)"
           R"("Elements":[{"ID":1,"Name":"s","DeviceID":10,"Stream":"sms","TerminalStatus":1},)"
           R"({"ID":2,"Name":"l","DeviceID":20,"Channel":1,"Stream":"sdk","TerminalStatus":1},)"
           R"({"ID":3,"Name":"r","DeviceID":20,"Channel":2,"Stream":"sdk","TerminalStatus":1},)"
           R"({"ID":4,"Name":"o","DeviceID":30,"Stream":"sdk","TerminalStatus":0}],)"
           R"("BaseConfig":{"PromptToneDuration":)" +
           std::to_string(promptSeconds) + "}}";
}

class SpeakerSimTest : public ::testing::Test {
protected:
    void Build(int promptSeconds) {
        std::string error;
        ASSERT_TRUE(ParseFixture(SiteText(promptSeconds), fixture_, error)) << error;
        registry_ = std::make_unique<CBroadcastRegistry>(1);
        dir_ = TempDir("speakers");
        sim_ = std::make_unique<CSpeakerSim>(fixture_, *registry_, sink_, scheduler_, dir_);
        ASSERT_TRUE(sim_->Start(error)) << error;
    }
    void TearDown() override {
        if (sim_) {
            sim_->Stop();
        }
    }

    BroadcastGroup Group(const std::string& guid, GroupTransport transport, std::vector<int> ids,
                         bool prompt) {
        BroadcastGroup g;
        g.guid = guid;
        g.transport = transport;
        g.elementIds = std::move(ids);
        g.promptInFront = prompt;
        registry_->AddGroup(g);
        return g;
    }

    void DeviceAudio(int device, int channel, double seconds, double hz = 1000) {
        const std::vector<int16_t> pcm = Sine(hz, 8000, seconds);
        sim_->OnDeviceAudio(device, channel, SpeakerTransport::kDevice, "127.0.0.1:1", pcm.data(), pcm.size(),
                            pcm.size());
    }

    std::vector<int16_t> Recorded(int id) {
        std::vector<int16_t> samples;
        int rate = 0;
        std::string error;
        EXPECT_TRUE(ReadPcmWav(dir_ + "/" + std::to_string(id) + ".wav", samples, rate, error)) << error;
        return samples;
    }

    Fixture fixture_;
    std::unique_ptr<CBroadcastRegistry> registry_;
    CRecordingSink sink_;
    CManualScheduler scheduler_;
    std::string dir_;
    std::unique_ptr<CSpeakerSim> sim_;
};

}  // namespace

TEST_F(SpeakerSimTest, SpeakersConnectOnceTheAnswerIsOutPlayOnFirstAudioAndStopTogether) {
    Build(0);
    sim_->OnGroupCreated(Group("g", GroupTransport::kSdk, {2, 3, 4}, false));
    EXPECT_TRUE(sink_.StatusesOf(2).empty()) << "nothing before the answer is out";
    scheduler_.RunPending();
    EXPECT_EQ(sink_.StatusesOf(2), (std::vector<int>{0}));
    CRecordingSink::Item offline;
    ASSERT_TRUE(sink_.Wait(4, 2, &offline));
    EXPECT_EQ(offline.errorCode, 7);
    EXPECT_EQ(offline.resourceStatus, 4);

    DeviceAudio(20, 1, 0.1);
    DeviceAudio(20, 1001, 0.1);  // the broadcast alias of channel 1
    DeviceAudio(30, 0, 0.1);     // the offline speaker's device
    EXPECT_EQ(sink_.StatusesOf(2), (std::vector<int>{0, 1})) << "playing once";
    EXPECT_EQ(sink_.StatusesOf(3), (std::vector<int>{0})) << "channel 2 heard nothing";
    EXPECT_EQ(Recorded(2).size(), 1600u);
    EXPECT_FALSE(std::ifstream(dir_ + "/4.wav").good());

    sim_->OnBroadcastStatus("g", {}, kReportedStarted, 0, 0);
    EXPECT_EQ(sink_.StatusesOf(3), (std::vector<int>{0})) << "a client's report alone plays nothing";
    sim_->OnBroadcastStatus("g", {3}, kReportedFailed, 20, 2001);
    CRecordingSink::Item failed;
    ASSERT_TRUE(sink_.Wait(3, 2, &failed));
    EXPECT_EQ(failed.errorCode, 2001);
    sim_->OnBroadcastStatus("g", {}, kReportedStopped, 0, 0);
    for (int id : {2, 3, 4}) {
        EXPECT_EQ(sink_.StatusesOf(id).back(), 3) << id;
    }
    DeviceAudio(20, 1, 0.1);
    EXPECT_EQ(Recorded(2).size(), 1600u) << "the tail after a stop is not played";
    EXPECT_EQ(sink_.StatusesOf(2), (std::vector<int>{0, 1, 3}));
}

TEST_F(SpeakerSimTest, PromptToneComesBeforeTheStreamAndANewBroadcastTakesTheSpeakerOver) {
    Build(0);
    sim_->OnGroupCreated(Group("a", GroupTransport::kSms, {1}, true));
    // The client's stream plays before the platform dialled: the dial comes first, then the prompt tone.
    sim_->OnGroupStreamJoined("a", "127.0.0.1:2");
    ASSERT_TRUE(sink_.Wait(1, 1));
    EXPECT_EQ(sink_.StatusesOf(1), (std::vector<int>{0, 102, 103, 100, 1}));
    BroadcastGroup stored;
    ASSERT_TRUE(registry_->FindGroup("a", stored));
    EXPECT_EQ(stored.prompt, PromptState::kFinished);

    sim_->OnGroupCreated(Group("b", GroupTransport::kSms, {1}, false));
    CRecordingSink::Item leaving;
    ASSERT_TRUE(sink_.Wait(1, 3, &leaving));
    EXPECT_EQ(leaving.guid, "a") << "the old broadcast hears that its speaker left";
    scheduler_.RunPending();
    const std::vector<int16_t> pcm = Sine(1000, 8000, 0.2);
    sim_->OnGroupAudio("a", "x", pcm.data(), pcm.size(), pcm.size());
    EXPECT_EQ(sink_.StatusesOf(1), (std::vector<int>{0, 102, 103, 100, 1, 3, 0}))
        << "audio of the old group is not played";
    sim_->OnGroupAudio("b", "x", pcm.data(), pcm.size(), pcm.size());
    EXPECT_EQ(sink_.StatusesOf(1).back(), 1);
    sim_->OnGroupStreamEnded("b");
    EXPECT_EQ(sink_.StatusesOf(1).back(), 3);
}

TEST_F(SpeakerSimTest, AudioOutsideABroadcastPlaysUntilItStopsAndGoingOfflineFailsAPlay) {
    Build(0);
    DeviceAudio(20, 2, 0.1);
    CRecordingSink::Item playing;
    ASSERT_TRUE(sink_.Wait(3, 1, &playing));
    EXPECT_EQ(playing.guid, "");
    ASSERT_TRUE(sink_.Wait(3, 3)) << "ends after a second without audio";
    EXPECT_EQ(Recorded(3).size(), 800u);

    sim_->OnGroupCreated(Group("g", GroupTransport::kSdk, {2}, false));
    scheduler_.RunPending();
    EXPECT_TRUE(sim_->SetOnline(2, false));
    CRecordingSink::Item failed;
    ASSERT_TRUE(sink_.Wait(2, 2, &failed));
    EXPECT_EQ(failed.resourceStatus, 4);
    EXPECT_FALSE(sim_->IsOnline(2));
    EXPECT_FALSE(sim_->SetOnline(99, false));
    sim_->Reset();
    EXPECT_TRUE(sim_->IsOnline(2)) << "reset restores the fixture";
    EXPECT_FALSE(sim_->IsOnline(4));
}

TEST_F(SpeakerSimTest, AListenerHearsTheIdleToneThenWhatTheDevicePlays) {
    Build(0);
    std::mutex mutex;
    std::vector<int16_t> heard;
    const int monitor = sim_->AddMonitor(20, [&](const int16_t* s, std::size_t n) {
        std::lock_guard<std::mutex> lock(mutex);
        heard.insert(heard.end(), s, s + n);
    });
    auto waitFor = [&](std::size_t count) {
        for (int i = 0; i < 500; ++i) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (heard.size() >= count) {
                    return std::vector<int16_t>(heard.begin(),
                                                heard.begin() + static_cast<std::ptrdiff_t>(count));
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return std::vector<int16_t>();
    };
    const std::vector<int16_t> idle = waitFor(4000);
    ASSERT_EQ(idle.size(), 4000u);
    EXPECT_NEAR(BcastTest::DominantFrequency(idle, 8000), 700.0, 3.0)
        << "the fixture's idle tone of device 20";
    EXPECT_EQ(sim_->IdleToneHz(10), 440.0) << "default: 440 Hz + 10 Hz x the device's place";
    EXPECT_EQ(sim_->IdleToneHz(30), 460.0);
    {
        std::lock_guard<std::mutex> lock(mutex);
        heard.clear();
    }
    DeviceAudio(20, 1, 2.0, 1200);
    const std::vector<int16_t> live = waitFor(8000);
    ASSERT_EQ(live.size(), 8000u);
    EXPECT_NEAR(BcastTest::DominantFrequency(live, 8000), 1200.0, 3.0);
    sim_->RemoveMonitor(monitor);
}
