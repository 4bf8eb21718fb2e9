#pragma once
// Where a broadcast's audio goes: the platform's addresses for the speakers, asked for by stream access
// type, and the transport targets built from them (streaming server, device SDK, RTP over UDP).

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

struct SpeakerEntry;

/// Stream access types of speakers.
enum StreamAccessType {
    kAccessAuto = 0,
    kAccessDelegate = 2,
    kAccessDirect = 3,
    kAccessSystemDefault = 4,
    kAccessCenterDelegate = 20,
};

/// The transport targets of one broadcast, built from the platform's addresses.
struct BroadcastTargets {
    std::vector<ZPSTransferTarget> zps;
    std::vector<SDKTransferTarget> sdk;
    std::vector<OEMTransferTarget> oem;

    bool HasDeviceTargets() const { return !sdk.empty() || !oem.empty(); }
};

/// Element ids (as text) of the device targets of one broadcast group.
using DeviceGroup = std::pair<std::string, std::vector<std::string>>;

class CSpeakerTargets {
public:
    /// Asks the platform for the addresses of the elements, one request per stream access type; false
    /// (with the platform's error as the thread's last error) when the platform refuses.
    static bool RequestUrls(std::vector<BroadcastUrlInfo>& urls, const std::vector<int32_t>& elementIDs,
                            bool filePlayback, int32_t defaultAccessType, bool promptVoice);
    /// The transport targets of addresses: streaming-server addresses of method 7; device SDK and RTP
    /// speakers behind addresses of method 2, by their devices' type and access protocol.
    static BroadcastTargets Build(const std::vector<BroadcastUrlInfo>& urls, int32_t encodeType);
    /// The speakers behind device SDK and RTP targets, grouped by broadcast group in first-seen order.
    static std::vector<DeviceGroup> DeviceGroups(const std::map<int32_t, SpeakerEntry>& speakers);
};

}  // namespace BroadCastPlugin
