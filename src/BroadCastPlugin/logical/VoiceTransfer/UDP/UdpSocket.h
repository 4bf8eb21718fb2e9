#pragma once
// Owner of one POSIX socket descriptor, and the set-up of a socket that sends to a multicast group.

#include <string>

#include "BroadCastPlugin/logical/VoiceTransfer/UniqueHandle.h"
#include "framework/base/Multicast.h"

namespace BroadCastPlugin {

class CUniqueSocket : public CUniqueHandle<CUniqueSocket, int> {
public:
    CUniqueSocket() = default;
    explicit CUniqueSocket(int fd) : CUniqueHandle(fd) {}
    ~CUniqueSocket() { Reset(); }
    CUniqueSocket(CUniqueSocket&&) noexcept = default;
    CUniqueSocket& operator=(CUniqueSocket&&) noexcept = default;

    /// Closes the current descriptor and takes `fd`.
    void Reset(int fd = -1);
};

/// Hops a multicast stream may cross: enough for a site's routers, not beyond.
constexpr int kMulticastTtl = 16;

using Tal::Base::IsMulticastGroup;

/// Makes `fd` send multicast through the interface whose address reaches `host` (a site's speakers sit on
/// the network of its platform server), with a time-to-live of kMulticastTtl. Returns that interface's
/// address; empty when `host` is empty or unreachable, and the system's multicast route then decides.
std::string RouteMulticastToward(int fd, const std::string& host);

}  // namespace BroadCastPlugin
