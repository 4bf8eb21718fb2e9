#include "framework/netcomm/NetlibWrapper.h"

#include <atomic>

namespace NetworkCommunication {
namespace NetlibWrapper {

namespace {
std::atomic<int> g_factor{kTimeoutDefault};
}

void SetTimeoutFacotor(TimeoutFactor factor) {
    g_factor.store(static_cast<int>(factor));
}

TimeoutFactor GetTimeoutFacotor() {
    return static_cast<TimeoutFactor>(g_factor.load());
}

int GetRequestTimeoutMs() {
    switch (g_factor.load()) {
        case kTimeoutMedium:
            return 20000;
        case kTimeoutLong:
            return 40000;
        default:
            return 10000;
    }
}

}  // namespace NetlibWrapper
}  // namespace NetworkCommunication
