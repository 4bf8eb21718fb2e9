#pragma once
// Client-side senders and listeners for the platform's simulated site, on the project's own client
// libraries where there is one: the streaming client (ZPSClient_*), the device network interface
// (DEVNET_*), and a plain UDP socket for RTP. Each is bounded in time and closes what it opened.

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "framework/media/mediakit/RtpPacket.h"

namespace PlatformTest {

/// A sine of `hz` as 8000 Hz G.711 (µ-law or A-law), `seconds` long.
std::vector<uint8_t> G711Tone(double hz, double seconds, bool alaw = false, double amplitude = 0.5);
/// Decodes G.711 µ-law to 16-bit samples.
std::vector<int16_t> DecodeUlaw(const std::vector<uint8_t>& data);

/// `data` cut in frames of `frameBytes`, handed to `send` at the pace they play (8000 bytes per second),
/// on an absolute schedule. Stops at the first frame `send` refuses; returns how many were sent.
int SendPaced(const std::vector<uint8_t>& data, std::size_t frameBytes,
              const std::function<bool(const uint8_t*, std::size_t)>& send);

/// A voice talk through the streaming server (talk-only) or a listen session, with the streaming client.
class CZpsSession {
public:
    CZpsSession();
    ~CZpsSession();
    CZpsSession(const CZpsSession&) = delete;
    CZpsSession& operator=(const CZpsSession&) = delete;

    /// Opens `url` with the token in the X-Token header (none when empty) and the RTSP account, RTP
    /// interleaved on the RTSP connection or, with `udp`, over UDP. False with the library's error
    /// (ZPSClientError) in `error`.
    bool Start(const std::string& url, const std::string& token, const std::string& user,
               const std::string& password, int& error, bool udp = false);
    bool Send(const uint8_t* data, std::size_t size);
    /// Sends what is queued and tears the stream down.
    void Stop();
    /// What came down the stream so far (listen sessions), encoded.
    std::vector<uint8_t> Received() const;
    void ClearReceived();
    /// The downstream codec code and sample rate (ZPSClient_GetAudioInfo).
    bool AudioInfo(uint32_t& codec, uint32_t& sampleRate) const;

private:
    static int OnData(int session, void* user, int type, const unsigned char* data, unsigned int size);
    int handle_ = -1;
    mutable std::mutex mutex_;
    std::vector<uint8_t> received_;
};

/// A login and a voice talk on one channel of a device, with the device network interface.
class CDevnetTalk {
public:
    CDevnetTalk() = default;
    ~CDevnetTalk();
    CDevnetTalk(const CDevnetTalk&) = delete;
    CDevnetTalk& operator=(const CDevnetTalk&) = delete;

    /// Logs in (false with DEVNET_GetLastError() in `error`).
    bool Login(const std::string& address, int port, const std::string& user, const std::string& password,
               uint32_t& error);
    /// Sets the G.711 µ-law broadcast format and opens the talk on `channel`.
    bool Open(int channel, uint32_t& error);
    bool Send(const uint8_t* data, std::size_t size);
    /// Ends the talk (what is queued is sent first) and the login.
    void Close();

private:
    int user_ = -1;
    int talk_ = -1;
};

/// RTP over UDP to 127.0.0.1:`port`, the way other makers' speakers are fed: one packet per frame.
class CRtpSender {
public:
    CRtpSender(int port, int payloadType, uint32_t ssrc = 0x1234ABCD);
    ~CRtpSender();
    CRtpSender(const CRtpSender&) = delete;
    CRtpSender& operator=(const CRtpSender&) = delete;

    bool Send(const uint8_t* payload, std::size_t size);

private:
    int socket_ = -1;
    int port_;
    Tal::MediaKit::CRtpStream stream_;
};

}  // namespace PlatformTest
