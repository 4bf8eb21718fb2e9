#pragma once
// Turns SIGINT and SIGTERM into a call on the Qt event loop (a self-pipe watched by a socket notifier), so
// that the program stops cleanly instead of dying in the middle of a request.

#include <QObject>
#include <QSocketNotifier>

#include <functional>
#include <memory>

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
    int fds_[2] = {-1, -1};
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace Platform
