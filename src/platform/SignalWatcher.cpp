#include "platform/SignalWatcher.h"

namespace Platform {

CSignalWatcher::CSignalWatcher(std::function<void(int)> onSignal) : onSignal_(std::move(onSignal)) {
    if (!pipe_.IsValid()) {
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(pipe_.ReadFd(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &CSignalWatcher::OnReadable);
}

CSignalWatcher::~CSignalWatcher() = default;

void CSignalWatcher::OnReadable() {
    pipe_.Drain(onSignal_);
}

}  // namespace Platform
