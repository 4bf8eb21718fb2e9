#pragma once
// The site's devices reached through the device network interface: one simulated device (bcast_devicesim)
// per device of access protocol 1 that takes a device broadcast (a loudspeaker of its own, or elements
// broadcast to directly), on the fixture's address, port and credentials. Audio of a talk on a channel is
// played by the element on that channel, and belongs to the device's broadcast group when it is in one.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"

namespace DeviceSim {
class CDeviceSimulator;
}

namespace Platform {

class CSpeakerSim;
class CDeviceGroups;

struct SimDeviceConfig {
    int deviceId = 0;
    std::string name;
    std::string address;
    int port = 0;  ///< 0: any free port
    std::string userName;
    std::string password;
    int channels = 1;
};

struct SimDeviceStats {
    int deviceId = 0;
    std::string address;
    int port = 0;
    bool refuseLogin = false;
    std::vector<int> refusedChannels;
    int logins = 0;
    int authFailures = 0;
    int talksOpened = 0;
    int talksRefused = 0;
    int talksActive = 0;
    std::string audioType;
    uint64_t bytes = 0;
    bool online = true;
};

class CDeviceFarm : private Tal::Base::CNonCopyable {
public:
    CDeviceFarm(CSpeakerSim& speakers, CDeviceGroups& groups);
    ~CDeviceFarm();

    /// Starts every device. False with a reason naming the device; then none runs.
    bool Start(const std::vector<SimDeviceConfig>& devices, std::string& error);
    void Stop();
    bool Has(int deviceId) const;
    int PortOf(int deviceId) const;
    /// False for a device the farm does not run.
    bool SetRefuseLogin(int deviceId, bool refuse);
    bool SetRefusedChannels(int deviceId, const std::set<int>& channels);
    /// Offline: the device stops listening (connections are refused) and its talks end; online: it listens
    /// again on the same port. False for a device the farm does not run, or one that cannot listen again.
    bool SetOnline(int deviceId, bool online);
    bool IsOnline(int deviceId) const;
    std::vector<SimDeviceStats> Stats() const;
    /// Accepts logins and every channel again, and brings every device online.
    void Reset();

private:
    struct Device;
    Device* Find(int deviceId) const;

    CSpeakerSim& speakers_;
    CDeviceGroups& groups_;
    std::vector<std::unique_ptr<Device>> devices_;
    mutable std::mutex mutex_;  ///< guards the refusal records and online states
};

}  // namespace Platform
