#include "BroadCastPlugin/BroadcastConstants.h"

namespace BroadCastPlugin {

const char* const c_menu_panel_tool_broadcast_1 = "c_menu_panel_tool_broadcast_1";
const char* const c_menu_real_broadcast_record_1 = "c_menu_real_broadcast_record_1";
const char* const c_menu_real_broadcast_record_2 = "c_menu_real_broadcast_record_2";

const char* const kPluginId = "broadcast.c";
const char* const kDownloadCenterPluginId = "downloadcenter.c";
const char* const kDownloadCenterPushMethod = "PushDownloadTask";
const char* const kWebCallName = "executeJsFunction";
const char* const kModuleTag = "Broadcast";

const char* const kMessageLevelBrand = "brand";
const char* const kMessageLevelNeutral = "neutral";
const char* const kMessageLevelDanger = "danger";
const char* const kMessageLevelInfo = "info";
const char* const kMessageLevelRemind = "remind";
const char* const kMessageLevelSuccess = "success";
const char* const kMessageLevelWarning = "warning";

bool recordPageOnAuxScreen = false;

}  // namespace BroadCastPlugin
