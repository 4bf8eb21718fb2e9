#include "framework/media/videotool/DeviceBroadcastSession.h"

#include <thread>

#include "framework/base/FormatLog.h"
#include "framework/errortext/ErrorCodeTrans.h"
#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/media/devnet/RealtimeFormat.h"

namespace TOOL {

namespace {

using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::kModuleFramework;
using Tal::Base::Error::kSubSystemClient;

// Module number of audio device errors.
constexpr int kModuleAudio = 29;
constexpr int kAudioComSucceeded = 1;
// The devices take G.711 µ-law in 160-byte pieces: 20 ms at 8000 Hz.
constexpr uint32_t kPieceSize = 160;

int ResourceStatusOf(const ErrorCode& error) {
    const bool unreachable = error.GetMainErrorCode() == DevNet::kErrorModule &&
                             (error.GetSubErrorCode() == DEVNET_NETWORK_FAIL_CONNECT ||
                              error.GetSubErrorCode() == DEVNET_NETWORK_RECV_TIMEOUT);
    return unreachable ? kDeviceOffline : kDeviceIdle;
}

}  // namespace

CDeviceBroadcastSession::CDeviceBroadcastSession(const CRequestBroadcast& request,
                                                 CDeviceStateBoard::Sink sink)
    : request_(request), board_(std::move(sink)) {}

CDeviceBroadcastSession::~CDeviceBroadcastSession() {
    Stop(false);
}

bool CDeviceBroadcastSession::Cancelled(ErrorCode& error) const {
    if (!cancelled_) {
        return false;
    }
    error = ErrorCode(kSubSystemClient, kModuleFramework, Tal::Base::Error::kCodeCancelled);
    return true;
}

bool CDeviceBroadcastSession::Start() {
    {
        std::lock_guard<std::mutex> lock(startMutex_);
        if (stopped_) {
            Tal::Base::Error::SetLastError(
                ErrorCode(kSubSystemClient, kModuleFramework, Tal::Base::Error::kCodeCancelled));
            return false;
        }
        starting_ = true;
    }
    struct StartEnd {
        CDeviceBroadcastSession& session;
        ~StartEnd() {
            std::lock_guard<std::mutex> lock(session.startMutex_);
            session.starting_ = false;
            session.startDone_.notify_all();
        }
    } startEnd{*this};

    std::vector<int> ids;
    if (!ParseDeviceIds(request_.device_ids, ids)) {
        Tal::Base::Error::SetLastError(
            ErrorCode(kSubSystemClient, kModuleFramework, Tal::Base::Error::kCodeInvalidInput));
        TAL_LOG(5, "VideoTool", "[%s]Device ids are not a comma-separated list of ids: \"%s\"[%s(%d)]",
                request_.device_ids.c_str());
        return false;
    }
    DeviceGroup group;
    if (!RequestDeviceGroup(ids, request_.type, request_.i_record, request_.file_path, group)) {
        return false;
    }
    board_.SetGroup(group.groupId);
    for (const RefusedDevice& refused : group.refused) {
        ErrorCode error(Tal::Base::Error::kSubSystemServer, refused.errorModule, refused.errorCode);
        error.SetCasadingErrorInfo(refused.errorInfo);
        board_.Report(refused.deviceId, kDeviceFailed, kDeviceIdle,
                      ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    }
    // The microphone runs before the talks open, so that each device has audio as soon as its talk is open:
    // a device ends a talk whose audio does not come within its read time-out.
    ErrorCode error;
    if (!StartCapture(group, error)) {
        Tal::Base::Error::SetLastError(error);
        return false;
    }
    if (!OpenTalks(group)) {
        return false;
    }
    TAL_LOG(3, "VideoTool", "[%s]Device broadcast %s runs to %zu devices.[%s(%d)]", group.groupId.c_str(),
            talks_.size());
    return true;
}

bool CDeviceBroadcastSession::OpenTalks(const DeviceGroup& group) {
    ErrorCode firstError;
    for (const GroupDevice& device : group.devices) {
        ErrorCode error;
        if (Cancelled(error)) {
            Tal::Base::Error::SetLastError(error);
            return false;
        }
        board_.Report(device.info.id, kDeviceConnecting, kDeviceBroadcasting, "");
        auto talk = std::make_unique<CDeviceTalk>(device);
        if (!talk->Open(error)) {
            board_.Report(device.info.id, kDeviceFailed, ResourceStatusOf(error),
                          ErrorCodeTrans::GetErrorInfoByErrorCode(error));
            if (firstError.IsSucceed()) {
                firstError = error;
            }
            continue;
        }
        std::lock_guard<std::mutex> lock(talksMutex_);
        talks_.push_back(LiveTalk{std::move(talk), false, false});
    }
    std::lock_guard<std::mutex> lock(talksMutex_);
    if (talks_.empty()) {
        ErrorCode error(kSubSystemClient, kModuleFramework, Tal::Base::Error::kCodeNoTargetReached);
        error.SetCasadingErrorInfo(ErrorCodeTrans::GetErrorInfoByErrorCode(firstError));
        Tal::Base::Error::SetLastError(error);
        TAL_LOG(5, "VideoTool", "[%s]No device of group %s took the talk.[%s(%d)]", group.groupId.c_str());
        return false;
    }
    return true;
}

bool CDeviceBroadcastSession::StartCapture(const DeviceGroup& group, ErrorCode& error) {
    AUDIOCOM_SOUNDCARD_INFO card{};
    uint32_t cards = 0;
    if (AUDIOCOM_GetSoundCardNum(&cards) != kAudioComSucceeded || cards == 0 ||
        AUDIOCOM_GetOneSoundCardInfo(0, &card) != kAudioComSucceeded ||
        AUDIOCOM_CreateCaptureHandle(&capture_, card.deviceName) != kAudioComSucceeded) {
        error = ErrorCode(kSubSystemClient, kModuleAudio,
                          cards == 0 ? AUDIOCOM_ERR_NO_DEVICE : AUDIOCOM_GetLastError(-1));
        capture_ = -1;
    } else {
        AUDIOCOM_STREAM_PARAM param{};
        param.channels = 1;
        param.bitsPerSample = 16;
        param.sampleRate = 8000;
        param.bitRate = 64000;
        param.codec = AUDIOCOM_CODEC_G711U;
        if (AUDIOCOM_RegisterOutputDataCallBackEx(capture_, &param, &OnEncodedAudio, this) !=
                kAudioComSucceeded ||
            AUDIOCOM_StartCapture(capture_) != kAudioComSucceeded) {
            error = ErrorCode(kSubSystemClient, kModuleAudio, AUDIOCOM_GetLastError(capture_));
        }
    }
    if (error.IsSucceed()) {
        return true;
    }
    TAL_LOG(5, "VideoTool", "[%s]Microphone capture for the device broadcast failed, error: %d.[%s(%d)]",
            error.GetSubErrorCode());
    for (const GroupDevice& device : group.devices) {
        board_.Report(device.info.id, kDeviceFailed, kDeviceIdle,
                      ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    }
    return false;
}

void CDeviceBroadcastSession::StopCapture() {
    if (capture_ < 0) {
        return;
    }
    AUDIOCOM_StopCapture(capture_);
    AUDIOCOM_ReleaseCaptureHandle(capture_);
    capture_ = -1;
}

void CDeviceBroadcastSession::OnEncodedAudio(int32_t, const uint8_t* data, uint32_t size, void* user) {
    static_cast<CDeviceBroadcastSession*>(user)->SendToTalks(data, size);
}

void CDeviceBroadcastSession::SendToTalks(const uint8_t* data, uint32_t size) {
    std::vector<Event> events;
    {
        std::lock_guard<std::mutex> lock(talksMutex_);
        pending_.append(reinterpret_cast<const char*>(data), size);
        std::size_t offset = 0;
        for (; pending_.size() - offset >= kPieceSize; offset += kPieceSize) {
            for (LiveTalk& live : talks_) {
                if (live.failed) {
                    continue;
                }
                ErrorCode error;
                // Queuing only: the talk's own thread carries the audio to the device.
                if (!live.talk->Send(pending_.data() + offset, kPieceSize, error)) {
                    live.failed = true;
                    events.push_back(Event{live.talk->DeviceId(), kDeviceFailed, ResourceStatusOf(error),
                                           ErrorCodeTrans::GetErrorInfoByErrorCode(error)});
                } else if (!live.playing) {
                    live.playing = true;
                    events.push_back(Event{live.talk->DeviceId(), kDevicePlaying, kDeviceBroadcasting, ""});
                }
            }
        }
        pending_.erase(0, offset);
    }
    for (const Event& event : events) {
        board_.Report(event.deviceId, event.status, event.resourceStatus, event.errorInfo);
    }
}

void CDeviceBroadcastSession::Stop(bool reportStopped) {
    cancelled_ = true;
    {
        std::unique_lock<std::mutex> lock(startMutex_);
        startDone_.wait(lock, [this] { return !starting_; });
        if (stopped_) {
            return;
        }
        stopped_ = true;
    }
    StopCapture();
    std::vector<LiveTalk> talks;
    {
        std::lock_guard<std::mutex> lock(talksMutex_);
        talks.swap(talks_);
        pending_.clear();
    }
    // Each talk waits for its device to take the rest of the audio: end them side by side.
    std::vector<std::thread> closers;
    for (LiveTalk& live : talks) {
        closers.emplace_back([&live] { live.talk->Close(); });
    }
    for (std::thread& closer : closers) {
        closer.join();
    }
    if (reportStopped) {
        board_.ReportAllStopped();
    }
    const std::string group = board_.Group();
    if (!group.empty()) {
        const ErrorCode kept = Tal::Base::Error::GetLastError();
        EndDeviceGroup(group);
        Tal::Base::Error::SetLastError(kept);
    }
    TAL_LOG(3, "VideoTool", "[%s]Device broadcast %s ended.[%s(%d)]", group.c_str());
}

}  // namespace TOOL
