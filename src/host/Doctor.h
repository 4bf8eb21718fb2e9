#pragma once
// `bcast-host doctor`: checks what a client needs, one line per check with what to do when it fails.

#include <ostream>
#include <string>

#include "host/ClientConfig.h"

namespace BcastHost {

/// Runs the checks in turn and prints "ok   CHECK: what was found" or "FAIL CHECK: why; what to do" for
/// each: the data directory, the module, the platform's address, the login, the push link, the ports of
/// the devices the platform lists, and the audio capture and playback devices. Logs out at the end.
/// Returns 0 when every check passed, 1 otherwise. The application object must exist (the push link).
int RunDoctor(const ClientConfig& config, const std::string& configPath, const std::string& modulePath,
              std::ostream& out);

/// Opens a TCP connection to host:port within `timeoutMs`. False with `error` (the reason) otherwise.
bool ProbeTcp(const std::string& host, int port, int timeoutMs, std::string& error);

}  // namespace BcastHost
