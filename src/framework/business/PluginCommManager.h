#pragma once
// In-process plugin bus: plugins publish named JSON methods and send JSON messages to each other by id.

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace BusinessCommon {

/// Handles one request text; writes the answer text. Returns false when the request failed.
using PluginMethodHandler = std::function<bool(const std::string& request, std::string& response)>;
/// Receives a message sent to a plugin id.
using PluginMessageReceiver =
    std::function<void(const std::string& fromPluginId, const std::string& message)>;

class CPluginCommManager {
public:
    static CPluginCommManager* Instance();

    /// Publishes a method under its full name; false when the name is empty or already taken.
    bool RegisterMethod(const std::string& method, const std::string& ownerPluginId,
                        PluginMethodHandler handler);
    bool UnRegisterMethod(const std::string& method);
    bool HasMethod(const std::string& method) const;
    std::string GetMethodOwner(const std::string& method) const;
    /// Calls a method synchronously on the caller's thread. False when no such method exists (the
    /// response is then empty) or when the handler reports failure.
    bool CallMethod(const std::string& method, const std::string& request, std::string& response) const;

    bool RegisterMessageReceiver(const std::string& pluginId, PluginMessageReceiver receiver);
    bool UnRegisterMessageReceiver(const std::string& pluginId);
    /// Delivers a message to a plugin on the caller's thread; false when the plugin has no receiver.
    bool SendMessageToPlugin(const std::string& fromPluginId, const std::string& toPluginId,
                             const std::string& message) const;

private:
    struct Method {
        std::string owner;
        std::shared_ptr<PluginMethodHandler> handler;
    };
    mutable std::mutex mutex_;
    std::map<std::string, Method> methods_;
    std::map<std::string, std::shared_ptr<PluginMessageReceiver>> receivers_;
};

}  // namespace BusinessCommon
