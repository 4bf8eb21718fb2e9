// The device network interface, the resource manager's device login and the device SDK transport against the
// simulated device over HTTP; recordings are checked with sox as an independent decoder.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/SDK/SDKTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "RtspServerPeer.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/resource/ResourceManager.h"
#include "platform/devicesim/DeviceSimulator.h"

using namespace TransferTest;
using namespace std::chrono_literals;

namespace {

const char* kRealtimeRequest = "PUT /DXAPI/VideoIntercom/broadcast/realtime?format=json";
const char* kG711Body =
    "{\"BroadcastRealtime\":{\"enabled\":true,\"transportType\":\"unicast\",\"audioLevel\":15,\"audioType\":"
    "\"G.711ulaw\"}}";
const char* kMp3Body =
    "{\"BroadcastRealtime\":{\"enabled\":true,\"transportType\":\"unicast\",\"audioLevel\":15,\"audioType\":"
    "\"MP3\","
    "\"samplingRate\":48}}";

/// One second of a 1 kHz tone in G.711 u-law, made by sox.
std::string MuLawTone(const std::string& directory, double seconds = 1.0) {
    const std::string path = directory + "/tone.ul";
    if (!RunTool({"/usr/bin/sox", "-n", "-t", "ul", "-r", "8000", "-c", "1", path, "synth",
                  std::to_string(seconds), "sine", "1000", "vol", "0.5"})) {
        return std::string();
    }
    return ReadFile(path);
}

/// The 16-bit samples of a WAV file after its 44-byte header (as the simulator and sox write it).
std::string WavData(const std::string& path) {
    const std::string wav = ReadFile(path);
    return wav.size() > 44 ? wav.substr(44) : std::string();
}

class DeviceTest : public ::testing::Test {
protected:
    void SetUp() override {
        directory = MakeTempDir("device");
        config.recordDirectory = directory;
        ResourceManager::CDeviceManager::Instance()->Clear();
    }
    void TearDown() override { ResourceManager::CDeviceManager::Instance()->Clear(); }

    ::testing::AssertionResult StartDevice() {
        if (!device.Start(config)) {
            return ::testing::AssertionFailure() << "the simulated device cannot listen";
        }
        return ::testing::AssertionSuccess();
    }

    int32_t Login() {
        return DEVNET_Login("127.0.0.1", static_cast<uint16_t>(device.Port()), config.userName.c_str(),
                            config.password.c_str(), nullptr);
    }

    std::shared_ptr<ResourceManager::CDevice> Register(int id, const std::string& password) {
        ResourceManager::DeviceInfo info;
        info.id = id;
        info.name = "device " + std::to_string(id);
        info.deviceType = 2020;
        info.accessProtocol = 1;
        info.ipAddress = "127.0.0.1";
        info.port = device.Port();
        info.userName = config.userName;
        info.password = password;
        return ResourceManager::CDeviceManager::Instance()->AddOrUpdateDevice(info);
    }

    std::string directory;
    DeviceSim::DeviceSimConfig config;
    DeviceSim::CDeviceSimulator device;
};

}  // namespace

TEST_F(DeviceTest, LoginUsesDigestAndReportsRefusals) {
    ASSERT_TRUE(StartDevice());
    DEVNET_DEVICEINFO info{};
    const int32_t user =
        DEVNET_Login("127.0.0.1", static_cast<uint16_t>(device.Port()), "admin", "admin123", &info);
    ASSERT_GE(user, 0) << "error " << DEVNET_GetLastError();
    EXPECT_STREQ(info.deviceName, "Simulated broadcast device");
    EXPECT_STREQ(info.serialNumber, "SIM-0001");
    EXPECT_EQ(info.channelCount, 4);
    EXPECT_EQ(device.Stats().logins, 1);

    EXPECT_EQ(DEVNET_Login("127.0.0.1", static_cast<uint16_t>(device.Port()), "admin", "wrong", nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_PASSWORD_ERROR));
    EXPECT_GE(device.Stats().authFailures, 1);

    device.SetRefuseLogin(true);
    EXPECT_EQ(Login(), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_LOGIN_REFUSED));
    device.SetRefuseLogin(false);

    EXPECT_EQ(DEVNET_Login("127.0.0.1", 0, "admin", "admin123", nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_PARAMETER_ERROR));

    EXPECT_NE(DEVNET_Logout(user), 0);
    EXPECT_EQ(DEVNET_Logout(user), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_INVALID_USERID));

    const int port = device.Port();
    device.Stop();
    EXPECT_EQ(DEVNET_Login("127.0.0.1", static_cast<uint16_t>(port), "admin", "admin123", nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_NETWORK_FAIL_CONNECT));
}

TEST_F(DeviceTest, ConfigurationRequestsReachTheDeviceAndItsAnswerComesBack) {
    config.stdConfigSupported = true;
    ASSERT_TRUE(StartDevice());
    const int32_t user = Login();
    ASSERT_GE(user, 0);

    DEVNET_STDCONFIG_INPUT input{kRealtimeRequest, kMp3Body, static_cast<uint32_t>(std::strlen(kMp3Body))};
    std::vector<char> answer(4096, 'x');
    DEVNET_STDCONFIG_OUTPUT output{answer.data(), static_cast<uint32_t>(answer.size()), 0, 0};
    ASSERT_NE(DEVNET_StdConfig(user, &input, &output), 0) << "error " << DEVNET_GetLastError();
    EXPECT_EQ(output.httpStatus, 200);
    EXPECT_EQ(std::string(answer.data()),
              "{\"ResponseStatus\":{\"statusCode\":1,\"statusString\":\"OK\",\"subStatusCode\":\"ok\"}}");
    EXPECT_EQ(output.returnedSize, std::strlen(answer.data()));
    auto stats = device.Stats();
    EXPECT_EQ(stats.lastConfigRequestLine, kRealtimeRequest);
    EXPECT_EQ(stats.lastConfigBody, kMp3Body);
    EXPECT_EQ(stats.audioType, "MP3");

    // An answer larger than the buffer is cut, terminated, and reported.
    std::vector<char> small(10, 'x');
    DEVNET_STDCONFIG_OUTPUT cut{small.data(), static_cast<uint32_t>(small.size()), 0, 0};
    EXPECT_EQ(DEVNET_StdConfig(user, &input, &cut), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_BUFFER_TOO_SMALL));
    EXPECT_EQ(std::string(small.data()), "{\"Respons");
    EXPECT_GT(cut.returnedSize, 10u);

    // The device refuses an empty body; the refusal and its answer come back.
    DEVNET_STDCONFIG_INPUT empty{kRealtimeRequest, "", 0};
    EXPECT_EQ(DEVNET_StdConfig(user, &empty, &output), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_DEVICE_ERROR));
    EXPECT_EQ(output.httpStatus, 400);
    EXPECT_NE(std::string(answer.data()).find("badJsonContent"), std::string::npos);

    DEVNET_STDCONFIG_INPUT malformed{"PUT", "", 0};
    EXPECT_EQ(DEVNET_StdConfig(user, &malformed, &output), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_PARAMETER_ERROR));

    DEVNET_BROADCAST_REALTIME_CFG binary{};
    binary.encodeType = 1;
    ASSERT_NE(DEVNET_SetDeviceConfig(user, DEVNET_SET_BROADCAST_REALTIME_CFG, 1, &binary, sizeof(binary)), 0);
    stats = device.Stats();
    ASSERT_EQ(stats.lastBinaryConfig.size(), sizeof(binary));
    EXPECT_EQ(stats.lastBinaryConfig[0], 1);
    EXPECT_EQ(stats.audioType, "G.711ulaw");
    EXPECT_EQ(DEVNET_SetDeviceConfig(user, 777, 1, &binary, sizeof(binary)), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_NOSUPPORT));
    DEVNET_Logout(user);
}

TEST_F(DeviceTest, VoiceTalkStreamsAudioThatTheDeviceRecordsExactly) {
    ASSERT_TRUE(StartDevice());
    const std::string tone = MuLawTone(directory);
    ASSERT_EQ(tone.size(), 8000u) << "sox is needed";
    const int32_t user = Login();
    ASSERT_GE(user, 0);
    const int32_t talk = DEVNET_StartVoiceTalk(user, 2, nullptr, nullptr);
    ASSERT_GE(talk, 0) << "error " << DEVNET_GetLastError();
    for (size_t offset = 0; offset < tone.size(); offset += 160) {
        ASSERT_NE(DEVNET_SendVoiceData(talk, tone.data() + offset, 160), 0)
            << "error " << DEVNET_GetLastError();
        std::this_thread::sleep_for(2ms);
    }
    ASSERT_NE(DEVNET_StopVoiceTalk(talk), 0) << "error " << DEVNET_GetLastError();
    EXPECT_EQ(DEVNET_SendVoiceData(talk, tone.data(), 160), 0);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_INVALID_HANDLE));

    const auto stats = device.Stats();
    EXPECT_EQ(stats.channels.at(2).bytes, 8000u);
    EXPECT_EQ(stats.talksActive, 0);
    const std::string recording = stats.channels.at(2).recordingPath;
    SoxStat stat;
    ASSERT_TRUE(RunSoxStat({recording}, stat));
    EXPECT_DOUBLE_EQ(stat.lengthSeconds, 1.0);
    EXPECT_NEAR(stat.roughFrequency, 1000.0, 50.0);  // sox estimates coarsely (975 for 1 kHz)

    // sox decodes the same u-law bytes to the same samples the device recorded.
    const std::string reference = directory + "/reference.wav";
    ASSERT_TRUE(RunTool({"/usr/bin/sox", "-t", "ul", "-r", "8000", "-c", "1", directory + "/tone.ul", "-b",
                         "16", "-e", "signed-integer", reference}));
    EXPECT_TRUE(WavData(recording) == WavData(reference));
    DEVNET_Logout(user);
}

TEST_F(DeviceTest, VoiceTalkRefusalsAndADeviceThatGoesAway) {
    config.refusedChannels = {3};
    ASSERT_TRUE(StartDevice());
    const int32_t user = Login();
    ASSERT_GE(user, 0);
    EXPECT_EQ(DEVNET_StartVoiceTalk(user, 3, nullptr, nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_CHANNEL_ERROR));
    EXPECT_EQ(DEVNET_StartVoiceTalk(user, 9, nullptr, nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_CHANNEL_ERROR));
    EXPECT_EQ(DEVNET_StartVoiceTalk(
                  user, 1, [](int32_t, const char*, uint32_t, uint8_t, void*) {}, nullptr),
              -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_NOSUPPORT));
    EXPECT_EQ(DEVNET_StartVoiceTalk(user + 1000, 1, nullptr, nullptr), -1);
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_INVALID_USERID));

    const int32_t talk = DEVNET_StartVoiceTalk(user, 1, nullptr, nullptr);
    ASSERT_GE(talk, 0);
    EXPECT_EQ(DEVNET_StartVoiceTalk(user, 1, nullptr, nullptr), -1) << "one talk per channel";
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_DEVICE_BUSY));

    // The device goes down mid-talk: sends fail within a bounded time, and stopping returns.
    const char frame[160] = {};
    std::atomic<bool> failed{false};
    std::thread sender([&] {
        for (int i = 0; i < 500 && !failed; ++i) {
            if (DEVNET_SendVoiceData(talk, frame, sizeof(frame)) == 0) {
                failed = true;
            }
            std::this_thread::sleep_for(20ms);
        }
    });
    ASSERT_TRUE(device.WaitForBytes(1, 1600, 10s));
    device.Stop();
    sender.join();
    EXPECT_TRUE(failed) << "sending to a device that went away never failed";
    EXPECT_EQ(DEVNET_StopVoiceTalk(talk), 0);
    EXPECT_NE(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_NOERROR));
    DEVNET_Logout(user);
}

TEST_F(DeviceTest, ResourceManagerLogsInWithTheDeviceLoginParameters) {
    ASSERT_TRUE(StartDevice());
    auto device1 = Register(41, "wrong");
    Tal::Base::Error::ErrorCode error;
    EXPECT_EQ(device1->Login(error), -1);
    EXPECT_EQ(error.GetSubSystemErrorCode(), 2);
    EXPECT_EQ(error.GetMainErrorCode(), 1);
    EXPECT_EQ(error.GetSubErrorCode(), DEVNET_PASSWORD_ERROR);
    EXPECT_FALSE(device1->IsLogin());

    ResourceManager::CLoginParam param = device1->GetIPModeLoginParam();
    param.SetVal_strUserPwd(config.password);
    device1->SetIPModeLoginParam(param);
    const int user = device1->Login(error);
    ASSERT_GE(user, 0);
    EXPECT_TRUE(device1->IsLogin());
    EXPECT_EQ(device1->GetUserID(), user);
    EXPECT_EQ(device1->Login(error), user) << "a second login keeps the first";
    device1->SetIPModeLoginParam(param);
    EXPECT_EQ(device1->GetUserID(), user) << "the same parameters keep the login";

    {
        SCOPED_TRACE("the device moved: the login made at the old address ends, the next one reaches it");
        DeviceSim::CDeviceSimulator moved;
        ASSERT_TRUE(moved.Start(config));
        param.SetVal_uLoginPort(static_cast<uint16_t>(moved.Port()));
        device1->SetIPModeLoginParam(param);
        EXPECT_FALSE(device1->IsLogin());
        DEVNET_STDCONFIG_INPUT input{kRealtimeRequest, kG711Body,
                                     static_cast<uint32_t>(std::strlen(kG711Body))};
        EXPECT_EQ(DEVNET_StdConfig(user, &input, nullptr), 0) << "the old login is over";
        const int movedUser = device1->Login(error);
        ASSERT_GE(movedUser, 0);
        std::string answer(256, '\0');
        DEVNET_STDCONFIG_OUTPUT output{&answer[0], static_cast<uint32_t>(answer.size())};
        EXPECT_NE(DEVNET_StdConfig(movedUser, &input, &output), 0)
            << "the new login talks to the moved device";
        device1->Logout();
    }
    const int again = device1->Login(error);
    ASSERT_LT(again, 0) << "the moved device is gone";
    param.SetVal_uLoginPort(static_cast<uint16_t>(device.Port()));
    device1->SetIPModeLoginParam(param);
    ASSERT_GE(device1->Login(error), 0);

    device1->Logout();
    EXPECT_FALSE(device1->IsLogin());
    DEVNET_STDCONFIG_INPUT input{kRealtimeRequest, kG711Body, static_cast<uint32_t>(std::strlen(kG711Body))};
    EXPECT_EQ(DEVNET_StdConfig(user, &input, nullptr), 0) << "the device login must end with Logout";
    EXPECT_EQ(DEVNET_GetLastError(), static_cast<uint32_t>(DEVNET_INVALID_USERID));
}

TEST_F(DeviceTest, TransferConfiguresTheFormatOpensChannelsAndSendsPieces) {
    ASSERT_TRUE(StartDevice());
    Register(51, config.password);
    Tal::Base::CLogCapture log;
    BroadCastPlugin::CSDKTransfer transfer;
    ASSERT_TRUE(transfer.Init({51, BroadCastPlugin::kEncodeG711U, {{"speaker", 2}}}));
    auto stats = device.Stats();
    EXPECT_EQ(stats.stdConfigRequests, 1);
    EXPECT_EQ(stats.lastConfigRequestLine, kRealtimeRequest);
    EXPECT_EQ(stats.lastConfigBody, kG711Body);
    EXPECT_EQ(stats.talksOpened, 1);
    ASSERT_EQ(stats.channels.count(1), 1u) << "channels below 1001 talk on voice channel 1";
    EXPECT_TRUE(ResourceManager::CDeviceManager::Instance()->FindDeviceByID(51)->IsLogin());
    EXPECT_TRUE(log.Contains("DEVNET_StdConfig return. message: [{\"ResponseStatus\""));

    std::vector<uint8_t> frame(320);
    for (size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<uint8_t>(i);
    }
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 320));  // two pieces
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 160));  // one piece
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 100));  // too short: nothing
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 200));  // 160 and a zero-padded 40
    ASSERT_TRUE(device.WaitForBytes(1, 320 + 160 + 320, 10s));
    transfer.Uninit();
    stats = device.Stats();
    EXPECT_EQ(stats.channels.at(1).bytes, 800u);
    EXPECT_EQ(stats.talksActive, 0);
    bool shortFrameLogged = false;
    for (const auto& line : log.Lines()) {
        if (line.module == "ClientVFPluginError" && line.text.find("buffsize: 100") != std::string::npos) {
            shortFrameLogged = true;
        }
    }
    EXPECT_TRUE(shortFrameLogged) << "a short frame is reported under ClientVFPluginError";

    // Channels from 1001 are addressed directly and skip the format configuration.
    Register(52, config.password);
    BroadCastPlugin::CSDKTransfer direct;
    ASSERT_TRUE(direct.Init({52, BroadCastPlugin::kEncodeG711U, {{"a", 1002}}}));
    stats = device.Stats();
    EXPECT_EQ(stats.stdConfigRequests, 1);
    EXPECT_EQ(stats.channels.count(1002), 1u);
    direct.Uninit();
}

TEST_F(DeviceTest, TransferFallsBackToTheBinaryConfiguration) {
    config.stdConfigSupported = false;
    ASSERT_TRUE(StartDevice());
    Register(61, config.password);
    Tal::Base::CLogCapture log;
    BroadCastPlugin::CSDKTransfer mp3;
    ASSERT_TRUE(mp3.Init({61, BroadCastPlugin::kEncodeMP3, {{"a", 1}}}));
    auto stats = device.Stats();
    EXPECT_EQ(stats.lastConfigBody, kMp3Body);
    ASSERT_FALSE(stats.lastBinaryConfig.empty());
    EXPECT_EQ(stats.lastBinaryConfig[0], 15);
    EXPECT_EQ(stats.audioType, "MP3");
    EXPECT_TRUE(log.Contains("DEVNET_StdConfig Error. [23]"));
    mp3.Uninit();

    // Encode type 8 sends an empty body; the device refuses both forms, the talk still opens.
    BroadCastPlugin::CSDKTransfer other;
    ASSERT_TRUE(other.Init({61, 8, {{"a", 1}}}));
    stats = device.Stats();
    EXPECT_EQ(stats.lastConfigBody, "");
    EXPECT_EQ(stats.lastBinaryConfig[0], 8);
    EXPECT_TRUE(log.Contains("DEVNET_SetDeviceConfig Error. [49]"));
    other.Uninit();
}

TEST_F(DeviceTest, TransferReportsRefusedLoginsAndChannelsAndIgnoresUnknownDevices) {
    config.refusedChannels = {1003};
    ASSERT_TRUE(StartDevice());
    Tal::Base::CLogCapture log;
    {
        BroadCastPlugin::CSDKTransfer unknown;
        EXPECT_TRUE(unknown.Init({999, BroadCastPlugin::kEncodeG711U, {{"a", 1}}}));
        EXPECT_TRUE(unknown.SendVoice(reinterpret_cast<const uint8_t*>("0123456789"), 10));
        EXPECT_TRUE(log.Contains("Send voice failed. handle is -1."));
    }
    {
        Register(71, "wrong");
        BroadCastPlugin::CSDKTransfer transfer;
        EXPECT_FALSE(transfer.Init({71, BroadCastPlugin::kEncodeG711U, {{"a", 1}}}));
        const auto error = Tal::Base::Error::GetLastError();
        EXPECT_EQ(error.GetSubSystemErrorCode(), 2);
        EXPECT_EQ(error.GetMainErrorCode(), 1);
        EXPECT_EQ(error.GetSubErrorCode(), DEVNET_PASSWORD_ERROR);
        EXPECT_TRUE(log.Contains("Login failed!, [SubSystem: 2],[MainError: 1],[SubError: 1]"));
    }
    {
        Register(72, config.password);
        BroadCastPlugin::CSDKTransfer transfer;
        // The first channel opens, the second is refused: everything opened is closed again.
        EXPECT_FALSE(transfer.Init({72, BroadCastPlugin::kEncodeG711U, {{"a", 1001}, {"b", 1003}}}));
        const auto error = Tal::Base::Error::GetLastError();
        EXPECT_EQ(error.GetSubSystemErrorCode(), 2);
        EXPECT_EQ(error.GetMainErrorCode(), 1);
        EXPECT_EQ(error.GetSubErrorCode(), DEVNET_CHANNEL_ERROR);
        EXPECT_TRUE(log.Contains("DEVNET_StartVoiceTalk error, 4!"));
        EXPECT_EQ(device.Stats().talksActive, 0);
    }
}

TEST_F(DeviceTest, ManagerPacesAFileToTheDeviceGroup) {
    ASSERT_TRUE(StartDevice());
    const std::string tone = MuLawTone(directory, 1.0);
    ASSERT_EQ(tone.size(), 8000u);
    Register(81, config.password);
    BroadCastPlugin::CVoiceTransferManager manager;
    std::vector<BroadCastPlugin::IPSpeakerNotifyParam> results;
    manager.SetResultCallback(
        [&](const BroadCastPlugin::IPSpeakerNotifyParam& param) { results.push_back(param); });
    manager.SetFrameInterval(40);
    EXPECT_TRUE(manager.StartSendToSDK({{81, BroadCastPlugin::kEncodeG711U, {{"a", 1}}}}));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].elementID, 81);
    EXPECT_EQ(results[0].speakerStatus, 1);
    for (size_t offset = 0; offset < tone.size(); offset += 320) {
        manager.SendData(reinterpret_cast<const uint8_t*>(tone.data() + offset), 320);
    }
    manager.SetInputFinished();
    manager.WaitTransferFinish();
    manager.StopTransfer();
    const auto stats = device.Stats();
    EXPECT_EQ(stats.channels.at(1).bytes, 8000u);
    EXPECT_EQ(stats.talksActive, 0) << "StopTransfer closes the device talk";
    SoxStat stat;
    ASSERT_TRUE(RunSoxStat({stats.channels.at(1).recordingPath}, stat));
    EXPECT_NEAR(stat.roughFrequency, 1000.0, 50.0);  // sox estimates coarsely (975 for 1 kHz)
}
