#include "BroadCastPlugin/logical/VoiceTransfer/UDP/Rtp.h"

#include <cstdlib>
#include <cstring>

#include "BroadCastPlugin/logical/VoiceTransfer/SafeCopy.h"
#include "framework/base/TimeUtil.h"

namespace BroadCastPlugin {

void rtp_init(RtpSenderState* state, uint8_t payloadType) {
    std::memset(state, 0, sizeof(*state));
    state->payloadType = payloadType;
    state->startTick = Tal::Base::TimeUtil::GetTickCount();
    std::srand(state->startTick);
    state->ssrc = 0u - static_cast<uint32_t>(std::rand());
    state->sequence = 0;
    state->timestamp = 0;
}

void rtp_write_header(RtpSenderState* state, uint8_t* header, uint32_t payloadSize) {
    header[0] = 0x80;  // version 2, no padding, no extension, no CSRC
    header[1] = static_cast<uint8_t>((state->sequence == 0 ? 0x80 : 0x00) | (state->payloadType & 0x7F));
    header[2] = static_cast<uint8_t>(state->sequence >> 8);
    header[3] = static_cast<uint8_t>(state->sequence & 0xFF);
    header[4] = static_cast<uint8_t>(state->timestamp >> 24);
    header[5] = static_cast<uint8_t>((state->timestamp >> 16) & 0xFF);
    header[6] = static_cast<uint8_t>((state->timestamp >> 8) & 0xFF);
    header[7] = static_cast<uint8_t>(state->timestamp & 0xFF);
    // Receivers of this stream expect the SSRC as it lies in memory, not in network order.
    std::memcpy(header + 8, &state->ssrc, sizeof(state->ssrc));
    state->sequence = static_cast<uint16_t>(state->sequence + 1);
    state->timestamp += payloadSize;
}

int rtp_send_buf(RtpSenderState* state, uint8_t* packet, std::size_t packetSize, const uint8_t* data,
                 int size) {
    if (state == nullptr || packet == nullptr || size < 0 || packetSize < kRtpHeaderSize) {
        return -1;
    }
    // Copy the payload first so that a frame that does not fit leaves the stream state untouched.
    if (!SafeMemcpy(packet + kRtpHeaderSize, packetSize - kRtpHeaderSize, data,
                    static_cast<std::size_t>(size))) {
        return -1;
    }
    rtp_write_header(state, packet, static_cast<uint32_t>(size));
    return size + static_cast<int>(kRtpHeaderSize);
}

}  // namespace BroadCastPlugin
