#pragma once
// Owner of one voice talk handle of the device network interface: the talk is stopped exactly once, when its
// owner goes.

#include <cstdint>

namespace BroadCastPlugin {

class CDevNetVoiceTalk {
public:
    CDevNetVoiceTalk() = default;
    explicit CDevNetVoiceTalk(int32_t handle) : handle_(handle) {}
    ~CDevNetVoiceTalk() { Reset(); }
    CDevNetVoiceTalk(CDevNetVoiceTalk&& other) noexcept : handle_(other.Release()) {}
    CDevNetVoiceTalk& operator=(CDevNetVoiceTalk&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    CDevNetVoiceTalk(const CDevNetVoiceTalk&) = delete;
    CDevNetVoiceTalk& operator=(const CDevNetVoiceTalk&) = delete;

    int32_t Get() const { return handle_; }
    bool Valid() const { return handle_ >= 0; }
    int32_t Release() {
        const int32_t handle = handle_;
        handle_ = -1;
        return handle;
    }
    /// Stops the talk held (if any) and takes `handle`.
    void Reset(int32_t handle = -1);

private:
    int32_t handle_ = -1;
};

}  // namespace BroadCastPlugin
