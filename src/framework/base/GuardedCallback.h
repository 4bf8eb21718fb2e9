#pragma once
// A callback that one thread sets while another calls it: both take its own lock, so a callback that is
// replaced or cleared is not running any more when the setter returns.

#include <functional>
#include <mutex>
#include <utility>

namespace Tal {
namespace Base {

template <typename Signature>
class CGuardedCallback;

template <typename... Args>
class CGuardedCallback<void(Args...)> {
public:
    using Callback = std::function<void(Args...)>;

    void Set(Callback callback) {
        std::lock_guard<std::mutex> lock(mutex_);
        callback_ = std::move(callback);
    }

    /// Calls the callback with `args` when one is set.
    void Call(Args... args) const {
        std::lock_guard<std::mutex> lock(mutex_);
        if (callback_) {
            callback_(std::forward<Args>(args)...);
        }
    }

private:
    mutable std::mutex mutex_;
    Callback callback_;
};

}  // namespace Base
}  // namespace Tal
