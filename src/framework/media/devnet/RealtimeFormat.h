#pragma once
// Configures the real-time broadcast audio format of a device: the JSON configuration first, the binary
// configuration 1059 for older devices that do not know it.

#include <cstdint>
#include <string>

namespace DevNet {

/// Module number of the device network interface's errors in an ErrorCode (the code is DEVNET_GetLastError).
constexpr int kErrorModule = 1;

/// Encode types of the real-time broadcast format.
constexpr int32_t kEncodeG711U = 1;
constexpr int32_t kEncodeMP3 = 15;

/// JSON body of the configuration for an encode type; empty for a type the device format does not name.
std::string RealtimeFormatBody(int32_t encodeType);

struct RealtimeFormatResult {
    bool stdConfigOk = false;
    uint32_t stdConfigError = 0;  ///< DEVNET error of the JSON configuration when it failed
    bool fallbackOk = false;      ///< the binary configuration, tried only when the JSON one failed
    uint32_t fallbackError = 0;
    std::string answer;  ///< the device's answer to the JSON configuration
};

/// Sends the format to a logged-in device. Blocks on the device's answer.
RealtimeFormatResult ConfigureRealtimeFormat(int32_t userId, int32_t encodeType);

}  // namespace DevNet
