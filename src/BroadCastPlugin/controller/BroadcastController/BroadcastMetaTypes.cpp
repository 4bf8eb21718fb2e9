#include "BroadCastPlugin/controller/BroadcastController/BroadcastMetaTypes.h"

namespace BroadCastPlugin {

void RegisterBroadcastMetaTypes() {
    qRegisterMetaType<std::string>("std::string");
    qRegisterMetaType<Tal::Base::Error::ErrorCode>("Tal::Base::Error::ErrorCode");
    qRegisterMetaType<Tal::Base::Error::ErrorCode>("ErrorCode");
    qRegisterMetaType<DownloadResourceState>("BroadCastPlugin::DownloadResourceState");
    qRegisterMetaType<DownloadResourceState>("DownloadResourceState");
    qRegisterMetaType<IPSpeakerNotifyParam>("BroadCastPlugin::IPSpeakerNotifyParam");
    qRegisterMetaType<std::vector<IPSpeakerNotifyParam>>(
        "std::vector<BroadCastPlugin::IPSpeakerNotifyParam>");
    qRegisterMetaType<std::vector<IPSpeakerNotifyParam>>("std::vector<IPSpeakerNotifyParam>");
    qRegisterMetaType<TTSResponseError>("BroadCastPlugin::TTSResponseError");
    qRegisterMetaType<std::vector<TTSResponseError>>("std::vector<BroadCastPlugin::TTSResponseError>");
    qRegisterMetaType<std::vector<TTSResponseError>>("std::vector<TTSResponseError>");
    qRegisterMetaType<MediaFile>("BroadCastPlugin::MediaFile");
    qRegisterMetaType<std::vector<MediaFile>>("std::vector<BroadCastPlugin::MediaFile>");
    qRegisterMetaType<std::vector<MediaFile>>("std::vector<MediaFile>");
    qRegisterMetaType<ResourceManager::ID>("ResourceManager::ID");
    qRegisterMetaType<std::vector<ResourceManager::ID>>("std::vector<ResourceManager::ID>");
    qRegisterMetaType<DeviceNotifyParam>("BroadCastPlugin::DeviceNotifyParam");
    qRegisterMetaType<DeviceNotifyParam>("DeviceNotifyParam");
}

namespace {
// Registration at module load, before any queued connection is made.
const bool g_metaTypesRegistered = (RegisterBroadcastMetaTypes(), true);
}  // namespace

}  // namespace BroadCastPlugin
