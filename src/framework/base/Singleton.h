#pragma once
// Process-wide single instances created on first use with double-checked locking.

#include <atomic>
#include <memory>
#include <mutex>

namespace Tal {
namespace Base {

/// Lazily created single instance of T. T may keep its constructor private and befriend CSingleton<T>.
/// Classes shared between libraries expose their own non-inline Instance() so that one library owns it.
template <class T>
class CSingleton {
public:
    /// Check the holder, lock, check again, create, publish.
    static T* Instance() {
        Holder& holder = GetHolder();
        T* instance = holder.instance.load(std::memory_order_acquire);
        if (instance == nullptr) {
            std::lock_guard<std::mutex> lock(holder.mutex);
            instance = holder.instance.load(std::memory_order_relaxed);
            if (instance == nullptr) {
                holder.owner.reset(new T());
                instance = holder.owner.get();
                holder.instance.store(instance, std::memory_order_release);
            }
        }
        return instance;
    }

    /// The instance when it has been created, else null; never creates.
    static T* InstanceIfExists() { return GetHolder().instance.load(std::memory_order_acquire); }

    /// Destroys the instance; a later Instance() creates a new one.
    static void DestroyInstance() {
        Holder& holder = GetHolder();
        std::unique_ptr<T> doomed;
        {
            std::lock_guard<std::mutex> lock(holder.mutex);
            holder.instance.store(nullptr, std::memory_order_release);
            doomed = std::move(holder.owner);
        }
    }

private:
    struct Holder {
        std::atomic<T*> instance{nullptr};
        std::mutex mutex;
        std::unique_ptr<T> owner;
        ~Holder() { instance.store(nullptr); }
    };
    // Created on first use, destroyed at unload in reverse order of creation.
    static Holder& GetHolder() {
        static Holder holder;
        return holder;
    }
};

}  // namespace Base
}  // namespace Tal
