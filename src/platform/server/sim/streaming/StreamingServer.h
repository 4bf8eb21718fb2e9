#pragma once
// The site's streaming server: RTSP with the ONVIF audio backchannel, on gst-rtsp-server's ONVIF media
// factory, in a GLib main loop on a thread of its own.
//
//   rtsp://HOST:PORT/<prefix>/<group GUID>        talk: the client's audio comes up the backchannel and is
//                                                 played on every speaker of the group
//   rtsp://HOST:PORT/<prefix>/listen/<device id>  listen: downstream G.711 µ-law 8000 Hz, what the
//                                                 device's speakers play (their idle tone when silent)
//
// Every request that reaches a stream (all but OPTIONS and TEARDOWN) must carry the token the platform
// issued for that address in the header "X-Token" (401 otherwise), and the RTSP account (basic or digest)
// must answer the challenge.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/server/sim/audio/SpeakerDecoder.h"
#include "platform/server/sim/streaming/MediaLaunch.h"

namespace Platform {

class CSpeakerSim;

struct StreamingServerConfig {
    std::string bindAddress = "127.0.0.1";
    int port = 0;  ///< 0: any free port
    std::string pathPrefix = "broadcast";
    std::string userName = "username";
    std::string password = "password";
    SpeakerCodec backchannelCodec = SpeakerCodec::kPcmu;  ///< PCMU, PCMA or MP3 (MPA)
    bool tokenEnabled = true;
    unsigned jitterBufferMs = 200;   ///< jitter buffer of the received streams
    std::vector<int> listenDevices;  ///< devices that get a listen address
};

/// One request the server saw (the last ones are kept for the control interface).
struct StreamingRequest {
    int64_t timeMs = 0;
    std::string method;
    std::string path;
    std::string source;
    int refusedWith = 0;  ///< 0: passed on; else the status it was refused with
    std::string reason;
};

struct StreamingStats {
    int port = 0;
    bool refusing = false;
    int refuseStatus = 503;
    int talkMounts = 0;
    int listenMounts = 0;
    int talkStreams = 0;    ///< talk streams playing now
    int listenStreams = 0;  ///< listen streams open now
    uint64_t requests = 0;
    uint64_t refused = 0;
    uint64_t decodeErrors = 0;
    std::vector<StreamingRequest> recent;
};

class CStreamingServer {
public:
    explicit CStreamingServer(CSpeakerSim& speakers);
    ~CStreamingServer();
    CStreamingServer(const CStreamingServer&) = delete;
    CStreamingServer& operator=(const CStreamingServer&) = delete;

    /// Listens and serves. False with a reason (GStreamer missing a plug-in, address in use).
    bool Start(const StreamingServerConfig& config, std::string& error);
    /// Closes every session and the server; afterwards no call reaches the speakers.
    void Stop();
    int Port() const;

    std::string TalkPath(const std::string& guid) const;
    std::string ListenPath(int deviceId) const;
    /// Opens the talk address of a group; `token` empty when tokens are off. Thread-safe.
    void AddTalkMount(const std::string& guid, const std::string& token);
    /// A fresh token for listening to a device (empty when tokens are off). Thread-safe.
    std::string IssueListenToken(int deviceId);
    /// Refuses every new request with `status` (e.g. 503) while set. Thread-safe.
    void SetRefusal(bool refuse, int status);
    StreamingStats Stats() const;
    /// Closes every RTSP connection and session now, as a server that tears its sessions down; the talk
    /// addresses stay open for new sessions. False when the server is not running. Thread-safe.
    bool DropSessions();
    /// Closes the talk addresses, forgets listen tokens and stops refusing.
    void Reset();

    struct Impl;

private:
    std::shared_ptr<Impl> impl_;
};

}  // namespace Platform
