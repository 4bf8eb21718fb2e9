#pragma once
// Owner of one streaming-client session handle: the session is stopped and destroyed exactly once, when its
// owner goes.

#include "BroadCastPlugin/logical/VoiceTransfer/UniqueHandle.h"

namespace BroadCastPlugin {

class CZPSSession : public CUniqueHandle<CZPSSession, int> {
public:
    CZPSSession() = default;
    explicit CZPSSession(int handle) : CUniqueHandle(handle) {}
    /// Stops and destroys the session; failures are logged and left in the thread's last error.
    ~CZPSSession() { Reset(); }
    CZPSSession(CZPSSession&&) noexcept = default;
    CZPSSession& operator=(CZPSSession&&) noexcept = default;

    /// Closes the session held (if any) and takes `handle`.
    void Reset(int handle = -1);
};

}  // namespace BroadCastPlugin
