#pragma once
// The host's web mode: plays the part of the web page's host code, which constructs the module's exported
// web controller, registers for its messages and calls its methods.

#include <string>

extern "C" {
/// Runs one method of a web controller ("StartIPSpeakerBroadcast", "StopIPSpeakerBroadcast",
/// "DownloadMediaFile", "StartBroadcastListen", "StopBroadcastListen", "CleanCache") with a JSON request,
/// prints every outgoing message with its target, and waits until the work settles (waitSeconds < 0) or
/// for waitSeconds. The module must be started. Returns 0 when the call was accepted, 1 when it was refused,
/// 2 for an unknown method.
__attribute__((visibility("default"))) int BcastHostRunWebMethod(const char* method, const char* request,
                                                                 double waitSeconds);
}

/// Type of BcastHostRunWebMethod, for the host that resolves it.
using BcastHostRunWebMethodFn = int (*)(const char*, const char*, double);
