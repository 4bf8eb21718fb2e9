#pragma once
// Owner of one POSIX socket descriptor.

#include "BroadCastPlugin/logical/VoiceTransfer/UniqueHandle.h"

namespace BroadCastPlugin {

class CUniqueSocket : public CUniqueHandle<CUniqueSocket, int> {
public:
    CUniqueSocket() = default;
    explicit CUniqueSocket(int fd) : CUniqueHandle(fd) {}
    ~CUniqueSocket() { Reset(); }
    CUniqueSocket(CUniqueSocket&&) noexcept = default;
    CUniqueSocket& operator=(CUniqueSocket&&) noexcept = default;

    /// Closes the current descriptor and takes `fd`.
    void Reset(int fd = -1);
};

}  // namespace BroadCastPlugin
