#pragma once
// Small helpers shared by the fuzz targets.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace FuzzSupport {

/// Stops the run like a crash when an invariant does not hold.
inline void Check(bool condition) {
    if (!condition) {
        __builtin_trap();
    }
}

/// The input cut at every 0x01 byte (a byte that never appears raw in JSON text); always one field at least.
inline std::vector<std::string> SplitFields(const uint8_t* data, std::size_t size) {
    std::vector<std::string> fields(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0x01) {
            fields.emplace_back();
        } else {
            fields.back().push_back(static_cast<char>(data[i]));
        }
    }
    return fields;
}

}  // namespace FuzzSupport
