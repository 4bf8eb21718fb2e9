#pragma once
// The host's command-line modes.

#include <ostream>
#include <string>
#include <vector>

#include "host/ClientConfig.h"
#include "host/PluginModule.h"

namespace BcastHost {

/// Runs Init, Start, UpdateFrame, Notify, StopWorking and UnInit, printing each result.
/// Returns 0 when all succeed, 1 otherwise.
int RunLifecycle(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out);

struct ApiCall {
    std::string method;          ///< the name after "/API/Broadcast/V0/"
    std::string request = "{}";  ///< the request JSON
};

struct ApiOptions {
    std::vector<ApiCall> calls;
    double waitSeconds =
        -1;  ///< how long to print notifications after each call; < 0: until the work settles
};

/// Starts the module, calls its named JSON methods in turn through the plugin bus as a registered listener,
/// prints each answer and every notification until the work settles (or for the given time), then stops it.
/// Returns 0 when every call succeeded and no failure was notified, 1 otherwise.
int RunApi(const ClientConfig& config, const PluginEntryPoints& entry, const ApiOptions& options,
           std::ostream& out);

/// Starts the module, shows its broadcast panel in a window and runs until the window closes.
/// Shows the module's broadcast panel in a window until it is closed. With `screenshotDir` it instead waits
/// for the site to load, writes one PNG per tab of the panel (console-<n>-<tab>.png) and returns.
int RunGui(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out,
           const std::string& screenshotDir = std::string());

/// Starts the module, prints the addresses of its web pages ("page: URL", "record page: URL") and serves
/// them until SIGINT or SIGTERM, then stops the module. Returns 0 after a clean stop.
int RunWebUi(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out);

}  // namespace BcastHost
