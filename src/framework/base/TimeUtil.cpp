#include "framework/base/TimeUtil.h"

#include <chrono>

namespace Tal {
namespace Base {
namespace TimeUtil {

namespace {
std::string Format(time_t t, const char* format) {
    struct tm local {};
    localtime_r(&t, &local);
    char buffer[32];
    std::size_t n = std::strftime(buffer, sizeof(buffer), format, &local);
    return std::string(buffer, n);
}
}  // namespace

std::string TimeT2StrDatetime(time_t t) { return Format(t, "%Y-%m-%d %H:%M:%S"); }

std::string TimeT2StrShortDatetime(time_t t) { return Format(t, "%Y%m%d%H%M%S"); }

uint64_t GetTickCount64() {
    using namespace std::chrono;
    return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

uint32_t GetTickCount() { return static_cast<uint32_t>(GetTickCount64()); }

}  // namespace TimeUtil
}  // namespace Base
}  // namespace Tal
