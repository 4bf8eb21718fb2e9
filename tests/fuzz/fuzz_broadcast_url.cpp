// libFuzzer target: the decoding of broadcast address answers must never crash or hang, whatever the
// platform sends, and must keep its own invariants.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/base/FormatLog.h"
#include "framework/business/UserCommonManager.h"

namespace {
bool Setup() {
    // Quiet logs and a login, so that token and password decryption runs on fuzzed text.
    setenv("TAL_LOG_STDERR_LEVEL", "7", 1);
    Tal::Base::UninitLog();
    BusinessCommon::LoginInfo login;
    login.address = "127.0.0.1";
    login.port = 1;
    login.sessionKey = "fuzz-session-key";
    BusinessCommon::CUserCommonManager::Instance()->SetLoginInfo(login);
    return true;
}
const bool g_ready = Setup();
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::string text(reinterpret_cast<const char*>(data), size);
    BroadCastPlugin::ErrorCode error;
    std::vector<BroadCastPlugin::BroadcastUrlInfo> urls;
    const bool ok = BroadCastPlugin::ParseBroadUrlRawData(error, urls, text);
    if (!ok && !urls.empty()) {
        __builtin_trap();  // a refused answer appends nothing
    }
    for (const auto& info : urls) {
        const bool known = info.Method == BroadCastPlugin::kMethodStreaming ||
                           info.Method == BroadCastPlugin::kMethodStreamingV1 ||
                           info.Method == BroadCastPlugin::kMethodDeviceSdk;
        if (known == info.Url.empty()) {
            __builtin_trap();  // an address is kept exactly when its method was recognised
        }
        if (!info.TokenEnabled && !info.Token.empty()) {
            __builtin_trap();
        }
    }
    BroadCastPlugin::BroadcastUrlInfo single;
    BroadCastPlugin::ParseBroadcastUrl(text, single, size % 2 == 0);
    return 0;
}
