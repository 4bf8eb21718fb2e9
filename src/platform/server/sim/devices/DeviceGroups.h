#pragma once
// Device broadcast groups: live talk to devices reached through the device network interface (cameras,
// door stations, encoders with a loudspeaker). A client asks the platform for a group, logs in to each
// device itself and talks on voice channel 1. Each device of an active group records what it receives
// on that channel to <speaker dir>/device-<id>.wav and reports its state through the push link:
//
//   group created          -> 200 ms later: 1 connecting (3 "device offline" for an offline device)
//   first talk audio       -> 2 playing (once per device and group)
//   login or talk refused  -> 3 failed with the reason
//   device goes offline    -> 3 "device offline"
//   stop, or taken over    -> 0 stopped (a device is in at most one active group; a newer one takes it)
//
// Thread-safe: REST workers, device connections and the scheduler call in. One mutex guards the state;
// pushes are published under it (publishing only queues a frame) so that they go out in order.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "platform/server/push/PushFrame.h"

namespace Platform {

class CWavRecorder;

/// "Status" of a device in a device broadcast push.
enum DeviceTalkStatus {
    kDeviceTalkStopped = 0,
    kDeviceTalkConnecting = 1,
    kDeviceTalkPlaying = 2,
    kDeviceTalkFailed = 3,
};

/// "NotifyType" of device broadcast pushes.
constexpr int kNotifyTypeDeviceBroadcast = 1;

/// A group as the client asked for it.
struct DeviceGroupSetup {
    std::string guid;
    std::vector<int> requestedIds;  ///< "DeviceIDs" as sent, usable or not
    int type = 0;
    int record = 0;
    std::string filePath;
    struct Member {
        int deviceId = 0;
        bool online = true;
    };
    std::vector<Member> members;  ///< the devices that take the broadcast
};

/// What the control interface shows of one device of a group.
struct DeviceMemberInfo {
    int deviceId = 0;
    int status = kDeviceTalkConnecting;
    int resourceStatus = kResourceBroadcasting;
    std::string errorInfo;
    uint64_t bytesReceived = 0;  ///< encoded talk audio received on voice channel 1 in this group
    std::string wavPath;         ///< empty when nothing was recorded
};

struct DeviceGroupInfo {
    DeviceGroupSetup setup;  ///< as the client asked for it
    bool active = false;
    std::vector<DeviceMemberInfo> members;
};

class CDeviceGroups : private Tal::Base::CNonCopyable {
public:
    /// Milliseconds between the answer that creates a group and its first statuses.
    static constexpr int kDialDelayMs = 200;
    /// Ended groups the control view keeps.
    static constexpr std::size_t kEndedKept = 16;
    /// The voice channel a device broadcast talks on, and its broadcast alias.
    static constexpr int kVoiceChannel = 1;
    static constexpr int kVoiceChannelAlias = 1001;

    CDeviceGroups(IPushSink& sink, IScheduler& scheduler, std::string speakerDir);
    ~CDeviceGroups();

    /// Opens a group: takes its devices over from older groups (0 there), creates the online devices'
    /// recordings and pushes the first statuses after kDialDelayMs.
    void Start(const DeviceGroupSetup& setup);
    /// Ends an active group (0 for every device); false when the GUID is unknown or already ended.
    bool Stop(const std::string& guid);

    // What happens at the devices, from their connections' threads.
    /// Talk audio decoded to 8000 Hz mono; only voice channel 1 (or its alias) belongs to a group.
    void OnAudio(int deviceId, int channel, const int16_t* samples, std::size_t count,
                 std::size_t encodedBytes);
    void OnLoginRefused(int deviceId);
    void OnTalkRefused(int deviceId, int channel);
    /// The device was switched off or on (control interface); off fails its group entry.
    void OnOnline(int deviceId, bool online);

    /// Active groups in creation order, then the ended ones kept, oldest first.
    std::vector<DeviceGroupInfo> Snapshot() const;
    /// The recording of a device in its latest group; empty when it recorded nothing.
    std::string WavPathOf(int deviceId) const;
    /// Ends every group without pushes and forgets them.
    void Reset();

private:
    struct Member {
        int deviceId = 0;
        int status = kDeviceTalkConnecting;
        int resourceStatus = kResourceBroadcasting;
        std::string errorInfo;
        uint64_t bytes = 0;
        bool playingPushed = false;
        bool released = false;  ///< stopped, or taken over by a newer group
        std::unique_ptr<CWavRecorder> wav;
        std::string wavPath;
    };

    struct Group {
        DeviceGroupSetup setup;
        bool active = true;
        bool dialed = false;
        std::vector<std::unique_ptr<Member>> members;
    };

    Group* FindActiveLocked(const std::string& guid);
    /// The member of the device's active group, with that group dialed first; null when it has none.
    Member* ActiveMemberLocked(int deviceId, std::string& guid);
    void DialLocked(Group& group);
    /// Sets and pushes a member's state; nothing when it is unchanged.
    void ChangeLocked(const std::string& guid, Member& m, int status, int resourceStatus,
                      const std::string& errorInfo);
    void PushLocked(const std::string& guid, const Member& m);
    void ReleaseLocked(const std::string& guid, Member& m, bool push);
    bool OpenWavLocked(Member& m);
    static DeviceGroupInfo InfoOf(const Group& group);

    IPushSink& sink_;
    IScheduler& scheduler_;
    const std::string speakerDir_;

    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Group>> active_;  ///< creation order
    std::deque<DeviceGroupInfo> ended_;
    std::map<int, std::string> owner_;    ///< device id -> GUID of its active group
    std::map<int, std::string> wavPath_;  ///< device id -> its latest recording
};

}  // namespace Platform
