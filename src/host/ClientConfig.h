#pragma once
// The client configuration of the host: where the platform is, who logs in, and the client's settings.

#include <string>

#include "framework/business/PlatformLogin.h"

namespace BcastHost {

struct ClientConfig {
    std::string platformAddress = "127.0.0.1";
    int platformPort = 0;
    bool https = false;
    std::string caFile;
    std::string userName;
    std::string password;
    std::string language = "en_US";
    int netOvertime = 0;
    int logLevel = 3;
    int stderrLogLevel = 5;
    std::string dataPath;     ///< ends with '/'
    std::string capturePath;  ///< ends with '/'
    std::string text;         ///< the configuration as read
};

/// Reads and checks a configuration file. Empty paths get defaults under $XDG_DATA_HOME (or
/// ~/.local/share)/bcast-host/. False with a one-line reason naming the file on a missing file, malformed
/// JSON, an unknown (mistyped) key, a value of the wrong type, a missing /Platform/Address or
/// /Platform/Port, or bad values.
bool LoadClientConfig(const std::string& path, ClientConfig& config, std::string& error);

/// Hands the configuration to the framework: configuration text, data paths, network time-out level,
/// and the log file "<data path>/log/bcast-host.log".
bool ApplyClientConfig(const ClientConfig& config, std::string& error);

/// The login the configuration describes.
BusinessCommon::PlatformLoginRequest LoginRequestOf(const ClientConfig& config);

}  // namespace BcastHost
