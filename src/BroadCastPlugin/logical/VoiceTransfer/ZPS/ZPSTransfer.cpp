#include "BroadCastPlugin/logical/VoiceTransfer/ZPS/ZPSTransfer.h"

#include <cstring>

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/base/ErrorCode.h"
#include "framework/business/BusinessCommon.h"

namespace BroadCastPlugin {

namespace {

using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::SetLastError;

/// Module of the streaming client library's errors.
constexpr int kModuleZPSClient = 61;
/// Module and code of a failed send.
constexpr int kModuleZPSTransfer = 25;
constexpr int kCodeSendFailed = 100860;  // 0x189FC
/// Send buffer of a talk session (bytes).
constexpr int kTalkBufferSize = 36864;  // 0x9000

/// A streaming-client codec, its broadcast encode type and the sample rate assumed when the stream gives
/// none (0: left at 0). Other codecs leave the encode type as it was.
struct ZPSCodecMapping {
    uint32_t codec;
    int32_t encodeType;
    int32_t defaultSampleRate;
};
constexpr ZPSCodecMapping kZPSCodecs[] = {
    {0xC001, 1, 8000}, {0xC002, 2, 0}, {0xC003, 0, 16000}, {0xC004, 6, 0},
    {0xC005, 7, 0},    {0xC006, 5, 0}, {0xC007, 8, 0},     {0xC013, 15, 0},
};

/// Undoes an Init that failed before its session started: the session is destroyed without a stop, then
/// the library is released.
void AbandonUnstartedSession(CZPSSession& owner) {
    ZPSClient_DestroySession(owner.Release());
    ZPSClient_FiniLib();
}

}  // namespace

int RtspTimeoutForNetLevel(int level) {
    switch (level) {
        case 0:
            return 6;
        case 1:
            return 9;
        case 2:
            return 12;
        default:
            return 6;
    }
}

void FillAudioParamFromInfo(const ZPSClient_AudioInfo& info, ZPSAudioParam& param) {
    param.sampleRate = static_cast<int32_t>(info.sampleRate);
    param.channels = static_cast<int32_t>(info.channels);
    param.bitsPerSample = static_cast<int32_t>(info.bitsPerSample);
    param.bitRate = static_cast<int32_t>(info.bitRate);
    for (const ZPSCodecMapping& mapping : kZPSCodecs) {
        if (mapping.codec == info.codec) {
            param.encodeType = mapping.encodeType;
            if (param.sampleRate == 0) {
                param.sampleRate = mapping.defaultSampleRate;
            }
            break;
        }
    }
}

CZPSTransfer::~CZPSTransfer() = default;  // the session closes with its owner

void CZPSSession::Reset(int handle) {
    const int closing = handle_;
    handle_ = handle;
    if (closing < 0) {
        return;
    }
    // Both failures are reported with the same text on purpose.
    if (ZPSClient_Stop(closing) != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_SetDataCallBack Failed.[%s(%d)]", error);
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
    }
    if (ZPSClient_DestroySession(closing) != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_SetDataCallBack Failed.[%s(%d)]", error);
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
    }
}

std::shared_ptr<CZPSSession> CZPSTransfer::Session() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return session_;
}

bool CZPSTransfer::Init(const std::string& token) {
    BCAST_LOG(3, "[%s]Start ZPSClient_CreateSession[%s(%d)]");
    // The owner destroys the session on any path that does not hand it to session_.
    CZPSSession owner(ZPSClient_CreateSession());
    const int session = owner.Get();
    if (session < 0) {
        BCAST_LOG(5, "[%s]Failed to ZPSClient_CreateSession[%s(%d)]");
        const unsigned int error = ZPSClient_GetLastError();
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
        BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_CreateSession Failed.[%s(%d)]", error);
        ZPSClient_FiniLib();
        return false;
    }

    const int timeout =
        RtspTimeoutForNetLevel(BusinessCommon::CFrameSystemConfigMgr::Instance()->GetNetOverTime());
    int result = ZPSClient_SetRtspTimeout(session, timeout);
    if (result != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
        AbandonUnstartedSession(owner);
        BCAST_LOG(5, "[%s]Failed to ZPSClient_SetRtspTimeout, [err: %d], err_code: %u[%s(%d)]", result,
                  error);
        return false;
    }

    if (!token.empty()) {
        // Built by concatenation, as the server expects the token verbatim.
        const std::string params = "{\"token\":\"" + token + "\"}";
        result = ZPSClient_SetSessionParams(session, params.c_str(), static_cast<int>(params.size()));
        if (result != 0) {
            const unsigned int error = ZPSClient_GetLastError();
            BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_SetSessionParams Failed.[%s(%d)]", error);
            SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
            AbandonUnstartedSession(owner);
            return false;
        }
    }

    result = ZPSClient_SetDataCallBack(session, &CZPSTransfer::ZPSDataCallBack, this);
    if (result != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_SetDataCallBack Failed.[%s(%d)]", error);
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
        AbandonUnstartedSession(owner);
        return false;
    }

    BCAST_LOG(3, "[%s]Finish Init zps.[%s(%d)]");
    auto shared = std::make_shared<CZPSSession>(std::move(owner));
    std::shared_ptr<CZPSSession> previous;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        previous = std::move(session_);
        session_ = std::move(shared);
    }
    // A second Init closes the session of the first here, outside the lock.
    return true;
}

bool CZPSTransfer::StartVoiceTalk(const std::string& url, const std::string& second,
                                  const std::string& third) {
    // The reference keeps the session open while it is used here, even if Uninit comes meanwhile.
    const std::shared_ptr<CZPSSession> owner = Session();
    const int session = owner ? owner->Get() : -1;
    if (session < 0) {
        BCAST_LOG(5, "[%s]session handle less than 0[%s(%d)]");
        return true;  // the caller goes on without this session
    }
    char address[1024] = {};
    std::strncpy(address, url.c_str(), sizeof(address) - 1);
    BCAST_LOG(3, "[%s]Start ZPSClient_StartVoiceTalk, url: %s[%s(%d)]", address);
    const int result = ZPSClient_StartVoiceTalk(session, address, "ZPSClient", kTalkBufferSize,
                                                second.c_str(), third.c_str());
    if (result == 0) {
        BCAST_LOG(3, "[%s]Succ ZPSClient_StartVoiceTalk, url: %s[%s(%d)]", address);
        return true;
    }
    const unsigned int error = ZPSClient_GetLastError();
    BCAST_LOG(5, "[%s]Failed to ZPSClient_StartVoiceTalk, url: %s, [err: %d], [err_code: %u][%s(%d)]",
              address, result, error);
    SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
    return false;
}

bool CZPSTransfer::SendVoice(const uint8_t* data, int32_t size) {
    const std::shared_ptr<CZPSSession> owner = Session();
    const int result = ZPSClient_SendVoiceData(owner ? owner->Get() : -1, data, size);
    if (result == -1) {
        const int error = static_cast<int>(ZPSClient_GetLastError());
        if (sendFailures_.Count()) {  // a dead session fails every frame: the 1st, 2nd, 4th, ... are logged
            BCAST_LOG(5, "[%s]Failed to ZPSClient_SendVoiceData, error_code=: %d[%s(%d)]", error);
        }
        SetLastError(ErrorCode(kModuleZPSTransfer, kCodeSendFailed));
    }
    return result != -1;
}

int CZPSTransfer::ZPSDataCallBack(int, void* user, int, const unsigned char* data, unsigned int size) {
    auto* transfer = static_cast<CZPSTransfer*>(user);
    if (transfer == nullptr) {
        BCAST_LOG(5, "[%s]Convert zps transfer failed.[%s(%d)]");
        return -1;
    }
    ZPSDataCallback callback;
    {
        std::lock_guard<std::mutex> lock(transfer->mutex_);
        callback = transfer->dataCallback_;
    }
    if (callback) {
        callback(data, static_cast<int32_t>(size));
    }
    return 0;
}

void CZPSTransfer::SetDataCallback(ZPSDataCallback callback) {
    std::lock_guard<std::mutex> lock(mutex_);
    dataCallback_ = std::move(callback);
}

bool CZPSTransfer::GetZPSAudioParam(ZPSAudioParam& param) {
    ZPSClient_AudioInfo info{};
    const std::shared_ptr<CZPSSession> owner = Session();
    const int result = ZPSClient_GetAudioInfo(owner ? owner->Get() : -1, &info);
    if (result != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        BCAST_LOG(5, "[%s]Failed to ZPSClient_GetAudioInfo, [err: %d][%s(%d)]", static_cast<int>(error));
        SetLastError(
            ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleZPSTransfer, static_cast<int>(error)));
        return false;
    }
    FillAudioParamFromInfo(info, param);
    return true;
}

void CZPSTransfer::StopVoiceTalk() {
    const std::shared_ptr<CZPSSession> owner = Session();
    const int session = owner ? owner->Get() : -1;
    if (session < 0) {
        BCAST_LOG(5, "[%s]session handle less than 0[%s(%d)]");
        return;
    }
    BCAST_LOG(3, "[%s]Start ZPSClient_Stop[%s(%d)]");
    if (ZPSClient_Stop(session) != 0) {
        const unsigned int error = ZPSClient_GetLastError();
        BCAST_LOG(5, "[%s][ZPSClient.error=%u] ZPSClient_Stop Failed.[%s(%d)]", error);
        SetLastError(ErrorCode(kModuleZPSClient, static_cast<int>(error)));
        return;
    }
    BCAST_LOG(3, "[%s]Finish ZPSClient_Stop[%s(%d)]");
}

void CZPSTransfer::Uninit() {
    std::shared_ptr<CZPSSession> owner;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        owner = std::move(session_);
    }
    if (!owner || !owner->Valid()) {
        BCAST_LOG(3, "[%s]Do not need to uninit session.[%s(%d)]");
        return;
    }
    // Stopped and destroyed here, or by a send still using it when that send ends; never twice.
}

}  // namespace BroadCastPlugin
