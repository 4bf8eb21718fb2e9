#pragma once
// The push link: one websocket from the client to the platform's push URL, on a thread of its own with its
// own event loop (so it runs whether or not the host runs the application's Qt event loop; the application
// object must exist, as Qt delivers no event without it). It authenticates with the
// session token, subscribes to what the observers want, hands every frame to them on its thread, answers
// pings, notices a dead link, and reconnects with exponential back-off until it is stopped or the platform
// logs the session out.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "framework/netcomm/RapidJsonProto.h"

class QThread;

namespace TalClientFrameWork {

/// Where the link is. kConnected means the platform accepted the session and acknowledged a subscription.
enum class PushLinkState {
    kStopped = 0,     ///< not started, or stopped
    kConnecting = 1,  ///< opening the websocket, or waiting for the platform's first acknowledgement
    kConnected = 2,   ///< frames flow
    kWaiting = 3,     ///< the link ended; the next attempt follows after the back-off delay
    kLoggedOut = 4,   ///< the platform closed the session (close code 4410); no further attempt
};

const char* PushLinkStateName(PushLinkState state);

/// Close codes of the platform's push link.
constexpr int kPushCloseUnauthorized = 4401;  ///< no valid session: reported, retried with back-off
constexpr int kPushCloseUnknownPath = 4404;
constexpr int kPushCloseLoggedOut = 4410;  ///< the session was logged out: the link stays down

/// A change of state, reported on the link's thread.
struct PushLinkEvent {
    PushLinkState state = PushLinkState::kStopped;
    int closeCode = 0;   ///< websocket close code of the link that ended (kWaiting, kLoggedOut); 0 otherwise
    std::string reason;  ///< why the link ended or was refused, empty otherwise
    int retryInMs = -1;  ///< kWaiting: delay before the next attempt
};
using PushLinkListener = std::function<void(const PushLinkEvent& event)>;

/// Timing of the link. The defaults suit production; tests shorten some of them.
struct PushLinkOptions {
    int initialRetryMs = 500;        ///< first back-off delay; doubles after each failed attempt
    int maxRetryMs = 15000;          ///< cap of the back-off delay
    int handshakeTimeoutMs = 10000;  ///< an attempt that is not connected by then is given up
    int pingIntervalMs = 15000;      ///< a websocket ping every interval; no pong by the next one: link dead
    int closeTimeoutMs = 1000;       ///< how long Stop waits for the platform to answer the close
};

/// Message types and events (event type -> sub-type) to ask the platform for.
struct PushSubscriptions {
    std::set<int> messageTypes;
    std::map<int, int> events;
    bool operator==(const PushSubscriptions& other) const {
        return messageTypes == other.messageTypes && events == other.events;
    }
};

/// A push frame as the link received it, parsed once: observers read the document instead of the text.
/// {"MessageType":3,"EventType":310001,"Msg":{"ProtocolType":1,"Module":0,"Data":{..}}}
struct PushFrame {
    std::string rawMsg;
    int msgType = -1;
    int eventType = 0;                               ///< 0 when the frame carries none
    int websocketMsgType = 1;                        ///< 1 text, 2 binary
    NetworkCommunication::CRapidJsonProto document;  ///< an empty object when the text is not JSON

    PushFrame() = default;
    /// Parses the text; a text that is not JSON leaves the document empty.
    PushFrame(std::string raw, int messageType, int event, int websocketType);
};

class CPushLink {
public:
    /// Called on the link's thread: what to subscribe to now, and where frames go.
    using SubscriptionSource = std::function<PushSubscriptions()>;
    using FrameSink = std::function<void(const PushFrame& frame)>;

    CPushLink(SubscriptionSource source, FrameSink sink);
    /// Stops the link.
    ~CPushLink();
    CPushLink(const CPushLink&) = delete;
    CPushLink& operator=(const CPushLink&) = delete;

    /// Starts the link to `url` (ws:// or wss://) with "Authorization: Bearer <token>"; a running link is
    /// stopped first. `caFile` (PEM) holds the authorities a wss:// certificate is verified against (empty:
    /// the system's). False, with a log line, for a URL that is not ws/wss, a CA file without a certificate,
    /// or when no QCoreApplication exists.
    /// Refused (false) when called on the link's own thread.
    bool Start(const std::string& url, const std::string& token, const std::string& caFile,
               const PushLinkOptions& options = PushLinkOptions());
    /// Closes the link (politely, bounded by closeTimeoutMs) and joins its thread; returns within a few
    /// seconds even when the platform is dead. Called on the link's own thread (from an observer or the
    /// listener) it only asks the link to stop; the thread is joined by the next Start, Stop or destruction.
    void Stop();

    bool IsConnected() const { return State() == PushLinkState::kConnected; }
    PushLinkState State() const;
    /// True when called on the link's thread.
    bool IsLinkThread() const { return OnLinkThread(); }
    /// Receives every change of state on the link's thread (replace with an empty one to remove it).
    void SetListener(PushLinkListener listener);
    /// The observers' subscriptions changed: the link sends the difference when it is connected. Thread-safe;
    /// returns at once.
    void SubscriptionsChanged();

private:
    struct LinkTarget;
    class CWorker;
    class CLinkThread;
    friend class CWorker;
    friend class CLinkThread;

    void Report(const PushLinkEvent& event);
    bool OnLinkThread() const;
    /// Asks the worker to shut down; false when there is no worker yet.
    void RequestStop();
    void StopAndJoin();
    bool AttachWorker(CWorker* worker);
    void DetachWorker();

    const SubscriptionSource source_;
    const FrameSink sink_;

    std::mutex lifecycleMutex_;  ///< serialises Start and Stop
    std::unique_ptr<QThread> thread_;
    int joinTimeoutMs_ = 0;

    mutable std::mutex mutex_;   ///< guards what follows; never held while waiting
    CWorker* worker_ = nullptr;  ///< lives on the link's thread while its event loop runs
    bool stopRequested_ = false;
    PushLinkState state_ = PushLinkState::kStopped;
    PushLinkListener listener_;
};

}  // namespace TalClientFrameWork
