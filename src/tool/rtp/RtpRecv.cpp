// bcast-tool rtp-recv: receives one RTP stream, checks its headers and pacing, writes the decoded audio as
// WAV.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "framework/base/UniqueFd.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/mediakit/EncodeTypes.h"
#include "framework/media/mediakit/RtpPacket.h"
#include "framework/media/mediakit/WavFile.h"
#include "tool/CommandLine.h"
#include "tool/rtp/Pcm.h"
#include "tool/rtp/RtpCommands.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kClockRate = 8000.0;

struct Packet {
    Clock::time_point arrival;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    int payloadType = 0;
    bool marker = false;
    size_t payloadSize = 0;
};

struct Options {
    int port = -1;
    std::string bindAddress = "0.0.0.0";
    std::string outPath;
    double waitSeconds = 10.0;
    double idleSeconds = 2.0;
    double maxSeconds = 0.0;
    long maxCount = 0;
};

/// What arrived: the packets of the first stream, their G.711 audio, and what was left out.
struct Capture {
    std::vector<Packet> packets;
    std::vector<int16_t> decoded;
    long malformed = 0;
    long foreign = 0;
};

/// How well the stream kept its sequence, marker, timestamps and pace.
struct StreamCheck {
    long gaps = 0;
    long lost = 0;
    long duplicates = 0;
    long reordered = 0;
    long markers = 0;
    long timestampMismatches = 0;
    std::vector<double> intervals;  ///< ms between arrivals
    double jitter = 0.0;            ///< RFC 3550 interarrival jitter, in timestamp units

    bool Continuous() const { return gaps == 0 && duplicates == 0 && reordered == 0; }
};

const char* const kUsage =
    "usage: bcast-tool rtp-recv --port N [--bind ADDR] [--out FILE.wav] [--wait S] [--idle S]\n"
    "                           [--max-seconds S] [--count N]\n"
    "  Receives one RTP stream (port 0 picks a free port), checks sequence, marker, time stamps and\n"
    "  packet interval, decodes G.711 (payload types 0 and 8) and writes it as 16-bit WAV.\n"
    "  Exit status 0 when the stream is continuous and well-formed.\n";

const char* PayloadName(int type) {
    const Tal::MediaKit::EncodeTypeInfo* info = Tal::MediaKit::EncodeTypeOfPayload(type);
    return info != nullptr ? info->rtpName : "dynamic/other";
}

/// Returns -1 to go on, else the exit status.
int ParseOptions(int argc, char** argv, Options& o) {
    CLI::App app("bcast-tool rtp-recv: one RTP stream, checked and written as WAV", "bcast-tool rtp-recv");
    app.add_option("--port", o.port, "the UDP port (0: a free one)")->required()->type_name("N");
    app.add_option("--bind", o.bindAddress, "the address to listen on (default 0.0.0.0)")->type_name("ADDR");
    app.add_option("--out", o.outPath, "write what arrived as 16-bit WAV")->type_name("FILE.wav");
    app.add_option("--wait", o.waitSeconds, "how long to wait for the first packet (default 10)")
        ->type_name("S");
    app.add_option("--idle", o.idleSeconds, "the stream ends after this silence (default 2)")->type_name("S");
    app.add_option("--max-seconds", o.maxSeconds, "stop after this long")->type_name("S");
    app.add_option("--count", o.maxCount, "stop after this many packets")->type_name("N");
    const int parsed = BcastTool::ParseCommandWords(app, argc, argv, "rtp-recv", kUsage);
    if (parsed >= 0) {
        return parsed;
    }
    if (o.port < 0 || o.port > 65535 || o.idleSeconds <= 0.0 || o.waitSeconds <= 0.0) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    return -1;
}

bool Listen(const Options& o, Tal::Base::CUniqueFd& socket) {
    socket.Reset(::socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(o.port));
    if (socket.Get() < 0 || inet_pton(AF_INET, o.bindAddress.c_str(), &local.sin_addr) != 1 ||
        bind(socket.Get(), reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
        std::fprintf(stderr, "rtp-recv: cannot listen on %s:%d\n", o.bindAddress.c_str(), o.port);
        return false;
    }
    socklen_t length = sizeof(local);
    getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&local), &length);
    std::printf("listening on %s:%u\n", o.bindAddress.c_str(), static_cast<unsigned>(ntohs(local.sin_port)));
    std::fflush(stdout);
    return true;
}

/// Takes one datagram into the capture: parsed, kept when it belongs to the first stream, G.711 decoded.
void Take(const uint8_t* data, size_t size, Clock::time_point arrival, Capture& capture) {
    Tal::MediaKit::RtpPacket rtp;
    if (!Tal::MediaKit::ParseRtp(data, size, rtp)) {
        ++capture.malformed;
        return;
    }
    if (!capture.packets.empty() && rtp.ssrc != capture.packets.front().ssrc) {
        ++capture.foreign;  // another stream on the same port
        return;
    }
    capture.packets.push_back(
        Packet{arrival, rtp.sequence, rtp.timestamp, rtp.ssrc, rtp.payloadType, rtp.marker, rtp.payloadSize});
    for (size_t i = 0; i < rtp.payloadSize; ++i) {
        if (rtp.payloadType == 0) {
            capture.decoded.push_back(Tal::MediaCodec::UlawToLinear(rtp.payload[i]));
        } else if (rtp.payloadType == 8) {
            capture.decoded.push_back(Tal::MediaCodec::AlawToLinear(rtp.payload[i]));
        }
    }
}

Capture Receive(const Options& o, const Tal::Base::CUniqueFd& socket) {
    Capture capture;
    const Clock::time_point begin = Clock::now();
    std::vector<uint8_t> buffer(65536);
    for (;;) {
        const double limit = capture.packets.empty() ? o.waitSeconds : o.idleSeconds;
        pollfd descriptor{socket.Get(), POLLIN, 0};
        if (poll(&descriptor, 1, static_cast<int>(limit * 1000)) <= 0) {
            break;
        }
        const ssize_t received = recv(socket.Get(), buffer.data(), buffer.size(), 0);
        const Clock::time_point arrival = Clock::now();
        if (received <= 0) {
            continue;
        }
        Take(buffer.data(), static_cast<size_t>(received), arrival, capture);
        if ((o.maxCount > 0 && static_cast<long>(capture.packets.size()) >= o.maxCount) ||
            (o.maxSeconds > 0.0 && std::chrono::duration<double>(arrival - begin).count() >= o.maxSeconds)) {
            break;
        }
    }
    return capture;
}

StreamCheck Check(const std::vector<Packet>& packets) {
    StreamCheck check;
    for (size_t i = 0; i < packets.size(); ++i) {
        const Packet& packet = packets[i];
        if (packet.marker) {
            ++check.markers;
        }
        if (i == 0) {
            continue;
        }
        const Packet& previous = packets[i - 1];
        const uint16_t step = static_cast<uint16_t>(packet.sequence - previous.sequence);
        if (step == 0) {
            ++check.duplicates;
        } else if (step > 0x8000) {
            ++check.reordered;
        } else if (step != 1) {
            ++check.gaps;
            check.lost += step - 1;
        }
        if (step == 1 && packet.timestamp - previous.timestamp != previous.payloadSize) {
            ++check.timestampMismatches;
        }
        const double interval =
            std::chrono::duration<double, std::milli>(packet.arrival - previous.arrival).count();
        check.intervals.push_back(interval);
        const double transitDifference =
            interval / 1000.0 * kClockRate -
            static_cast<double>(static_cast<int32_t>(packet.timestamp - previous.timestamp));
        check.jitter += (std::fabs(transitDifference) - check.jitter) / 16.0;
    }
    return check;
}

void PrintPacing(const std::vector<Packet>& packets, const StreamCheck& check) {
    const Packet& first = packets.front();
    std::printf("timestamp: first %u, step %u, %s (%ld mismatches)\n", first.timestamp,
                packets[1].timestamp - first.timestamp,
                check.timestampMismatches == 0 ? "advances by the payload" : "WRONG",
                check.timestampMismatches);
    std::vector<double> sorted = check.intervals;
    std::sort(sorted.begin(), sorted.end());
    double sum = 0.0;
    for (double value : check.intervals) {
        sum += value;
    }
    const double expected = first.payloadSize / kClockRate * 1000.0;
    std::printf(
        "interval: mean %.2f ms (payload plays %.2f ms), min %.2f, p50 %.2f, p99 %.2f, max %.2f, "
        "jitter %.3f ms\n",
        sum / check.intervals.size(), expected, sorted.front(), sorted[sorted.size() / 2],
        sorted[std::min(sorted.size() - 1, sorted.size() * 99 / 100)], sorted.back(),
        check.jitter / kClockRate * 1000.0);
    std::printf("duration: %.3f s of arrivals for %.3f s of audio\n",
                std::chrono::duration<double>(packets.back().arrival - first.arrival).count(),
                (packets.back().timestamp - first.timestamp + packets.back().payloadSize) / kClockRate);
}

/// Prints the audio line and writes the WAV file. False when it could not be written.
bool WriteAudio(const Options& o, const Capture& capture) {
    if (capture.decoded.empty()) {
        if (!o.outPath.empty()) {
            std::printf("wav: not written, payload type %u is not G.711\n",
                        static_cast<unsigned>(capture.packets.front().payloadType));
        }
        return true;
    }
    std::printf("audio: %zu samples (%.2f s), dominant frequency %.0f Hz\n", capture.decoded.size(),
                capture.decoded.size() / kClockRate, BcastTool::DominantFrequency(capture.decoded, 8000));
    if (o.outPath.empty()) {
        return true;
    }
    if (!Tal::MediaKit::WriteWav(o.outPath, Tal::MediaKit::PcmAudio{8000, 1, capture.decoded})) {
        std::fprintf(stderr, "rtp-recv: cannot write %s\n", o.outPath.c_str());
        return false;
    }
    std::printf("wav: %s\n", o.outPath.c_str());
    return true;
}

}  // namespace

int RunRtpRecv(int argc, char** argv) {
    Options o;
    const int parsed = ParseOptions(argc, argv, o);
    if (parsed >= 0) {
        return parsed;
    }
    Tal::Base::CUniqueFd socket;
    if (!Listen(o, socket)) {
        return 1;
    }
    const Capture capture = Receive(o, socket);
    if (capture.packets.empty()) {
        std::printf("packets: 0 (nothing arrived within %.1f s)\nresult: FAIL\n", o.waitSeconds);
        return 1;
    }
    const std::vector<Packet>& packets = capture.packets;
    const StreamCheck check = Check(packets);
    const bool markerOk = packets.front().marker && check.markers == 1;
    const Packet& first = packets.front();
    std::printf("packets: %zu, payload type %u (%s), ssrc 0x%08x, payload %zu bytes\n", packets.size(),
                static_cast<unsigned>(first.payloadType), PayloadName(first.payloadType), first.ssrc,
                first.payloadSize);
    std::printf("sequence: %s (first %u, last %u, gaps %ld, lost %ld, duplicates %ld, out of order %ld)\n",
                check.Continuous() ? "continuous" : "BROKEN", first.sequence, packets.back().sequence,
                check.gaps, check.lost, check.duplicates, check.reordered);
    std::printf("marker: %s (%ld packets marked)\n", markerOk ? "first packet only" : "WRONG", check.markers);
    if (packets.size() > 1) {
        PrintPacing(packets, check);
    }
    if (capture.malformed != 0 || capture.foreign != 0) {
        std::printf("ignored: %ld malformed datagrams, %ld packets of other streams\n", capture.malformed,
                    capture.foreign);
    }
    if (!WriteAudio(o, capture)) {
        return 1;
    }
    const bool ok = check.Continuous() && markerOk && check.timestampMismatches == 0;
    std::printf("result: %s\n", ok ? "OK" : "FAIL");
    return ok ? 0 : 1;
}
