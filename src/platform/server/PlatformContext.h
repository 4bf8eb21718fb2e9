#pragma once
// Everything a REST handler of the platform may use.

#include <string>

#include "platform/server/fault/FaultInjector.h"
#include "platform/server/fault/StopSignal.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/log/OperationLog.h"
#include "platform/server/log/RequestLog.h"
#include "platform/server/push/PushControl.h"
#include "platform/server/session/SessionStore.h"
#include "platform/server/sim/SimulatedSite.h"
#include "platform/server/state/BroadcastRegistry.h"

namespace Platform {

class CObjectStores;

struct PlatformContext {
    const Fixture& fixture;
    CSessionStore& sessions;
    CBroadcastRegistry& registry;
    CRequestLog& requests;
    COperationLog& oplog;
    CFaultInjector& faults;
    CSimulatedSite& site;
    IPushControl& push;
    CStopSignal& stop;
    std::string listenAddress;  ///< the REST listen address; names the platform when a request has no Host
    CObjectStores* stores;      ///< the object stores; null when none run (--object-store off, --no-peers)
};

}  // namespace Platform
