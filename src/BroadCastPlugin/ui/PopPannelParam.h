#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace BroadCastPlugin {

/// A request to open the broadcast panel.
struct PopPannelParam {
    int32_t type = -1;
    std::vector<std::string> dataItems;
    std::vector<std::string> resourceNames;
    int32_t volume = -1;
    void* caller = nullptr;
    bool styleGiven = false;
};

}  // namespace BroadCastPlugin
