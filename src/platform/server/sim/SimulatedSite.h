#pragma once
// Everything of the site behind the platform that a client sends audio to: the speakers (one per
// broadcast element), the streaming server, the devices reached through the device network interface and
// the UDP speakers. Starts them from the fixture (writing the ports they got back into it, so that what
// the platform hands out is where they listen) and is what the REST handlers tell about broadcasts.

#include <memory>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/push/PushFrame.h"
#include "platform/server/state/BroadcastRegistry.h"

namespace Platform {

class CSpeakerSim;
class CStreamingServer;
class CDeviceFarm;
class CDeviceGroups;
class COemSpeakers;

struct SiteOptions {
    std::string speakerDir;
    std::string bindAddress = "127.0.0.1";  ///< of the streaming server
    bool anyPorts = false;                  ///< every simulated peer on a free port instead of the fixture's
    bool peers = true;  ///< false: speakers only, no streaming server, devices or UDP sockets
};

class CSimulatedSite : private Tal::Base::CNonCopyable {
public:
    CSimulatedSite(Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink, IScheduler& scheduler,
                   SiteOptions options);
    ~CSimulatedSite();

    /// Starts the speakers and the peers. False with a reason; nothing is left running then.
    bool Start(std::string& error);
    /// Peers first (no more audio arrives), then the speakers.
    void Stop();

    CSpeakerSim& Speakers() { return *speakers_; }
    /// Null when the site runs without peers.
    CStreamingServer* Streaming() { return streaming_.get(); }
    CDeviceFarm* Devices() { return devices_.get(); }
    /// Device broadcast groups; null when the site runs without peers.
    CDeviceGroups* DeviceGroups() { return deviceGroups_.get(); }
    COemSpeakers* Oem() { return oem_.get(); }
    const SiteOptions& Options() const { return options_; }

    /// A group's addresses were handed out: opens its talk address (streaming server) and lets its
    /// speakers join.
    void OnGroupCreated(const BroadcastGroup& group);
    /// Back to the fixture's state: plays and device groups ended, talk addresses closed, refusals lifted,
    /// devices online.
    void Reset();

private:
    Fixture& fixture_;
    SiteOptions options_;
    std::unique_ptr<CSpeakerSim> speakers_;
    IPushSink& sink_;
    IScheduler& scheduler_;
    std::unique_ptr<CDeviceGroups> deviceGroups_;
    std::unique_ptr<CStreamingServer> streaming_;
    std::unique_ptr<CDeviceFarm> devices_;
    std::unique_ptr<COemSpeakers> oem_;
};

}  // namespace Platform
