#pragma once
// Getters of members a mutex guards: the copy is taken while the mutex is held.

#include <mutex>

namespace Tal {
namespace Base {

/// A copy of `value`, taken under `mutex`.
template <typename Mutex, typename T>
T LockedCopy(Mutex& mutex, const T& value) {
    std::lock_guard<Mutex> lock(mutex);
    return value;
}

}  // namespace Base
}  // namespace Tal
