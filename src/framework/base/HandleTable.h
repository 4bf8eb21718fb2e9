#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Tal {
namespace Base {

/// Objects behind the numeric handles of a C interface. Thread-safe; callers get a shared reference
/// and leave the table's lock before they use the object, so a Remove during a call only drops the
/// table's reference. Numbers handed out by Add are never reused within the table's life.
template <class T, class Handle = int32_t>
class CHandleTable {
public:
    explicit CHandleTable(Handle first = 0) : next_(first) {}
    CHandleTable(const CHandleTable&) = delete;
    CHandleTable& operator=(const CHandleTable&) = delete;

    /// Stores the object under the next number and returns that number.
    Handle Add(std::shared_ptr<T> object) {
        std::lock_guard<std::mutex> lock(mutex_);
        const Handle handle = next_++;
        objects_.emplace(handle, std::move(object));
        return handle;
    }

    /// Makes the object from its own number (`make(handle)`) and stores it, both under the lock.
    template <class Make>
    std::shared_ptr<T> Create(Make make, Handle& handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        handle = next_++;
        std::shared_ptr<T> object = make(handle);
        objects_.emplace(handle, object);
        return object;
    }

    /// Stores the object under a number chosen by the caller (numbers shared between tables).
    void Insert(Handle handle, std::shared_ptr<T> object) {
        std::lock_guard<std::mutex> lock(mutex_);
        objects_[handle] = std::move(object);
    }

    /// The object under `handle`; when there is none, `make()` makes it and it is stored first.
    template <class Make>
    std::shared_ptr<T> FindOrInsert(Handle handle, Make make) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = objects_.find(handle);
        if (it == objects_.end()) {
            it = objects_.emplace(handle, make()).first;
        }
        return it->second;
    }

    /// The object, or nullptr for an unknown handle.
    std::shared_ptr<T> Find(Handle handle) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = objects_.find(handle);
        return it == objects_.end() ? nullptr : it->second;
    }

    /// Takes the object out of the table; nullptr for an unknown handle.
    std::shared_ptr<T> Remove(Handle handle) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = objects_.find(handle);
        if (it == objects_.end()) {
            return nullptr;
        }
        std::shared_ptr<T> object = std::move(it->second);
        objects_.erase(it);
        return object;
    }

    /// Takes out every object for which `match(object)` holds.
    template <class Match>
    std::vector<std::shared_ptr<T>> RemoveIf(Match match) {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::shared_ptr<T>> removed;
        for (auto it = objects_.begin(); it != objects_.end();) {
            if (match(*it->second)) {
                removed.push_back(std::move(it->second));
                it = objects_.erase(it);
            } else {
                ++it;
            }
        }
        return removed;
    }

    /// Every object, in the order of their handles.
    std::vector<std::shared_ptr<T>> All() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::shared_ptr<T>> all;
        all.reserve(objects_.size());
        for (const auto& entry : objects_) {
            all.push_back(entry.second);
        }
        return all;
    }

    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        objects_.clear();
    }

private:
    mutable std::mutex mutex_;
    Handle next_;
    std::map<Handle, std::shared_ptr<T>> objects_;
};

}  // namespace Base
}  // namespace Tal
