#pragma once
// Turns SIGINT and SIGTERM into a call on the Qt event loop (the stop-signal pipe watched by a socket
// notifier), so that the program stops cleanly instead of dying in the middle of a request.

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

#include "framework/base/StopSignalPipe.h"

namespace Platform {

class CSignalWatcher : public QObject {
    Q_OBJECT

public:
    /// Installs the handlers; `onSignal` runs on the loop with the signal number.
    explicit CSignalWatcher(std::function<void(int)> onSignal);
    ~CSignalWatcher() override;
    /// False when the pipe could not be created (the handlers are then not installed).
    bool IsValid() const { return notifier_ != nullptr; }

private:
    void OnReadable();

    std::function<void(int)> onSignal_;
    Tal::Base::CStopSignalPipe pipe_;
    /// Declared after the pipe: it stops watching the descriptor before the pipe closes it.
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace Platform
