#include "BroadCastPlugin/ui/model/ConsoleSite.h"

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "framework/business/UserCommonManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

namespace {
constexpr int kProtocolDeviceInterface = 1;
// IP speakers take broadcasts as speakers; device talk is for the other devices with a loudspeaker.
constexpr int kDeviceTypeSpeaker = 2020;

QString AddressOfElement(int32_t elementId) {
    auto element = ResourceManager::CElementManager::Instance()->FindOtherElementByID(elementId);
    if (!element) {
        return {};
    }
    auto device = ResourceManager::CDeviceManager::Instance()->FindDeviceByID(
        element->GetEncodeDeviceAttribute().GetDeviceID());
    if (!device) {
        return {};
    }
    return QStringLiteral("%1:%2").arg(QString::fromStdString(device->GetIPAddress())).arg(device->GetPort());
}
}  // namespace

ConsoleRights CurrentRights() {
    const BusinessCommon::BroadcastRights rights =
        BusinessCommon::CUserCommonManager::Instance()->GetBroadcastRights();
    return ConsoleRights{rights.broadcast, rights.realBroadcast};
}

CConsoleSite::CConsoleSite(QObject* parent) : QObject(parent) {
    pool_.setMaxThreadCount(1);
}

CConsoleSite::~CConsoleSite() {
    pool_.waitForDone();
}

void CConsoleSite::EnsureLoaded() {
    if (!loaded_ && !downloading_) {
        Download();
    }
}

void CConsoleSite::Download() {
    if (downloading_) {
        return;
    }
    CBroadcastController* controller = CBroadcastController::InstanceIfExists();
    downloading_ = controller != nullptr && controller->AsyncDownloadAllResource();
}

void CConsoleSite::OnDownloadResult(DownloadResourceState state) {
    if (state == DownloadResourceStart) {
        return;
    }
    downloading_ = false;
    if (state == DownloadResourceFinish) {
        loaded_ = true;
        Reload();
        LoadAddresses();
    }
}

void CConsoleSite::Reload() {
    ConsoleSiteData data;
    for (const BroadcastPartition& partition : CIPSpeakerPartitionManager::Instance()->GetPartitions()) {
        data.partitions.push_back(ConsolePartition{partition.ID, QString::fromStdString(partition.Name)});
    }
    for (const BroadcastTerminal& terminal : CIPSpeakerTerminalManager::Instance()->GetTerminals()) {
        ConsoleSpeaker speaker;
        speaker.id = terminal.ID;
        speaker.name = QString::fromStdString(terminal.Name);
        speaker.address = AddressOfElement(terminal.ID);
        speaker.area = QString::fromStdString(terminal.AreaName);
        for (int32_t partition : terminal.PartitionIDList) {
            if (partition != CSpeakerTreeModel::kNoPartition) {
                speaker.partitions.push_back(partition);
            }
        }
        speaker.volume = terminal.Volume;
        // Terminal status 0 is offline; other values (1 online, -1 unknown) are not.
        speaker.online = terminal.TerminalStatus != 0;
        data.speakers.push_back(speaker);
    }
    data.config = CIPSpeakerConfigManager::Instance()->GetConfig();
    data.languages = CIPSpeakerConfigManager::Instance()->GetTTSLanguages();
    data.directories = CMediaFileManager::Instance()->GetMediaDirectories();
    data.files = CMediaFileManager::Instance()->GetMediaFiles();
    for (const auto& device : ResourceManager::CDeviceManager::Instance()->GetAllDevices()) {
        if (device->GetAccessProtocol() == kProtocolDeviceInterface &&
            device->GetDeviceType() != kDeviceTypeSpeaker) {
            data.devices.push_back(ConsoleDevice{device->GetID(), QString::fromStdString(device->GetName()),
                                                 QStringLiteral("%1:%2")
                                                     .arg(QString::fromStdString(device->GetIPAddress()))
                                                     .arg(device->GetPort())});
        }
    }
    data.rights = CurrentRights();
    data_ = std::move(data);
    emit Changed();
}

void CConsoleSite::LoadAddresses() {
    if (addressesLoading_) {
        return;
    }
    std::vector<int> missing;
    for (const ConsoleSpeaker& speaker : data_.speakers) {
        if (speaker.address.isEmpty()) {
            missing.push_back(speaker.id);
        }
    }
    if (missing.empty()) {
        return;
    }
    addressesLoading_ = true;
    // The registry download is a platform call: never on the UI thread.
    pool_.start([this, missing] {
        ResourceManager::CDownloadLogicalResource request;
        request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
        request.SetVal_extra_ids(missing);
        ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(request);
        QMetaObject::invokeMethod(this, "OnAddressesLoaded", Qt::QueuedConnection);
    });
}

void CConsoleSite::OnAddressesLoaded() {
    addressesLoading_ = false;
    Reload();
}

}  // namespace BroadCastPlugin
