#pragma once
// Names the module is known by and calls by: its plugin id, the plugins and methods it calls, its menu
// entries.

namespace BroadCastPlugin {

/// Menu entries of the module.
extern const char* const c_menu_panel_tool_broadcast_1;
extern const char* const c_menu_real_broadcast_record_1;
extern const char* const c_menu_real_broadcast_record_2;

extern const char* const kPluginId;                  // "broadcast.c"
extern const char* const kDownloadCenterPluginId;    // "downloadcenter.c"
extern const char* const kDownloadCenterPushMethod;  // "PushDownloadTask"
extern const char* const kWebCallName;               // "executeJsFunction"
extern const char* const kModuleTag;                 // "Broadcast", the tag BCAST_LOG writes

}  // namespace BroadCastPlugin
