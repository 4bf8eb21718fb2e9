#include "platform/server/fault/FaultInjector.h"

#include "framework/base/EnumNames.h"
#include "framework/base/LockedCopy.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

// The names of the kinds, as a rule gives them in "Kind" and as the request log shows them.
constexpr Tal::Base::EnumName<FaultKind> kFaultKindNames[] = {{FaultKind::kError, "error"},
                                                              {FaultKind::kEmpty, "empty"},
                                                              {FaultKind::kMalformed, "malformed"},
                                                              {FaultKind::kHttpStatus, "http"},
                                                              {FaultKind::kDelay, "delay"}};

}  // namespace

const char* FaultKindName(FaultKind kind) {
    return Tal::Base::NameOf(kind, kFaultKindNames, "unknown");
}

bool ParseFaultRule(const rapidjson::Value& json, FaultRule& rule, std::string& error) {
    if (!json.IsObject()) {
        error = "the fault must be a JSON object";
        return false;
    }
    FaultRule r;
    r.method = Json::GetString(json, "Method");
    r.path = Json::GetString(json, "Path");
    if (r.path.empty() || r.path[0] != '/') {
        error = "\"Path\" must be a path beginning with '/' (a trailing '*' matches a prefix)";
        return false;
    }
    if (r.path.rfind("/_control", 0) == 0) {
        error = "control paths cannot be faulted";
        return false;
    }
    const std::string kind = Json::GetString(json, "Kind");
    if (!Tal::Base::ValueOf(kind, kFaultKindNames, r.kind)) {
        error = "\"Kind\" must be error, empty, malformed, http or delay";
        return false;
    }
    r.errorModule = static_cast<int>(Json::GetInt(json, "ErrorModule", 0));
    r.errorCode = static_cast<int>(Json::GetInt(json, "ErrorCode", 0));
    r.info = Json::GetString(json, "CascadingErrorInfo");
    r.httpStatus = static_cast<int>(Json::GetInt(json, "HttpStatus", 0));
    r.body = Json::GetString(json, "Body");
    r.delayMs = static_cast<int>(Json::GetInt(json, "DelayMs", 0));
    r.remaining = static_cast<int>(Json::GetInt(json, "Count", -1));
    if (r.kind == FaultKind::kError && r.errorModule == 0 && r.errorCode == 0) {
        error = "an error fault needs a non-zero \"ErrorModule\" or \"ErrorCode\"";
        return false;
    }
    if (r.httpStatus != 0 && (r.httpStatus < 100 || r.httpStatus > 599)) {
        error = "\"HttpStatus\" must be 100..599";
        return false;
    }
    if (r.delayMs < 0 || r.delayMs > 600000) {
        error = "\"DelayMs\" must be 0..600000";
        return false;
    }
    if (r.kind == FaultKind::kDelay && r.delayMs == 0) {
        error = "a delay fault needs \"DelayMs\"";
        return false;
    }
    if (r.remaining == 0 || r.remaining < -1) {
        error = "\"Count\" must be positive, or -1 for no limit";
        return false;
    }
    rule = r;
    return true;
}

std::string FaultRuleJson(const FaultRule& r) {
    Json::CWriter w;
    w.BeginObject();
    w.Int("FaultID", r.id)
        .String("Method", r.method)
        .String("Path", r.path)
        .String("Kind", FaultKindName(r.kind));
    w.Int("ErrorModule", r.errorModule).Int("ErrorCode", r.errorCode).String("CascadingErrorInfo", r.info);
    w.Int("HttpStatus", r.httpStatus).String("Body", r.body).Int("DelayMs", r.delayMs);
    w.Int("Count", r.remaining).Int("Hits", r.hits);
    w.EndObject();
    return w.Text();
}

int CFaultInjector::Add(FaultRule rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    rule.id = nextId_++;
    rule.hits = 0;
    rules_.push_back(rule);
    return rule.id;
}

bool CFaultInjector::Remove(int id) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = rules_.begin(); it != rules_.end(); ++it) {
        if (it->id == id) {
            rules_.erase(it);
            return true;
        }
    }
    return false;
}

void CFaultInjector::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.clear();
}

bool CFaultInjector::Take(const std::string& method, const std::string& path, FaultRule& rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = rules_.begin(); it != rules_.end(); ++it) {
        if (!it->method.empty() && it->method != method) {
            continue;
        }
        const bool prefix = !it->path.empty() && it->path.back() == '*';
        const bool match = prefix
                               ? path.compare(0, it->path.size() - 1, it->path, 0, it->path.size() - 1) == 0
                               : path == it->path;
        if (!match) {
            continue;
        }
        ++it->hits;
        rule = *it;
        if (it->remaining > 0 && --it->remaining == 0) {
            rules_.erase(it);
        }
        return true;
    }
    return false;
}

std::vector<FaultRule> CFaultInjector::Snapshot() const {
    return Tal::Base::LockedCopy(mutex_, rules_);
}

}  // namespace Platform
