#pragma once
// A simulated device that speaks the device network protocol over HTTP (docs/device-protocol.md): digest
// login, broadcast configuration and voice talks whose audio is recorded per channel.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"

namespace DeviceSim {

/// Receives the voice talks of a device as they happen, on the connection's thread (besides any
/// recording). Calls for one talk come in order: opened, audio..., closed.
class ITalkSink {
public:
    virtual ~ITalkSink() = default;
    virtual void OnTalkOpened(const std::string& talkId, int channel, const std::string& peer) = 0;
    /// `audioType` is the configured format ("G.711ulaw" or "MP3"); `data` is as received.
    virtual void OnTalkAudio(const std::string& talkId, int channel, const std::string& audioType,
                             const char* data, std::size_t size) = 0;
    virtual void OnTalkClosed(const std::string& talkId, int channel) = 0;
    /// A login the device refused because it was told to (SetRefuseLogin).
    virtual void OnLoginRefused(const std::string& /*peer*/) {}
    /// A talk the device refused because its channel was refused (SetChannelRefused).
    virtual void OnTalkRefused(int /*channel*/, const std::string& /*peer*/) {}
};

struct DeviceSimConfig {
    std::string host = "127.0.0.1";
    int port = 0;  ///< 0 picks a free port
    std::string realm = "bcast-device";
    std::string userName = "admin";
    std::string password = "admin123";
    std::string deviceName = "Simulated broadcast device";
    std::string serialNumber = "SIM-0001";
    std::string model = "BCAST-SIM";
    /// Channels 1..channelCount exist, and their broadcast aliases 1001..1000+channelCount.
    int channelCount = 4;
    std::set<int> refusedChannels;
    bool refuseLogin = false;
    /// false: the device answers the JSON broadcast configuration with 404 (older firmware).
    bool stdConfigSupported = true;
    /// Where channel_<n>.wav / channel_<n>.mp3 recordings go; empty: nothing is recorded.
    std::string recordDirectory;
    /// Told about every talk; may be null.
    std::shared_ptr<ITalkSink> talkSink;
};

struct ChannelStats {
    uint64_t bytes = 0;  ///< encoded audio received
    int talks = 0;       ///< talks opened
    std::string audioType;
    std::string recordingPath;
};

struct DeviceSimStats {
    int logins = 0;
    int authFailures = 0;
    int stdConfigRequests = 0;
    int binaryConfigRequests = 0;
    int talksOpened = 0;
    int talksRefused = 0;
    int talksActive = 0;
    std::string audioType;  ///< "G.711ulaw" or "MP3", as configured last
    std::string lastConfigRequestLine;
    std::string lastConfigBody;
    std::vector<uint8_t> lastBinaryConfig;
    std::map<int, ChannelStats> channels;
};

class CDeviceSimulator : private Tal::Base::CNonCopyable {
public:
    CDeviceSimulator();
    ~CDeviceSimulator();

    /// Listens and serves on a thread of its own. False when the address cannot be bound.
    bool Start(const DeviceSimConfig& config);
    /// Ends open talks and the server; recordings are complete afterwards.
    void Stop();
    int Port() const;
    /// False: the listener stops and open talks end, so that connections are refused as by a switched-off
    /// device; true: it listens again on the same port. False when the port cannot be bound again.
    bool SetListening(bool listening);

    DeviceSimStats Stats() const;
    void SetRefuseLogin(bool refuse);
    void SetChannelRefused(int channel, bool refused);
    /// Waits until at least `bytes` of audio have arrived on `channel`; false after `timeout`.
    bool WaitForBytes(int channel, uint64_t bytes, std::chrono::milliseconds timeout) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace DeviceSim
