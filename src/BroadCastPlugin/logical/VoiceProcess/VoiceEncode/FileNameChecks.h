#pragma once
// Checks of the file name handed to the encoder.

#include <string>

namespace BroadCastPlugin {

/// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool IsValidUtf8(const std::string& text);
/// Lower-case extension of the file name, empty when there is none.
std::string Suffix(const std::string& path);

}  // namespace BroadCastPlugin
