#include "framework/base/StopSignalPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace Tal {
namespace Base {

namespace {

int g_writeFd = -1;

void OnStopSignal(int signal) {
    const unsigned char byte = static_cast<unsigned char>(signal);
    // Only async-signal-safe calls here; a full pipe just loses a repeated signal.
    ssize_t ignored = ::write(g_writeFd, &byte, 1);
    (void)ignored;
}

}  // namespace

CStopSignalPipe::CStopSignalPipe() {
    int fds[2] = {-1, -1};
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    readEnd_.Reset(fds[0]);
    writeEnd_.Reset(fds[1]);
    g_writeFd = writeEnd_.Get();
    struct sigaction action {};
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

CStopSignalPipe::~CStopSignalPipe() {
    if (!IsValid()) {
        return;
    }
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    g_writeFd = -1;
}

void CStopSignalPipe::Drain(const std::function<void(int)>& onSignal) {
    unsigned char byte = 0;
    while (readEnd_.Valid() && ::read(readEnd_.Get(), &byte, 1) == 1) {
        onSignal(byte);
    }
}

}  // namespace Base
}  // namespace Tal
