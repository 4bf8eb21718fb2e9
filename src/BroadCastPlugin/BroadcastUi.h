#pragma once
// What the module's panels share: the message levels of their prompts and where the record page shows.

namespace BroadCastPlugin {

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

}  // namespace BroadCastPlugin
