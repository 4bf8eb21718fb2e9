#pragma once
// Process-wide constants of the module.

#include "framework/base/FormatLog.h"

namespace BroadCastPlugin {

extern const char* const c_menu_panel_tool_broadcast_1;
extern const char* const c_menu_real_broadcast_record_1;
extern const char* const c_menu_real_broadcast_record_2;

extern const char* const kPluginId;                  // "broadcast.c"
extern const char* const kDownloadCenterPluginId;    // "downloadcenter.c"
extern const char* const kDownloadCenterPushMethod;  // "PushDownloadTask"
extern const char* const kWebCallName;               // "executeJsFunction"
extern const char* const kModuleTag;                 // "Broadcast"

/// Message levels of the UI prompts.
extern const char* const kMessageLevelBrand;
extern const char* const kMessageLevelNeutral;
extern const char* const kMessageLevelDanger;
extern const char* const kMessageLevelInfo;
extern const char* const kMessageLevelRemind;
extern const char* const kMessageLevelSuccess;
extern const char* const kMessageLevelWarning;

/// Shared with the web panel base widget, which sets and reads it.
extern bool recordPageOnAuxScreen;

/// Operation-log types of business actions.
constexpr int kOperationLogBroadcastStart = 265001;
constexpr int kOperationLogBroadcastStop = 265002;
constexpr int kOperationLogListenStart = 203001;
constexpr int kOperationLogListenStop = 203002;

/// Module number of the module's own errors and its codes.
constexpr int kModuleBroadcast = 20;
constexpr int kErrorBadServerResponse = 2001;
constexpr int kErrorWanPortClosed = 2002;
constexpr int kErrorUploadClientStart = 3403;
constexpr int kErrorDownloadClientStart = 3404;

}  // namespace BroadCastPlugin

/// Log line of the module: "[function]text[file(line)]" with the module tag "Broadcast".
#define BCAST_LOG(level, format, ...) TAL_LOG(level, "Broadcast", format, ##__VA_ARGS__)
