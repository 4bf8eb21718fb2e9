#pragma once
// Helpers shared by the REST handlers.

#include <rapidjson/document.h>

#include <string>
#include <vector>

#include "platform/server/PlatformContext.h"
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

/// Parses the request body (an empty body reads as {}). On malformed JSON `error` gets a bad-request
/// envelope naming the problem.
bool ParseBody(const RestRequest& request, rapidjson::Document& doc, RestResponse& error);

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

/// An integer capture of the route as int; false when it does not fit.
bool CaptureInt(const RestRequest& request, size_t index, int& value);

}  // namespace Platform
