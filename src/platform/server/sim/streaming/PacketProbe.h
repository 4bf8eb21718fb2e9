#pragma once
// The bench's time stamps of the talk packets where they pass in the streaming server: the client library's
// probe, writing to streaming-<pid>.txt in the directory BCAST_STREAM_PROBE names.

#include "framework/media/zpsclient/PacketProbe.h"

namespace Platform {

struct ServerProbeFiles {
    static constexpr const char* kPrefix = "streaming-";
};
using CPacketProbe = ZPSClient::CPacketProbeFor<ServerProbeFiles>;

}  // namespace Platform
