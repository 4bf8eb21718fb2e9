#pragma once
// Variants of a site fixture for suites and benches that need more speakers than the demo site has.

#include <string>
#include <vector>

namespace PlatformTest {

/// A further RTP speaker: its device (access protocol 23) and the element that broadcasts to it, in the
/// parking deck's partition.
struct UdpSpeakerEntry {
    int deviceId = 0;
    int elementId = 0;
    std::string name;
    std::string ip = "127.0.0.1";  ///< a multicast group makes the speaker one of the group's members
    int port = 0;                  ///< 0: any free port (a group's members share the first one's)
};

/// Puts `speakers` in front of the devices and elements of `compactSite`, the site as compact JSON text
/// (which has exactly one "Devices":[ and one "Elements":[). False when either list is missing.
bool AddUdpSpeakers(std::string& compactSite, const std::vector<UdpSpeakerEntry>& speakers);

}  // namespace PlatformTest
