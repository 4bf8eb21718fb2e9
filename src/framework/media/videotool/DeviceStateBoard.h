#pragma once
// The states of the devices of one device broadcast, from the client's own results and from the platform's
// pushes of that group. Each state change is delivered once, as the status text the callback reads:
//   {"NotifyType":1,"GroupId":"..","IndexCode":"201","ErrorInfo":"","ResourceStatus":1,"Status":2}
// A state that would go back (connecting after playing, anything after stopped) is not delivered: the client
// and the platform report the same events from two sides and in either order.

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace NetworkCommunication {
class CRapidJsonProto;
}

namespace TOOL {

/// The device-status fields of a pushed message, read once from its parsed document; the push's text stays
/// beside it for delivery. {"NotifyType":1,"GroupId":"..","IndexCode":"201","Status":2}
struct DeviceStatusNotice {
    bool isNotice = false;  ///< the message has "NotifyType"
    int notifyType = -1;
    std::string groupId;
    int deviceId = 0;  ///< "IndexCode" as a number
    int status = -1;

    /// Reads the fields under `path` of a parsed document ("" for its root).
    static DeviceStatusNotice Read(const NetworkCommunication::CRapidJsonProto& document,
                                   const std::string& path);
};

/// "Status" of a device in a device broadcast status text.
enum DeviceBroadcastStatus {
    kDeviceStopped = 0,
    kDeviceConnecting = 1,
    kDevicePlaying = 2,
    kDeviceFailed = 3,
};

/// "ResourceStatus" of a device: what the device itself is doing.
enum DeviceResourceStatus {
    kDeviceBroadcasting = 1,
    kDeviceIdle = 3,
    kDeviceOffline = 4,
};

class CDeviceStateBoard {
public:
    using Sink = std::function<void(const std::string& text)>;

    explicit CDeviceStateBoard(Sink sink);

    void SetGroup(const std::string& groupId);
    std::string Group() const;

    /// The client's own result for a device; delivered when it moves the device's state on.
    void Report(int deviceId, int status, int resourceStatus, const std::string& errorInfo);
    /// Stopped for every device that has a state and is not stopped yet.
    void ReportAllStopped();
    /// A pushed text. True when it is a status ("NotifyType") of this group, delivered or recognised as a
    /// repeat.
    bool Offer(const std::string& text);
    /// The same for a push already read: `text` is what the sink receives.
    bool Offer(const DeviceStatusNotice& notice, const std::string& text);

    static std::string StatusText(const std::string& groupId, int deviceId, int status, int resourceStatus,
                                  const std::string& errorInfo);
    /// Whether a device in state `from` (-1: none yet) may be reported in state `to`.
    static bool Advances(int from, int to);

private:
    /// Records the state and delivers `text` when it advances; serialised so that deliveries keep order.
    void Deliver(int deviceId, int status, const std::string& text);

    const Sink sink_;
    mutable std::mutex mutex_;  ///< guards groupId_ and states_
    std::mutex deliveryMutex_;  ///< one delivery at a time, in the order the states were accepted
    std::string groupId_;
    std::map<int, int> states_;
};

}  // namespace TOOL
