#pragma once
// Base of the owners of one integer handle (-1: none): move-only, the handle is closed exactly once.

namespace BroadCastPlugin {

/// `Owner` derives from this and supplies `void Reset(Handle handle = -1)`, which closes the handle held (if
/// any) and takes `handle`; its destructor calls `Reset()`. The close stays the owner's own function, so that
/// it runs while the owner is whole and logs under the owner's name.
template <typename Owner, typename Handle>
class CUniqueHandle {
public:
    CUniqueHandle(const CUniqueHandle&) = delete;
    CUniqueHandle& operator=(const CUniqueHandle&) = delete;

    Handle Get() const { return handle_; }
    bool Valid() const { return handle_ >= 0; }
    Handle Release() {
        const Handle handle = handle_;
        handle_ = -1;
        return handle;
    }

protected:
    CUniqueHandle() = default;
    explicit CUniqueHandle(Handle handle) : handle_(handle) {}
    CUniqueHandle(CUniqueHandle&& other) noexcept : handle_(other.Release()) {}
    CUniqueHandle& operator=(CUniqueHandle&& other) noexcept {
        if (this != &other) {
            static_cast<Owner&>(*this).Reset(other.Release());
        }
        return *this;
    }
    ~CUniqueHandle() = default;

    Handle handle_ = -1;
};

}  // namespace BroadCastPlugin
