#pragma once
// A file descriptor that is closed when its owner goes away.

#include <unistd.h>

#include <utility>

namespace Tal {
namespace Base {

class CUniqueFd {
public:
    CUniqueFd() = default;
    explicit CUniqueFd(int fd) : fd_(fd) {}
    ~CUniqueFd() { Reset(); }
    CUniqueFd(CUniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    CUniqueFd& operator=(CUniqueFd&& other) noexcept {
        if (this != &other) {
            Reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    CUniqueFd(const CUniqueFd&) = delete;
    CUniqueFd& operator=(const CUniqueFd&) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace Base
}  // namespace Tal
