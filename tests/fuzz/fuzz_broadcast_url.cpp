// libFuzzer target: the decoding of broadcast address answers must never crash or hang, whatever the
// platform sends, and must keep its own invariants.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "FuzzSupport.h"

using FuzzSupport::Check;

namespace {
const bool g_ready = (FuzzSupport::QuietLogsAndLogin(), true);
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::string text(reinterpret_cast<const char*>(data), size);
    BroadCastPlugin::ErrorCode error;
    std::vector<BroadCastPlugin::BroadcastUrlInfo> urls;
    const bool ok = BroadCastPlugin::ParseBroadUrlRawData(error, urls, text);
    Check(ok || urls.empty());  // a refused answer appends nothing
    for (const auto& info : urls) {
        const bool known = info.Method == BroadCastPlugin::kMethodStreaming ||
                           info.Method == BroadCastPlugin::kMethodStreamingV1 ||
                           info.Method == BroadCastPlugin::kMethodDeviceSdk;
        Check(known != info.Url.empty());  // an address is kept exactly when its method was recognised
        Check(info.TokenEnabled || info.Token.empty());
    }
    BroadCastPlugin::BroadcastUrlInfo single;
    BroadCastPlugin::ParseBroadcastUrl(text, single, size % 2 == 0);
    return 0;
}
