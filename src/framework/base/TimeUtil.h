#pragma once
// Time texts and tick counts.

#include <cstdint>
#include <ctime>
#include <string>

namespace Tal {
namespace Base {
namespace TimeUtil {

/// Local time as "YYYY-MM-DD HH:MM:SS".
std::string TimeT2StrDatetime(time_t t);
/// Local time as "YYYYMMDDHHMMSS"; its first 8 characters are the date.
std::string TimeT2StrShortDatetime(time_t t);
/// Milliseconds on a monotonic clock, wrapping at 32 bits.
uint32_t GetTickCount();
uint64_t GetTickCount64();

}  // namespace TimeUtil
}  // namespace Base
}  // namespace Tal
