#include "platform/server/sim/devices/DeviceFarm.h"

#include "framework/base/FormatLog.h"
#include "platform/devicesim/DeviceSimulator.h"
#include "platform/server/sim/audio/SpeakerDecoder.h"
#include "platform/server/sim/devices/DeviceGroups.h"
#include "platform/server/sim/speakers/SpeakerSim.h"

namespace Platform {

namespace {

// Hands the talks of one device, decoded, to its speakers and to its broadcast group, and tells the group
// about refused logins and talks.
class CTalkRelay : public DeviceSim::ITalkSink {
public:
    CTalkRelay(CSpeakerSim& speakers, CDeviceGroups& groups, int deviceId)
        : speakers_(speakers), groups_(groups), deviceId_(deviceId) {}

    void OnTalkOpened(const std::string& talkId, int channel, const std::string& peer) override {
        std::lock_guard<std::mutex> lock(mutex_);
        Talk& talk = talks_[talkId];
        talk.peer = peer;
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d: talk %s on channel %d from %s[%s(%d)]",
                deviceId_, talkId.c_str(), channel, peer.c_str());
    }

    void OnTalkAudio(const std::string& talkId, int channel, const std::string& audioType, const char* data,
                     std::size_t size) override {
        std::vector<int16_t> pcm;
        std::string peer;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            Talk& talk = talks_[talkId];
            const SpeakerCodec codec = audioType == "MP3" ? SpeakerCodec::kMp3 : SpeakerCodec::kPcmu;
            if (!talk.decoder || talk.decoder->Codec() != codec) {
                talk.decoder = std::make_unique<CSpeakerDecoder>(codec);
            }
            std::string error;
            if (!talk.decoder->Decode(reinterpret_cast<const uint8_t*>(data), size, pcm, error) &&
                !talk.warned) {
                talk.warned = true;
                TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]device %d talk %s: %s[%s(%d)]", deviceId_,
                        talkId.c_str(), error.c_str());
            }
            peer = talk.peer;
        }
        speakers_.OnDeviceAudio(deviceId_, channel, SpeakerTransport::kDevice, peer, pcm.data(), pcm.size(),
                                size);
        groups_.OnAudio(deviceId_, channel, pcm.data(), pcm.size(), size);
    }

    void OnTalkClosed(const std::string& talkId, int) override {
        std::lock_guard<std::mutex> lock(mutex_);
        talks_.erase(talkId);
    }

    void OnLoginRefused(const std::string& peer) override {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d: login from %s refused[%s(%d)]", deviceId_,
                peer.c_str());
        groups_.OnLoginRefused(deviceId_);
    }

    void OnTalkRefused(int channel, const std::string& peer) override {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d: talk on channel %d from %s refused[%s(%d)]",
                deviceId_, channel, peer.c_str());
        groups_.OnTalkRefused(deviceId_, channel);
    }

private:
    struct Talk {
        std::string peer;
        std::unique_ptr<CSpeakerDecoder> decoder;
        bool warned = false;
    };
    CSpeakerSim& speakers_;
    CDeviceGroups& groups_;
    const int deviceId_;
    std::mutex mutex_;
    std::map<std::string, Talk> talks_;
};

}  // namespace

struct CDeviceFarm::Device {
    SimDeviceConfig config;
    std::unique_ptr<DeviceSim::CDeviceSimulator> simulator;
    bool refuseLogin = false;
    std::set<int> refusedChannels;
    bool online = true;
    std::mutex power;  ///< one switch on or off at a time; held while the listener stops or starts
};

CDeviceFarm::CDeviceFarm(CSpeakerSim& speakers, CDeviceGroups& groups)
    : speakers_(speakers), groups_(groups) {}

CDeviceFarm::~CDeviceFarm() {
    Stop();
}

bool CDeviceFarm::Start(const std::vector<SimDeviceConfig>& devices, std::string& error) {
    std::vector<std::unique_ptr<Device>> started;
    for (const SimDeviceConfig& config : devices) {
        auto device = std::make_unique<Device>();
        device->config = config;
        DeviceSim::DeviceSimConfig sim;
        sim.host = config.address;
        sim.port = config.port;
        sim.userName = config.userName;
        sim.password = config.password;
        sim.deviceName = config.name;
        sim.serialNumber = "SIM-" + std::to_string(config.deviceId);
        sim.channelCount = config.channels;
        sim.talkSink = std::make_shared<CTalkRelay>(speakers_, groups_, config.deviceId);
        device->simulator = std::make_unique<DeviceSim::CDeviceSimulator>();
        if (!device->simulator->Start(sim)) {
            error = "device " + std::to_string(config.deviceId) + " (" + config.name + ") cannot listen on " +
                    config.address + ":" + std::to_string(config.port);
            return false;  // the ones started so far stop with `started`
        }
        device->config.port = device->simulator->Port();
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d (%s) on http://%s:%d, %d channels[%s(%d)]",
                config.deviceId, config.name.c_str(), config.address.c_str(), device->config.port,
                config.channels);
        started.push_back(std::move(device));
    }
    std::lock_guard<std::mutex> lock(mutex_);
    devices_ = std::move(started);
    return true;
}

void CDeviceFarm::Stop() {
    std::vector<std::unique_ptr<Device>> devices;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        devices = std::move(devices_);
        devices_.clear();
    }
    for (auto& d : devices) {
        d->simulator->Stop();
    }
}

CDeviceFarm::Device* CDeviceFarm::Find(int deviceId) const {
    for (const auto& d : devices_) {
        if (d->config.deviceId == deviceId) {
            return d.get();
        }
    }
    return nullptr;
}

bool CDeviceFarm::Has(int deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return Find(deviceId) != nullptr;
}

int CDeviceFarm::PortOf(int deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Device* d = Find(deviceId);
    return d != nullptr ? d->config.port : 0;
}

bool CDeviceFarm::SetRefuseLogin(int deviceId, bool refuse) {
    std::lock_guard<std::mutex> lock(mutex_);
    Device* d = Find(deviceId);
    if (d == nullptr) {
        return false;
    }
    d->refuseLogin = refuse;
    d->simulator->SetRefuseLogin(refuse);
    return true;
}

bool CDeviceFarm::SetRefusedChannels(int deviceId, const std::set<int>& channels) {
    std::lock_guard<std::mutex> lock(mutex_);
    Device* d = Find(deviceId);
    if (d == nullptr) {
        return false;
    }
    for (int channel : d->refusedChannels) {
        d->simulator->SetChannelRefused(channel, false);
    }
    for (int channel : channels) {
        d->simulator->SetChannelRefused(channel, true);
    }
    d->refusedChannels = channels;
    return true;
}

bool CDeviceFarm::SetOnline(int deviceId, bool online) {
    Device* d = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        d = Find(deviceId);
    }
    if (d == nullptr) {
        return false;
    }
    // The device list only changes at Start and Stop, so `d` stays valid; stopping or starting the
    // listener waits for its thread, which must not happen under the farm's lock.
    std::lock_guard<std::mutex> power(d->power);
    if (!d->simulator->SetListening(online)) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]device %d cannot listen on port %d again[%s(%d)]",
                deviceId, d->config.port);
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        d->online = online;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device %d is %s[%s(%d)]", deviceId,
            online ? "online" : "offline");
    groups_.OnOnline(deviceId, online);
    return true;
}

bool CDeviceFarm::IsOnline(int deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Device* d = Find(deviceId);
    return d != nullptr && d->online;
}

std::vector<SimDeviceStats> CDeviceFarm::Stats() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<SimDeviceStats> out;
    for (const auto& d : devices_) {
        const DeviceSim::DeviceSimStats s = d->simulator->Stats();
        SimDeviceStats stats;
        stats.deviceId = d->config.deviceId;
        stats.address = d->config.address;
        stats.port = d->config.port;
        stats.refuseLogin = d->refuseLogin;
        stats.refusedChannels.assign(d->refusedChannels.begin(), d->refusedChannels.end());
        stats.logins = s.logins;
        stats.authFailures = s.authFailures;
        stats.talksOpened = s.talksOpened;
        stats.talksRefused = s.talksRefused;
        stats.talksActive = s.talksActive;
        stats.audioType = s.audioType;
        stats.online = d->online;
        for (const auto& channel : s.channels) {
            stats.bytes += channel.second.bytes;
        }
        out.push_back(stats);
    }
    return out;
}

void CDeviceFarm::Reset() {
    std::vector<int> ids;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& d : devices_) {
            ids.push_back(d->config.deviceId);
        }
    }
    for (int id : ids) {
        SetRefuseLogin(id, false);
        SetRefusedChannels(id, {});
        if (!IsOnline(id)) {
            SetOnline(id, true);
        }
    }
}

}  // namespace Platform
