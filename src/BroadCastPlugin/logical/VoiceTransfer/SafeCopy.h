#pragma once
// Bounded memory copy whose failures go to the safe-copy error handler instead of overrunning a buffer.

#include <cstddef>

namespace BroadCastPlugin {

/// Copies `count` bytes into a destination of `destSize` bytes. A null pointer or a count larger than the
/// destination copies nothing, reports the failure under the name "KPR_MEMCPY_S" and returns false.
bool SafeMemcpy(void* dest, std::size_t destSize, const void* src, std::size_t count);

}  // namespace BroadCastPlugin
