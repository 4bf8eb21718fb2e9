#pragma once
// What the REST side may ask of the push link. Thread-safe.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/server/push/PushFrame.h"

namespace Platform {

/// The path of the push link.
constexpr char kPushPath[] = "/push";

struct PushLinkInfo {
    int id = 0;
    std::string userName;
    std::string peer;
    std::vector<int> messageTypes;
    std::vector<std::pair<int, int>> events;  ///< (event type, type)
    int64_t connectedMs = 0;
    int64_t framesSent = 0;
};

class IPushControl : public IPushSink {
public:
    /// Closes every link; with refuseSeconds > 0 refuses new ones for that long. False when it could not be
    /// done in time.
    virtual bool DropAll(int refuseSeconds) = 0;
    virtual void CloseSession(const std::string& token) = 0;
    virtual std::vector<PushLinkInfo> Links() const = 0;
    virtual bool IsAccepting() const = 0;
    virtual bool IsTls() const = 0;
    virtual uint16_t Port() const = 0;
};

}  // namespace Platform
