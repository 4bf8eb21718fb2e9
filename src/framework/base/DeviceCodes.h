#pragma once
// Codes of the platform's device list that the client and the platform both read: device types and the
// access protocol a device is reached by.

namespace Tal {
namespace Base {

constexpr int kDeviceTypeIpSpeaker = 2020;
constexpr int kDeviceTypeEncoder = 2001;
constexpr int kDeviceTypeStorageServer = 2;

/// Through the device's own network interface (TCP).
constexpr int kAccessProtocolDeviceNetwork = 1;
/// RTP over UDP, straight to the speaker.
constexpr int kAccessProtocolRtpOverUdp = 23;

}  // namespace Base
}  // namespace Tal
