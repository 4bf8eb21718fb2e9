#pragma once
// Codes of the platform's device list that the client and the platform both read: device types and the
// access protocol a device is reached by. Plain enums, compared with the integers the lists carry.

namespace Tal {
namespace Base {

enum DeviceType : int {
    kDeviceTypeStorageServer = 2,
    kDeviceTypeEncoder = 2001,
    kDeviceTypeIpSpeaker = 2020
};

/// Through the device's own network interface (TCP), or RTP over UDP straight to the speaker.
enum AccessProtocol : int { kAccessProtocolDeviceNetwork = 1, kAccessProtocolRtpOverUdp = 23 };

}  // namespace Base
}  // namespace Tal
