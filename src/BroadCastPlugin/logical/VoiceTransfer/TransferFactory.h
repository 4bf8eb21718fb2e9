#pragma once
// Creates the real transports: streaming client session, device SDK handles, RTP over UDP.

#include "BroadCastPlugin/logical/VoiceTransfer/IVoiceTransfer.h"

namespace BroadCastPlugin {

class CTransferFactory : public ITransferFactory {
public:
    std::shared_ptr<IZPSVoiceTransfer> CreateZPSTransfer() override;
    std::shared_ptr<ISDKVoiceTransfer> CreateSDKTransfer() override;
    std::shared_ptr<IUdpVoiceTransfer> CreateUdpTransfer() override;
};

}  // namespace BroadCastPlugin
