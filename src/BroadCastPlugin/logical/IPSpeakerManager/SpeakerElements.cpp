#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerElements.h"

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

namespace {
constexpr int kDeviceTypeSpeaker = 2020;
constexpr int kDeviceTypeEncoder = 2001;
constexpr int kProtocolDeviceSdk = 1;
constexpr int kProtocolRtp = 23;
constexpr int kElementDownloadRequestType = 4;
}  // namespace

namespace details {

bool IsSdkDevice(const ResourceManager::CDevice& device) {
    return (device.GetDeviceType() == kDeviceTypeSpeaker || device.GetDeviceType() == kDeviceTypeEncoder) &&
           device.GetAccessProtocol() == kProtocolDeviceSdk;
}

bool IsRtpDevice(const ResourceManager::CDevice& device) {
    return device.GetDeviceType() == kDeviceTypeSpeaker && device.GetAccessProtocol() == kProtocolRtp;
}

int32_t BroadcastElementID2DeviceID(int32_t elementID) {
    ResourceManager::CDownloadLogicalResource request;
    request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
    request.SetVal_extra_ids({elementID});
    if (!ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
            request)) {
        BCAST_LOG(5, "[%s]Download broadcast failed. id: %u[%s(%d)]", static_cast<unsigned>(elementID));
        return -1;
    }
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(elementID);
    if (!element) {
        BCAST_LOG(5, "[%s]Find ipspeaker empty. element id: %u[%s(%d)]", static_cast<unsigned>(elementID));
        return -1;
    }
    return element->GetEncodeDeviceAttribute().GetDeviceID();
}

bool DownloadElements(const std::vector<int32_t>& elementIDs) {
    auto* elements = ResourceManager::CElementManager::Instance();
    for (int32_t id : elementIDs) {
        if (elements->FindOtherElementByID(id)) {
            continue;
        }
        ResourceManager::CDownloadLogicalResource request;
        request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
        request.SetVal_extra_ids({id});
        request.SetVal_extra_request_type(kElementDownloadRequestType);
        request.SetVal_page_index(0);
        if (!ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
                request)) {
            BCAST_LOG(5, "[%s]Download element failed. id :%d[%s(%d)]", id);
            return false;
        }
    }
    return true;
}

std::shared_ptr<ResourceManager::CDevice> DeviceOfElement(int32_t elementID) {
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(elementID);
    if (!element) {
        return nullptr;
    }
    return ResourceManager::CDeviceManager::Instance()->FindDeviceByID(
        element->GetEncodeDeviceAttribute().GetDeviceID());
}

int32_t ListenDeviceID(int32_t id) {
    if (auto device = DeviceOfElement(id)) {
        return device->GetID();
    }
    if (ResourceManager::CDeviceManager::Instance()->FindDeviceByID(id)) {
        return id;
    }
    // Neither is known here yet: an element the platform knows is downloaded; anything else goes to the
    // platform as a device id, which answers for it.
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(id);
    if (!element && DownloadElements({id})) {
        if (auto device = DeviceOfElement(id)) {
            return device->GetID();
        }
    }
    return id;
}

}  // namespace details

}  // namespace BroadCastPlugin
