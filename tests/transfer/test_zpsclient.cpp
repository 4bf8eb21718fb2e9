// The streaming client library and the streaming-server transport against GStreamer's ONVIF RTSP server: what
// goes up the backchannel must arrive byte for byte, the downstream tone must come back, faults must end with
// an error and no hang.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "BroadCastPlugin/logical/VoiceTransfer/ZPS/ZPSTransfer.h"
#include "RtspServerPeer.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/media/zpsclient/ZPSClient.h"

using namespace TransferTest;
using namespace std::chrono_literals;

namespace {

/// Random bytes in frames of `frameSize`: any byte pattern must survive the trip unchanged.
std::vector<std::string> RandomFrames(int count, int frameSize, unsigned start) {
    std::mt19937 random(start);
    std::vector<std::string> frames;
    for (int i = 0; i < count; ++i) {
        std::string frame(static_cast<size_t>(frameSize), '\0');
        for (auto& byte : frame) {
            byte = static_cast<char>(random() & 0xFF);
        }
        frames.push_back(frame);
    }
    return frames;
}

std::string Join(const std::vector<std::string>& frames) {
    std::string all;
    for (const auto& frame : frames) {
        all += frame;
    }
    return all;
}

/// Waits until the file at `path` holds at least `size` bytes.
bool WaitForFileSize(const std::string& path, size_t size, std::chrono::seconds timeout) {
    const auto limit = std::chrono::steady_clock::now() + timeout;
    while (ReadFile(path).size() < size) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        std::this_thread::sleep_for(20ms);
    }
    return true;
}

/// Collects what the data callback delivers.
struct Received {
    std::mutex mutex;
    std::string bytes;
    int calls = 0;

    static int Callback(int, void* user, int dataType, const unsigned char* data, unsigned int size) {
        auto* self = static_cast<Received*>(user);
        std::lock_guard<std::mutex> lock(self->mutex);
        if (dataType == ZPS_DATA_AUDIO) {
            self->bytes.append(reinterpret_cast<const char*>(data), size);
            ++self->calls;
        }
        return 0;
    }
    size_t Size() {
        std::lock_guard<std::mutex> lock(mutex);
        return bytes.size();
    }
    bool WaitFor(size_t size, std::chrono::seconds timeout) {
        const auto limit = std::chrono::steady_clock::now() + timeout;
        while (Size() < size) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::sleep_for(20ms);
        }
        return true;
    }
};

/// MP3 frames (48 kHz mono, 1152 samples each) made by ffmpeg's LAME encoder, split at their headers.
bool MakeMp3Frames(const std::string& directory, std::vector<std::string>& frames, int seconds = 1,
                   const char* bitRate = "64k") {
    const std::string path = directory + "/tone.mp3";
    if (!RunTool({"/usr/bin/ffmpeg",
                  "-v",
                  "error",
                  "-y",
                  "-f",
                  "lavfi",
                  "-i",
                  "sine=frequency=440:duration=" + std::to_string(seconds) + ":sample_rate=48000",
                  "-ac",
                  "1",
                  "-c:a",
                  "libmp3lame",
                  "-b:a",
                  bitRate,
                  "-write_xing",
                  "0",
                  "-id3v2_version",
                  "0",
                  "-f",
                  "mp3",
                  path})) {
        return false;
    }
    const std::string data = ReadFile(path);
    static const int kBitrates[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
    size_t at = 0;
    while (at + 4 <= data.size()) {
        const auto* header = reinterpret_cast<const uint8_t*>(data.data() + at);
        if (header[0] != 0xFF || (header[1] & 0xFE) != 0xFA) {  // MPEG-1 layer III
            return false;
        }
        const int bitrate = kBitrates[header[2] >> 4];
        const int padding = (header[2] >> 1) & 1;
        const size_t length = static_cast<size_t>(144 * bitrate * 1000 / 48000 + padding);
        if (bitrate == 0 || at + length > data.size()) {
            break;
        }
        frames.push_back(data.substr(at, length));
        at += length;
    }
    return frames.size() > 10;
}

class ZPSClientTest : public ::testing::Test {
protected:
    ::testing::AssertionResult StartServer(const CRtspServerPeer::Options& options = {}) {
        std::string error;
        if (!server.Start(options, error)) {
            return ::testing::AssertionFailure() << error;
        }
        return ::testing::AssertionSuccess();
    }

    int NewSession(const std::string& params = std::string()) {
        const int session = ZPSClient_CreateSession();
        EXPECT_GE(session, 0);
        EXPECT_EQ(ZPSClient_SetRtspTimeout(session, 6), 0);
        if (!params.empty()) {
            EXPECT_EQ(ZPSClient_SetSessionParams(session, params.c_str(), static_cast<int>(params.size())),
                      0);
        }
        return session;
    }

    int Start(int session, const std::string& mount, const char* user = "username",
              const char* password = "password") {
        return ZPSClient_StartVoiceTalk(session, server.Url(mount).c_str(), "ZPSClient", 36864, user,
                                        password);
    }

    /// Sends the frames, stops, and returns what the server wrote for this talk's backchannel. `heldBack`
    /// bytes may stay in the sender until the stop drains it (a packetiser that waits for the next frame).
    std::string TalkAndCollect(int session, const std::string& mount, const std::vector<std::string>& frames,
                               size_t heldBack = 0) {
        std::string file;
        EXPECT_TRUE(server.WaitForBackchannel(mount, file, 10s));
        for (const auto& frame : frames) {
            EXPECT_EQ(ZPSClient_SendVoiceData(session, reinterpret_cast<const unsigned char*>(frame.data()),
                                              static_cast<int>(frame.size())),
                      0)
                << "error " << ZPSClient_GetLastError();
        }
        // The server holds the audio in its jitter buffer for a moment: stop once it has written all of it.
        EXPECT_TRUE(WaitForFileSize(file, Join(frames).size() - heldBack, 10s));
        EXPECT_EQ(ZPSClient_Stop(session), 0);
        EXPECT_EQ(ZPSClient_DestroySession(session), 0);
        EXPECT_TRUE(server.WaitForMediaDone(file, 10s));
        return ReadFile(file);
    }

    CRtspServerPeer server;
};

}  // namespace

TEST_F(ZPSClientTest, TalkOnlyDeliversEveryByteUpTheBackchannelAndCarriesTheToken) {
    ASSERT_TRUE(StartServer({"", "", "tok-42"}));
    const int session = NewSession("{\"token\":\"tok-42\"}");
    ASSERT_EQ(Start(session, "/talk"), 0) << "error " << ZPSClient_GetLastError();
    ZPSClient_AudioInfo info{};
    EXPECT_EQ(ZPSClient_GetAudioInfo(session, &info), -1) << "a talk-only stream has no downstream audio";
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_NO_AUDIO_INFO));

    const auto frames = RandomFrames(100, 320, 1);
    const std::string arrived = TalkAndCollect(session, "/talk", frames);
    EXPECT_EQ(arrived.size(), 32000u);
    EXPECT_TRUE(arrived == Join(frames)) << "the backchannel content differs from what was sent";

    const auto tokens = server.RequestTokens();
    ASSERT_GE(tokens.size(), 4u);  // OPTIONS, DESCRIBE, SETUP, PLAY at least
    for (const auto& token : tokens) {
        EXPECT_EQ(token, "tok-42");
    }
}

TEST_F(ZPSClientTest, ListenOnlyFallsBackWithoutBackchannelAndDeliversTheTone) {
    ASSERT_TRUE(StartServer());
    Received received;
    const int session = NewSession();
    ASSERT_EQ(ZPSClient_SetDataCallBack(session, &Received::Callback, &received), 0);
    ASSERT_EQ(Start(session, "/listen"), 0) << "error " << ZPSClient_GetLastError();

    ZPSClient_AudioInfo info{};
    ASSERT_EQ(ZPSClient_GetAudioInfo(session, &info), 0);
    EXPECT_EQ(info.codec, static_cast<uint32_t>(ZPS_CODEC_G711U));
    EXPECT_EQ(info.sampleRate, 8000u);
    EXPECT_EQ(info.channels, 1u);
    EXPECT_EQ(info.bitsPerSample, 16u);
    EXPECT_EQ(info.bitRate, 64000u);

    const unsigned char frame[320] = {};
    EXPECT_EQ(ZPSClient_SendVoiceData(session, frame, sizeof(frame)), -1);
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_NO_BACKCHANNEL));

    ASSERT_TRUE(received.WaitFor(16000, 15s)) << "only " << received.Size() << " bytes of the tone arrived";
    EXPECT_EQ(ZPSClient_Stop(session), 0);
    EXPECT_EQ(ZPSClient_DestroySession(session), 0);
    const int callsAfterStop = received.calls;
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(received.calls, callsAfterStop) << "the callback ran after the session was destroyed";

    const std::string path = server.Directory() + "/heard.ul";
    std::ofstream(path, std::ios::binary) << received.bytes;
    SoxStat stat;
    ASSERT_TRUE(RunSoxStat({"-t", "ul", "-r", "8000", "-c", "1", path}, stat));
    EXPECT_NEAR(stat.roughFrequency, 1000.0, 50.0);  // sox estimates coarsely (975 for 1 kHz)
    EXPECT_GT(stat.rmsAmplitude, 0.2);
}

TEST_F(ZPSClientTest, TwoWayTalkSendsAndReceivesInOneSession) {
    ASSERT_TRUE(StartServer());
    Received received;
    const int session = NewSession();
    ASSERT_EQ(ZPSClient_SetDataCallBack(session, &Received::Callback, &received), 0);
    ASSERT_EQ(Start(session, "/both"), 0) << "error " << ZPSClient_GetLastError();
    ASSERT_TRUE(received.WaitFor(8000, 15s));
    ZPSClient_AudioInfo info{};
    ASSERT_EQ(ZPSClient_GetAudioInfo(session, &info), 0);
    EXPECT_EQ(info.codec, static_cast<uint32_t>(ZPS_CODEC_G711U));

    const auto frames = RandomFrames(60, 320, 2);
    const std::string arrived = TalkAndCollect(session, "/both", frames);
    EXPECT_TRUE(arrived == Join(frames))
        << "sent " << frames.size() * 320 << " bytes, " << arrived.size() << " arrived";
}

TEST_F(ZPSClientTest, Mp3FramesGoUpTheBackchannelUnchanged) {
    ASSERT_TRUE(StartServer());
    // One second at 64 kbit/s, and four at 192 kbit/s: twice the 36864-byte send buffer and more, handed over
    // at once as the streaming group's first hundred frames are.
    for (const auto& length : {std::pair<int, const char*>{1, "64k"}, {4, "192k"}}) {
        SCOPED_TRACE(length.second);
        std::vector<std::string> frames;
        ASSERT_TRUE(MakeMp3Frames(server.Directory(), frames, length.first, length.second))
            << "ffmpeg with libmp3lame is needed";
        ASSERT_GT(Join(frames).size(), length.first == 4 ? 2u * 36864u : 0u);
        const int session = NewSession();
        ASSERT_EQ(Start(session, "/talk-mp3"), 0) << "error " << ZPSClient_GetLastError();
        // The MPEG audio packetiser sends a frame when the next one comes; the stop drains the last one.
        const std::string arrived = TalkAndCollect(session, "/talk-mp3", frames, frames.back().size());
        EXPECT_TRUE(arrived == Join(frames))
            << "sent " << Join(frames).size() << " bytes, " << arrived.size() << " arrived";
    }
}

TEST_F(ZPSClientTest, TalkOverUdpOutlivesTheUdpTimeOut) {
    // rtspsrc tears a UDP session down after 5 s without incoming data; a talk-only stream never receives
    // any.
    ASSERT_TRUE(StartServer());
    const int session = NewSession("{\"transport\":\"udp\"}");
    ASSERT_EQ(Start(session, "/talk"), 0) << "error " << ZPSClient_GetLastError();
    std::string file;
    ASSERT_TRUE(server.WaitForBackchannel("/talk", file, 10s));
    const auto frames = RandomFrames(165, 320, 3);  // 6.6 s of audio, sent in real time
    const auto start = std::chrono::steady_clock::now();
    for (size_t i = 0; i < frames.size(); ++i) {
        std::this_thread::sleep_until(start + 40ms * i);
        ASSERT_EQ(
            ZPSClient_SendVoiceData(session, reinterpret_cast<const unsigned char*>(frames[i].data()), 320),
            0)
            << "frame " << i << " error " << ZPSClient_GetLastError();
    }
    EXPECT_TRUE(WaitForFileSize(file, Join(frames).size(), 10s));
    EXPECT_EQ(ZPSClient_Stop(session), 0);
    EXPECT_EQ(ZPSClient_DestroySession(session), 0);
    ASSERT_TRUE(server.WaitForMediaDone(file, 10s));
    // UDP on loopback loses nothing here; a loss would show as a shorter file.
    EXPECT_TRUE(ReadFile(file) == Join(frames));
}

TEST_F(ZPSClientTest, KeepAlivesCarryTheTokenAndHoldATalkPastTheSessionTimeOut) {
    // Servers that end a session without an accepted request for 3 s, whatever media flows. Each case has its
    // own: the test server's GStreamer may abort after it ends a session under a flowing stream.
    CRtspServerPeer::Options options;
    options.token = "tok-7";
    options.sessionTimeoutSeconds = 3;
    ASSERT_TRUE(StartServer(options));
    CRtspServerPeer strict;
    std::string error;
    ASSERT_TRUE(strict.Start(options, error)) << error;
    auto talkInRealTime = [&](int session, int frames, int pattern) {
        const auto audio = RandomFrames(frames, 320, static_cast<unsigned>(pattern));
        const auto start = std::chrono::steady_clock::now();
        int failedAt = -1;
        for (size_t i = 0; i < audio.size() && failedAt < 0; ++i) {
            std::this_thread::sleep_until(start + 40ms * i);
            if (ZPSClient_SendVoiceData(session, reinterpret_cast<const unsigned char*>(audio[i].data()),
                                        320) != 0) {
                failedAt = static_cast<int>(i);
            }
        }
        return std::make_pair(Join(audio), failedAt);
    };
    {
        SCOPED_TRACE("keep-alives inside the time-out: the talk outlives it whole");
        const int session = NewSession(R"({"token":"tok-7","keepalive":1})");
        ASSERT_EQ(Start(session, "/talk"), 0) << "error " << ZPSClient_GetLastError();
        std::string file;
        ASSERT_TRUE(server.WaitForBackchannel("/talk", file, 10s));
        const auto sent = talkInRealTime(session, 200, 6);  // 8 s, more than twice the time-out
        EXPECT_EQ(sent.second, -1) << "a send failed";
        EXPECT_TRUE(WaitForFileSize(file, sent.first.size(), 10s));
        EXPECT_EQ(ZPSClient_Stop(session), 0);
        EXPECT_EQ(ZPSClient_DestroySession(session), 0);
        ASSERT_TRUE(server.WaitForMediaDone(file, 10s));
        EXPECT_TRUE(ReadFile(file) == sent.first);
        EXPECT_EQ(server.ExpiredSessions(), 0);
        int keepAlives = 0;
        for (const auto& request : server.Requests()) {
            EXPECT_EQ(request.token, "tok-7") << request.method << " went without the token";
            keepAlives += request.method == "GET_PARAMETER" ? 1 : 0;
        }
        EXPECT_GE(keepAlives, 6) << "one a second during the 8 s talk";
    }
    {
        SCOPED_TRACE("keep-alives sparser than the time-out: the server ends the talk");
        const int session = NewSession(R"({"token":"tok-7","keepalive":30})");
        const std::string url = strict.Url("/talk");
        ASSERT_EQ(ZPSClient_StartVoiceTalk(session, url.c_str(), "ZPSClient", 36864, "username", "password"),
                  0)
            << "error " << ZPSClient_GetLastError();
        const auto sent = talkInRealTime(session, 200, 5);  // 8 s
        EXPECT_GE(sent.second, 0) << "sending goes on after the server ended the session";
        EXPECT_EQ(strict.ExpiredSessions(), 1);
        ZPSClient_Stop(session);
        ZPSClient_DestroySession(session);
    }
    const int session = ZPSClient_CreateSession();
    for (const char* bad : {R"({"keepalive":0})", R"({"keepalive":301})", R"({"keepalive":"5"})"}) {
        EXPECT_NE(ZPSClient_SetSessionParams(session, bad, static_cast<int>(std::strlen(bad))), 0) << bad;
    }
    ZPSClient_DestroySession(session);
}

TEST_F(ZPSClientTest, RefusalsAndDeadServersEndWithAnError) {
    {
        // A missing token.
        CRtspServerPeer tokenServer;
        std::string error;
        ASSERT_TRUE(tokenServer.Start({"", "", "tok-1"}, error)) << error;
        const int session = NewSession();
        EXPECT_EQ(ZPSClient_StartVoiceTalk(session, tokenServer.Url("/talk").c_str(), "ZPSClient", 36864,
                                           "username", "password"),
                  -1);
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_AUTH));
        ZPSClient_DestroySession(session);
    }
    ASSERT_TRUE(StartServer({"alice", "secret", ""}));
    {
        const int session = NewSession();
        EXPECT_EQ(Start(session, "/talk", "alice", "wrong"), -1);
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_AUTH));
        ZPSClient_DestroySession(session);
    }
    {
        const int session = NewSession();
        EXPECT_EQ(Start(session, "/nothing-here", "alice", "secret"), -1);
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_NOT_FOUND));
        ZPSClient_DestroySession(session);
    }
    {
        // The right password works on the same server.
        const int session = NewSession();
        ASSERT_EQ(Start(session, "/talk", "alice", "secret"), 0) << "error " << ZPSClient_GetLastError();
        const auto frames = RandomFrames(10, 320, 4);
        EXPECT_TRUE(TalkAndCollect(session, "/talk", frames) == Join(frames));
    }
    {
        // Nothing listens on the port any more.
        const int port = server.Port();
        server.Kill();
        const int session = NewSession();
        const std::string url = "rtsp://127.0.0.1:" + std::to_string(port) + "/talk";
        EXPECT_EQ(ZPSClient_StartVoiceTalk(session, url.c_str(), "ZPSClient", 36864, "alice", "secret"), -1);
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_CONNECT));
        ZPSClient_DestroySession(session);
    }
}

TEST_F(ZPSClientTest, ServerKilledMidTalkFailsTheSendsAndStopsPromptly) {
    // Talk-only and two-way: rtspsrc notices the loss on different paths (a warning about the closed
    // connection, a failed write, a failed read of the downstream track).
    for (const std::string mount : {"/talk", "/both"}) {
        SCOPED_TRACE(mount);
        CRtspServerPeer peer;
        std::string error;
        ASSERT_TRUE(peer.Start({}, error)) << error;
        const int session = NewSession();
        ASSERT_EQ(ZPSClient_StartVoiceTalk(session, peer.Url(mount).c_str(), "ZPSClient", 36864, "u", "p"),
                  0);
        const auto frames = RandomFrames(20, 320, 5);
        for (const auto& frame : frames) {
            ASSERT_EQ(
                ZPSClient_SendVoiceData(session, reinterpret_cast<const unsigned char*>(frame.data()), 320),
                0);
        }
        peer.Kill();
        // Sending goes on in real time until the session notices the loss (bounded: 15 s of audio).
        bool failed = false;
        for (int i = 0; i < 375 && !failed; ++i) {
            std::this_thread::sleep_for(40ms);
            failed = ZPSClient_SendVoiceData(
                         session, reinterpret_cast<const unsigned char*>(frames[0].data()), 320) != 0;
        }
        EXPECT_TRUE(failed) << "sending to a dead server never failed";
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_STREAM));
        EXPECT_EQ(ZPSClient_Stop(session), 0);
        EXPECT_EQ(ZPSClient_DestroySession(session), 0);
    }
}

TEST_F(ZPSClientTest, HangingServersEndInTheRtspTimeOut) {
    {
        // A server that accepts the connection and never answers.
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(listen(listener, 4), 0);
        socklen_t length = sizeof(address);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        const std::string url = "rtsp://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/talk";
        const int session = ZPSClient_CreateSession();
        ASSERT_EQ(ZPSClient_SetRtspTimeout(session, 2), 0);
        EXPECT_EQ(ZPSClient_StartVoiceTalk(session, url.c_str(), "ZPSClient", 36864, "u", "p"), -1);
        EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_TIMEOUT));
        EXPECT_EQ(ZPSClient_DestroySession(session), 0);
        close(listener);
    }
    {
        // A server that stops mid-talk: sending and stopping still return.
        ASSERT_TRUE(StartServer());
        const int session = NewSession();
        ASSERT_EQ(Start(session, "/talk"), 0);
        server.Freeze();
        const auto frames = RandomFrames(10, 320, 7);
        for (const auto& frame : frames) {
            ZPSClient_SendVoiceData(session, reinterpret_cast<const unsigned char*>(frame.data()), 320);
        }
        EXPECT_EQ(ZPSClient_Stop(session), 0);
        EXPECT_EQ(ZPSClient_DestroySession(session), 0);
        server.Thaw();
    }
}

TEST_F(ZPSClientTest, ApiRejectsBadArgumentsAndUnknownSessions) {
    EXPECT_EQ(ZPSClient_SendVoiceData(987654, nullptr, 0), -1);
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_INVALID_SESSION));
    const int session = ZPSClient_CreateSession();
    ASSERT_GE(session, 0);
    EXPECT_EQ(ZPSClient_SetRtspTimeout(session, 0), -1);
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_INVALID_PARAM));
    const std::string broken = "{\"token\":\"a\"b\"}";  // a token with a quote, concatenated unescaped
    EXPECT_EQ(ZPSClient_SetSessionParams(session, broken.c_str(), static_cast<int>(broken.size())), -1);
    EXPECT_EQ(ZPSClient_StartVoiceTalk(session, "http://127.0.0.1/x", "ZPSClient", 36864, "", ""), -1);
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_INVALID_PARAM));
    const unsigned char frame[4] = {};
    EXPECT_EQ(ZPSClient_SendVoiceData(session, frame, 4), -1);
    EXPECT_EQ(ZPSClient_GetLastError(), static_cast<unsigned>(ZPS_ERR_STATE));
    EXPECT_EQ(ZPSClient_Stop(session), 0) << "stopping an idle session is harmless";
    EXPECT_EQ(ZPSClient_DestroySession(session), 0);
    EXPECT_EQ(ZPSClient_DestroySession(session), -1);
    EXPECT_EQ(ZPSClient_FiniLib(), -1) << "no reference to release";
    EXPECT_EQ(ZPSClient_InitLib(), 0);
    EXPECT_EQ(ZPSClient_FiniLib(), 0);
}

TEST(ZPSTransfer, RtspTimeoutFollowsTheNetworkLevel) {
    EXPECT_EQ(BroadCastPlugin::RtspTimeoutForNetLevel(0), 6);
    EXPECT_EQ(BroadCastPlugin::RtspTimeoutForNetLevel(1), 9);
    EXPECT_EQ(BroadCastPlugin::RtspTimeoutForNetLevel(2), 12);
    EXPECT_EQ(BroadCastPlugin::RtspTimeoutForNetLevel(7), 6);
    EXPECT_EQ(BroadCastPlugin::RtspTimeoutForNetLevel(-1), 6);
}

TEST(ZPSTransfer, AudioInformationMapsCodecsAndRateDefaults) {
    using BroadCastPlugin::ZPSAudioParam;
    struct Case {
        uint32_t codec;
        uint32_t rate;
        int32_t encodeType;
        int32_t sampleRate;
    };
    const Case cases[] = {
        {0xC001, 0, 1, 8000},       {0xC001, 16000, 1, 16000}, {0xC002, 0, 2, 0}, {0xC003, 0, 0, 16000},
        {0xC004, 8000, 6, 8000},    {0xC005, 0, 7, 0},         {0xC006, 0, 5, 0}, {0xC007, 0, 8, 0},
        {0xC013, 48000, 15, 48000}, {0x1234, 0, 99, 0},
    };
    for (const auto& c : cases) {
        ZPSClient_AudioInfo info{};
        info.codec = c.codec;
        info.sampleRate = c.rate;
        info.channels = 1;
        info.bitsPerSample = 16;
        info.bitRate = 64000;
        ZPSAudioParam param;
        param.encodeType = 99;  // an unknown codec leaves it as it was
        BroadCastPlugin::FillAudioParamFromInfo(info, param);
        EXPECT_EQ(param.encodeType, c.encodeType) << std::hex << c.codec;
        EXPECT_EQ(param.sampleRate, c.sampleRate) << std::hex << c.codec;
        EXPECT_EQ(param.channels, 1);
        EXPECT_EQ(param.bitsPerSample, 16);
        EXPECT_EQ(param.bitRate, 64000);
    }
}

TEST_F(ZPSClientTest, TransferSendsTheTokenOnlyWhenItHasOneAndReportsFailures) {
    ASSERT_TRUE(StartServer());
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetNetOverTime(7);
    Tal::Base::CLogCapture log;
    {
        BroadCastPlugin::CZPSTransfer transfer;
        ASSERT_TRUE(transfer.Init(""));
        ASSERT_TRUE(transfer.StartVoiceTalk(server.Url("/talk"), "username", "password"));
        std::string file;
        ASSERT_TRUE(server.WaitForBackchannel("/talk", file, 10s));
        const auto frames = RandomFrames(25, 320, 6);
        for (const auto& frame : frames) {
            EXPECT_TRUE(transfer.SendVoice(reinterpret_cast<const uint8_t*>(frame.data()), 320));
        }
        EXPECT_TRUE(WaitForFileSize(file, Join(frames).size(), 10s));
        transfer.Uninit();
        ASSERT_TRUE(server.WaitForMediaDone(file, 10s));
        EXPECT_TRUE(ReadFile(file) == Join(frames));
    }
    for (const auto& token : server.RequestTokens()) {
        EXPECT_EQ(token, "-") << "an empty token must not be sent";
    }
    EXPECT_TRUE(log.Contains("Succ ZPSClient_StartVoiceTalk, url: " + server.Url("/talk")));
    EXPECT_TRUE(log.Contains("Finish Init zps."));

    {
        BroadCastPlugin::CZPSTransfer transfer;
        ASSERT_TRUE(transfer.Init("abc"));
        ASSERT_TRUE(transfer.StartVoiceTalk(server.Url("/listen"), "username", "password"));
        EXPECT_EQ(server.RequestTokens().back(), "abc");
        BroadCastPlugin::ZPSAudioParam param;
        ASSERT_TRUE(transfer.GetZPSAudioParam(param));
        EXPECT_EQ(param.encodeType, BroadCastPlugin::kEncodeG711U);
        EXPECT_EQ(param.sampleRate, 8000);
        // A listen-only stream cannot take audio: the failure is logged and reported.
        const uint8_t frame[320] = {};
        EXPECT_FALSE(transfer.SendVoice(frame, sizeof(frame)));
        EXPECT_TRUE(log.Contains("Failed to ZPSClient_SendVoiceData, error_code=: 9"));
        const auto error = Tal::Base::Error::GetLastError();
        EXPECT_EQ(error.GetMainErrorCode(), 25);
        EXPECT_EQ(error.GetSubErrorCode(), 100860);
    }
    {
        BroadCastPlugin::CZPSTransfer transfer;
        ASSERT_TRUE(transfer.Init(""));
        EXPECT_FALSE(transfer.StartVoiceTalk(server.Url("/missing"), "username", "password"));
        EXPECT_TRUE(log.Contains("Failed to ZPSClient_StartVoiceTalk, url: " + server.Url("/missing")));
        const auto error = Tal::Base::Error::GetLastError();
        EXPECT_EQ(error.GetMainErrorCode(), 61);
        EXPECT_EQ(error.GetSubErrorCode(), ZPS_ERR_NOT_FOUND);
    }
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetNetOverTime(0);
}

TEST_F(ZPSClientTest, ManagerListensThroughTheStreamingServer) {
    ASSERT_TRUE(StartServer());
    BroadCastPlugin::CVoiceTransferManager manager;
    std::mutex mutex;
    std::string heard;
    ASSERT_TRUE(manager.StartListenFromZPS(
        {"", server.Url("/listen"), "username", "password"}, [&](const uint8_t* data, int32_t size) {
            std::lock_guard<std::mutex> lock(mutex);
            heard.append(reinterpret_cast<const char*>(data), static_cast<size_t>(size));
        }));
    BroadCastPlugin::ZPSAudioParam param;
    ASSERT_TRUE(manager.GetListenAudioParam(param));
    EXPECT_EQ(param.encodeType, BroadCastPlugin::kEncodeG711U);
    const auto limit = std::chrono::steady_clock::now() + 15s;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (heard.size() >= 8000) {
                break;
            }
        }
        ASSERT_LT(std::chrono::steady_clock::now(), limit) << "no audio reached the listening callback";
        std::this_thread::sleep_for(20ms);
    }
    manager.StopTransfer();
    EXPECT_TRUE(manager.GetListenAudioParam(param)) << "StopTransfer must leave the listening session open";
    manager.StopListenFromZPS();
    EXPECT_FALSE(manager.GetListenAudioParam(param));
}

TEST_F(ZPSClientTest, ManagerBroadcastsAFileThroughTheStreamingServer) {
    ASSERT_TRUE(StartServer({"", "", "tok-9"}));
    BroadCastPlugin::CVoiceTransferManager manager;
    manager.SetFrameInterval(40);
    ASSERT_TRUE(manager.StartSendToZPS({{"tok-9", server.Url("/talk"), "username", "password"}}));
    std::string file;
    ASSERT_TRUE(server.WaitForBackchannel("/talk", file, 10s));
    // Fewer than 100 frames: one burst, then the manager waits their playing time (2 s) before finishing,
    // which is what lets the server play the last of them.
    const auto frames = RandomFrames(50, 320, 8);
    for (const auto& frame : frames) {
        manager.SendData(reinterpret_cast<const uint8_t*>(frame.data()), 320);
    }
    manager.SetInputFinished();
    manager.WaitTransferFinish();
    manager.StopTransfer();
    ASSERT_TRUE(server.WaitForMediaDone(file, 10s));
    EXPECT_TRUE(ReadFile(file) == Join(frames));
}
