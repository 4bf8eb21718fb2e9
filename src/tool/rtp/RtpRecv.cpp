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

#include "framework/media/codec/G711Codec.h"
#include "tool/CommandLine.h"
#include "tool/rtp/Pcm.h"
#include "tool/rtp/RtpCommands.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Packet {
    Clock::time_point arrival;
    uint16_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    uint8_t payloadType = 0;
    bool marker = false;
    size_t payloadSize = 0;
};

struct Socket {
    int fd = -1;
    ~Socket() {
        if (fd >= 0) {
            close(fd);
        }
    }
};

const char* const kUsage =
    "usage: bcast-tool rtp-recv --port N [--bind ADDR] [--out FILE.wav] [--wait S] [--idle S]\n"
    "                           [--max-seconds S] [--count N]\n"
    "  Receives one RTP stream (port 0 picks a free port), checks sequence, marker, time stamps and\n"
    "  packet interval, decodes G.711 (payload types 0 and 8) and writes it as 16-bit WAV.\n"
    "  Exit status 0 when the stream is continuous and well-formed.\n";

void Usage() {
    std::fputs(kUsage, stderr);
}

/// RFC 3550 fixed header, CSRC list and header extension; false for anything that is not RTP version 2.
bool ParseRtp(const uint8_t* data, size_t size, Packet& packet, size_t& payloadOffset) {
    if (size < 12 || (data[0] >> 6) != 2) {
        return false;
    }
    const size_t csrcCount = data[0] & 0x0F;
    const bool extension = (data[0] & 0x10) != 0;
    const bool padding = (data[0] & 0x20) != 0;
    packet.marker = (data[1] & 0x80) != 0;
    packet.payloadType = data[1] & 0x7F;
    packet.sequence = static_cast<uint16_t>(data[2] << 8 | data[3]);
    packet.timestamp = static_cast<uint32_t>(data[4]) << 24 | static_cast<uint32_t>(data[5]) << 16 |
                       static_cast<uint32_t>(data[6]) << 8 | data[7];
    packet.ssrc = static_cast<uint32_t>(data[8]) << 24 | static_cast<uint32_t>(data[9]) << 16 |
                  static_cast<uint32_t>(data[10]) << 8 | data[11];
    size_t offset = 12 + 4 * csrcCount;
    if (extension) {
        if (size < offset + 4) {
            return false;
        }
        offset += 4 + 4 * static_cast<size_t>(data[offset + 2] << 8 | data[offset + 3]);
    }
    size_t end = size;
    if (padding && size > offset) {
        end -= std::min<size_t>(data[size - 1], size - offset);
    }
    if (offset > end) {
        return false;
    }
    payloadOffset = offset;
    packet.payloadSize = end - offset;
    return true;
}

const char* PayloadName(uint8_t type) {
    switch (type) {
        case 0:
            return "PCMU";
        case 8:
            return "PCMA";
        case 9:
            return "G722";
        case 14:
            return "MPA";
        default:
            return "dynamic/other";
    }
}

}  // namespace

int RunRtpRecv(int argc, char** argv) {
    int port = -1;
    std::string bindAddress = "0.0.0.0";
    std::string outPath;
    double waitSeconds = 10.0;
    double idleSeconds = 2.0;
    double maxSeconds = 0.0;
    long maxCount = 0;
    CLI::App app("bcast-tool rtp-recv: one RTP stream, checked and written as WAV", "bcast-tool rtp-recv");
    app.add_option("--port", port, "the UDP port (0: a free one)")->required()->type_name("N");
    app.add_option("--bind", bindAddress, "the address to listen on (default 0.0.0.0)")->type_name("ADDR");
    app.add_option("--out", outPath, "write what arrived as 16-bit WAV")->type_name("FILE.wav");
    app.add_option("--wait", waitSeconds, "how long to wait for the first packet (default 10)")
        ->type_name("S");
    app.add_option("--idle", idleSeconds, "the stream ends after this silence (default 2)")->type_name("S");
    app.add_option("--max-seconds", maxSeconds, "stop after this long")->type_name("S");
    app.add_option("--count", maxCount, "stop after this many packets")->type_name("N");
    const int parsed = BcastTool::ParseCommandWords(app, argc, argv, "rtp-recv", kUsage);
    if (parsed >= 0) {
        return parsed;
    }
    if (port < 0 || port > 65535 || idleSeconds <= 0.0 || waitSeconds <= 0.0) {
        Usage();
        return 2;
    }

    Socket socket;
    socket.fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(port));
    if (socket.fd < 0 || inet_pton(AF_INET, bindAddress.c_str(), &local.sin_addr) != 1 ||
        bind(socket.fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
        std::fprintf(stderr, "rtp-recv: cannot listen on %s:%d\n", bindAddress.c_str(), port);
        return 1;
    }
    socklen_t length = sizeof(local);
    getsockname(socket.fd, reinterpret_cast<sockaddr*>(&local), &length);
    std::printf("listening on %s:%u\n", bindAddress.c_str(), static_cast<unsigned>(ntohs(local.sin_port)));
    std::fflush(stdout);

    std::vector<Packet> packets;
    std::vector<int16_t> decoded;
    long malformed = 0;
    long foreign = 0;
    const Clock::time_point begin = Clock::now();
    std::vector<uint8_t> buffer(65536);
    for (;;) {
        const double limit = packets.empty() ? waitSeconds : idleSeconds;
        pollfd descriptor{socket.fd, POLLIN, 0};
        const int ready = poll(&descriptor, 1, static_cast<int>(limit * 1000));
        if (ready <= 0) {
            break;
        }
        const ssize_t received = recv(socket.fd, buffer.data(), buffer.size(), 0);
        const Clock::time_point arrival = Clock::now();
        if (received <= 0) {
            continue;
        }
        Packet packet;
        size_t payloadOffset = 0;
        if (!ParseRtp(buffer.data(), static_cast<size_t>(received), packet, payloadOffset)) {
            ++malformed;
            continue;
        }
        if (!packets.empty() && packet.ssrc != packets.front().ssrc) {
            ++foreign;  // another stream on the same port
            continue;
        }
        packet.arrival = arrival;
        packets.push_back(packet);
        for (size_t i = 0; i < packet.payloadSize; ++i) {
            const uint8_t code = buffer[payloadOffset + i];
            if (packet.payloadType == 0) {
                decoded.push_back(Tal::MediaCodec::UlawToLinear(code));
            } else if (packet.payloadType == 8) {
                decoded.push_back(Tal::MediaCodec::AlawToLinear(code));
            }
        }
        if ((maxCount > 0 && static_cast<long>(packets.size()) >= maxCount) ||
            (maxSeconds > 0.0 && std::chrono::duration<double>(arrival - begin).count() >= maxSeconds)) {
            break;
        }
    }

    if (packets.empty()) {
        std::printf("packets: 0 (nothing arrived within %.1f s)\nresult: FAIL\n", waitSeconds);
        return 1;
    }

    long gaps = 0;
    long lost = 0;
    long duplicates = 0;
    long reordered = 0;
    long markers = 0;
    long timestampMismatches = 0;
    std::vector<double> intervals;
    double jitter = 0.0;  // RFC 3550 interarrival jitter, in timestamp units
    const double clockRate = 8000.0;
    for (size_t i = 0; i < packets.size(); ++i) {
        const Packet& packet = packets[i];
        if (packet.marker) {
            ++markers;
        }
        if (i == 0) {
            continue;
        }
        const Packet& previous = packets[i - 1];
        const uint16_t step = static_cast<uint16_t>(packet.sequence - previous.sequence);
        if (step == 0) {
            ++duplicates;
        } else if (step > 0x8000) {
            ++reordered;
        } else if (step != 1) {
            ++gaps;
            lost += step - 1;
        }
        if (step == 1 && packet.timestamp - previous.timestamp != previous.payloadSize) {
            ++timestampMismatches;
        }
        const double interval =
            std::chrono::duration<double, std::milli>(packet.arrival - previous.arrival).count();
        intervals.push_back(interval);
        const double transitDifference =
            interval / 1000.0 * clockRate -
            static_cast<double>(static_cast<int32_t>(packet.timestamp - previous.timestamp));
        jitter += (std::fabs(transitDifference) - jitter) / 16.0;
    }
    const bool continuous = gaps == 0 && duplicates == 0 && reordered == 0;
    const bool markerOk = packets.front().marker && markers == 1;
    const bool timestampsOk = timestampMismatches == 0;

    const Packet& first = packets.front();
    std::printf("packets: %zu, payload type %u (%s), ssrc 0x%08x, payload %zu bytes\n", packets.size(),
                first.payloadType, PayloadName(first.payloadType), first.ssrc, first.payloadSize);
    std::printf("sequence: %s (first %u, last %u, gaps %ld, lost %ld, duplicates %ld, out of order %ld)\n",
                continuous ? "continuous" : "BROKEN", first.sequence, packets.back().sequence, gaps, lost,
                duplicates, reordered);
    std::printf("marker: %s (%ld packets marked)\n", markerOk ? "first packet only" : "WRONG", markers);
    if (packets.size() > 1) {
        std::printf("timestamp: first %u, step %u, %s (%ld mismatches)\n", first.timestamp,
                    packets[1].timestamp - first.timestamp,
                    timestampsOk ? "advances by the payload" : "WRONG", timestampMismatches);
        std::vector<double> sorted = intervals;
        std::sort(sorted.begin(), sorted.end());
        double sum = 0.0;
        for (double value : intervals) {
            sum += value;
        }
        const double expected = first.payloadSize / clockRate * 1000.0;
        std::printf(
            "interval: mean %.2f ms (payload plays %.2f ms), min %.2f, p50 %.2f, p99 %.2f, max %.2f, "
            "jitter %.3f ms\n",
            sum / intervals.size(), expected, sorted.front(), sorted[sorted.size() / 2],
            sorted[std::min(sorted.size() - 1, sorted.size() * 99 / 100)], sorted.back(),
            jitter / clockRate * 1000.0);
        std::printf("duration: %.3f s of arrivals for %.3f s of audio\n",
                    std::chrono::duration<double>(packets.back().arrival - first.arrival).count(),
                    (packets.back().timestamp - first.timestamp + packets.back().payloadSize) / clockRate);
    }
    if (malformed != 0 || foreign != 0) {
        std::printf("ignored: %ld malformed datagrams, %ld packets of other streams\n", malformed, foreign);
    }
    if (!decoded.empty()) {
        std::printf("audio: %zu samples (%.2f s), dominant frequency %.0f Hz\n", decoded.size(),
                    decoded.size() / clockRate, BcastTool::DominantFrequency(decoded, 8000));
        if (!outPath.empty()) {
            if (!BcastTool::WriteWav(outPath, decoded, 8000)) {
                std::fprintf(stderr, "rtp-recv: cannot write %s\n", outPath.c_str());
                return 1;
            }
            std::printf("wav: %s\n", outPath.c_str());
        }
    } else if (!outPath.empty()) {
        std::printf("wav: not written, payload type %u is not G.711\n", first.payloadType);
    }
    const bool ok = continuous && markerOk && timestampsOk;
    std::printf("result: %s\n", ok ? "OK" : "FAIL");
    return ok ? 0 : 1;
}
