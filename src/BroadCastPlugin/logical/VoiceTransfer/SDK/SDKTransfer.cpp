#include "BroadCastPlugin/logical/VoiceTransfer/SDK/SDKTransfer.h"

#include <algorithm>
#include <string>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/VoiceTransfer/SafeCopy.h"
#include "framework/base/ErrorCode.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/media/devnet/RealtimeFormat.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

namespace {

using Tal::Base::Error::ErrorCode;

using DevNet::kErrorModule;

}  // namespace

void CDevNetVoiceTalk::Reset(int32_t handle) {
    const int32_t closing = handle_;
    handle_ = handle;
    if (closing >= 0) {
        DEVNET_StopVoiceTalk(closing);
    }
}

CSDKTransfer::~CSDKTransfer() = default;  // the talks stop with their owners

std::vector<std::shared_ptr<CDevNetVoiceTalk>> CSDKTransfer::VoiceTalks() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return voiceTalks_;
}

bool CSDKTransfer::Init(const SDKTransferTarget& target) {
    BCAST_LOG(3, "[%s]init broadcast sdk transfer device id: %ld, Audio encode type:%d.[%s(%d)]",
              static_cast<long>(target.deviceID), target.encodeType);
    auto device = ResourceManager::CDeviceManager::Instance()->FindDeviceByID(target.deviceID);
    int32_t userId = -1;
    if (device) {
        if (!device->IsLogin()) {
            ErrorCode error;
            userId = device->Login(error);
            if (userId == -1) {
                BCAST_LOG(5, "[%s]Login failed!, [SubSystem: %d],[MainError: %d],[SubError: %d][%s(%d)]",
                          error.GetSubSystemErrorCode(), error.GetMainErrorCode(), error.GetSubErrorCode());
                Tal::Base::Error::SetLastError(error);
                return false;
            }
        } else {
            userId = device->GetUserID();
        }
    }
    // A device the registry does not know opens nothing and is not an error.
    if (!device) {
        return true;
    }
    for (const auto& channel : target.channels) {
        CDevNetVoiceTalk talk;
        if (channel.channel < kDirectChannelBase) {
            SetVoiceEncodeInfo(target.encodeType, userId);
            talk.Reset(DEVNET_StartVoiceTalk(userId, 1, nullptr, nullptr));
        } else {
            talk.Reset(DEVNET_StartVoiceTalk(userId, channel.channel, nullptr, nullptr));
        }
        if (!talk.Valid()) {
            const uint32_t error = DEVNET_GetLastError();
            BCAST_LOG(5, "[%s]DEVNET_StartVoiceTalk error, %d!\n[%s(%d)]", static_cast<int>(error));
            Tal::Base::Error::SetLastError(
                ErrorCode(Tal::Base::Error::kSubSystemClient, kErrorModule, static_cast<int>(error)));
            Uninit();
            return false;
        }
        auto owner = std::make_shared<CDevNetVoiceTalk>(std::move(talk));
        std::lock_guard<std::mutex> lock(mutex_);
        voiceTalks_.push_back(std::move(owner));
    }
    return true;
}

void CSDKTransfer::SetVoiceEncodeInfo(int32_t encodeType, int32_t userId) {
    const DevNet::RealtimeFormatResult result = DevNet::ConfigureRealtimeFormat(userId, encodeType);
    if (!result.stdConfigOk) {
        BCAST_LOG(5, "[%s]DEVNET_StdConfig Error. [%ld][%s(%d)]", static_cast<long>(result.stdConfigError));
        // Older devices take the format as a binary configuration instead.
        if (!result.fallbackOk) {
            BCAST_LOG(5, "[%s]DEVNET_SetDeviceConfig Error. [%ld][%s(%d)]",
                      static_cast<long>(result.fallbackError));
        }
        return;
    }
    BCAST_LOG(3, "[%s]DEVNET_StdConfig return. message: [%s][%s(%d)]", result.answer.c_str());
}

bool CSDKTransfer::SendVoice(const uint8_t* data, int32_t size) {
    // The references keep the talks open while this frame is sent, even if Uninit comes meanwhile.
    const std::vector<std::shared_ptr<CDevNetVoiceTalk>> talks = VoiceTalks();
    if (talks.empty()) {
        BCAST_LOG(5, "[%s]Send voice failed. handle is -1.[%s(%d)]");
    }
    for (const auto& talk : talks) {
        const int32_t handle = talk->Get();
        if (size < kPieceSize || data == nullptr) {
            TAL_LOG(5, "ClientVFPluginError",
                    "[%s]Send data to device failed. voice handle: %ld, buffsize: %ld[%s(%d)]",
                    static_cast<long>(handle), static_cast<long>(size));
        } else if (size == kPieceSize) {
            if (DEVNET_SendVoiceData(handle, reinterpret_cast<const char*>(data), kPieceSize) == 0) {
                TAL_LOG(5, "ClientVFPluginError",
                        "[%s]Send data to device failed. voice handle: %ld, buffsize: %ld[%s(%d)]",
                        static_cast<long>(handle), static_cast<long>(size));
            }
        } else {
            for (int32_t offset = 0; offset < size; offset += kPieceSize) {
                // The device takes whole pieces: whole ones go straight from the frame, a short tail is
                // copied and padded with zeros.
                const char* piece = reinterpret_cast<const char*>(data + offset);
                char tail[kPieceSize] = {};
                if (size - offset < kPieceSize) {
                    SafeMemcpy(tail, sizeof(tail), data + offset, static_cast<std::size_t>(size - offset));
                    piece = tail;
                }
                if (DEVNET_SendVoiceData(handle, piece, kPieceSize) == 0) {
                    TAL_LOG(5, "ClientVFPluginError",
                            "[%s]Send data to device failed. voice handle: %ld, buffsize: 160[%s(%d)]",
                            static_cast<long>(handle));
                }
            }
        }
    }
    return true;
}

void CSDKTransfer::Uninit() {
    std::vector<std::shared_ptr<CDevNetVoiceTalk>> talks;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        talks.swap(voiceTalks_);
    }
    // Each talk stops here, or at the end of a send still using it; never twice.
}

}  // namespace BroadCastPlugin
