#include "platform/SignalWatcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace Platform {

namespace {

int g_writeFd = -1;

void OnSignal(int signal) {
    const unsigned char byte = static_cast<unsigned char>(signal);
    // Only async-signal-safe calls here; a full pipe just loses a repeated signal.
    ssize_t ignored = ::write(g_writeFd, &byte, 1);
    (void)ignored;
}

}  // namespace

CSignalWatcher::CSignalWatcher(std::function<void(int)> onSignal) : onSignal_(std::move(onSignal)) {
    if (::pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0) {
        fds_[0] = fds_[1] = -1;
        return;
    }
    g_writeFd = fds_[1];
    notifier_ = std::make_unique<QSocketNotifier>(fds_[0], QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &CSignalWatcher::OnReadable);
    struct sigaction action {};
    action.sa_handler = OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

CSignalWatcher::~CSignalWatcher() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    notifier_.reset();
    g_writeFd = -1;
    for (int fd : fds_) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

void CSignalWatcher::OnReadable() {
    unsigned char byte = 0;
    while (::read(fds_[0], &byte, 1) == 1) {
        onSignal_(byte);
    }
}

}  // namespace Platform
