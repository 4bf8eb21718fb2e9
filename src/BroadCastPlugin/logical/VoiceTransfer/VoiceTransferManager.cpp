#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"

#include <sys/prctl.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/VoiceTransfer/SafeCopy.h"
#include "BroadCastPlugin/logical/VoiceTransfer/TransferFactory.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpFanout.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/LogThrottle.h"
#include "framework/base/Singleton.h"

namespace BroadCastPlugin {

namespace {

using Milliseconds = std::chrono::milliseconds;
/// Timer slack of the sending threads, in nanoseconds.
constexpr unsigned long kSendTimerSlackNs = 1000;

/// Closes transports outside of any lock: a streaming session drains and tears down over the network.
void UninitAll(std::vector<std::shared_ptr<IVoiceTransfer>>& transfers) {
    for (auto& transfer : transfers) {
        transfer->Uninit();
    }
    transfers.clear();
}

}  // namespace

CVoiceTransferManager* CVoiceTransferManager::Instance() {
    return Tal::Base::CSingleton<CVoiceTransferManager>::Instance();
}

CVoiceTransferManager::CVoiceTransferManager()
    : CVoiceTransferManager(std::make_shared<CTransferFactory>(), std::make_shared<CSteadyTransferClock>()) {}

CVoiceTransferManager::CVoiceTransferManager(std::shared_ptr<ITransferFactory> factory,
                                             std::shared_ptr<ITransferClock> clock)
    : factory_(std::move(factory)), clock_(std::move(clock)) {
    zpsParam = std::make_shared<VoiceSendParam>();
    sdkParam = std::make_shared<VoiceSendParam>();
    oemParam = std::make_shared<VoiceSendParam>();
    // Only the streaming server gets a burst ahead of real time; the device groups are paced from the first
    // frame.
    if (zpsParam) {
        zpsParam->preBufferEnabled = true;
        zpsParam->preBufferFrames = kZPSPreBufferFrames;
    }
}

CVoiceTransferManager::~CVoiceTransferManager() {
    StopTransfer();
    std::vector<std::shared_ptr<IVoiceTransfer>> remaining;
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        JoinGroupThread(*group);
        std::lock_guard<std::mutex> lock(group->mutex);
        remaining.insert(remaining.end(), group->transfers.begin(), group->transfers.end());
        group->transfers.clear();
    }
    UninitAll(remaining);
}

void CVoiceTransferManager::JoinGroupThread(VoiceSendParam& group) {
    std::lock_guard<std::mutex> lock(group.threadMutex);
    if (group.sendThread.joinable()) {
        group.sendThread.join();
    }
}

void CVoiceTransferManager::StartGroupThread(const std::shared_ptr<VoiceSendParam>& group) {
    group->started = true;
    stopFlag = false;
    inputFinished = false;
    std::lock_guard<std::mutex> lock(group->threadMutex);
    group->sendThread = std::thread(&CVoiceTransferManager::SendVoiceEIT, this, group);
}

void CVoiceTransferManager::ClearTransfers(VoiceSendParam& group) {
    std::list<std::shared_ptr<IVoiceTransfer>> dropped;
    {
        std::lock_guard<std::mutex> lock(group.mutex);
        dropped.swap(group.transfers);
        ++group.transfersVersion;
    }
    // Transports close when their last reference goes, outside the lock.
}

void CVoiceTransferManager::AddTransfer(VoiceSendParam& group, std::mutex& listMutex,
                                        std::shared_ptr<IVoiceTransfer> transfer) {
    std::lock_guard<std::mutex> lock(listMutex);
    group.transfers.push_back(std::move(transfer));
    ++group.transfersVersion;
}

bool CVoiceTransferManager::StartSendToZPS(const std::vector<ZPSTransferTarget>& targets) {
    BCAST_LOG(3, "[%s]Start transfer to zps.[%s(%d)]");
    if (zpsParam->started) {
        return true;
    }
    JoinGroupThread(*zpsParam);
    for (const auto& target : targets) {
        auto transfer = factory_->CreateZPSTransfer();
        if (!transfer->Init(target.token) ||
            !transfer->StartVoiceTalk(target.url, target.userName, target.password)) {
            // All or nothing: the sessions opened so far go with the list.
            ClearTransfers(*zpsParam);
            return false;
        }
        AddTransfer(*zpsParam, zpsParam->mutex, transfer);
    }
    StartGroupThread(zpsParam);
    return true;
}

bool CVoiceTransferManager::StartSendToSDK(const std::vector<SDKTransferTarget>& targets) {
    BCAST_LOG(3, "[%s]Start transfer to sdk.[%s(%d)]");
    if (sdkParam->started) {
        return true;
    }
    JoinGroupThread(*sdkParam);
    for (const auto& target : targets) {
        auto transfer = factory_->CreateSDKTransfer();
        if (!transfer->Init(target)) {
            NotifyTransferResult(target.deviceID, 2);
            BCAST_LOG(5, "[%s]Init sdk transfer object failed.[%s(%d)]");
            // Kept as the platform behaves: a failed device empties the streaming-server list, not this one.
            ClearTransfers(*zpsParam);
            continue;
        }
        NotifyTransferResult(target.deviceID, 1);
        // Kept as the platform behaves: the append holds the streaming-server lock. The group's thread is not
        // running yet (joined above, started below), so nothing else touches this list meanwhile.
        AddTransfer(*sdkParam, zpsParam->mutex, transfer);
    }
    StartGroupThread(sdkParam);
    return true;
}

void CVoiceTransferManager::StartSendToOEM(const std::vector<OEMTransferTarget>& targets) {
    BCAST_LOG(3, "[%s]Start transfer to oem.[%s(%d)]");
    if (oemParam->started) {
        return;
    }
    JoinGroupThread(*oemParam);
    // Speakers of one multicast group (same address, port and codec) hear one stream: the group's first
    // speaker opens it, the others share its result.
    std::map<std::tuple<std::string, uint16_t, int32_t>, int32_t> multicastResults;
    for (const auto& target : targets) {
        const bool multicast = IsMulticastGroup(target.ipAddress);
        const auto group = std::make_tuple(target.ipAddress, target.port, target.encodeType);
        const auto shared = multicast ? multicastResults.find(group) : multicastResults.end();
        if (shared != multicastResults.end()) {
            NotifyTransferResult(target.elementID, shared->second);
            continue;
        }
        auto transfer = factory_->CreateUdpTransfer();
        const bool opened = transfer->Init(target.ipAddress, target.port, target.encodeType);
        if (multicast) {
            multicastResults.emplace(group, opened ? 1 : 2);
        }
        if (!opened) {
            NotifyTransferResult(target.elementID, 2);
            // Kept as the platform behaves: the streaming-server list is the one emptied.
            ClearTransfers(*zpsParam);
            continue;
        }
        NotifyTransferResult(target.elementID, 1);
        AddTransfer(*oemParam, oemParam->mutex, transfer);
    }
    StartGroupThread(oemParam);
}

void CVoiceTransferManager::SendData(const uint8_t* data, int32_t size) {
    if (size <= 0 || data == nullptr || stopFlag) {
        return;
    }
    const std::size_t liveLimit = liveQueueLimit;
    if (liveLimit == 0) {
        WaitConsumeData();
    }
    // One copy of the frame, shared by the groups: none of them changes it.
    std::shared_ptr<const uint8_t> frame;
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        if (!group->started) {
            continue;
        }
        if (!frame) {
            auto storage = std::make_shared<std::vector<uint8_t>>(static_cast<std::size_t>(size));
            if (!SafeMemcpy(storage->data(), storage->size(), data, static_cast<std::size_t>(size))) {
                return;
            }
            const uint8_t* bytes = storage->data();
            frame = std::shared_ptr<const uint8_t>(std::move(storage), bytes);
        }
        std::lock_guard<std::mutex> lock(group->mutex);
        if (liveLimit > 0 && group->dataQueue.size() >= liveLimit) {
            const std::size_t drop = group->dataQueue.size() - liveLimit + 1;
            group->dataQueue.erase(group->dataQueue.begin(),
                                   group->dataQueue.begin() + static_cast<std::ptrdiff_t>(drop));
            if (droppedFrames.fetch_add(drop) == 0) {
                BCAST_LOG(4, "[%s]A group falls behind the live input: its oldest frames go.[%s(%d)]");
            }
        }
        group->dataQueue.push_back(VoiceDataBlock{frame, size});
        group->dataReady.notify_one();
    }
}

void CVoiceTransferManager::WaitConsumeData() {
    while (!stopFlag) {
        std::size_t queued = GetQueuedFrameCount();
        if (queued < kMaxQueuedBlocks) {
            return;
        }
        BCAST_LOG(4, "[%s]Start to wait consume data.[%s(%d)]");
        clock_->SleepFor(Milliseconds(1000), stopFlag);
    }
}

std::size_t CVoiceTransferManager::GetQueuedFrameCount() {
    std::size_t queued = 0;
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        std::lock_guard<std::mutex> lock(group->mutex);
        queued += group->dataQueue.size();
    }
    return queued;
}

void CVoiceTransferManager::SetLiveQueueLimit(std::size_t frames) {
    liveQueueLimit = frames;
}

void CVoiceTransferManager::SetFrameInterval(int32_t milliseconds) {
    frameIntervalMs = milliseconds;
}

void CVoiceTransferManager::SetInputFinished() {
    inputFinished = true;
    // Wake idle threads now rather than at the end of their 2 s wait, so that the tail starts at once.
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        std::lock_guard<std::mutex> lock(group->mutex);
        group->dataReady.notify_all();
    }
}

/// The sending transports of one group, rebuilt when the group's list changes: `targets` keeps them alive,
/// RTP speakers go through a fanout in batches, the others (`single`) get SendVoice.
struct CVoiceTransferManager::SendTargets {
    std::vector<std::shared_ptr<IVoiceTransfer>> targets;
    std::vector<IVoiceTransfer*> single;
    std::vector<IRtpBatchTransfer*> rtp;
    bool built = false;
    uint64_t version = 0;

    /// Rebuilds the lists if the group's transports changed since the last call; the caller holds the
    /// group's mutex.
    void Refresh(const VoiceSendParam& group) {
        if (built && version == group.transfersVersion) {
            return;
        }
        targets.clear();
        for (const auto& transfer : group.transfers) {
            if (transfer->GetTransferType() == kTransferSend) {
                targets.push_back(transfer);
            }
        }
        built = true;
        version = group.transfersVersion;
        single.clear();
        rtp.clear();
        for (const auto& transfer : targets) {
            auto* batch = dynamic_cast<IRtpBatchTransfer*>(transfer.get());
            if (batch != nullptr && batch->Batchable()) {
                rtp.push_back(batch);
            } else {
                single.push_back(transfer.get());
            }
        }
    }
};

bool CVoiceTransferManager::TakeQueuedFrames(VoiceSendParam& group, std::deque<VoiceDataBlock>& blocks,
                                             SendTargets& targets) {
    std::unique_lock<std::mutex> lock(group.mutex);
    if (group.dataQueue.empty()) {
        if (inputFinished) {
            return false;
        }
        // The predicate closes the window between the checks above and the wait: a stop or the end of
        // input signalled just before would otherwise cost the full 2 s.
        group.dataReady.wait_for(lock, Milliseconds(2000), [&] {
            return !group.dataQueue.empty() || inputFinished || stopFlag || !group.started;
        });
    }
    blocks.swap(group.dataQueue);
    targets.Refresh(group);
    return true;
}

void CVoiceTransferManager::SleepUntilFrameDue(ITransferClock::TimePoint start, int32_t frame) {
    // Absolute schedule from `start`: no drift accumulates, a late sender catches up unslept, and the sleep
    // ends at the due time itself rather than whole milliseconds after it.
    const int64_t due = static_cast<int64_t>(frameIntervalMs.load()) * frame;
    const ITransferClock::TimePoint deadline = start + Milliseconds(due);
    if (deadline > clock_->Now()) {
        clock_->SleepUntil(deadline, stopFlag);
    }
}

void CVoiceTransferManager::SendVoiceEIT(std::shared_ptr<VoiceSendParam> group) {
    // The kernel may end this thread's sleeps up to the timer slack late (50 us by default): a frame's
    // schedule wants them on time.
    prctl(PR_SET_TIMERSLACK, kSendTimerSlackNs, 0, 0, 0);
    int32_t count = 0;
    Tal::Base::CLogThrottle sendFailures;
    ITransferClock::TimePoint start = clock_->Now();
    const int32_t preBufferFrames = group->preBufferFrames;
    SendTargets targets;
    CUdpFanout fanout;
    for (;;) {
        std::deque<VoiceDataBlock> blocks;
        if (!TakeQueuedFrames(*group, blocks, targets)) {
            if (group->preBufferEnabled) {
                // Let the receiver play out what was sent ahead of time before reporting the end.
                clock_->SleepFor(Milliseconds(static_cast<int64_t>(frameIntervalMs.load()) *
                                              std::min(preBufferFrames, count)),
                                 stopFlag);
            }
            return;
        }

        for (auto& block : blocks) {
            if (!block.data || block.size == 0) {
                continue;
            }
            if (stopFlag) {
                block.data.reset();
                continue;
            }
            const bool burst = group->preBufferEnabled && count < preBufferFrames;
            if (!burst && count == preBufferFrames) {
                start = clock_->Now();
            }
            for (IVoiceTransfer* transfer : targets.single) {
                if (!transfer->SendVoice(block.data.get(), block.size) && sendFailures.Count()) {
                    // Logged the 1st, 2nd, 4th, ... time: a dead target fails every frame.
                    BCAST_LOG(5, "[%s]Send voice data to zps failed. data size: %d[%s(%d)]", block.size);
                }
            }
            fanout.Send(targets.rtp, block.data.get(), block.size);
            if (!burst) {
                SleepUntilFrameDue(start, count - (group->preBufferEnabled ? preBufferFrames : 0));
            }
            ++count;
            block.data.reset();
        }
        // A group that was stopped leaves even when a later start has cleared the shared stop flag again.
        if (stopFlag || !group->started) {
            break;
        }
    }
}

void CVoiceTransferManager::WaitTransferFinish() {
    BCAST_LOG(3, "[%s]Wait zps send finish.[%s(%d)]");
    JoinGroupThread(*zpsParam);
    BCAST_LOG(3, "[%s]Wait sdk send finish.[%s(%d)]");
    JoinGroupThread(*sdkParam);
    BCAST_LOG(3, "[%s]Wait udp send finish.[%s(%d)]");
    JoinGroupThread(*oemParam);
    BCAST_LOG(3, "[%s]all send finish.[%s(%d)]");
}

void CVoiceTransferManager::SetStopFlag(bool stopped) {
    stopFlag = stopped;
    if (!stopped) {
        return;
    }
    clock_->WakeSleepers();
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        std::lock_guard<std::mutex> lock(group->mutex);
        group->dataReady.notify_all();
    }
}

void CVoiceTransferManager::StopTransfer() {
    SetStopFlag(true);
    std::vector<std::shared_ptr<IVoiceTransfer>> closing;
    for (const auto& group : {zpsParam, sdkParam, oemParam}) {
        group->started = false;
        std::deque<VoiceDataBlock> dropped;
        {
            std::lock_guard<std::mutex> lock(group->mutex);
            dropped.swap(group->dataQueue);
            for (auto it = group->transfers.begin(); it != group->transfers.end();) {
                if ((*it)->GetTransferType() == kTransferSend) {
                    closing.push_back(*it);
                    it = group->transfers.erase(it);
                    ++group->transfersVersion;
                } else {
                    ++it;  // listening sessions end only with StopListenFromZPS
                }
            }
        }
        // `dropped` frees every queued block here.
    }
    UninitAll(closing);
    inputFinished = false;
    frameIntervalMs = 0;
    liveQueueLimit = 0;
    if (const uint64_t dropped = droppedFrames.exchange(0)) {
        BCAST_LOG(4, "[%s]%llu live frames were dropped for groups that fell behind.[%s(%d)]",
                  static_cast<unsigned long long>(dropped));
    }
}

bool CVoiceTransferManager::StartListenFromZPS(const ZPSTransferTarget& target, ZPSDataCallback callback) {
    BCAST_LOG(3, "[%s]Start listen from zps.[%s(%d)]");
    auto transfer = factory_->CreateZPSTransfer();
    if (transfer->Init(target.token) &&
        transfer->StartVoiceTalk(target.url, target.userName, target.password)) {
        transfer->SetTransferType(kTransferListen);
        transfer->SetDataCallback(std::move(callback));
        {
            std::lock_guard<std::mutex> lock(zpsParam->mutex);
            zpsParam->transfers.push_back(transfer);
            ++zpsParam->transfersVersion;
        }
        stopFlag = false;
        return true;
    }
    ClearTransfers(*zpsParam);
    return false;
}

void CVoiceTransferManager::StopListenFromZPS() {
    BCAST_LOG(3, "[%s]Stop listen from zps.[%s(%d)]");
    std::shared_ptr<IVoiceTransfer> listening;
    {
        std::lock_guard<std::mutex> lock(zpsParam->mutex);
        auto it =
            std::find_if(zpsParam->transfers.begin(), zpsParam->transfers.end(),
                         [](const auto& transfer) { return transfer->GetTransferType() == kTransferListen; });
        if (it != zpsParam->transfers.end()) {
            listening = *it;
            zpsParam->transfers.erase(it);
            ++zpsParam->transfersVersion;
        }
    }
    if (listening) {
        listening->Uninit();
    }
}

bool CVoiceTransferManager::GetListenAudioParam(ZPSAudioParam& param) {
    std::shared_ptr<IZPSVoiceTransfer> listening;
    {
        std::lock_guard<std::mutex> lock(zpsParam->mutex);
        for (const auto& transfer : zpsParam->transfers) {
            if (transfer->GetTransferType() == kTransferListen) {
                listening = std::dynamic_pointer_cast<IZPSVoiceTransfer>(transfer);
                break;
            }
        }
    }
    return listening ? listening->GetZPSAudioParam(param) : false;
}

void CVoiceTransferManager::SetResultCallback(TransferResultCallback callback) {
    std::lock_guard<std::mutex> lock(resultMutex);
    resultCallback = std::move(callback);
}

void CVoiceTransferManager::NotifyTransferResult(int32_t deviceId, int32_t result) {
    IPSpeakerNotifyParam param;
    param.type = 1;
    param.elementID = deviceId;
    param.error = Tal::Base::Error::GetLastError();
    param.speakerStatus = result;
    std::lock_guard<std::mutex> lock(resultMutex);
    if (resultCallback) {
        resultCallback(param);
    }
}

}  // namespace BroadCastPlugin
