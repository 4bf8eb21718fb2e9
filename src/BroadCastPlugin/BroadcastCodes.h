#pragma once
// Numbers the module reports to the platform and to its callers: operation-log types and its own errors.

namespace BroadCastPlugin {

/// Operation-log types of business actions.
constexpr int kOperationLogBroadcastStart = 265001;
constexpr int kOperationLogBroadcastStop = 265002;
constexpr int kOperationLogListenStart = 203001;
constexpr int kOperationLogListenStop = 203002;

/// Module number of the module's own errors and its codes.
constexpr int kModuleBroadcast = 20;
constexpr int kErrorBadServerResponse = 2001;
constexpr int kErrorWanPortClosed = 2002;
constexpr int kErrorUploadClientStart = 3403;
constexpr int kErrorDownloadClientStart = 3404;

}  // namespace BroadCastPlugin
