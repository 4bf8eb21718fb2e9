#include "BroadCastPlugin/logical/VoiceTransfer/TransferFactory.h"

#include "BroadCastPlugin/logical/VoiceTransfer/SDK/SDKTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/ZPS/ZPSTransfer.h"

namespace BroadCastPlugin {

std::shared_ptr<IZPSVoiceTransfer> CTransferFactory::CreateZPSTransfer() {
    return std::make_shared<CZPSTransfer>();
}

std::shared_ptr<ISDKVoiceTransfer> CTransferFactory::CreateSDKTransfer() {
    return std::make_shared<CSDKTransfer>();
}

std::shared_ptr<IUdpVoiceTransfer> CTransferFactory::CreateUdpTransfer() {
    return std::make_shared<CUdpTransfer>();
}

}  // namespace BroadCastPlugin
