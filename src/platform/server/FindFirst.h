#pragma once
// Lookups in the fixture's and the plan's lists, which are small and searched in order.

#include <vector>

namespace Platform {

/// The first item of `items` that `match` accepts, or null.
template <class T, class Match>
const T* FindFirst(const std::vector<T>& items, Match match) {
    for (const T& item : items) {
        if (match(item)) {
            return &item;
        }
    }
    return nullptr;
}

}  // namespace Platform
