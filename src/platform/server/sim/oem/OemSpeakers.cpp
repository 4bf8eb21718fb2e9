#include "platform/server/sim/oem/OemSpeakers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>

#include "framework/base/FormatLog.h"
#include "framework/base/Multicast.h"
#include "framework/base/UniqueFd.h"
#include "platform/server/sim/speakers/SpeakerSim.h"

namespace Platform {

using Tal::MediaKit::ParseRtp;
using Tal::MediaKit::RtpPacket;

namespace {

constexpr std::size_t kMaxDatagram = 65536;
/// A pause longer than this between packets starts a new stream for the lateness measurement.
constexpr int64_t kStreamGapNs = 1000000000;
/// At 50 packets a second, about half an hour of one speaker's lateness; the older half goes beyond it.
constexpr std::size_t kMaxLatenessSamples = 100000;

/// Lets a member's socket share the group's port with the other members and joins it to `group` on the
/// loopback interface, where the simulated site's speakers live (a sender routes the group there).
bool JoinGroup(int fd, in_addr group, std::string& error) {
    const int on = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0) {
        error = std::string("cannot share the group's port: ") + std::strerror(errno);
        return false;
    }
    ip_mreqn membership{};
    membership.imr_multiaddr = group;
    membership.imr_address.s_addr = htonl(INADDR_LOOPBACK);
    if (::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) != 0) {
        error = std::string("cannot join the multicast group: ") + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

struct COemSpeakers::Socket {
    OemSpeakerStats stats;
    Tal::Base::CUniqueFd fd;
    bool haveSequence = false;
    uint16_t lastSequence = 0;
    uint32_t ssrc = 0;
    bool warned = false;  ///< a decoding problem was logged (once per speaker)
    // Arrival timing (see OemSpeakerStats): per packet, arrival minus media time relative to the stream's
    // first packet, with the stream's number; each stream's smallest value is its on-time reference.
    bool timing = false;
    uint32_t timingSsrc = 0;
    uint32_t firstTimestamp = 0;
    int64_t firstArrivalNs = 0;
    int64_t lastArrivalNs = 0;
    int stream = 0;
    std::map<int, int64_t> earliestOffsetUs;  ///< by stream
    std::vector<std::pair<int, int64_t>> offsetsUs;
    std::map<int, std::unique_ptr<CSpeakerDecoder>> decoders;  ///< by codec
};

COemSpeakers::COemSpeakers(CSpeakerSim& speakers) : speakers_(speakers) {}

COemSpeakers::~COemSpeakers() {
    Stop();
}

bool COemSpeakers::Start(const std::vector<OemSpeakerConfig>& speakers, std::string& error) {
    std::vector<std::unique_ptr<Socket>> sockets;
    // Members of one multicast group share its port: the first member without a port of its own takes a
    // free one, the others bind the same.
    std::map<std::string, uint16_t> groupPorts;
    for (const OemSpeakerConfig& config : speakers) {
        auto socket = std::make_unique<Socket>();
        socket->stats.deviceId = config.deviceId;
        socket->stats.address = config.address;
        socket->fd.Reset(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(config.port));
        const std::string where = "speaker device " + std::to_string(config.deviceId) + " (UDP " +
                                  config.address + ":" + std::to_string(config.port) + ")";
        if (socket->fd.Get() < 0 || ::inet_pton(AF_INET, config.address.c_str(), &address.sin_addr) != 1) {
            error = where + ": not an IPv4 address this host can use";
            return false;
        }
        const bool multicast = Tal::Base::IsMulticastGroup(config.address);
        if (multicast) {
            const auto shared = groupPorts.find(config.address);
            if (config.port == 0 && shared != groupPorts.end()) {
                address.sin_port = htons(shared->second);
            }
            if (!JoinGroup(socket->fd.Get(), address.sin_addr, error)) {
                error = where + ": " + error;
                return false;
            }
        }
        if (::bind(socket->fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            error = where + ": cannot bind: " + std::strerror(errno);
            return false;
        }
        socklen_t length = sizeof(address);
        ::getsockname(socket->fd.Get(), reinterpret_cast<sockaddr*>(&address), &length);
        socket->stats.port = ntohs(address.sin_port);
        if (multicast) {
            groupPorts.emplace(config.address, socket->stats.port);
        }
        sockets.push_back(std::move(socket));
    }
    wakeFd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        error = std::string("eventfd: ") + std::strerror(errno);
        return false;
    }
    sockets_ = std::move(sockets);
    thread_ = std::thread([this] { Run(); });
    for (const auto& s : sockets_) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]UDP speaker of device %d on %s:%d[%s(%d)]",
                s->stats.deviceId, s->stats.address.c_str(), s->stats.port);
    }
    return true;
}

void COemSpeakers::Stop() {
    if (thread_.joinable()) {
        const uint64_t one = 1;
        if (::write(wakeFd_, &one, sizeof(one)) < 0) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]cannot wake the UDP speakers: %s[%s(%d)]",
                    std::strerror(errno));
        }
        thread_.join();
    }
    if (wakeFd_ >= 0) {
        ::close(wakeFd_);
        wakeFd_ = -1;
    }
    sockets_.clear();
}

int COemSpeakers::PortOf(int deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& s : sockets_) {
        if (s->stats.deviceId == deviceId) {
            return s->stats.port;
        }
    }
    return 0;
}

std::vector<OemSpeakerStats> COemSpeakers::Stats() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<OemSpeakerStats> out;
    for (const auto& s : sockets_) {
        OemSpeakerStats stats = s->stats;
        std::vector<int64_t> lateness;
        lateness.reserve(s->offsetsUs.size());
        for (const auto& sample : s->offsetsUs) {
            lateness.push_back(sample.second - s->earliestOffsetUs.at(sample.first));
        }
        stats.latenessSamples = lateness.size();
        if (!lateness.empty()) {
            std::sort(lateness.begin(), lateness.end());
            auto at = [&lateness](double q) {
                return static_cast<double>(lateness[static_cast<std::size_t>(q * (lateness.size() - 1))]) /
                       1000.0;
            };
            stats.latenessP50Ms = at(0.5);
            stats.latenessP99Ms = at(0.99);
            stats.latenessMaxMs = static_cast<double>(lateness.back()) / 1000.0;
        }
        out.push_back(stats);
    }
    return out;
}

void COemSpeakers::ResetLateness() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& s : sockets_) {
        s->offsetsUs.clear();
        s->earliestOffsetUs.clear();
        s->timing = false;
    }
}

void COemSpeakers::RecordArrival(Socket& socket, const RtpPacket& packet, SpeakerCodec codec) {
    if (codec == SpeakerCodec::kMp3) {
        return;  // its media clock is not 8 kHz
    }
    const int64_t now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count();
    if (!socket.timing || packet.ssrc != socket.timingSsrc || now - socket.lastArrivalNs > kStreamGapNs) {
        socket.timing = true;
        socket.timingSsrc = packet.ssrc;
        socket.firstTimestamp = packet.timestamp;
        socket.firstArrivalNs = now;
        ++socket.stream;
    }
    socket.lastArrivalNs = now;
    const int64_t mediaNs =
        static_cast<int64_t>(static_cast<int32_t>(packet.timestamp - socket.firstTimestamp)) * 1000000000 /
        8000;
    const int64_t offsetUs = (now - socket.firstArrivalNs - mediaNs) / 1000;
    auto earliest = socket.earliestOffsetUs.emplace(socket.stream, offsetUs).first;
    earliest->second = std::min(earliest->second, offsetUs);
    if (socket.offsetsUs.size() >= kMaxLatenessSamples) {
        socket.offsetsUs.erase(
            socket.offsetsUs.begin(),
            socket.offsetsUs.begin() + static_cast<std::ptrdiff_t>(kMaxLatenessSamples / 2));
    }
    socket.offsetsUs.emplace_back(socket.stream, offsetUs);
}

void COemSpeakers::Run() {
    std::vector<pollfd> fds;
    fds.push_back(pollfd{wakeFd_, POLLIN, 0});
    for (const auto& s : sockets_) {
        fds.push_back(pollfd{s->fd.Get(), POLLIN, 0});
    }
    while (true) {
        const int ready = ::poll(fds.data(), fds.size(), -1);
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]UDP speakers stop: poll: %s[%s(%d)]",
                    std::strerror(errno));
            return;
        }
        if (fds[0].revents != 0) {
            return;
        }
        for (std::size_t i = 1; i < fds.size(); ++i) {
            if (fds[i].revents & POLLIN) {
                Receive(*sockets_[i - 1]);
            }
        }
    }
}

void COemSpeakers::Receive(Socket& socket) {
    std::vector<uint8_t> buffer(kMaxDatagram);
    while (true) {
        sockaddr_in from{};
        socklen_t length = sizeof(from);
        const ssize_t got = ::recvfrom(socket.fd.Get(), buffer.data(), buffer.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &length);
        if (got < 0) {
            return;  // EAGAIN: everything read
        }
        char ip[INET_ADDRSTRLEN] = {0};
        ::inet_ntop(AF_INET, &from.sin_addr, ip, sizeof(ip));
        const std::string source = std::string(ip) + ":" + std::to_string(ntohs(from.sin_port));
        RtpPacket packet;
        SpeakerCodec codec = SpeakerCodec::kPcmu;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            socket.stats.lastSource = source;
            if (!ParseRtp(buffer.data(), static_cast<std::size_t>(got), packet)) {
                ++socket.stats.malformed;
                continue;
            }
            if (!CodecOfPayloadType(packet.payloadType, codec)) {
                ++socket.stats.unsupported;
                continue;
            }
            // The module sends MP3 with payload type 9, one whole frame per packet: a speaker configured
            // for MP3 plays it, so a packet that is exactly one MP3 frame is taken as MP3.
            Tal::MediaCodec::Mp3FrameInfo frame;
            if (codec == SpeakerCodec::kG722 &&
                Tal::MediaCodec::ParseMp3FrameHeader(packet.payload, packet.payloadSize, &frame) &&
                frame.frameBytes == packet.payloadSize) {
                codec = SpeakerCodec::kMp3;
            }
            // A new sender (another SSRC) starts a new sequence.
            if (socket.haveSequence && packet.ssrc == socket.ssrc) {
                const int16_t delta = static_cast<int16_t>(packet.sequence - socket.lastSequence);
                if (delta <= 0) {
                    ++socket.stats.late;
                    continue;
                }
                socket.stats.lost += static_cast<uint64_t>(delta - 1);
            }
            socket.haveSequence = true;
            socket.ssrc = packet.ssrc;
            socket.lastSequence = packet.sequence;
            ++socket.stats.packets;
            socket.stats.payloadBytes += packet.payloadSize;
            RecordArrival(socket, packet, codec);
            socket.stats.codec = CodecName(codec);
        }
        auto& decoder = socket.decoders[static_cast<int>(codec)];
        if (!decoder) {
            decoder = std::make_unique<CSpeakerDecoder>(codec);
        }
        std::vector<int16_t> pcm;
        std::string error;
        if (!decoder->Decode(packet.payload, packet.payloadSize, pcm, error) && !socket.warned) {
            socket.warned = true;
            TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]UDP speaker of device %d: %s[%s(%d)]",
                    socket.stats.deviceId, error.c_str());
        }
        speakers_.OnDeviceAudio(socket.stats.deviceId, 0, SpeakerTransport::kUdp, source, pcm.data(),
                                pcm.size(), packet.payloadSize);
    }
}

}  // namespace Platform
