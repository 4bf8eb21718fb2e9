#pragma once
// Whether an address is a multicast group: the client sends one stream to such a group's speakers, and the
// reference platform's speakers at such an address join the group.

#include <arpa/inet.h>
#include <netinet/in.h>

#include <string>

namespace Tal {
namespace Base {

/// Whether `ipAddress` (dotted IPv4) is a multicast group (224.0.0.0/4).
inline bool IsMulticastGroup(const std::string& ipAddress) {
    in_addr address{};
    return ::inet_pton(AF_INET, ipAddress.c_str(), &address) == 1 && IN_MULTICAST(ntohl(address.s_addr));
}

}  // namespace Base
}  // namespace Tal
