#pragma once
// Frames of the push link and the broadcast status they carry.
//
// Frame (one websocket text message):
//   {"MessageType":3,"EventType":310001,"Msg":{"ProtocolType":1,"Module":0,"Data":{...}}}
// Broadcast status data ("/Msg/Data"):
//   {"Event":{"BroadcastStatusList":[{"BoardcastGroupGUID":"..","ResourceID":1001,"ErrorCode":0,
//     "ErrorModule":0,"ResourceType":1027,"ResourceStatus":1,"Status":1,"PromptToneBeginEnd":0}]}}
// Device broadcast status data (one device per frame, same message and event type):
//   {"NotifyType":1,"GroupId":"..","IndexCode":"201","ErrorInfo":"","ResourceStatus":1,"Status":1}

#include <functional>
#include <string>
#include <vector>

namespace Platform {

/// Message type and event type of broadcast status pushes.
constexpr int kMessageTypeBroadcast = 3;
constexpr int kEventTypeBroadcastStatus = 310001;

/// "Status" of a speaker in a push.
enum SpeakerStatusCode {
    kSpeakerConnecting = 0,
    kSpeakerPlaying = 1,
    kSpeakerFailed = 2,
    kSpeakerStopped = 3,
    kPromptToneFinished = 100,     ///< the prompt tone played to its end
    kPromptToneInterrupted = 101,  ///< the prompt tone was stopped before its end
    kPromptTonePreparing = 102,
    kPromptTonePlaying = 103,
};

/// "ResourceStatus" of a speaker in a push: the terminal's own state.
enum ResourceStatusCode {
    kResourceBroadcasting = 1,
    kResourceIdle = 3,
    kResourceOffline = 4,
    kResourceFault = 5,
    kResourceOccupied = 6,
};

/// "PromptToneBeginEnd": 0 begins, 1 ends; kPromptNone leaves the key out.
constexpr int kPromptBegin = 0;
constexpr int kPromptEnd = 1;
constexpr int kPromptNone = -1;

struct PushFrame {
    int messageType = kMessageTypeBroadcast;
    int eventType = kEventTypeBroadcastStatus;
    int protocolType = 1;
    int module = 0;
    std::string dataJson = "{}";  ///< the serialised "/Msg/Data" object
};

struct SpeakerStatus {
    std::string groupGuid;
    int resourceId = 0;
    int errorCode = 0;
    int errorModule = 0;
    int resourceType = 1027;
    int resourceStatus = kResourceIdle;
    int status = kSpeakerConnecting;
    int promptToneBeginEnd = kPromptNone;
};

std::string PushFrameText(const PushFrame& frame);
/// {"Event":{"BroadcastStatusList":[...]}}
std::string BroadcastStatusData(const std::vector<SpeakerStatus>& list);
PushFrame BroadcastStatusFrame(const std::vector<SpeakerStatus>& list);

/// Where frames go (the push hub). Thread-safe.
class IPushSink {
public:
    virtual ~IPushSink() = default;
    virtual void Publish(const PushFrame& frame) = 0;
};

/// Runs a task later, on one thread. Thread-safe; tasks still pending when it is destroyed never run.
class IScheduler {
public:
    virtual ~IScheduler() = default;
    virtual void After(int delayMs, std::function<void()> task) = 0;
};

}  // namespace Platform
