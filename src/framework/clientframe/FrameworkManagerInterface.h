#pragma once
// Back-end interface of the client framework: the client configuration text and the websocket push
// observers with their subscriptions.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/clientframe/PushLink.h"

namespace TalClientFrameWork {

/// Receives push frames for the message and event types its name subscribed to.
class IWebsocketObserver {
public:
    virtual ~IWebsocketObserver() = default;
    /// Called on the push link's thread with the frame text, its message type and the websocket message
    /// type (1 text, 2 binary).
    virtual void OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) = 0;
    /// Called instead with the frame the link parsed; observers that read the JSON override this one to
    /// skip a parse of their own. By default it hands on the text.
    virtual void OnWebsocketFrame(const PushFrame& frame) {
        OnWebsocketMessage(frame.rawMsg, frame.msgType, frame.websocketMsgType);
    }
};

/// An event subscription: event type and sub-type.
class CEventParam {
public:
    void SetVal_event_type(int eventType) { eventType_ = eventType; }
    int GetVal_event_type() const { return eventType_; }
    void SetVal_type(int type) { type_ = type; }
    int GetVal_type() const { return type_; }

private:
    int eventType_ = 0;
    int type_ = 0;
};

/// Sections of the client configuration handed out by GetClientConfig.
enum ClientConfigType {
    kClientConfigAll = 0,       ///< the whole configuration
    kClientConfigPlatform = 1,  ///< {"Platform":{..},"User":{..}}
    kClientConfigSystem = 2,    ///< {"SysConfig":{..}}
};

class CFrameworkManagerInterface : private Tal::Base::CNonCopyable {
public:
    static CFrameworkManagerInterface* Instance();

    CFrameworkManagerInterface();
    /// Stops the push link before the observers go.
    ~CFrameworkManagerInterface();

    /// Sets the client configuration from a JSON text; false when it is not a JSON object.
    bool SetClientConfig(const std::string& json);
    /// Reads the configuration from a file; false when it cannot be read or parsed.
    bool LoadClientConfigFile(const std::string& path);
    /// The configuration section of the given type as a JSON text; false for an unknown type or when no
    /// configuration was set.
    bool GetClientConfig(std::string& text, int type) const;

    bool RegisterWebsocketObserver(const std::string& name, std::shared_ptr<IWebsocketObserver> observer);
    bool UnRegisterWebsocketObserver(const std::string& name);
    /// Subscribes (or unsubscribes) the observer name to push frames of the given message types.
    bool Messages(const std::vector<int>& messageTypes, const std::string& name, bool subscribe);
    /// Subscribes (or unsubscribes) the observer name to push frames of the given event types.
    bool Events(const std::vector<CEventParam>& events, const std::string& name, bool subscribe);
    /// Message and event types some observer subscribed to (what the push link asks the platform for).
    std::set<int> SubscribedMessageTypes() const;
    std::set<int> SubscribedEventTypes() const;
    /// The union of all subscriptions, events with their sub-type (the last one subscribed wins).
    PushSubscriptions Subscriptions() const;

    /// Opens the push link to the platform (see CPushLink::Start): frames reach the observers on the link's
    /// thread through DeliverFrame, subscriptions follow Messages, Events and UnRegisterWebsocketObserver.
    bool StartPushLink(const std::string& url, const std::string& token, const std::string& caFile,
                       const PushLinkOptions& options = PushLinkOptions());
    /// Closes the push link and joins its thread (bounded; see CPushLink::Stop).
    void StopPushLink();
    bool IsPushLinkConnected() const;
    PushLinkState GetPushLinkState() const;
    /// True on the push link's own thread (observers and listeners run there).
    bool IsPushLinkThread() const;
    /// Adds a receiver of the push link's changes of state (called on the link's thread); returns its id.
    int AddPushLinkListener(PushLinkListener listener);
    void RemovePushLinkListener(int id);

    /// Hands a received push frame to every registered observer subscribed to its message type or, when
    /// the frame carries one (eventType != 0), to its event type. Observers run on the caller's thread,
    /// outside the framework's lock. Returns the number of observers called.
    int DeliverFrame(const std::string& rawMsg, int msgType, int eventType, int websocketMsgType);
    /// The same with a frame parsed already (what the push link hands on): observers get the parsed frame.
    int DeliverFrame(const PushFrame& frame);

    /// A plugin reports that it has applied a framework update pushed by the platform.
    void NotifyFrameworkUpdateFinish(const std::string& pluginId);
    using UpdateFinishListener = std::function<void(const std::string& pluginId)>;
    void SetUpdateFinishListener(UpdateFinishListener listener);

private:
    struct Subscriber {
        std::shared_ptr<IWebsocketObserver> observer;
        std::set<int> messageTypes;
        std::map<int, int> events;  ///< event type -> sub-type
    };

    /// Applies `change` to the named observer's subscriptions under the lock, then tells the push link; false
    /// when no observer has that name.
    bool ChangeSubscriber(const std::string& name, const std::function<void(Subscriber&)>& change);
    void NotifySubscriptionsChanged();
    void DispatchPushLinkEvent(const PushLinkEvent& event);

    mutable std::mutex mutex_;
    std::string configText_;
    std::map<std::string, Subscriber> subscribers_;
    UpdateFinishListener updateFinishListener_;
    std::map<int, PushLinkListener> pushListeners_;
    int nextPushListenerId_ = 1;
    // Created with the manager and never replaced, so that it can be reached without the lock; last, so that
    // it goes first.
    const std::unique_ptr<CPushLink> pushLink_;
};

}  // namespace TalClientFrameWork
