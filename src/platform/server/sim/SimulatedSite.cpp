#include "platform/server/sim/SimulatedSite.h"

#include <algorithm>
#include <set>

#include "framework/base/FormatLog.h"
#include "platform/server/sim/devices/DeviceFarm.h"
#include "platform/server/sim/devices/DeviceGroups.h"
#include "platform/server/sim/oem/OemSpeakers.h"
#include "platform/server/sim/speakers/SpeakerSim.h"
#include "platform/server/sim/streaming/StreamingServer.h"

namespace Platform {

CSimulatedSite::CSimulatedSite(Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink,
                               IScheduler& scheduler, SiteOptions options)
    : fixture_(fixture),
      options_(std::move(options)),
      speakers_(std::make_unique<CSpeakerSim>(fixture, registry, sink, scheduler, options_.speakerDir)),
      sink_(sink),
      scheduler_(scheduler) {}

CSimulatedSite::~CSimulatedSite() {
    Stop();
}

bool CSimulatedSite::Start(std::string& error) {
    if (!speakers_->Start(error)) {
        return false;
    }
    if (!options_.peers) {
        return true;
    }
    auto fail = [this] {
        Stop();
        return false;
    };
    std::map<int, int> channels;  // device id -> highest element channel
    std::set<int> listened;
    for (const Element& e : fixture_.elements) {
        listened.insert(e.deviceId);
        channels[e.deviceId] = std::max(channels[e.deviceId], e.channel);
    }

    StreamingServer& sms = fixture_.streamingServer;
    StreamingServerConfig streaming;
    streaming.bindAddress = options_.bindAddress;
    streaming.port = options_.anyPorts ? 0 : sms.rtspPort;
    streaming.pathPrefix = sms.pathPrefix;
    streaming.userName = sms.userName;
    streaming.password = sms.password;
    streaming.tokenEnabled = sms.tokenEnabled;
    streaming.jitterBufferMs = static_cast<unsigned>(sms.jitterBufferMs);
    streaming.listenDevices.assign(listened.begin(), listened.end());
    if (!BackchannelCodecOf(sms.backchannelCodec, fixture_.baseConfig.audioCompressionType,
                            streaming.backchannelCodec)) {
        streaming.backchannelCodec = SpeakerCodec::kPcmu;
        TAL_LOG(Tal::Base::kLogWarn, "Platform",
                "[%s]compression type %s has no backchannel codec; PCMU[%s(%d)]",
                fixture_.baseConfig.audioCompressionType.c_str());
    }
    streaming_ = std::make_unique<CStreamingServer>(*speakers_);
    if (!streaming_->Start(streaming, error)) {
        return fail();
    }
    sms.rtspPort = streaming_->Port();

    std::vector<SimDeviceConfig> farm;
    std::vector<OemSpeakerConfig> udp;
    for (const Device& d : fixture_.devices) {
        if (TakesDeviceBroadcast(fixture_, d)) {
            SimDeviceConfig c;
            c.deviceId = d.id;
            c.name = d.name;
            c.address = d.ip;
            c.port = options_.anyPorts ? 0 : d.port;
            c.userName = d.userName;
            c.password = d.password;
            c.channels = std::max(1, channels[d.id]);
            farm.push_back(c);
        } else if (d.deviceType == kDeviceTypeIpSpeaker && d.accessProtocol == kAccessProtocolRtpOverUdp) {
            OemSpeakerConfig c;
            c.deviceId = d.id;
            c.address = d.ip;
            c.port = options_.anyPorts ? 0 : d.port;
            udp.push_back(c);
        }
    }
    deviceGroups_ = std::make_unique<CDeviceGroups>(sink_, scheduler_, speakers_->SpeakerDir());
    devices_ = std::make_unique<CDeviceFarm>(*speakers_, *deviceGroups_);
    if (!devices_->Start(farm, error)) {
        return fail();
    }
    oem_ = std::make_unique<COemSpeakers>(*speakers_);
    if (!oem_->Start(udp, error)) {
        return fail();
    }
    for (Device& d : fixture_.devices) {
        if (devices_->Has(d.id)) {
            d.port = devices_->PortOf(d.id);
        } else if (const int port = oem_->PortOf(d.id)) {
            d.port = port;
        }
    }
    return true;
}

void CSimulatedSite::Stop() {
    if (streaming_) {
        streaming_->Stop();
    }
    if (devices_) {
        devices_->Stop();
    }
    if (oem_) {
        oem_->Stop();
    }
    if (deviceGroups_) {
        deviceGroups_->Reset();
    }
    speakers_->Stop();
}

void CSimulatedSite::OnGroupCreated(const BroadcastGroup& group) {
    if (streaming_ && group.transport == GroupTransport::kSms) {
        streaming_->AddTalkMount(group.guid, group.token);
    }
    speakers_->OnGroupCreated(group);
}

void CSimulatedSite::Reset() {
    speakers_->Reset();
    if (streaming_) {
        streaming_->Reset();
    }
    if (deviceGroups_) {
        deviceGroups_->Reset();
    }
    if (devices_) {
        devices_->Reset();
    }
}

}  // namespace Platform
