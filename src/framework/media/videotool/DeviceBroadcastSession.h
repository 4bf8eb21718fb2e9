#pragma once
// One live talk to devices: the platform's group, a voice talk to each device, the microphone captured as
// G.711 µ-law and sent to every talk, and the devices' states on a status board.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/ErrorCode.h"
#include "framework/media/videotool/DeviceStateBoard.h"
#include "framework/media/videotool/DeviceTalk.h"
#include "framework/media/videotool/VideoTool.h"

namespace TOOL {

class CDeviceBroadcastSession {
public:
    CDeviceBroadcastSession(const CRequestBroadcast& request, CDeviceStateBoard::Sink sink);
    ~CDeviceBroadcastSession();
    CDeviceBroadcastSession(const CDeviceBroadcastSession&) = delete;
    CDeviceBroadcastSession& operator=(const CDeviceBroadcastSession&) = delete;

    /// Runs the start on the caller's thread: true when at least one device talks and the microphone runs.
    /// False with the thread's last error set; what was opened stays until Stop.
    bool Start();
    /// Ends capture and every talk and tells the platform; waits for a Start in progress to give up first.
    /// `reportStopped`: each device is reported stopped. Repeatable, from any thread.
    void Stop(bool reportStopped);
    /// A pushed status text; true when it belongs to this broadcast's group.
    bool Offer(const DeviceStatusNotice& notice, const std::string& text) {
        return board_.Offer(notice, text);
    }

private:
    struct LiveTalk {
        std::unique_ptr<CDeviceTalk> talk;
        bool playing = false;
        bool failed = false;
    };
    struct Event {
        int deviceId;
        int status;
        int resourceStatus;
        std::string errorInfo;
    };

    bool OpenTalks(const DeviceGroup& group);
    /// Starts the microphone; when it cannot, every device of the group is reported failed with the reason.
    bool StartCapture(const DeviceGroup& group, Tal::Base::Error::ErrorCode& error);
    void StopCapture();
    static void OnEncodedAudio(int32_t handle, const uint8_t* data, uint32_t size, void* user);
    void SendToTalks(const uint8_t* data, uint32_t size);
    bool Cancelled(Tal::Base::Error::ErrorCode& error) const;

    const CRequestBroadcast request_;
    CDeviceStateBoard board_;
    std::atomic<bool> cancelled_{false};

    std::mutex startMutex_;  ///< guards starting_ and stopped_
    std::condition_variable startDone_;
    bool starting_ = false;
    bool stopped_ = false;

    std::mutex talksMutex_;  ///< guards talks_ and pending_; held only to queue audio, never on the network
    std::vector<LiveTalk> talks_;
    std::string pending_;  ///< captured audio short of a whole piece

    int32_t capture_ = -1;  ///< touched by Start and by Stop after Start has ended
};

}  // namespace TOOL
