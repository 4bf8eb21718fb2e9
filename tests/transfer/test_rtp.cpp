// RTP packing byte by byte, and the UDP transport against a receiving socket of the test.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/UDP/Rtp.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpTransfer.h"
#include "RtspServerPeer.h"
#include "framework/base/FormatLog.h"
#include "framework/netcomm/NetCommManager.h"

using namespace BroadCastPlugin;
using namespace std::chrono_literals;

namespace {

struct Header {
    int version = 0;
    bool marker = false;
    int payloadType = -1;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint8_t ssrcBytes[4] = {};
};

/// RFC 3550 fixed header, read independently of the sender's code.
Header Parse(const uint8_t* packet) {
    Header header;
    header.version = packet[0] >> 6;
    header.marker = (packet[1] & 0x80) != 0;
    header.payloadType = packet[1] & 0x7F;
    header.sequence = static_cast<uint16_t>(packet[2] << 8 | packet[3]);
    header.timestamp = static_cast<uint32_t>(packet[4]) << 24 | static_cast<uint32_t>(packet[5]) << 16 |
                       static_cast<uint32_t>(packet[6]) << 8 | packet[7];
    std::memcpy(header.ssrcBytes, packet + 8, 4);
    return header;
}

std::vector<uint8_t> Frame(size_t size, uint8_t first) {
    std::vector<uint8_t> frame(size);
    for (size_t i = 0; i < size; ++i) {
        frame[i] = static_cast<uint8_t>(first + i * 3);
    }
    return frame;
}

/// A UDP socket of the test on 127.0.0.1 (port 0: any free port), or a member of multicast `group` that
/// joined it on loopback.
class CReceiver {
public:
    explicit CReceiver(uint16_t port = 0, const char* group = nullptr) {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        int on = 1;
        setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        if (group != nullptr) {
            ip_mreqn membership{};
            inet_pton(AF_INET, group, &membership.imr_multiaddr);
            membership.imr_address.s_addr = htonl(INADDR_LOOPBACK);
            joined_ = setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) == 0;
            address.sin_addr = membership.imr_multiaddr;
        }
        bound_ = bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        socklen_t length = sizeof(address);
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
    }
    ~CReceiver() { close(fd_); }
    bool Bound() const { return bound_; }
    bool Joined() const { return joined_; }
    uint16_t Port() const { return port_; }
    /// Next datagram, or empty after `timeout`.
    std::vector<uint8_t> Receive(std::chrono::milliseconds timeout = 2000ms) {
        pollfd descriptor{fd_, POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(timeout.count())) <= 0) {
            return {};
        }
        std::vector<uint8_t> datagram(65536);
        const ssize_t size = recv(fd_, datagram.data(), datagram.size(), 0);
        datagram.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return datagram;
    }

private:
    int fd_ = -1;
    bool bound_ = false;
    bool joined_ = false;
    uint16_t port_ = 0;
};

}  // namespace

TEST(RtpPacking, HeaderCarriesVersionMarkerSequenceTimestampAndHostOrderSsrc) {
    RtpSenderState state;
    rtp_init(&state, 0);
    EXPECT_EQ(state.sequence, 0);
    EXPECT_EQ(state.timestamp, 0u);
    EXPECT_EQ(state.payloadType, 0);

    uint8_t packet[kRtpPacketBufferSize] = {};
    const auto first = Frame(320, 1);
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), first.data(), 320), 332);
    EXPECT_EQ(packet[0], 0x80);
    EXPECT_EQ(packet[1], 0x80) << "marker on the first packet, payload type 0";
    Header header = Parse(packet);
    EXPECT_EQ(header.version, 2);
    EXPECT_EQ(header.sequence, 0);
    EXPECT_EQ(header.timestamp, 0u);
    // The SSRC lies in memory order (least significant byte first on this machine), not in network order.
    const uint8_t expectedSsrc[4] = {static_cast<uint8_t>(state.ssrc), static_cast<uint8_t>(state.ssrc >> 8),
                                     static_cast<uint8_t>(state.ssrc >> 16),
                                     static_cast<uint8_t>(state.ssrc >> 24)};
    EXPECT_EQ(std::memcmp(header.ssrcBytes, expectedSsrc, 4), 0);
    EXPECT_EQ(std::memcmp(packet + 12, first.data(), 320), 0);

    const auto second = Frame(320, 2);
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), second.data(), 320), 332);
    header = Parse(packet);
    EXPECT_FALSE(header.marker);
    EXPECT_EQ(packet[1], 0x00);
    EXPECT_EQ(header.sequence, 1);
    EXPECT_EQ(header.timestamp, 320u) << "one unit per payload byte";
    EXPECT_EQ(std::memcmp(header.ssrcBytes, expectedSsrc, 4), 0) << "the SSRC stays";

    // A frame of another size advances the time stamp by its size.
    const auto odd = Frame(7, 3);
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), odd.data(), 7), 19);
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), odd.data(), 7), 19);
    EXPECT_EQ(Parse(packet).timestamp, 647u);  // 320 + 320 + 7
}

TEST(RtpPacking, SequenceWrapsAfter65536PacketsAndTheWrappedPacketIsMarkedAgain) {
    RtpSenderState state;
    rtp_init(&state, 8);
    uint8_t packet[kRtpPacketBufferSize];
    const uint8_t byte = 0x55;
    int marked = 0;
    for (int i = 0; i < 65536; ++i) {
        ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), &byte, 1), 13);
        marked += (packet[1] & 0x80) != 0 ? 1 : 0;
    }
    EXPECT_EQ(marked, 1);
    EXPECT_EQ(Parse(packet).sequence, 65535);
    EXPECT_FALSE(Parse(packet).marker);
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), &byte, 1), 13);
    const Header wrapped = Parse(packet);
    EXPECT_EQ(wrapped.sequence, 0);
    EXPECT_TRUE(wrapped.marker);
    EXPECT_EQ(wrapped.payloadType, 8);
    EXPECT_EQ(wrapped.timestamp, 65536u);
}

TEST(RtpPacking, PayloadTypeFollowsTheEncodeTypeAndIsMaskedToSevenBits) {
    EXPECT_EQ(RtpPayloadTypeForEncodeType(kEncodeG722), 9);
    EXPECT_EQ(RtpPayloadTypeForEncodeType(kEncodeG711U), 0);
    EXPECT_EQ(RtpPayloadTypeForEncodeType(kEncodeG711A), 8);
    EXPECT_EQ(RtpPayloadTypeForEncodeType(kEncodeAAC), 9);
    EXPECT_EQ(RtpPayloadTypeForEncodeType(kEncodeMP3), 9);
    EXPECT_EQ(RtpPayloadTypeForEncodeType(-1), 9);

    RtpSenderState state;
    rtp_init(&state, 0xE0);  // 224: the top bit would collide with the marker
    uint8_t packet[64];
    const uint8_t byte = 0;
    ASSERT_EQ(rtp_send_buf(&state, packet, sizeof(packet), &byte, 1), 13);
    EXPECT_EQ(packet[1], 0x80 | 0x60);
}

TEST(RtpPacking, FrameLargerThanThePacketBufferIsRefusedAndTheStreamStaysIntact) {
    RtpSenderState state;
    rtp_init(&state, 0);
    std::vector<uint8_t> packet(kRtpPacketBufferSize + 16, 0xEE);
    const auto largest = Frame(kRtpMaxPayload, 4);
    ASSERT_EQ(rtp_send_buf(&state, packet.data(), kRtpPacketBufferSize, largest.data(), 2036), 2048);

    Tal::Base::CLogCapture log;
    const auto tooLarge = Frame(kRtpMaxPayload + 1, 5);
    EXPECT_EQ(rtp_send_buf(&state, packet.data(), kRtpPacketBufferSize, tooLarge.data(), 2037), -1);
    EXPECT_EQ(packet[kRtpPacketBufferSize], 0xEE) << "nothing may be written past the packet buffer";
    EXPECT_EQ(state.sequence, 1);
    EXPECT_EQ(state.timestamp, 2036u);
    for (int i = 0; i < 100 && !log.Contains("KPR_MEMCPY_S"); ++i) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(log.Contains("KPR_MEMCPY_S"));
}

TEST(UdpTransfer, EachFrameArrivesAsOneRtpDatagram) {
    CReceiver receiver;
    ASSERT_TRUE(receiver.Bound());
    CUdpTransfer transfer;
    ASSERT_TRUE(transfer.Init("127.0.0.1", receiver.Port(), kEncodeG711A));
    std::vector<std::vector<uint8_t>> frames = {Frame(320, 10), Frame(320, 20), Frame(160, 30)};
    for (const auto& frame : frames) {
        EXPECT_TRUE(transfer.SendVoice(frame.data(), static_cast<int32_t>(frame.size())));
    }
    uint32_t expectedTimestamp = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
        const auto datagram = receiver.Receive();
        ASSERT_EQ(datagram.size(), frames[i].size() + 12) << "packet " << i;
        const Header header = Parse(datagram.data());
        EXPECT_EQ(header.payloadType, 8);
        EXPECT_EQ(header.sequence, i);
        EXPECT_EQ(header.marker, i == 0);
        EXPECT_EQ(header.timestamp, expectedTimestamp);
        EXPECT_EQ(std::memcmp(datagram.data() + 12, frames[i].data(), frames[i].size()), 0);
        expectedTimestamp += static_cast<uint32_t>(frames[i].size());
    }
    transfer.Uninit();
}

TEST(UdpTransfer, AMulticastStreamReachesEveryMemberByTheInterfaceTowardThePlatform) {
    EXPECT_TRUE(IsMulticastGroup("224.0.0.0"));
    EXPECT_TRUE(IsMulticastGroup("239.255.255.255"));
    EXPECT_FALSE(IsMulticastGroup("223.255.255.255"));
    EXPECT_FALSE(IsMulticastGroup("240.0.0.1"));
    EXPECT_FALSE(IsMulticastGroup("not-an-address"));

    constexpr const char* kGroup = "239.255.42.9";
    CReceiver first(0, kGroup);
    ASSERT_TRUE(first.Bound() && first.Joined());
    CReceiver second(first.Port(), kGroup);
    ASSERT_TRUE(second.Bound() && second.Joined());
    // The members joined on loopback; the platform is there too, so the stream leaves by it.
    NetworkCommunication::ServerSession session;
    session.host = "127.0.0.1";
    session.port = 1;
    NetworkCommunication::CNetCommManager::Instance()->SetSession(session);
    CUdpTransfer multicast;
    ASSERT_TRUE(multicast.Init(kGroup, first.Port(), kEncodeG711U));
    EXPECT_FALSE(multicast.Batchable()) << "the fan-out's sockets have no multicast route";
    const auto frame = Frame(320, 70);
    EXPECT_TRUE(multicast.SendVoice(frame.data(), 320));
    for (CReceiver* member : {&first, &second}) {
        const auto datagram = member->Receive();
        ASSERT_EQ(datagram.size(), 332u);
        EXPECT_EQ(std::memcmp(datagram.data() + 12, frame.data(), frame.size()), 0);
    }
    NetworkCommunication::CNetCommManager::Instance()->ClearSession();

    CUdpTransfer unicast;
    ASSERT_TRUE(unicast.Init("127.0.0.1", first.Port(), kEncodeG711U));
    EXPECT_TRUE(unicast.Batchable());
}

TEST(UdpTransfer, SendsToAClosedPortAreLostButTheStreamGoesOn) {
    uint16_t port = 0;
    {
        CReceiver probe;
        port = probe.Port();
    }  // nothing listens on the port now
    CUdpTransfer transfer;
    ASSERT_TRUE(transfer.Init("127.0.0.1", port, kEncodeG711U));
    const auto frame = Frame(320, 40);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(transfer.SendVoice(frame.data(), 320));
    }
    CReceiver receiver(port);
    ASSERT_TRUE(receiver.Bound());
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 320));
    const auto datagram = receiver.Receive();
    ASSERT_EQ(datagram.size(), 332u);
    EXPECT_EQ(Parse(datagram.data()).sequence, 3) << "the lost packets still took their sequence numbers";
    EXPECT_EQ(Parse(datagram.data()).timestamp, 960u);
}

TEST(UdpTransfer, FailedSendsAreLoggedAndOversizedFramesRefused) {
    Tal::Base::CLogCapture log;
    CUdpTransfer broken;
    // Not an address: the datagrams go to 255.255.255.255, which the system refuses without SO_BROADCAST.
    EXPECT_TRUE(broken.Init("not-an-address", 5004, kEncodeG711U));
    const auto frame = Frame(320, 50);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(broken.SendVoice(frame.data(), 320));
    }
    for (int i = 0; i < 100 && log.Count("Send data to ipspeaker failed.") < 3; ++i) {
        std::this_thread::sleep_for(10ms);
    }
    // A stream that fails every frame logs its 1st, 2nd and 4th failure, not each one.
    EXPECT_EQ(log.Count("Send data to ipspeaker failed.", 5), 3u);

    CReceiver receiver;
    CUdpTransfer transfer;
    ASSERT_TRUE(transfer.Init("127.0.0.1", receiver.Port(), kEncodeG711U));
    const auto tooLarge = Frame(kRtpMaxPayload + 1, 60);
    EXPECT_FALSE(transfer.SendVoice(tooLarge.data(), static_cast<int32_t>(tooLarge.size())));
    EXPECT_TRUE(receiver.Receive(200ms).empty());
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 320));
    const auto datagram = receiver.Receive();
    ASSERT_EQ(datagram.size(), 332u);
    EXPECT_EQ(Parse(datagram.data()).sequence, 0);
    EXPECT_TRUE(Parse(datagram.data()).marker);

    transfer.Uninit();
    EXPECT_TRUE(transfer.SendVoice(frame.data(), 320)) << "a closed transport only logs";
    EXPECT_TRUE(receiver.Receive(200ms).empty());
}

TEST(RtpTool, ReceiverGetsAGeneratedToneFileAsAContinuousPacedStream) {
    const std::string tool = TransferTest::BinaryDir() + "/bin/bcast-tool";
    const std::string directory = TransferTest::MakeTempDir("rtptool");
    const std::string wav = directory + "/received.wav";
    BcastTest::CBackgroundProcess receiver;
    ASSERT_TRUE(receiver.StartPiped(
        {tool, "rtp-recv", "--port", "0", "--bind", "127.0.0.1", "--out", wav, "--idle", "2"}));
    std::string endpoint;
    ASSERT_TRUE(receiver.WaitForLine("listening on ", endpoint, 10s)) << "rtp-recv did not start";

    // The file: 2 s of 1 kHz, 16-bit PCM at 8000 Hz, made by sox.
    const std::string source = directory + "/tone.wav";
    ASSERT_TRUE(TransferTest::RunTool({"/usr/bin/sox", "-n", "-r", "8000", "-c", "1", "-b", "16", source,
                                       "synth", "2", "sine", "1000", "vol", "0.5"}));
    ASSERT_TRUE(TransferTest::RunTool({tool, "rtp-send", "--to", endpoint, "--wav", source}));
    ASSERT_EQ(receiver.ExitCode(30000), 0) << "rtp-recv found the stream faulty";

    const std::string output = receiver.AllOutput(1s);
    EXPECT_NE(output.find("packets: 50, payload type 0 (PCMU)"), std::string::npos) << output;
    EXPECT_NE(output.find("sequence: continuous (first 0, last 49, gaps 0"), std::string::npos) << output;
    EXPECT_NE(output.find("marker: first packet only"), std::string::npos) << output;
    EXPECT_NE(output.find("timestamp: first 0, step 320, advances by the payload"), std::string::npos)
        << output;
    EXPECT_NE(output.find("result: OK"), std::string::npos) << output;
    // Paced, not sent in a burst: 49 intervals of 40 ms from an absolute schedule span 1.96 s; only a first
    // packet held back by half a second could make it look shorter.
    const size_t at = output.find("duration: ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GE(std::atof(output.c_str() + at + 10), 1.5) << output;

    TransferTest::SoxStat stat;
    ASSERT_TRUE(TransferTest::RunSoxStat({wav}, stat));
    EXPECT_DOUBLE_EQ(stat.lengthSeconds, 2.0);
    EXPECT_NEAR(stat.roughFrequency, 1000.0, 50.0);  // sox estimates coarsely (975 for 1 kHz)
}

TEST(RtpTool, BadInputAndSilenceEndWithAClearError) {
    const std::string tool = TransferTest::BinaryDir() + "/bin/bcast-tool";
    const std::string directory = TransferTest::MakeTempDir("rtptool");
    const std::string wideband = directory + "/16k.wav";
    ASSERT_TRUE(TransferTest::RunTool({"/usr/bin/sox", "-n", "-r", "16000", "-c", "1", "-b", "16", wideband,
                                       "synth", "1", "sine", "1000"}));
    struct Case {
        std::vector<std::string> args;
        int exitCode;
        const char* said;
    };
    const Case cases[] = {
        {{"rtp-send", "--to", "127.0.0.1:9", "--wav", wideband}, 1, "8000 Hz is needed"},
        {{"rtp-send", "--to", "nowhere", "--tone", "1000"}, 2, ""},  // HOST:PORT is required
        {{"rtp-recv", "--port", "0", "--bind", "127.0.0.1", "--wait", "1"}, 1, "nothing arrived"},
        {{"no-such-command"}, 2, "rtp-send"},  // the usage lists the commands
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.front() + " " + c.args.back());
        std::vector<std::string> argv = {tool};
        argv.insert(argv.end(), c.args.begin(), c.args.end());
        const BcastTest::ProcessResult result = BcastTest::RunProcess(argv, 10000);
        EXPECT_EQ(result.exitCode, c.exitCode) << result.output;
        EXPECT_NE(result.output.find(c.said), std::string::npos) << result.output;
    }
}
