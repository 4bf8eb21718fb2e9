#pragma once
// Owner of one voice talk handle of the device network interface: the talk is stopped exactly once, when its
// owner goes.

#include <cstdint>

#include "BroadCastPlugin/logical/VoiceTransfer/UniqueHandle.h"

namespace BroadCastPlugin {

class CDevNetVoiceTalk : public CUniqueHandle<CDevNetVoiceTalk, int32_t> {
public:
    CDevNetVoiceTalk() = default;
    explicit CDevNetVoiceTalk(int32_t handle) : CUniqueHandle(handle) {}
    ~CDevNetVoiceTalk() { Reset(); }
    CDevNetVoiceTalk(CDevNetVoiceTalk&&) noexcept = default;
    CDevNetVoiceTalk& operator=(CDevNetVoiceTalk&&) noexcept = default;

    /// Stops the talk held (if any) and takes `handle`.
    void Reset(int32_t handle = -1);
};

}  // namespace BroadCastPlugin
