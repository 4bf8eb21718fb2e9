#pragma once
// Helpers shared by the REST handlers.

#include <rapidjson/document.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "platform/server/PlatformContext.h"
#include "platform/server/http/Envelope.h"
#include "platform/server/http/Router.h"

namespace Platform {

/// Path prefixes of the platform's protocol.
constexpr char kPluginV1[] = "/DXAPI/Galewing/BroadcastPlugin/V1";
constexpr char kPlatformV1[] = "/DXAPI/Galewing/Platform/V1";
constexpr char kPlatformV0[] = "/DXAPI/Galewing/Platform/V0";

inline std::string PluginPath(const std::string& tail) {
    return std::string(kPluginV1) + tail;
}
inline std::string PlatformPath(const std::string& tail) {
    return std::string(kPlatformV1) + tail;
}

/// A REST handler of the platform: the request and the platform's state.
using PlatformHandler = RestResponse (*)(const RestRequest&, PlatformContext&);

/// One route of an area: method, path pattern, who may call it, and its handler.
struct RouteEntry {
    const char* method;
    std::string pattern;
    RouteAccess access;
    PlatformHandler handler;
};

/// Registers an area's routes, each handler bound to the platform's state.
void AddRoutes(CRouter& router, PlatformContext& context, std::initializer_list<RouteEntry> routes);

/// "/_control" + tail: the control interface for tests.
inline std::string ControlPath(const std::string& tail) {
    return "/_control" + tail;
}

/// Parses the request body (an empty body reads as {}). On malformed JSON `error` gets a bad-request
/// envelope naming the problem.
bool ParseBody(const RestRequest& request, rapidjson::Document& doc, RestResponse& error);

/// A handler of a JSON request body.
using BodyHandler = RestResponse (*)(const RestRequest&, const rapidjson::Document&, PlatformContext&);

/// Parses the request body for `Handler`; a malformed body is answered with ParseBody's bad-request envelope.
template <BodyHandler Handler>
RestResponse WithBody(const RestRequest& request, PlatformContext& context) {
    rapidjson::Document body;
    RestResponse error;
    if (!ParseBody(request, body, error)) {
        return error;
    }
    return Handler(request, body, context);
}

/// "1001, 1002,1003" -> ids. False on anything else than integers separated by commas; an empty text
/// gives an empty list.
bool ParseIdList(const std::string& text, std::vector<int>& ids);

/// Encrypts a secret for the requesting session by "SecureEncryptType"; an empty secret stays empty.
bool EncryptForSession(const RestRequest& request, int secureEncryptType, const std::string& plain,
                       std::string& text);

/// The name by which the client reached the platform (its Host header), or the listen address.
std::string PublicHost(const RestRequest& request, const PlatformContext& context);

/// A random version-4 UUID in its usual text form.
std::string NewGuid();

/// Case-insensitive "contains"; an empty needle matches everything.
bool ContainsNoCase(const std::string& haystack, const std::string& needle);

/// The "ID"s of a non-empty array of objects at `path` ("ElementList/Element"); false with a bad-request
/// envelope otherwise.
bool ReadElementList(const rapidjson::Value& root, const char* path, std::vector<int>& ids,
                     RestResponse& error);

/// The indexes [first, last) of a page of a list: page 1 is the first; 0 or less is the whole list.
struct PageRange {
    size_t first = 0;
    size_t last = 0;
};
PageRange PageOf(size_t count, int page, int pageSize);

/// An integer capture of the route as int; false when it does not fit.
bool CaptureInt(const RestRequest& request, size_t index, int& value);

/// The record named by the route's first integer capture, `find(id)`; nullptr with `error` set when the
/// capture is out of range ("the <what> id is out of range") or names no record ("no <what> <id>").
template <class Find>
auto FindCaptured(const RestRequest& request, const char* what, Find find, RestResponse& error)
    -> decltype(find(0)) {
    int id = 0;
    if (!CaptureInt(request, 0, id)) {
        error = PlatformError(kErrBadRequest, std::string("the ") + what + " id is out of range");
        return nullptr;
    }
    auto found = find(id);
    if (found == nullptr) {
        error = PlatformError(kErrNotFound, std::string("no ") + what + " " + std::to_string(id));
    }
    return found;
}

}  // namespace Platform
