#pragma once
// Owner of one POSIX socket descriptor.

namespace BroadCastPlugin {

class CUniqueSocket {
public:
    CUniqueSocket() = default;
    explicit CUniqueSocket(int fd) : fd_(fd) {}
    ~CUniqueSocket() { Reset(); }
    CUniqueSocket(CUniqueSocket&& other) noexcept : fd_(other.Release()) {}
    CUniqueSocket& operator=(CUniqueSocket&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    CUniqueSocket(const CUniqueSocket&) = delete;
    CUniqueSocket& operator=(const CUniqueSocket&) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    int Release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    /// Closes the current descriptor and takes `fd`.
    void Reset(int fd = -1);

private:
    int fd_ = -1;
};

}  // namespace BroadCastPlugin
