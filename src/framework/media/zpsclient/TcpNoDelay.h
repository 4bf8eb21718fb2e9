#pragma once
// rtspsrc writes interleaved RTP on its RTSP connection without TCP_NODELAY, so small audio packets wait for
// the peer's acknowledgements (10-15 ms on loopback). rtspsrc gives no access to that socket; this finds the
// process's TCP connections to the server and sets the option on them.

#include <string>

namespace ZPSClient {

/// Sets TCP_NODELAY, and TCP_USER_TIMEOUT = `userTimeoutMs` (unacknowledged data aborts the connection after
/// that long), on every TCP socket of this process connected to the host and port of `rtspUrl`.
/// Returns the number of sockets changed.
int ConfigureServerConnections(const std::string& rtspUrl, unsigned userTimeoutMs);

}  // namespace ZPSClient
