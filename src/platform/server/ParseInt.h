#pragma once
// Whole decimal integers from text (command-line values, route captures).

#include <cerrno>
#include <cstdlib>
#include <string>

namespace Platform {

/// The whole of `text` as a decimal integer within [low, high]; `value` is left alone otherwise.
inline bool ParseInt(const std::string& text, long low, long high, int& value) {
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || end == nullptr || *end != '\0' || v < low || v > high) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

}  // namespace Platform
