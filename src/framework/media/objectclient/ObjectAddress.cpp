#include "framework/media/objectclient/ObjectAddress.h"

#include <cctype>

namespace CloudStorage {

namespace {

bool IsUnreserved(unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~';
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool StartsWithNoCase(const std::string& text, const char* prefix) {
    for (std::size_t i = 0; prefix[i] != '\0'; ++i) {
        if (i >= text.size() ||
            std::tolower(static_cast<unsigned char>(text[i])) != static_cast<unsigned char>(prefix[i])) {
            return false;
        }
    }
    return true;
}

// Splits "<pool>/<key>" (no leading slash).
bool SplitPoolAndKey(const std::string& path, SObjectName& name, std::string& why) {
    std::size_t slash = path.find('/');
    if (slash == 0 || slash == std::string::npos || slash + 1 >= path.size()) {
        why = "no pool and object key in the path";
        return false;
    }
    name.pool = path.substr(0, slash);
    name.key = path.substr(slash + 1);
    return true;
}

}  // namespace

std::string EncodePath(const std::string& text, bool keepSlash) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size() * 3);
    for (unsigned char c : text) {
        if (IsUnreserved(c) || (keepSlash && c == '/')) {
            encoded.push_back(static_cast<char>(c));
        } else {
            encoded.push_back('%');
            encoded.push_back(kHex[c >> 4]);
            encoded.push_back(kHex[c & 0x0F]);
        }
    }
    return encoded;
}

bool DecodePercent(const std::string& text, std::string& decoded) {
    decoded.clear();
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            decoded.push_back(text[i]);
            continue;
        }
        if (i + 2 >= text.size()) {
            return false;
        }
        int high = HexValue(text[i + 1]);
        int low = HexValue(text[i + 2]);
        if (high < 0 || low < 0) {
            return false;
        }
        decoded.push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return true;
}

bool ParseObjectName(const std::string& address, const std::string& defaultPool, SObjectName& name,
                     std::string& why) {
    if (address.empty()) {
        why = "empty object address";
        return false;
    }
    if (StartsWithNoCase(address, "http://") || StartsWithNoCase(address, "https://")) {
        std::size_t authority = address.find("://") + 3;
        std::size_t pathStart = address.find('/', authority);
        if (pathStart == std::string::npos) {
            why = "no path in the address";
            return false;
        }
        std::size_t pathEnd = address.find_first_of("?#", pathStart);
        std::string path;
        if (!DecodePercent(
                address.substr(pathStart + 1,
                               pathEnd == std::string::npos ? std::string::npos : pathEnd - pathStart - 1),
                path)) {
            why = "malformed percent-encoding in the path";
            return false;
        }
        return SplitPoolAndKey(path, name, why);
    }
    if (address.find("://") != std::string::npos) {
        why = "only http and https addresses are served";
        return false;
    }
    if (address[0] == '/') {
        return SplitPoolAndKey(address.substr(1), name, why);
    }
    name.pool = defaultPool;
    name.key = address;
    return true;
}

std::string ServerBase(bool https, const std::string& host, int port) {
    const bool ipv6 = host.find(':') != std::string::npos && host.front() != '[';
    return std::string(https ? "https://" : "http://") + (ipv6 ? "[" + host + "]" : host) + ":" +
           std::to_string(port);
}

std::string ObjectUrl(const std::string& base, const std::string& pool, const std::string& key) {
    std::string url = base + "/" + EncodePath(pool, false);
    if (!key.empty()) {
        url += "/" + EncodePath(key);
    }
    return url;
}

}  // namespace CloudStorage
