#include "platform/server/http/RestGateway.h"

#include <cctype>
#include <exception>

#include "framework/base/FormatLog.h"

namespace Platform {

namespace {

// The default text of a "malformed" fault: an envelope cut short.
const char kMalformedBody[] = "{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,\"Data\":{\"";

}  // namespace

std::string BearerToken(const std::string& authorization) {
    size_t start = authorization.find_first_not_of(' ');
    if (start == std::string::npos || authorization.size() < start + 7) {
        return std::string();
    }
    std::string scheme = authorization.substr(start, 7);
    for (char& c : scheme) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (scheme != "bearer ") {
        return std::string();
    }
    std::string token = authorization.substr(start + 7);
    size_t first = token.find_first_not_of(' ');
    size_t last = token.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : token.substr(first, last - first + 1);
}

CRestGateway::CRestGateway(const CRouter& api, const CRouter& control, PlatformContext& context)
    : api_(api), control_(control), context_(context) {}

RestResponse CRestGateway::Handle(RestRequest& request) const {
    if (request.path.rfind(kControlPrefix, 0) == 0) {
        return Dispatch(control_, request, false);
    }
    RequestLogEntry entry;
    entry.timeMs = NowMs();
    entry.method = request.method;
    entry.path = request.path;
    entry.query = request.query;
    entry.body = request.body;
    entry.remote = request.remote;

    RestResponse response;
    FaultRule fault;
    const bool faulted = context_.faults.Take(request.method, request.path, fault);
    if (faulted && fault.delayMs > 0) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]delaying %s %s by %d ms (injected)[%s(%d)]",
                request.method.c_str(), request.path.c_str(), fault.delayMs);
        context_.stop.SleepFor(fault.delayMs);
    }
    if (faulted && fault.kind != FaultKind::kDelay) {
        response = FaultResponse(fault);
        entry.fault = FaultKindName(fault.kind);
    } else {
        if (faulted) {
            entry.fault = FaultKindName(fault.kind);
        }
        response = Dispatch(api_, request, true);
        if (request.hasSession) {
            entry.userName = request.session.userName;
        }
    }
    entry.status = response.status;
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]%s %s -> %d%s%s[%s(%d)]", request.method.c_str(),
            request.path.c_str(), response.status, entry.fault.empty() ? "" : " fault ", entry.fault.c_str());
    context_.requests.Add(std::move(entry));
    return response;
}

RestResponse CRestGateway::Dispatch(const CRouter& router, RestRequest& request, bool enforceSession) const {
    const CRouter::Route* route = nullptr;
    switch (router.Find(request.method, request.path, route, request.captures)) {
        case CRouter::Match::kNoPath:
            return PlatformError(kErrNoRoute, "no such path: " + request.path, 404);
        case CRouter::Match::kWrongMethod:
            return PlatformError(kErrNoRoute, request.method + " is not served for " + request.path, 405);
        case CRouter::Match::kFound:
            break;
    }
    if (enforceSession && route->access == RouteAccess::kSession) {
        const std::string token = BearerToken(request.authorization);
        if (token.empty()) {
            return PlatformError(kErrNotLoggedIn, "an \"Authorization: Bearer <token>\" header is required",
                                 401);
        }
        if (!context_.sessions.Touch(token, request.session)) {
            return PlatformError(kErrNotLoggedIn, "unknown or closed session", 401);
        }
        request.hasSession = true;
    }
    try {
        return route->handler(request);
    } catch (const std::exception& e) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]%s %s failed: %s[%s(%d)]", request.method.c_str(),
                request.path.c_str(), e.what());
        return PlatformError(kErrInternal, std::string("internal error: ") + e.what(), 500);
    }
}

RestResponse CRestGateway::FaultResponse(const FaultRule& rule) const {
    RestResponse response;
    switch (rule.kind) {
        case FaultKind::kError:
            response = Error(rule.errorModule, rule.errorCode, rule.info,
                             rule.httpStatus != 0 ? rule.httpStatus : 200);
            break;
        case FaultKind::kEmpty:
            response.status = rule.httpStatus != 0 ? rule.httpStatus : 200;
            response.body.clear();
            break;
        case FaultKind::kMalformed:
            response.status = rule.httpStatus != 0 ? rule.httpStatus : 200;
            response.body = rule.body.empty() ? kMalformedBody : rule.body;
            break;
        case FaultKind::kHttpStatus:
            response.status = rule.httpStatus != 0 ? rule.httpStatus : 500;
            response.body = rule.body.empty() ? "injected failure\n" : rule.body;
            response.contentType = "text/plain";
            break;
        case FaultKind::kDelay:
            break;
    }
    return response;
}

}  // namespace Platform
