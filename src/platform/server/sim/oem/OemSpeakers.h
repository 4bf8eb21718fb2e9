#pragma once
// Other makers' IP speakers, simulated: each listens on its UDP port for RTP (PCMU, PCMA, G.722 by static
// payload type; MP3 as payload type 14), decodes it and plays it. No call set-up, no RTCP, nothing sent
// back: the speakers of access protocol 23 only receive.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/media/mediakit/RtpPacket.h"
#include "platform/server/sim/audio/SpeakerDecoder.h"

namespace Platform {

class CSpeakerSim;

struct OemSpeakerConfig {
    int deviceId = 0;
    std::string address;  ///< IPv4 address to bind
    int port = 0;         ///< 0: any free port
};

struct OemSpeakerStats {
    int deviceId = 0;
    std::string address;
    int port = 0;
    uint64_t packets = 0;
    uint64_t payloadBytes = 0;
    uint64_t lost = 0;         ///< sequence numbers skipped
    uint64_t late = 0;         ///< duplicate or reordered packets, dropped
    uint64_t malformed = 0;    ///< not RTP
    uint64_t unsupported = 0;  ///< payload types no speaker decodes
    std::string codec;         ///< of the last packet
    std::string lastSource;
    /// Arrival lateness of the packets since the last ResetLateness: arrival time minus the packet's media
    /// time, less the smallest such difference of its stream (so 0 for a packet exactly on time). Streams
    /// of 8 kHz RTP clocks only (PCMU, PCMA, G.722); a new stream starts after a second without packets.
    uint64_t latenessSamples = 0;
    double latenessP50Ms = 0;
    double latenessP99Ms = 0;
    double latenessMaxMs = 0;
};

class COemSpeakers : private Tal::Base::CNonCopyable {
public:
    explicit COemSpeakers(CSpeakerSim& speakers);
    ~COemSpeakers();

    /// Binds every speaker's socket and starts receiving. False with a reason naming the speaker; then
    /// nothing runs.
    bool Start(const std::vector<OemSpeakerConfig>& speakers, std::string& error);
    void Stop();
    /// The bound port of a device, 0 when it has none.
    int PortOf(int deviceId) const;
    std::vector<OemSpeakerStats> Stats() const;
    /// Starts a new measurement of the arrival lateness.
    void ResetLateness();

private:
    struct Socket;
    void Run();
    void Receive(Socket& socket);
    /// Adds the packet's arrival lateness. Needs `mutex_`.
    void RecordArrival(Socket& socket, const Tal::MediaKit::RtpPacket& packet, SpeakerCodec codec);

    CSpeakerSim& speakers_;
    std::vector<std::unique_ptr<Socket>> sockets_;
    int wakeFd_ = -1;
    std::thread thread_;
    mutable std::mutex mutex_;  ///< guards the statistics of the sockets
};

}  // namespace Platform
