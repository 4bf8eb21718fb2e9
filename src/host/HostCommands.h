#pragma once
// The host's command-line modes.

#include <ostream>

#include "host/ClientConfig.h"
#include "host/PluginModule.h"

namespace BcastHost {

/// Runs Init, Start, UpdateFrame, Notify, StopWorking and UnInit, printing each result.
/// Returns 0 when all succeed, 1 otherwise.
int RunLifecycle(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out);

/// Starts the module, shows its broadcast panel in a window and runs until the window closes.
int RunGui(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out);

}  // namespace BcastHost
