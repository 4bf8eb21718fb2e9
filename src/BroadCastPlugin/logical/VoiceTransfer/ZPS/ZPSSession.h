#pragma once
// Owner of one streaming-client session handle: the session is stopped and destroyed exactly once, when its
// owner goes.

namespace BroadCastPlugin {

class CZPSSession {
public:
    CZPSSession() = default;
    explicit CZPSSession(int handle) : handle_(handle) {}
    /// Stops and destroys the session; failures are logged and left in the thread's last error.
    ~CZPSSession() { Reset(); }
    CZPSSession(CZPSSession&& other) noexcept : handle_(other.Release()) {}
    CZPSSession& operator=(CZPSSession&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    CZPSSession(const CZPSSession&) = delete;
    CZPSSession& operator=(const CZPSSession&) = delete;

    int Get() const { return handle_; }
    bool Valid() const { return handle_ >= 0; }
    int Release() {
        const int handle = handle_;
        handle_ = -1;
        return handle;
    }
    /// Closes the session held (if any) and takes `handle`.
    void Reset(int handle = -1);

private:
    int handle_ = -1;
};

}  // namespace BroadCastPlugin
