// The real host, module and platform as separate programs, with a PulseAudio virtual microphone and output:
// a live talk and file broadcasts driven through the plugin bus and a listen driven through the web
// controller, from the command line as an integrator would run them.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <rapidjson/document.h>

#include "AudioCheck.h"
#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "TestProcess.h"
#include "tool/audio/AudioCompare.h"

using BcastTest::CBackgroundProcess;
using BcastTest::ProcessResult;

namespace {

class HostBroadcastTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        pulse_ = new BcastTest::CPulseAudioPeer();
        std::string error;
        ASSERT_TRUE(pulse_->Start(&error)) << error;
        platform_ = new PlatformTest::CPlatformProcess();
        ASSERT_TRUE(platform_->Start({"--fixture", PlatformTest::DemoFixture()})) << platform_->Error();
        dir_ = new BcastTest::CTempDir("host-broadcast");
        const std::string& rest = platform_->RestUrl();
        std::ofstream(dir_->File("client.json"))
            << R"({"Platform":{"Address":"127.0.0.1","Port":)" << rest.substr(rest.rfind(':') + 1)
            << R"(},"User":{"Name":")" << PlatformTest::kUser << R"(","Password":")"
            << PlatformTest::kPassword
            << R"("},"SysConfig":{"Language":"en_US","LogLevel":3,"StderrLogLevel":6,"DataPath":")"
            << dir_->File("data") << R"("}})";
    }
    static void TearDownTestSuite() {
        if (platform_ != nullptr) {
            EXPECT_EQ(platform_->Stop(), 0) << platform_->Stderr();
        }
        delete platform_;
        if (pulse_ != nullptr) {
            pulse_->Stop();
        }
        delete pulse_;
        delete dir_;
    }
    void SetUp() override {
        ASSERT_NE(platform_, nullptr) << "the peers did not start";
        Control("POST", "/reset");
    }

    static ProcessResult Host(std::vector<std::string> args) {
        args.insert(args.begin(), BcastTest::Program("bcast-host"));
        args.push_back("--config");
        args.push_back(dir_->File("client.json"));
        return BcastTest::RunProcess(args, 120000, pulse_->ClientEnvironment());
    }
    static PlatformTest::RestReply Control(const std::string& method, const std::string& path,
                                           const std::string& body = "") {
        PlatformTest::CRestClient control(platform_->RestUrl());
        return control.Send(method, "/_control" + path, body);
    }
    // The lines of the host's output that start with `prefix`, without it.
    static std::vector<std::string> Lines(const std::string& output, const std::string& prefix) {
        std::vector<std::string> lines;
        std::istringstream in(output);
        for (std::string line; std::getline(in, line);) {
            if (line.compare(0, prefix.size(), prefix) == 0) {
                lines.push_back(line.substr(prefix.size()));
            }
        }
        return lines;
    }

    // Lines of a file that contain `fragment` (every line for an empty one).
    static std::size_t CountLines(const std::string& path, const std::string& fragment) {
        std::ifstream in(path);
        std::size_t count = 0;
        for (std::string line; std::getline(in, line);) {
            count += line.find(fragment) != std::string::npos ? 1 : 0;
        }
        return count;
    }

    static BcastTest::CPulseAudioPeer* pulse_;
    static PlatformTest::CPlatformProcess* platform_;
    static BcastTest::CTempDir* dir_;
};

BcastTest::CPulseAudioPeer* HostBroadcastTest::pulse_ = nullptr;
PlatformTest::CPlatformProcess* HostBroadcastTest::platform_ = nullptr;
BcastTest::CTempDir* HostBroadcastTest::dir_ = nullptr;

}  // namespace

TEST_F(HostBroadcastTest, ApiTalkReportsItsStagesAndTheSpeakersPlayTheMicrophone) {
    // A 600 Hz tone speaks into the microphone for the whole talk.
    const std::string tone = dir_->File("tone600.wav");
    ASSERT_EQ(BcastTest::MakeToneWav(tone, 16000, {600.0}, 30.0), "");
    CBackgroundProcess voice;
    ASSERT_TRUE(pulse_->StartPlaying(tone, &voice));

    const std::string log = dir_->File("data") + "/log/bcast-host.log";
    const std::size_t linesBefore = CountLines(log, "");
    const ProcessResult run =
        Host({"api", "StartIPSpeakerBroadcast", R"({"Data":{"ElementIDs":"1003,1006","Mode":0}})",
              "StopIPSpeakerBroadcast", "--wait", "5"});
    voice.Stop();
    ASSERT_EQ(run.exitCode, 0) << run.output;
    // The host polls the task state while it waits: the log keeps the run, not the polling.
    const std::size_t written = CountLines(log, "") - linesBefore;
    EXPECT_GT(written, 20u) << log << " holds the run";
    EXPECT_LT(written, 200u);
    EXPECT_LE(CountLines(log, "Get task run state"), 4u);
    const std::vector<std::string> notes = Lines(run.output, "notification: ");
    auto position = [&](const std::string& fragment) {
        for (std::size_t i = 0; i < notes.size(); ++i) {
            if (notes[i].find(fragment) != std::string::npos) {
                return static_cast<int>(i);
            }
        }
        return -1;
    };
    const int started = position(R"("Method":0)");
    const int stopped = position(R"("Method":1)");
    ASSERT_GE(started, 0) << run.output;
    ASSERT_GT(stopped, started) << run.output;
    for (const char* id : {R"("ID":1003)", R"("ID":1006)"}) {
        bool speakerEvent = false;
        for (const std::string& note : notes) {
            speakerEvent = speakerEvent || (note.find(R"("Method":2)") != std::string::npos &&
                                            note.find(id) != std::string::npos);
        }
        EXPECT_TRUE(speakerEvent) << id << " has per-speaker messages\n" << run.output;
    }

    // The platform: device groups started (1) and then stopped (3); the start and stop operation logs.
    PlatformTest::RestReply statuses = Control(
        "GET", "/requests?path=/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/UpdateBroadcastStatus");
    const rapidjson::Value* list = statuses.Node("/ResponseStatus/Data/Requests");
    ASSERT_TRUE(list != nullptr && list->IsArray() && list->Size() >= 2) << statuses.body;
    const std::string first = (*list)[0]["Body"].GetString();
    const std::string last = (*list)[list->Size() - 1]["Body"].GetString();
    EXPECT_NE(first.find(R"("Status":1)"), std::string::npos) << first;
    EXPECT_NE(last.find(R"("Status":3)"), std::string::npos) << last;
    PlatformTest::RestReply oplog = Control("GET", "/oplog");
    EXPECT_EQ(oplog.Int("/ResponseStatus/Data/OperationLogList/0/LogType"), 265001) << oplog.body;
    EXPECT_EQ(oplog.Int("/ResponseStatus/Data/OperationLogList/1/LogType"), 265002) << oplog.body;

    // What the speakers recorded after the prompt tone is the microphone's tone.
    for (const char* element : {"1003", "1006"}) {
        SCOPED_TRACE(std::string("speaker ") + element);
        std::string error;
        const std::vector<int16_t> played =
            BcastTest::DecodeWithSox(platform_->SpeakerDir() + "/" + element + ".wav", 8000, {}, &error);
        ASSERT_TRUE(error.empty()) << error;
        ASSERT_GT(played.size(), 16000u) << "at least two seconds were played";
        const std::vector<int16_t> tail(played.end() - 8000, played.end());
        EXPECT_NEAR(BcastTest::DominantFrequency(tail, 8000), 600.0, 10.0);
    }
}

TEST_F(HostBroadcastTest, WebListenAnswersWithItsResultAndPlaysTheSpeakerToTheOutput) {
    PlatformTest::RestReply speakers = Control("GET", "/speakers");
    const rapidjson::Value* list = speakers.Node("/ResponseStatus/Data/Speakers");
    ASSERT_TRUE(list != nullptr && list->IsArray() && list->Size() > 0);
    const double idleTone = (*list)[0]["IdleToneHz"].GetDouble();
    ASSERT_EQ((*list)[0]["ElementID"].GetInt(), 1001);

    CBackgroundProcess recorder;
    ASSERT_TRUE(pulse_->StartRecording(dir_->File("listen.raw"), 8000, &recorder));
    const ProcessResult run = Host({"web", "StartBroadcastListen",
                                    R"({"Data":{"ResourceID":1001,"ResourceType":1027}})", "--wait", "4"});
    recorder.Stop();
    ASSERT_EQ(run.exitCode, 0) << run.output;
    const std::vector<std::string> messages = Lines(run.output, "web message [target 0]: ");
    bool answered = false;
    for (const std::string& message : messages) {
        if (message.find("BroadcastListeningResult") != std::string::npos) {
            answered = true;
            EXPECT_NE(message.find(R"("Result":1)"), std::string::npos) << message;
            EXPECT_NE(message.find(R"("ResourceID":1001)"), std::string::npos) << message;
        }
    }
    EXPECT_TRUE(answered) << run.output;
    const std::vector<int16_t> played =
        BcastTest::TrimSilence(BcastTest::ReadRawPcm(dir_->File("listen.raw")));
    ASSERT_GT(played.size(), 8000u) << "at least a second of the speaker reached the output";
    EXPECT_NEAR(BcastTest::DominantFrequency(played, 8000), idleTone, 10.0);

    // By the device id, which no broadcast element has: the same speaker, and a result of its own outcome
    // only (the element lookup that misses first is not the listen's error).
    const ProcessResult byDevice =
        Host({"web", "StartBroadcastListen", R"({"Data":{"ResourceID":101}})"});  // until it answers
    ASSERT_EQ(byDevice.exitCode, 0) << byDevice.output;
    bool deviceAnswered = false;
    for (const std::string& message : Lines(byDevice.output, "web message [target 0]: ")) {
        if (message.find("BroadcastListeningResult") != std::string::npos) {
            deviceAnswered = true;
            EXPECT_NE(message.find(R"("Result":1)"), std::string::npos) << message;
            EXPECT_NE(message.find(R"("ErrorInfo":"")"), std::string::npos) << message;
        }
    }
    EXPECT_TRUE(deviceAnswered) << byDevice.output;

    // A listen the platform refuses answers with result 0 and its reason, and plays nothing.
    ASSERT_EQ(Control("GET", "/speakers").ErrorCode(), 0);
    PlatformTest::CRestClient control(platform_->RestUrl());
    ASSERT_EQ(
        control
            .Send("POST", "/_control/fault",
                  R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/VoiceTalk/Url","Kind":"error",)"
                  R"("ErrorModule":30,"ErrorCode":6})")
            .ErrorCode(),
        0);
    const ProcessResult refused = Host({"web", "StartBroadcastListen", R"({"Data":{"ResourceID":1001}})"});
    EXPECT_EQ(refused.exitCode, 0) << "the call itself is accepted\n" << refused.output;
    EXPECT_NE(refused.output.find(R"("Result":0)"), std::string::npos) << refused.output;
    EXPECT_EQ(Host({"web", "NoSuchMethod"}).exitCode, 2);
}

TEST_F(HostBroadcastTest, ApiFileBroadcastsPlayWholeOnEveryTransportAndAStopEndsALongFileAtOnce) {
    // An announcement of about three seconds, as an MP3 a user would have made.
    const std::string wav = dir_->File("announcement.wav");
    const std::string mp3 = dir_->File("announcement.mp3");
    ASSERT_EQ(BcastTest::RunProcess(
                  {"espeak-ng", "-v", "en", "-w", wav, "The car park closes at ten tonight."}, 60000)
                  .exitCode,
              0);
    ASSERT_EQ(
        BcastTest::RunProcess({"ffmpeg", "-loglevel", "error", "-y", "-i", wav, "-ar", "44100", mp3}, 60000)
            .exitCode,
        0);
    std::string error;
    BcastTool::PcmAudio raw;
    BcastTool::PcmAudio reference;
    ASSERT_TRUE(BcastTool::ReadWavMono(wav, raw, error)) << error;
    ASSERT_TRUE(BcastTool::ToRate(raw, 8000, reference));

    // The three commands of a user: a mix of all transports, the streaming speaker alone, device speakers.
    for (const char* ids : {"1001,1003,1006", "1001", "1003,1006"}) {
        SCOPED_TRACE(ids);
        Control("POST", "/reset");
        const ProcessResult run = Host({"api", "StartIPSpeakerBroadcast",
                                        std::string(R"({"Data":{"ElementIDs":")") + ids +
                                            R"(","Mode":1,"MediaFilePath":")" + mp3 + R"("}})"});
        ASSERT_EQ(run.exitCode, 0) << run.output;
        ASSERT_FALSE(run.timedOut);
        std::stringstream list(ids);
        for (std::string id; std::getline(list, id, ',');) {
            SCOPED_TRACE("speaker " + id);
            BcastTool::PcmAudio recording;
            ASSERT_TRUE(BcastTool::ReadWavMono(platform_->SpeakerDir() + "/" + id + ".wav", recording, error))
                << error;
            const BcastTool::AudioMatch match = BcastTool::CompareAudio(reference, recording, 8.0);
            EXPECT_GE(match.correlation, 0.9) << "delay " << match.delayMs << " ms";
            EXPECT_GE(match.delayMs, -30.0) << "the head of the file is missing";
            EXPECT_GE(match.recordingSeconds * 1000.0, match.delayMs + match.referenceSeconds * 1000.0 - 60.0)
                << "the tail of the file is missing";
        }
    }

    // A minute of tone, stopped two seconds in: the speakers hear about two seconds and the host is done
    // soon.
    const std::string minute = dir_->File("minute.wav");
    ASSERT_EQ(BcastTest::MakeToneWav(minute, 16000, {500.0}, 60.0), "");
    Control("POST", "/reset");
    const auto started = std::chrono::steady_clock::now();
    const ProcessResult stopped = Host(
        {"api", "StartIPSpeakerBroadcast",
         std::string(R"({"Data":{"ElementIDs":"1003,1006","Mode":1,"MediaFilePath":")") + minute + R"("}})",
         "StopIPSpeakerBroadcast", "--wait", "2"});
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    ASSERT_EQ(stopped.exitCode, 0) << stopped.output;
    EXPECT_LT(seconds, 20.0) << "the host did not wait for the file to end";
    for (const char* id : {"1003", "1006"}) {
        SCOPED_TRACE(std::string("speaker ") + id);
        const std::vector<int16_t> played =
            BcastTest::DecodeWithSox(platform_->SpeakerDir() + "/" + id + ".wav", 8000, {}, &error);
        ASSERT_TRUE(error.empty()) << error;
        EXPECT_GT(played.size(), 8000u) << "the file started";
        // The stop came two seconds after the request; what was sent before it plus one frame and 100 ms.
        EXPECT_LE(played.size(), static_cast<std::size_t>(2.5 * 8000))
            << "the sending went on after the stop";
    }
}

TEST_F(HostBroadcastTest, DeviceTalkPrintsEachDevicesStatesAndTheDevicesPlayTheMicrophone) {
    const std::string tone = dir_->File("tone700.wav");
    ASSERT_EQ(BcastTest::MakeToneWav(tone, 16000, {700.0}, 30.0), "");
    CBackgroundProcess voice;
    ASSERT_TRUE(pulse_->StartPlaying(tone, &voice));
    auto wavOf = [](int deviceId) {
        PlatformTest::RestReply devices = Control("GET", "/devices");
        const rapidjson::Value* list = devices.Node("/ResponseStatus/Data/Devices");
        for (rapidjson::SizeType i = 0; list != nullptr && list->IsArray() && i < list->Size(); ++i) {
            if ((*list)[i]["DeviceID"].GetInt() == deviceId && (*list)[i].HasMember("WavPath")) {
                return std::string((*list)[i]["WavPath"].GetString());
            }
        }
        return std::string();
    };
    {
        SCOPED_TRACE("a door station and a camera");
        const ProcessResult run = Host({"device-talk", "201,202", "--wait", "4"});
        ASSERT_EQ(run.exitCode, 0) << run.output;
        EXPECT_EQ(Lines(run.output, "device 201: "),
                  (std::vector<std::string>{"connecting", "playing", "stopped"}))
            << run.output;
        EXPECT_EQ(Lines(run.output, "device 202: "),
                  (std::vector<std::string>{"connecting", "playing", "stopped"}))
            << run.output;
        for (int id : {201, 202}) {
            SCOPED_TRACE("device " + std::to_string(id));
            std::string error;
            const std::vector<int16_t> played = BcastTest::DecodeWithSox(wavOf(id), 8000, {}, &error);
            ASSERT_TRUE(error.empty()) << error;
            ASSERT_GT(played.size(), 16000u) << "at least two seconds were played";
            const std::vector<int16_t> tail(played.end() - 8000, played.end());
            EXPECT_NEAR(BcastTest::DominantFrequency(tail, 8000), 700.0, 10.0);
        }
    }
    {
        SCOPED_TRACE("the camera is switched off");
        ASSERT_EQ(Control("POST", "/device/202", R"({"Online":false})").Int("/ResponseStatus/ErrorCode"), 0);
        const ProcessResult run = Host({"device-talk", "201,202", "--wait", "2"});
        Control("POST", "/device/202", R"({"Online":true})");
        ASSERT_EQ(run.exitCode, 0) << "the door station talked\n" << run.output;
        EXPECT_EQ(Lines(run.output, "device 201: "),
                  (std::vector<std::string>{"connecting", "playing", "stopped"}))
            << run.output;
        const std::vector<std::string> camera = Lines(run.output, "device 202: ");
        ASSERT_GE(camera.size(), 2u) << run.output;
        EXPECT_EQ(camera.back(), "stopped");
        EXPECT_EQ(camera[camera.size() - 2].rfind("failed (", 0), 0u) << "failed with its reason\n"
                                                                      << run.output;
    }
    voice.Stop();
    {
        SCOPED_TRACE("no device can be reached");
        const ProcessResult run = Host({"device-talk", "4242", "--wait", "1"});
        EXPECT_NE(run.exitCode, 0) << run.output;
        const std::vector<std::string> unknown = Lines(run.output, "device 4242: ");
        ASSERT_EQ(unknown.size(), 1u) << run.output;
        EXPECT_EQ(unknown[0].rfind("failed (", 0), 0u) << run.output;
    }
}

TEST_F(HostBroadcastTest, AFailedLoginEndsEveryModeAtOnceWithOneLine) {
    const std::string& rest = platform_->RestUrl();
    const std::string port = rest.substr(rest.rfind(':') + 1);
    struct Case {
        const char* what;
        std::string address;
        std::string port;
        std::string password;
    };
    const std::vector<Case> cases = {
        {"a wrong password", "127.0.0.1", port, "not-the-password"},
        {"no platform at the address", "127.0.0.1", "1", PlatformTest::kPassword},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string config = dir_->File("bad-login.json");
        std::ofstream(config) << R"({"Platform":{"Address":")" << c.address << R"(","Port":)" << c.port
                              << R"(},"User":{"Name":")" << PlatformTest::kUser << R"(","Password":")"
                              << c.password << R"("},"SysConfig":{"Language":"en_US","DataPath":")"
                              << dir_->File("data-bad") << R"("}})";
        for (std::vector<std::string> mode :
             {std::vector<std::string>{"api", "Config"}, std::vector<std::string>{"web", "CleanCache"},
              std::vector<std::string>{"device-talk", "201"}}) {
            const std::string name = mode[0];
            mode.insert(mode.begin(), BcastTest::Program("bcast-host"));
            mode.push_back("--config");
            mode.push_back(config);
            const ProcessResult run = BcastTest::RunProcess(mode, 60000, pulse_->ClientEnvironment());
            EXPECT_EQ(run.exitCode, 3) << name << "\n" << run.output;
            EXPECT_EQ(Lines(run.output, "bcast-host: login to ").size(), 1u) << name << "\n" << run.output;
            EXPECT_EQ(run.output.find(" ok"), std::string::npos) << name << ": nothing ran\n" << run.output;
            EXPECT_TRUE(Lines(run.output, "notification: ").empty()) << name;
        }
    }
}

TEST_F(HostBroadcastTest, NoPasswordKeyOrTokenReachesAnyLog) {
    // The site's secrets: every user's and device's password, every storage server's keys.
    std::vector<std::string> secrets;
    {
        std::ifstream in(PlatformTest::DemoFixture());
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        rapidjson::Document site;
        site.Parse(text.c_str());
        ASSERT_FALSE(site.HasParseError());
        for (const char* section : {"Users", "Devices"}) {
            for (const auto& item : site[section].GetArray()) {
                if (item.HasMember("Password") && item["Password"].GetStringLength() > 0) {
                    secrets.push_back(item["Password"].GetString());
                }
            }
        }
        for (const auto& store : site["StorageServers"].GetArray()) {
            for (const char* key : {"AccessKey", "SecretKey"}) {
                secrets.push_back(store[key].GetString());
            }
        }
        ASSERT_GE(secrets.size(), 8u);
    }

    // A recorded live talk on every transport (the upload signs with the store's keys), then a device talk
    // (the devices' logins).
    const ProcessResult talk =
        Host({"api", "StartIPSpeakerBroadcast", R"({"Data":{"ElementIDs":"1001,1003,1006","Mode":0}})",
              "StopIPSpeakerBroadcast", "--wait", "3"});
    ASSERT_EQ(talk.exitCode, 0) << talk.output;
    const ProcessResult device = Host({"device-talk", "201", "--wait", "1"});
    ASSERT_EQ(device.exitCode, 0) << device.output;
    PlatformTest::RestReply records = Control("GET", "/broadcasts");
    EXPECT_NE(records.body.find("pool-records"), std::string::npos) << "the talk was recorded and uploaded\n"
                                                                    << records.body;

    // Every log: the client's files, the platform's output and its scratch files, the host's output.
    std::vector<std::pair<std::string, std::string>> logs = {{"host output", talk.output + device.output},
                                                             {"platform stdout", platform_->Stdout()},
                                                             {"platform stderr", platform_->Stderr()}};
    const std::string platformDir = platform_->SpeakerDir().substr(0, platform_->SpeakerDir().rfind('/'));
    for (const std::string& root : {dir_->File("data"), platformDir}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            const std::string name = entry.path().filename().string();
            if (entry.is_regular_file() &&
                (name.find(".log") != std::string::npos || name.find(".txt") != std::string::npos)) {
                std::ifstream in(entry.path());
                logs.emplace_back(entry.path().string(), std::string((std::istreambuf_iterator<char>(in)),
                                                                     std::istreambuf_iterator<char>()));
            }
        }
    }
    std::size_t scanned = 0;
    for (const auto& log : logs) {
        scanned += log.second.size();
        for (const std::string& secret : secrets) {
            EXPECT_EQ(log.second.find(secret), std::string::npos) << log.first << " holds " << secret;
        }
        for (const char* header : {"Bearer ", "X-Token:", "Authorization:"}) {
            EXPECT_EQ(log.second.find(header), std::string::npos) << log.first << " holds a " << header;
        }
    }
    EXPECT_GT(scanned, 10000u) << "the logs were found";
}
