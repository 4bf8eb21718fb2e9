#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"

#include <unistd.h>

namespace BroadCastPlugin {

void CUniqueSocket::Reset(int fd) {
    if (handle_ >= 0) {
        ::close(handle_);
    }
    handle_ = fd;
}

}  // namespace BroadCastPlugin
