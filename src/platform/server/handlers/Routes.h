#pragma once
// Registration of the REST handlers, one function per area.

#include "platform/server/PlatformContext.h"
#include "platform/server/http/Router.h"

namespace Platform {

/// Login, logout, heartbeat.
void AddSessionRoutes(CRouter& router, PlatformContext& context);
/// Partitions and broadcast terminals.
void AddTerminalRoutes(CRouter& router, PlatformContext& context);
/// Media directories and files.
void AddMediaRoutes(CRouter& router, PlatformContext& context);
/// Broadcast configuration, TTS languages, local cloud storage, record server disks, device access way.
void AddConfigRoutes(CRouter& router, PlatformContext& context);
/// Broadcast addresses, status, prompt tones, TTS and recordings.
void AddRealtimeRoutes(CRouter& router, PlatformContext& context);
/// Recordings of live broadcasts: registering one (its object must be stored) and listing them.
void AddRecordRoutes(CRouter& router, PlatformContext& context);
/// Device broadcasts: live talk to devices through the device network interface.
void AddDeviceBroadcastRoutes(CRouter& router, PlatformContext& context);
/// Elements and devices, stream access types.
void AddResourceRoutes(CRouter& router, PlatformContext& context);
/// The operation log.
void AddOplogRoutes(CRouter& router, PlatformContext& context);
/// Voice-talk (listen) addresses of the client framework.
void AddVoiceTalkRoutes(CRouter& router, PlatformContext& context);
/// The control interface for tests (no session needed), with the simulated site's part.
void AddControlRoutes(CRouter& router, PlatformContext& context);
void AddSimulationControlRoutes(CRouter& router, PlatformContext& context);
/// The object stores' part of the control interface.
void AddStorageControlRoutes(CRouter& router, PlatformContext& context);

}  // namespace Platform
