#pragma once
// SIGINT and SIGTERM through a self-pipe: the handler only writes the signal number to a pipe (an
// async-signal-safe call), and the program reads it from ReadFd() on its own loop, where it may stop
// cleanly instead of dying in the middle of a request. No event loop of its own: a Qt program watches
// ReadFd() with a QSocketNotifier. One instance at a time (the handler writes to the latest pipe).

#include <functional>

namespace Tal {
namespace Base {

class CStopSignalPipe {
public:
    /// Creates the pipe and installs the handlers; nothing is installed when the pipe cannot be created.
    CStopSignalPipe();
    /// Restores the default handlers and closes the pipe.
    ~CStopSignalPipe();
    CStopSignalPipe(const CStopSignalPipe&) = delete;
    CStopSignalPipe& operator=(const CStopSignalPipe&) = delete;

    bool IsValid() const { return fds_[0] >= 0; }
    /// Readable when a signal arrived; non-blocking.
    int ReadFd() const { return fds_[0]; }
    /// Calls `onSignal` with each signal number waiting in the pipe, in arrival order.
    void Drain(const std::function<void(int)>& onSignal);

private:
    int fds_[2] = {-1, -1};
};

}  // namespace Base
}  // namespace Tal
