#pragma once
// One REST call of the framework's own clients to the platform, with the answer's envelope checked:
// {"ResponseStatus":{"ErrorModule":0,"ErrorCode":0,"CascadingErrorInfo":"","Data":{...}}}

#include <string>

#include "framework/base/ErrorCode.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace NetworkCommunication {

/// Where the data of an answer lives.
constexpr char kEnvelopeData[] = "/ResponseStatus/Data";
/// Module number of the errors the platform finds itself.
constexpr int kPlatformModule = 30;

/// Sends `method path` with `body` (may be empty) in the current login session and reads the answer
/// into `answer`. True when the transport succeeded and the envelope carries no error. On failure the
/// reason is the thread's last error and a log line names the call:
/// - an envelope error: (subsystem 1, its ErrorModule, its ErrorCode) with its CascadingErrorInfo; this also
///   applies to a non-2xx answer whose body is an envelope with an error (a 401 carries the platform's
///   reason);
/// - a transport or HTTP failure without such an envelope: the error CNetCommManager reports
///   (module kModuleTransport or kModuleHttp);
/// - a 2xx answer that is empty, not JSON or has no envelope: (1, kModuleFramework, kCodeBadServerAnswer).
/// `timeoutMs` 0 uses the time-out of the network level.
bool CallPlatform(const std::string& method, const std::string& path, const std::string& body,
                  CRapidJsonProto& answer, int timeoutMs = 0);

/// The same against `server` instead of the current session (see CNetCommManager::SendToServer).
bool CallPlatformAt(const ServerSession& server, const std::string& method, const std::string& path,
                    const std::string& body, CRapidJsonProto& answer, int timeoutMs = 0);

/// A short English description of an error left by CallPlatform or CNetCommManager, for one-line
/// messages: "cannot connect (libcurl 7: Couldn't connect to server)", "HTTP 500", "platform error 30/5:
/// wrong user name or password", "malformed answer: ...".
std::string DescribeError(const Tal::Base::Error::ErrorCode& error);

}  // namespace NetworkCommunication
