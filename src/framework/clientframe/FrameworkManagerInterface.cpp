#include "framework/clientframe/FrameworkManagerInterface.h"

#include <fstream>
#include <sstream>

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace TalClientFrameWork {

CFrameworkManagerInterface* CFrameworkManagerInterface::Instance() {
    return Tal::Base::CSingleton<CFrameworkManagerInterface>::Instance();
}

CFrameworkManagerInterface::CFrameworkManagerInterface()
    : pushLink_(std::make_unique<CPushLink>([this] { return Subscriptions(); },
                                            [this](const PushFrame& frame) { DeliverFrame(frame); })) {
    pushLink_->SetListener([this](const PushLinkEvent& event) { DispatchPushLinkEvent(event); });
}

CFrameworkManagerInterface::~CFrameworkManagerInterface() {
    pushLink_->Stop();
}

bool CFrameworkManagerInterface::SetClientConfig(const std::string& json) {
    NetworkCommunication::CRapidJsonProto doc;
    if (!doc.set_str(json) || doc.get_str(0).front() != '{') {
        TAL_LOG(5, "ClientFrame", "[%s]Client configuration is not a JSON object.[%s(%d)]");
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    configText_ = doc.get_str(0);
    return true;
}

bool CFrameworkManagerInterface::LoadClientConfigFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        TAL_LOG(5, "ClientFrame", "[%s]Cannot read client configuration file: %s[%s(%d)]", path.c_str());
        return false;
    }
    std::stringstream content;
    content << in.rdbuf();
    return SetClientConfig(content.str());
}

bool CFrameworkManagerInterface::GetClientConfig(std::string& text, int type) const {
    std::string config;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        config = configText_;
    }
    if (config.empty()) {
        return false;
    }
    NetworkCommunication::CRapidJsonProto all;
    all.set_str(config);
    NetworkCommunication::CRapidJsonProto section;
    switch (type) {
        case kClientConfigAll:
            text = config;
            return true;
        case kClientConfigPlatform:
            section.set_node_str("/Platform",
                                 all.is_exist("/Platform") ? all.get_node_str("/Platform") : "{}");
            section.set_node_str("/User", all.is_exist("/User") ? all.get_node_str("/User") : "{}");
            break;
        case kClientConfigSystem:
            section.set_node_str("/SysConfig",
                                 all.is_exist("/SysConfig") ? all.get_node_str("/SysConfig") : "{}");
            break;
        default:
            return false;
    }
    text = section.get_str(0);
    return true;
}

bool CFrameworkManagerInterface::RegisterWebsocketObserver(const std::string& name,
                                                           std::shared_ptr<IWebsocketObserver> observer) {
    if (name.empty() || !observer) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    subscribers_[name].observer = std::move(observer);
    return true;
}

bool CFrameworkManagerInterface::UnRegisterWebsocketObserver(const std::string& name) {
    bool removed = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        removed = subscribers_.erase(name) > 0;
    }
    if (removed) {
        NotifySubscriptionsChanged();
    }
    return removed;
}

bool CFrameworkManagerInterface::ChangeSubscriber(const std::string& name,
                                                  const std::function<void(Subscriber&)>& change) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = subscribers_.find(name);
        if (it == subscribers_.end()) {
            return false;
        }
        change(it->second);
    }
    NotifySubscriptionsChanged();
    return true;
}

bool CFrameworkManagerInterface::Messages(const std::vector<int>& messageTypes, const std::string& name,
                                          bool subscribe) {
    return ChangeSubscriber(name, [&](Subscriber& subscriber) {
        for (int type : messageTypes) {
            if (subscribe) {
                subscriber.messageTypes.insert(type);
            } else {
                subscriber.messageTypes.erase(type);
            }
        }
    });
}

bool CFrameworkManagerInterface::Events(const std::vector<CEventParam>& events, const std::string& name,
                                        bool subscribe) {
    return ChangeSubscriber(name, [&](Subscriber& subscriber) {
        for (const auto& event : events) {
            if (subscribe) {
                subscriber.events[event.GetVal_event_type()] = event.GetVal_type();
            } else {
                subscriber.events.erase(event.GetVal_event_type());
            }
        }
    });
}

std::set<int> CFrameworkManagerInterface::SubscribedMessageTypes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::set<int> all;
    for (const auto& entry : subscribers_) {
        all.insert(entry.second.messageTypes.begin(), entry.second.messageTypes.end());
    }
    return all;
}

std::set<int> CFrameworkManagerInterface::SubscribedEventTypes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::set<int> all;
    for (const auto& entry : subscribers_) {
        for (const auto& event : entry.second.events) {
            all.insert(event.first);
        }
    }
    return all;
}

PushSubscriptions CFrameworkManagerInterface::Subscriptions() const {
    std::lock_guard<std::mutex> lock(mutex_);
    PushSubscriptions all;
    for (const auto& entry : subscribers_) {
        all.messageTypes.insert(entry.second.messageTypes.begin(), entry.second.messageTypes.end());
        for (const auto& event : entry.second.events) {
            all.events[event.first] = event.second;
        }
    }
    return all;
}

bool CFrameworkManagerInterface::StartPushLink(const std::string& url, const std::string& token,
                                               const std::string& caFile, const PushLinkOptions& options) {
    return pushLink_->Start(url, token, caFile, options);
}

void CFrameworkManagerInterface::StopPushLink() {
    pushLink_->Stop();
}

bool CFrameworkManagerInterface::IsPushLinkConnected() const {
    return pushLink_->IsConnected();
}

PushLinkState CFrameworkManagerInterface::GetPushLinkState() const {
    return pushLink_->State();
}

bool CFrameworkManagerInterface::IsPushLinkThread() const {
    return pushLink_->IsLinkThread();
}

int CFrameworkManagerInterface::AddPushLinkListener(PushLinkListener listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    const int id = nextPushListenerId_++;
    pushListeners_[id] = std::move(listener);
    return id;
}

void CFrameworkManagerInterface::RemovePushLinkListener(int id) {
    std::lock_guard<std::mutex> lock(mutex_);
    pushListeners_.erase(id);
}

void CFrameworkManagerInterface::DispatchPushLinkEvent(const PushLinkEvent& event) {
    std::vector<PushLinkListener> listeners;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& entry : pushListeners_) {
            listeners.push_back(entry.second);
        }
    }
    for (const auto& listener : listeners) {
        if (listener) {
            listener(event);
        }
    }
}

void CFrameworkManagerInterface::NotifySubscriptionsChanged() {
    pushLink_->SubscriptionsChanged();
}

int CFrameworkManagerInterface::DeliverFrame(const std::string& rawMsg, int msgType, int eventType,
                                             int websocketMsgType) {
    return DeliverFrame(PushFrame(rawMsg, msgType, eventType, websocketMsgType));
}

int CFrameworkManagerInterface::DeliverFrame(const PushFrame& frame) {
    const int msgType = frame.msgType;
    const int eventType = frame.eventType;
    std::vector<std::shared_ptr<IWebsocketObserver>> targets;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& entry : subscribers_) {
            const Subscriber& s = entry.second;
            if (s.messageTypes.count(msgType) > 0 || (eventType != 0 && s.events.count(eventType) > 0)) {
                targets.push_back(s.observer);
            }
        }
    }
    for (const auto& observer : targets) {
        observer->OnWebsocketFrame(frame);
    }
    return static_cast<int>(targets.size());
}

void CFrameworkManagerInterface::NotifyFrameworkUpdateFinish(const std::string& pluginId) {
    UpdateFinishListener listener;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listener = updateFinishListener_;
    }
    TAL_LOG(3, "ClientFrame", "[%s]Plugin finished framework update: %s[%s(%d)]", pluginId.c_str());
    if (listener) {
        listener(pluginId);
    }
}

void CFrameworkManagerInterface::SetUpdateFinishListener(UpdateFinishListener listener) {
    std::lock_guard<std::mutex> lock(mutex_);
    updateFinishListener_ = std::move(listener);
}

}  // namespace TalClientFrameWork
