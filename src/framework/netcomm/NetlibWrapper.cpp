#include "framework/netcomm/NetlibWrapper.h"

#include <atomic>

namespace NetworkCommunication {
namespace NetlibWrapper {

namespace {
std::atomic<int> g_factor{kTimeoutDefault};
std::atomic<int> g_explicitMs{0};
}  // namespace

void SetRequestTimeoutMs(int milliseconds) { g_explicitMs.store(milliseconds > 0 ? milliseconds : 0); }

void SetTimeoutFacotor(TimeoutFactor factor) {
    g_factor.store(static_cast<int>(factor));
}

TimeoutFactor GetTimeoutFacotor() {
    return static_cast<TimeoutFactor>(g_factor.load());
}

int GetRequestTimeoutMs() {
    if (const int explicitMs = g_explicitMs.load()) {
        return explicitMs;
    }
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
