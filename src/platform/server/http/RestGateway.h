#pragma once
// The way of every REST request through the platform: control requests go straight to their handlers;
// all others are logged, may meet an injected fault, must carry a session where the route asks for one,
// and then reach their handler.

#include "platform/server/PlatformContext.h"
#include "platform/server/http/Router.h"

namespace Platform {

/// Control interface paths begin with this.
constexpr char kControlPrefix[] = "/_control/";

class CRestGateway {
public:
    CRestGateway(const CRouter& api, const CRouter& control, PlatformContext& context);

    RestResponse Handle(RestRequest& request) const;

private:
    RestResponse Dispatch(const CRouter& router, RestRequest& request, bool enforceSession) const;
    RestResponse FaultResponse(const FaultRule& rule) const;

    const CRouter& api_;
    const CRouter& control_;
    PlatformContext& context_;
};

/// The token of an "Authorization: Bearer <token>" header, empty when there is none.
std::string BearerToken(const std::string& authorization);

}  // namespace Platform
