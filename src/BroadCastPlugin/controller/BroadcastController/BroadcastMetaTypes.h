#pragma once
// Qt metatypes of the controller's signal arguments, so that results can cross threads in queued
// connections.

#include <QMetaType>

#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"

Q_DECLARE_METATYPE(std::string)
Q_DECLARE_METATYPE(Tal::Base::Error::ErrorCode)
Q_DECLARE_METATYPE(BroadCastPlugin::DownloadResourceState)
Q_DECLARE_METATYPE(BroadCastPlugin::IPSpeakerNotifyParam)
Q_DECLARE_METATYPE(std::vector<BroadCastPlugin::IPSpeakerNotifyParam>)
Q_DECLARE_METATYPE(BroadCastPlugin::TTSResponseError)
Q_DECLARE_METATYPE(std::vector<BroadCastPlugin::TTSResponseError>)
Q_DECLARE_METATYPE(BroadCastPlugin::MediaFile)
Q_DECLARE_METATYPE(std::vector<BroadCastPlugin::MediaFile>)
Q_DECLARE_METATYPE(std::vector<ResourceManager::ID>)
Q_DECLARE_METATYPE(BroadCastPlugin::DeviceNotifyParam)

namespace BroadCastPlugin {
/// Registers every signal argument type; safe to call more than once. Runs at module load.
void RegisterBroadcastMetaTypes();
}  // namespace BroadCastPlugin
