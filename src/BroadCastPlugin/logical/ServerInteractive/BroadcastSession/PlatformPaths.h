#pragma once
// Request paths of the platform's REST interface that the module calls.

#include <string>

namespace BroadCastPlugin {
namespace PlatformPaths {

inline const std::string kPluginApi = "/DXAPI/Galewing/BroadcastPlugin/V1/";
inline const std::string kPartitions = kPluginApi + "TerminalManagement/Partitions";
inline const std::string kTerminals = kPluginApi + "TerminalManagement/BroadcastTerminals";
inline const std::string kDirectories = kPluginApi + "MediaManagement/FileDirectorys";
inline const std::string kMediaFiles = kPluginApi + "MediaManagement/MediaFiles";
inline const std::string kMediaFile = kPluginApi + "MediaManagement/MediaFile/";  // + file id
inline const std::string kBaseConfig = kPluginApi + "BaseConfig";
inline const std::string kStorageConfig = "/DXAPI/Galewing/Platform/V1/Storage/LocalCloudStorageConfig";
inline const std::string kRecordServerDisk =
    "/DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/";  // + id
inline const std::string kRecord = kPluginApi + "RealTimeBroadcast/Record";
inline const std::string kRecords = kPluginApi + "RealTimeBroadcast/Records";
inline const std::string kUpdateStatus = kPluginApi + "RealTimeBroadcast/UpdateBroadcastStatus";
inline const std::string kTTS = kPluginApi + "RealTimeBroadcast/TTS";
inline const std::string kLanguage = kPluginApi + "GetLanguage";
inline const std::string kUrlList = kPluginApi + "RealTimeBroadcast/CommonUrlList";
inline const std::string kStartPrompt = kPluginApi + "RealTimeBroadcast/StartPromptTone";
inline const std::string kStopPrompt = kPluginApi + "RealTimeBroadcast/StopPromptTone";

}  // namespace PlatformPaths
}  // namespace BroadCastPlugin
