#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/FileNameChecks.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace BroadCastPlugin {

bool IsValidUtf8(const std::string& text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        unsigned char c = *p;
        int extra = 0;
        uint32_t code = 0;
        if (c < 0x80) {
            ++p;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            extra = 1;
            code = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            code = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            code = c & 0x07;
        } else {
            return false;
        }
        if (end - p <= extra) {
            return false;
        }
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80) {
                return false;
            }
            code = code << 6 | (p[i] & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
        static constexpr uint32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
        if (code < kMinimum[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        p += extra + 1;
    }
    return true;
}

std::string Suffix(const std::string& path) {
    std::size_t slash = path.find_last_of('/');
    std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string suffix = path.substr(dot + 1);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return suffix;
}

}  // namespace BroadCastPlugin
