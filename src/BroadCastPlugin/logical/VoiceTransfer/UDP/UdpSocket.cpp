#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpSocket.h"

#include <unistd.h>

namespace BroadCastPlugin {

void CUniqueSocket::Reset(int fd) {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = fd;
}

}  // namespace BroadCastPlugin
