#include "platform/server/http/Router.h"

#include <cctype>

namespace Platform {

namespace {

constexpr char kIntSegment[] = "{int}";

std::vector<std::string> Split(const std::string& path) {
    std::vector<std::string> segments;
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find('/', start);
        segments.push_back(
            path.substr(start, slash == std::string::npos ? std::string::npos : slash - start));
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    return segments;
}

bool IsInteger(const std::string& text) {
    size_t i = (!text.empty() && text[0] == '-') ? 1 : 0;
    if (i >= text.size()) {
        return false;
    }
    for (; i < text.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
            return false;
        }
    }
    return true;
}

bool MatchSegments(const std::vector<std::string>& pattern, const std::vector<std::string>& path,
                   std::vector<std::string>& captures) {
    if (pattern.size() != path.size()) {
        return false;
    }
    std::vector<std::string> found;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == kIntSegment) {
            if (!IsInteger(path[i])) {
                return false;
            }
            found.push_back(path[i]);
        } else if (pattern[i] != path[i]) {
            return false;
        }
    }
    captures = std::move(found);
    return true;
}

}  // namespace

void CRouter::Add(const std::string& method, const std::string& pattern, RouteAccess access,
                  RestHandler handler) {
    Route route;
    route.method = method;
    route.pattern = pattern;
    route.segments = Split(pattern);
    route.access = access;
    route.handler = std::move(handler);
    routes_.push_back(std::move(route));
}

CRouter::Match CRouter::Find(const std::string& method, const std::string& path, const Route*& route,
                             std::vector<std::string>& captures) const {
    const std::vector<std::string> segments = Split(path);
    bool pathKnown = false;
    for (const Route& r : routes_) {
        std::vector<std::string> found;
        if (!MatchSegments(r.segments, segments, found)) {
            continue;
        }
        pathKnown = true;
        if (r.method != method) {
            continue;
        }
        captures = std::move(found);
        route = &r;
        return Match::kFound;
    }
    return pathKnown ? Match::kWrongMethod : Match::kNoPath;
}

}  // namespace Platform
