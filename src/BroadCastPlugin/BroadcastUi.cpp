#include "BroadCastPlugin/BroadcastUi.h"

namespace BroadCastPlugin {

const char* const kMessageLevelBrand = "brand";
const char* const kMessageLevelNeutral = "neutral";
const char* const kMessageLevelDanger = "danger";
const char* const kMessageLevelInfo = "info";
const char* const kMessageLevelRemind = "remind";
const char* const kMessageLevelSuccess = "success";
const char* const kMessageLevelWarning = "warning";

bool recordPageOnAuxScreen = false;

}  // namespace BroadCastPlugin
