#include "BroadCastPlugin/logical/VoiceTransfer/SafeCopy.h"

#include <cstring>

#include "BroadCastPlugin/BroadcastLog.h"

namespace BroadCastPlugin {

namespace {

void ReportSafeCopyError(const char* name, std::size_t destSize, std::size_t count) {
    BCAST_LOG(5, "[%s]%s failed, destination size: %zu, count: %zu[%s(%d)]", name, destSize, count);
}

}  // namespace

bool SafeMemcpy(void* dest, std::size_t destSize, const void* src, std::size_t count) {
    if (dest == nullptr || src == nullptr || count > destSize) {
        ReportSafeCopyError("KPR_MEMCPY_S", destSize, count);
        return false;
    }
    std::memcpy(dest, src, count);
    return true;
}

}  // namespace BroadCastPlugin
