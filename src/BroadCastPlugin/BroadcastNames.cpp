#include "BroadCastPlugin/BroadcastNames.h"

namespace BroadCastPlugin {

const char* const c_menu_panel_tool_broadcast_1 = "c_menu_panel_tool_broadcast_1";
const char* const c_menu_real_broadcast_record_1 = "c_menu_real_broadcast_record_1";
const char* const c_menu_real_broadcast_record_2 = "c_menu_real_broadcast_record_2";

const char* const kPluginId = "broadcast.c";
const char* const kDownloadCenterPluginId = "downloadcenter.c";
const char* const kDownloadCenterPushMethod = "PushDownloadTask";
const char* const kWebCallName = "executeJsFunction";
const char* const kModuleTag = "Broadcast";

}  // namespace BroadCastPlugin
