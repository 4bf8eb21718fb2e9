#include "framework/business/PluginCommManager.h"

#include "framework/base/Singleton.h"

namespace BusinessCommon {

CPluginCommManager* CPluginCommManager::Instance() {
    return Tal::Base::CSingleton<CPluginCommManager>::Instance();
}

bool CPluginCommManager::RegisterMethod(const std::string& method, const std::string& ownerPluginId,
                                        PluginMethodHandler handler) {
    if (method.empty() || !handler) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return methods_
        .emplace(method, Method{ownerPluginId, std::make_shared<PluginMethodHandler>(std::move(handler))})
        .second;
}

bool CPluginCommManager::UnRegisterMethod(const std::string& method) {
    std::lock_guard<std::mutex> lock(mutex_);
    return methods_.erase(method) > 0;
}

bool CPluginCommManager::HasMethod(const std::string& method) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return methods_.count(method) > 0;
}

std::string CPluginCommManager::GetMethodOwner(const std::string& method) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = methods_.find(method);
    return it == methods_.end() ? std::string() : it->second.owner;
}

bool CPluginCommManager::CallMethod(const std::string& method, const std::string& request,
                                    std::string& response) const {
    response.clear();
    std::shared_ptr<PluginMethodHandler> handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = methods_.find(method);
        if (it == methods_.end()) {
            return false;
        }
        handler = it->second.handler;  // keeps it alive if it is unregistered during the call
    }
    return (*handler)(request, response);
}

bool CPluginCommManager::RegisterMessageReceiver(const std::string& pluginId,
                                                 PluginMessageReceiver receiver) {
    if (pluginId.empty() || !receiver) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    receivers_[pluginId] = std::make_shared<PluginMessageReceiver>(std::move(receiver));
    return true;
}

bool CPluginCommManager::UnRegisterMessageReceiver(const std::string& pluginId) {
    std::lock_guard<std::mutex> lock(mutex_);
    return receivers_.erase(pluginId) > 0;
}

bool CPluginCommManager::SendMessageToPlugin(const std::string& fromPluginId, const std::string& toPluginId,
                                             const std::string& message) const {
    std::shared_ptr<PluginMessageReceiver> receiver;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = receivers_.find(toPluginId);
        if (it == receivers_.end()) {
            return false;
        }
        receiver = it->second;
    }
    (*receiver)(fromPluginId, message);
    return true;
}

}  // namespace BusinessCommon
