#pragma once
// The values of a map as a list, for handing a locked map's contents out.

#include <vector>

namespace Platform {

/// The values of `map`, in the order of their keys.
template <class Map>
std::vector<typename Map::mapped_type> MapValues(const Map& map) {
    std::vector<typename Map::mapped_type> values;
    values.reserve(map.size());
    for (const auto& entry : map) {
        values.push_back(entry.second);
    }
    return values;
}

}  // namespace Platform
