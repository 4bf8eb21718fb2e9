#pragma once
// Transport to devices through the device network interface: logs in through the resource manager, configures
// the real-time broadcast audio format, opens a voice talk per channel and sends frames in 160-byte pieces.

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/IVoiceTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/SDK/DevNetVoiceTalk.h"

namespace BroadCastPlugin {

class CSDKTransfer : public ISDKVoiceTransfer {
public:
    /// Pieces the device takes per send call.
    static constexpr int32_t kPieceSize = 160;
    /// Channels from here on are addressed directly, without configuring the format.
    static constexpr int32_t kDirectChannelBase = 1001;

    CSDKTransfer() = default;
    ~CSDKTransfer() override;
    CSDKTransfer(const CSDKTransfer&) = delete;
    CSDKTransfer& operator=(const CSDKTransfer&) = delete;

    bool Init(const SDKTransferTarget& target) override;
    bool SendVoice(const uint8_t* data, int32_t size) override;
    void SetVoiceEncodeInfo(int32_t encodeType, int32_t userId);
    void Uninit() override;

private:
    std::vector<std::shared_ptr<CDevNetVoiceTalk>> VoiceTalks() const;

    mutable std::mutex mutex_;  ///< guards voiceTalks_
    /// One per channel; shared with a send in progress, so that Uninit cannot stop a talk under it.
    std::vector<std::shared_ptr<CDevNetVoiceTalk>> voiceTalks_;
};

}  // namespace BroadCastPlugin
