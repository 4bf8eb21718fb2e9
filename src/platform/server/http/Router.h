#pragma once
// Method and path dispatch for the platform's REST interface. A pattern is a path whose segments match
// literally, except "{int}", which matches a decimal integer (with an optional minus sign) that is handed
// to the handler as a capture.

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/server/http/Envelope.h"
#include "platform/server/session/SessionStore.h"

namespace Platform {

struct RestRequest {
    std::string method;
    std::string path;
    std::string query;                          ///< raw query text, without '?'
    std::map<std::string, std::string> params;  ///< decoded query parameters
    std::string body;
    std::string remote;         ///< "ip:port"
    std::string host;           ///< host part of the Host header, empty when absent
    std::string authorization;  ///< the Authorization header
    std::vector<std::string> captures;
    bool hasSession = false;
    SessionInfo session;  ///< set for routes that need a session
};

using RestHandler = std::function<RestResponse(const RestRequest&)>;

enum class RouteAccess { kPublic, kSession };

class CRouter {
public:
    struct Route {
        std::string method;
        std::string pattern;
        std::vector<std::string> segments;
        RouteAccess access = RouteAccess::kSession;
        RestHandler handler;
    };

    enum class Match { kFound, kNoPath, kWrongMethod };

    void Add(const std::string& method, const std::string& pattern, RouteAccess access, RestHandler handler);
    /// Finds the route; `captures` receives the pattern's groups.
    Match Find(const std::string& method, const std::string& path, const Route*& route,
               std::vector<std::string>& captures) const;
    const std::vector<Route>& Routes() const { return routes_; }

private:
    std::vector<Route> routes_;
};

}  // namespace Platform
