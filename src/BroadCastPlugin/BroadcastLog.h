#pragma once
// The module's one logging macro.

#include "framework/base/FormatLog.h"

/// Log line of the module: "[function]text[file(line)]" with the module tag "Broadcast".
#define BCAST_LOG(level, format, ...) TAL_LOG(level, "Broadcast", format, ##__VA_ARGS__)
