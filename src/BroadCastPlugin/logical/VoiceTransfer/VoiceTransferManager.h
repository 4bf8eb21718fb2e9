#pragma once
// Fans encoded audio frames out to three receiver groups (streaming server, device SDK, RTP speakers), each
// with its own queue and sending thread, and opens the listening channel from a speaker.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/VoiceTransfer/IVoiceTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/TransferClock.h"

namespace BroadCastPlugin {

/// One queued frame. The bytes are copied once from the input and shared, read-only, by the blocks of
/// every group; the last block to go frees them.
struct VoiceDataBlock {
    std::shared_ptr<const uint8_t> data;
    int32_t size = 0;
};

/// State of one receiver group, shared by the manager and the group's sending thread.
struct VoiceSendParam {
    std::atomic<bool> started{false};  ///< true while the group's thread is supposed to run
    std::thread sendThread;
    std::mutex mutex;  ///< guards dataQueue and transfers
    std::condition_variable dataReady;
    std::deque<VoiceDataBlock> dataQueue;
    std::atomic<bool> preBufferEnabled{false};
    int32_t preBufferFrames = 0;
    std::list<std::shared_ptr<IVoiceTransfer>> transfers;
    /// Bumped under `mutex` with every change of `transfers`, so that the sending thread rebuilds its own
    /// list of targets only then and not for every frame.
    uint64_t transfersVersion = 0;
    std::mutex threadMutex;  ///< guards starting and joining sendThread
};

/// Receives per-device transport results: type 1, elementID = device id, error, speakerStatus 1 opened / 2
/// failed.
using TransferResultCallback = std::function<void(const IPSpeakerNotifyParam&)>;

class CVoiceTransferManager {
public:
    /// Frames queued across all groups at which SendData starts to wait.
    static constexpr std::size_t kMaxQueuedBlocks = 30720;
    /// Frames the streaming-server group sends ahead of real time.
    static constexpr int32_t kZPSPreBufferFrames = 100;

    /// The process-wide manager of the broadcast logic.
    static CVoiceTransferManager* Instance();

    /// Real transports and the monotonic clock.
    CVoiceTransferManager();
    CVoiceTransferManager(std::shared_ptr<ITransferFactory> factory, std::shared_ptr<ITransferClock> clock);
    /// Stops sending, joins the threads and closes every transport, listening ones included.
    ~CVoiceTransferManager();
    CVoiceTransferManager(const CVoiceTransferManager&) = delete;
    CVoiceTransferManager& operator=(const CVoiceTransferManager&) = delete;

    bool StartSendToZPS(const std::vector<ZPSTransferTarget>& targets);
    bool StartSendToSDK(const std::vector<SDKTransferTarget>& targets);
    void StartSendToOEM(const std::vector<OEMTransferTarget>& targets);
    /// Queues one frame to every started group; waits (1 s steps) while too many frames are queued, or with a
    /// live queue limit drops the oldest frames of a group that falls behind instead.
    void SendData(const uint8_t* data, int32_t size);
    /// Live input (a talk from the microphone) must not wait for a slow group: with a limit, a group holds at
    /// most `frames` queued frames and the oldest go first. 0 (the default, and after StopTransfer): the
    /// waiting back-pressure of file input.
    void SetLiveQueueLimit(std::size_t frames);
    /// Frames dropped by the live queue limit since the last StopTransfer.
    uint64_t GetDroppedFrameCount() const { return droppedFrames; }
    void SetFrameInterval(int32_t milliseconds);
    void SetInputFinished();
    void WaitTransferFinish();
    void StopTransfer();
    /// The broadcast logic's stop request: set, the sending threads drop what is queued and end at once
    /// (also out of their pacing and pre-buffer sleeps) and SendData takes nothing more; cleared, sending
    /// may start again. Transports stay open until StopTransfer.
    void SetStopFlag(bool stopped);

    bool StartListenFromZPS(const ZPSTransferTarget& target, ZPSDataCallback callback);
    void StopListenFromZPS();
    bool GetListenAudioParam(ZPSAudioParam& param);

    void SetResultCallback(TransferResultCallback callback);
    /// Frames waiting in the three queues.
    std::size_t GetQueuedFrameCount();

private:
    struct SendTargets;

    void SendVoiceEIT(std::shared_ptr<VoiceSendParam> group);
    /// Waits up to 2 s for frames, takes every queued one and refreshes `targets`; false once the input has
    /// ended and nothing is queued.
    bool TakeQueuedFrames(VoiceSendParam& group, std::deque<VoiceDataBlock>& blocks, SendTargets& targets);
    /// Sleeps until frame `frame` of the schedule that began at `start` is due.
    void SleepUntilFrameDue(ITransferClock::TimePoint start, int32_t frame);
    void WaitConsumeData();
    void NotifyTransferResult(int32_t deviceId, int32_t result);
    void StartGroupThread(const std::shared_ptr<VoiceSendParam>& group);
    static void JoinGroupThread(VoiceSendParam& group);
    static void ClearTransfers(VoiceSendParam& group);
    /// Appends `transfer` to the group's list while holding `listMutex`.
    static void AddTransfer(VoiceSendParam& group, std::mutex& listMutex,
                            std::shared_ptr<IVoiceTransfer> transfer);

    std::shared_ptr<ITransferFactory> factory_;
    std::shared_ptr<ITransferClock> clock_;

    std::shared_ptr<VoiceSendParam> zpsParam;
    std::shared_ptr<VoiceSendParam> sdkParam;
    std::shared_ptr<VoiceSendParam> oemParam;
    std::atomic<bool> inputFinished{false};
    std::atomic<bool> stopFlag{false};
    std::atomic<int32_t> frameIntervalMs{0};  ///< read by the sending threads while a stop resets it
    std::atomic<std::size_t> liveQueueLimit{0};
    std::atomic<uint64_t> droppedFrames{0};
    std::mutex resultMutex;
    TransferResultCallback resultCallback;
};

}  // namespace BroadCastPlugin
