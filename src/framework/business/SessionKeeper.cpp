#include "framework/business/SessionKeeper.h"

#include "framework/base/FormatLog.h"
#include "framework/clientframe/FrameworkManagerInterface.h"

namespace BusinessCommon {

using TalClientFrameWork::CFrameworkManagerInterface;

CSessionKeeper::~CSessionKeeper() {
    Disarm();
}

void CSessionKeeper::Arm(Renewal renewal, TokenSource currentToken) {
    Disarm();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        renewal_ = std::move(renewal);
        currentToken_ = std::move(currentToken);
        stop_ = false;
        pending_ = false;
    }
    thread_ = std::thread([this] { Run(); });
    listenerId_ = CFrameworkManagerInterface::Instance()->AddPushLinkListener(
        [this](const TalClientFrameWork::PushLinkEvent& event) { OnPushEvent(event); });
}

void CSessionKeeper::Disarm() {
    if (listenerId_ >= 0) {
        CFrameworkManagerInterface::Instance()->RemovePushLinkListener(listenerId_);
        listenerId_ = -1;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

int CSessionKeeper::RenewalCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return renewals_;
}

// On the push link's thread: only note the refusal and wake the keeper.
void CSessionKeeper::OnPushEvent(const TalClientFrameWork::PushLinkEvent& event) {
    if (event.closeCode != TalClientFrameWork::kPushCloseUnauthorized) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (stop_ || !currentToken_) {
        return;
    }
    refusedToken_ = currentToken_();
    pending_ = true;
    wake_.notify_all();
}

void CSessionKeeper::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
        wake_.wait(lock, [this] { return stop_ || pending_; });
        if (stop_) {
            return;
        }
        pending_ = false;
        const std::string refused = refusedToken_;
        Renewal renewal = renewal_;
        TokenSource current = currentToken_;
        lock.unlock();
        // A refusal that arrived for a session already replaced needs nothing more.
        if (current && current() == refused) {
            TAL_LOG(4, "Business",
                    "[%s]The platform no longer knows the session (it may have restarted); "
                    "logging in again.[%s(%d)]");
            const bool renewed = renewal && renewal();
            TAL_LOG(renewed ? 3 : 5, "Business", "[%s]Logging in again %s.[%s(%d)]",
                    renewed ? "succeeded" : "failed; the push link keeps trying");
            lock.lock();
            renewals_ += renewed ? 1 : 0;
        } else {
            lock.lock();
        }
    }
}

}  // namespace BusinessCommon
