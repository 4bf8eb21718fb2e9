#pragma once
// Broadcast elements and the devices behind them, as the resource manager knows them (downloading an
// element on demand).

#include <cstdint>
#include <memory>
#include <vector>

namespace ResourceManager {
class CDevice;
}

namespace BroadCastPlugin {
namespace details {
/// Element id to the id of its encoding device, downloading the element first; -1 when unknown.
int32_t BroadcastElementID2DeviceID(int32_t elementID);
/// Makes every element known locally; false when one cannot be downloaded.
bool DownloadElements(const std::vector<int32_t>& elementIDs);
/// The device behind an element, null when unknown.
std::shared_ptr<ResourceManager::CDevice> DeviceOfElement(int32_t elementID);
/// The device to listen to for an id that names a speaker's broadcast element (what the controller and the
/// web page pass) or a device: the element's device when the id is an element, else the id itself.
int32_t ListenDeviceID(int32_t id);
/// A speaker or encoder reached through the device SDK.
bool IsSdkDevice(const ResourceManager::CDevice& device);
/// A speaker that receives RTP over UDP.
bool IsRtpDevice(const ResourceManager::CDevice& device);
}  // namespace details
}  // namespace BroadCastPlugin
