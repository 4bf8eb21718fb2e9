#pragma once
// SIGINT and SIGTERM through a self-pipe: the handler only writes the signal number to a pipe (an
// async-signal-safe call), and the program reads it from ReadFd() on its own loop, where it may stop
// cleanly instead of dying in the middle of a request. No event loop of its own: a Qt program watches
// ReadFd() with a QSocketNotifier. One instance at a time (the handler writes to the latest pipe).

#include <functional>

#include "framework/base/UniqueFd.h"

namespace Tal {
namespace Base {

class CStopSignalPipe {
public:
    /// Creates the pipe and installs the handlers; nothing is installed when the pipe cannot be created.
    CStopSignalPipe();
    /// Restores the default handlers and closes the pipe.
    ~CStopSignalPipe();

    bool IsValid() const { return readEnd_.Valid(); }
    /// Readable when a signal arrived; non-blocking.
    int ReadFd() const { return readEnd_.Get(); }
    /// Calls `onSignal` with each signal number waiting in the pipe, in arrival order.
    void Drain(const std::function<void(int)>& onSignal);

private:
    CUniqueFd readEnd_;
    CUniqueFd writeEnd_;  ///< the handler writes here
};

}  // namespace Base
}  // namespace Tal
