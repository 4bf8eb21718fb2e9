#include "platform/server/handlers/HandlerUtil.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "framework/business/secret/SecretCipher.h"
#include "platform/server/ParseInt.h"
#include "platform/server/json/Json.h"

namespace Platform {

bool ParseBody(const RestRequest& request, rapidjson::Document& doc, RestResponse& error) {
    std::string message;
    if (!Json::Parse(request.body, doc, message)) {
        error = PlatformError(kErrBadRequest, "malformed JSON body: " + message);
        return false;
    }
    return true;
}

bool ReadElementList(const rapidjson::Value& root, const char* path, std::vector<int>& ids,
                     RestResponse& error) {
    const rapidjson::Value* list = Json::Find(root, path);
    if (list == nullptr || !list->IsArray() || list->Empty()) {
        error = PlatformError(kErrBadRequest, std::string("\"") + path + "\" must be a non-empty array");
        return false;
    }
    for (const rapidjson::Value& item : list->GetArray()) {
        const rapidjson::Value* id = Json::Find(item, "ID");
        if (!Json::IsInt(id)) {
            error = PlatformError(kErrBadRequest,
                                  std::string("every element of \"") + path + "\" needs an \"ID\"");
            return false;
        }
        ids.push_back(static_cast<int>(Json::ToInt(id, 0)));
    }
    return true;
}

bool ParseIdList(const std::string& text, std::vector<int>& ids) {
    ids.clear();
    size_t start = 0;
    if (text.find_first_not_of(" \t") == std::string::npos) {
        return true;
    }
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        size_t first = item.find_first_not_of(" \t");
        size_t last = item.find_last_not_of(" \t");
        if (first == std::string::npos) {
            return false;
        }
        item = item.substr(first, last - first + 1);
        int value = 0;
        if (!ParseInt(item, INT_MIN, INT_MAX, value)) {
            return false;
        }
        ids.push_back(value);
        if (comma == std::string::npos) {
            break;
        }
        start = comma + 1;
    }
    return true;
}

bool EncryptForSession(const RestRequest& request, int secureEncryptType, const std::string& plain,
                       std::string& text) {
    if (plain.empty()) {
        text.clear();
        return true;
    }
    BusinessCommon::CSecretCipher cipher(request.session.sessionKey);
    return cipher.EncryptByType(secureEncryptType, plain, text);
}

std::string PublicHost(const RestRequest& request, const PlatformContext& context) {
    if (!request.host.empty()) {
        return request.host;
    }
    if (context.listenAddress == "0.0.0.0" || context.listenAddress.empty()) {
        return "127.0.0.1";
    }
    if (context.listenAddress == "::") {
        return "[::1]";
    }
    return context.listenAddress;
}

std::string NewGuid() {
    std::string bytes;
    if (!BusinessCommon::SecretPrimitives::RandomBytes(16, bytes)) {
        return std::string();
    }
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
    std::string hex = BusinessCommon::SecretPrimitives::ToHex(bytes);
    return hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" + hex.substr(16, 4) +
           "-" + hex.substr(20);
}

bool ContainsNoCase(const std::string& haystack, const std::string& needle) {
    if (needle.empty()) {
        return true;
    }
    auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(), [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    });
    return it != haystack.end();
}

bool CaptureInt(const RestRequest& request, size_t index, int& value) {
    if (index >= request.captures.size()) {
        return false;
    }
    return ParseInt(request.captures[index], INT_MIN, INT_MAX, value);
}

PageRange PageOf(size_t count, int page, int pageSize) {
    PageRange range{0, count};
    if (page > 0) {
        range.first = std::min(count, static_cast<size_t>(page - 1) * static_cast<size_t>(pageSize));
        range.last = std::min(count, range.first + static_cast<size_t>(pageSize));
    }
    return range;
}

void AddRoutes(CRouter& router, PlatformContext& context, std::initializer_list<RouteEntry> routes) {
    for (const RouteEntry& route : routes) {
        const PlatformHandler handler = route.handler;
        router.Add(route.method, route.pattern, route.access,
                   [&context, handler](const RestRequest& r) { return handler(r, context); });
    }
}

}  // namespace Platform
