#pragma once
// The harness shared by the fuzz targets: the trap on a broken invariant, the field split of an input, and
// the set-up several targets repeat (quiet logs, a logged-in client, a scratch directory).

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/business/UserCommonManager.h"

namespace FuzzSupport {

/// Stops the run like a crash when an invariant does not hold.
inline void Check(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

/// The input cut at every 0x01 byte (a byte that never appears raw in JSON text); always one field at least.
inline std::vector<std::string> SplitFields(const uint8_t* data, std::size_t size) {
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0x01) {
            fields.emplace_back();
        } else {
            fields.back().push_back(static_cast<char>(data[i]));
        }
    }
    return fields;
}

/// Only the framework's most severe log lines reach stderr, so that millions of inputs do not flood it.
inline void QuietLogs() {
    setenv("TAL_LOG_STDERR_LEVEL", "7", 1);
    Tal::Base::UninitLog();
}

/// Quiet logs and a client logged in to 127.0.0.1:1, so that token, password and key decryption runs on
/// fuzzed text.
inline void QuietLogsAndLogin() {
    QuietLogs();
    BusinessCommon::LoginInfo login;
    login.address = "127.0.0.1";
    login.port = 1;
    login.sessionKey = "fuzz-session-key";
    BusinessCommon::CUserCommonManager::Instance()->SetLoginInfo(login);
}

/// A fresh directory under /tmp for files the target writes; aborts when none can be made.
inline std::string ScratchDir(const std::string& tag) {
    std::string pattern = "/tmp/" + tag + ".XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
        std::abort();
    }
    return pattern;
}

}  // namespace FuzzSupport
