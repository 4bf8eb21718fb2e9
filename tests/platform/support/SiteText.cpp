#include "SiteText.h"

#include <utility>

namespace PlatformTest {

bool AddUdpSpeakers(std::string& compactSite, const std::vector<UdpSpeakerEntry>& speakers) {
    std::string devices;
    std::string elements;
    for (const UdpSpeakerEntry& s : speakers) {
        devices += "{\"ID\":" + std::to_string(s.deviceId) + ",\"Name\":\"" + s.name +
                   " speaker\",\"DeviceType\":2020,\"AccessProtocol\":23,\"IP\":\"" + s.ip +
                   "\",\"Port\":" + std::to_string(s.port) +
                   ",\"UserName\":\"\",\"Password\":\"\",\"StreamAccessType\":3},";
        elements += "{\"ID\":" + std::to_string(s.elementId) + ",\"Name\":\"" + s.name +
                    "\",\"DeviceID\":" + std::to_string(s.deviceId) +
                    ",\"Channel\":1,\"Stream\":\"sdk\",\"Partitions\":[2],\"Config\":{\"PeerTaskHandling\":1,"
                    "\"AudioCount\":1,\"Volume\":100},\"TerminalStatus\":1,\"Area\":{\"AreaID\":20,"
                    "\"AreaName\":\"Parking deck\"}},";
    }
    for (const auto& list : {std::make_pair(std::string("\"Devices\":["), devices),
                             std::make_pair(std::string("\"Elements\":["), elements)}) {
        const std::size_t at = compactSite.find(list.first);
        if (at == std::string::npos) {
            return false;
        }
        compactSite.insert(at + list.first.size(), list.second);
    }
    return true;
}

}  // namespace PlatformTest
