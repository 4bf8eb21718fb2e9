#pragma once
// Keeps a login alive across a platform restart: the platform forgets its sessions when it restarts, and
// the push link then hears "no valid session" (close code 4401) on every attempt. The keeper answers that by
// logging in again on a thread of its own (never on the push link's thread, whose loop must keep running).

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "framework/clientframe/PushLink.h"

namespace BusinessCommon {

class CSessionKeeper {
public:
    /// Logs in again; returns whether it worked. Runs on the keeper's thread.
    using Renewal = std::function<bool()>;
    /// Gives the token of the current session (a 4401 for an older token needs no renewal).
    using TokenSource = std::function<std::string()>;

    CSessionKeeper() = default;
    ~CSessionKeeper();
    CSessionKeeper(const CSessionKeeper&) = delete;
    CSessionKeeper& operator=(const CSessionKeeper&) = delete;

    /// Starts watching the framework's push link; replaces an earlier arming.
    void Arm(Renewal renewal, TokenSource currentToken);
    /// Stops watching and joins the thread (a renewal in progress finishes first; it is bounded by the
    /// network time-out).
    void Disarm();
    /// Successful renewals since the process started.
    int RenewalCount() const;

private:
    void OnPushEvent(const TalClientFrameWork::PushLinkEvent& event);
    void Run();

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    bool pending_ = false;
    std::string refusedToken_;  ///< the token the platform refused
    Renewal renewal_;
    TokenSource currentToken_;
    int renewals_ = 0;
    int listenerId_ = -1;
    std::thread thread_;
};

}  // namespace BusinessCommon
