#pragma once
// Misbehaviour on request, for tests of clients: per method and path, answer with an error envelope, an
// empty or malformed body, another HTTP status, or answer late. Rules are installed through the control
// interface and apply until they are used up, removed or reset.

#include <rapidjson/document.h>

#include <mutex>
#include <string>
#include <vector>

namespace Platform {

enum class FaultKind { kError, kEmpty, kMalformed, kHttpStatus, kDelay };

struct FaultRule {
    int id = 0;
    std::string method;  ///< empty: any method
    std::string path;    ///< exact path, or a prefix when it ends with '*'
    FaultKind kind = FaultKind::kError;
    int errorModule = 0;  ///< kError
    int errorCode = 0;    ///< kError
    std::string info;     ///< kError: "CascadingErrorInfo"
    int httpStatus = 0;   ///< 0: 200 for error, empty and malformed; 500 for kHttpStatus
    std::string body;     ///< kMalformed and kHttpStatus: the body to send instead of the default
    int delayMs = 0;      ///< waited before answering (the only effect of kDelay)
    int remaining = -1;   ///< uses left; -1 without limit
    int hits = 0;
};

const char* FaultKindName(FaultKind kind);

/// Reads a rule from the control request {"Method","Path","Kind","ErrorModule","ErrorCode",
/// "CascadingErrorInfo","HttpStatus","Body","DelayMs","Count"}. False with a reason on invalid input.
bool ParseFaultRule(const rapidjson::Value& json, FaultRule& rule, std::string& error);
std::string FaultRuleJson(const FaultRule& rule);

class CFaultInjector {
public:
    /// Installs a rule and returns its id.
    int Add(FaultRule rule);
    bool Remove(int id);
    void Clear();
    /// The first rule, in installation order, that matches; one of its uses is consumed.
    bool Take(const std::string& method, const std::string& path, FaultRule& rule);
    std::vector<FaultRule> Snapshot() const;

private:
    mutable std::mutex mutex_;
    std::vector<FaultRule> rules_;
    int nextId_ = 1;
};

}  // namespace Platform
