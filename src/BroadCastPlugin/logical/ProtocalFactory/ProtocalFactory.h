#pragma once
// Parses the JSON requests of the public API and of the web front end, and builds their responses and
// notifications.

#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace BroadCastPlugin {

/// Broadcast modes of a start request.
enum BroadcastRequestMode { kRequestModeSpeak = 0, kRequestModeFile = 1 };

/// Integer "/Method" values of the notifications sent to registered plugins.
enum PluginNotifyMethod {
    kNotifyBroadcastStarted = 0,
    kNotifyBroadcastStopped = 1,
    kNotifySpeakerState = 2,
    kNotifyDownloadFinished = 3,
    kNotifyDownloadFailed = 4,
    kNotifyRecordUploaded = 5,          ///< an "UploadRecordFile" request finished, with its result
    kNotifyTTSStarted = 6,              ///< a text-to-speech start finished, with the speakers that failed
    kNotifyDeviceBroadcastStarted = 7,  ///< a device broadcast start finished, with its result
    kNotifyDeviceState = 8,             ///< a device of the device broadcast changed state
};

struct DeviceBroadcastRequest {
    std::vector<ResourceManager::ID> deviceIDs;
    int32_t type = 0;
};

struct StartIPSpeakerRequest {
    IPSpeakBroadcastParam param;
    int32_t mode = -1;
    std::string mediaFilePath;
};

struct ListenRequest {
    int32_t resourceID = -1;
    int32_t resourceType = -1;
    int32_t siteID = -1;
};

class CProtocalFactory {
public:
    // Requests.
    static bool ParseStartIPSpeakerJson(const std::string& json, StartIPSpeakerRequest& request);
    static bool ParseRegisterMessageRequest(const std::string& json, bool& isRegister, std::string& pluginID);
    static bool ParseUploadRecordFileJson(const std::string& json, RecordTaskParam& record);
    static bool ParseListenRequest(const std::string& json, ListenRequest& request);
    static bool ParseDownloadMediaFileRequest(const std::string& json, int32_t& fileID);
    /// {"Data":{"ElementIDs":"1001,1003","CustomContent":"text","Language":"en-US","PlayMode":0,
    /// "AssignPlaybackDuration":""}}: the ids and a non-empty text are required.
    static bool ParseStartTTSJson(const std::string& json, TTSRequestParam& tts);
    /// {"Data":{"DeviceIDs":"201,202","Type":0}}: at least one id.
    static bool ParseStartDeviceBroadcastJson(const std::string& json, DeviceBroadcastRequest& request);
    /// "1,2,3" -> {1,2,3}; false when a piece is not a whole number. An empty text is an empty list.
    static bool ParseElementIDs(const std::string& text, std::vector<int32_t>& ids);

    // Responses.
    /// "/Response/ErrorModule" and "/Response/ErrorCode" of the error (0 and 0 on success).
    static std::string BuildResultResponse(const ErrorCode& error);
    static std::string BuildTaskRunStateResponse(int taskCount);
    static std::string BuildConfigResponse(const BroadcastBaseConfig& config);
    static std::string BuildTerminalsResponse(const std::vector<BroadcastTerminal>& terminals);

    // Notifications to registered plugins (integer "/Method").
    static std::string BuildPluginNotification(PluginNotifyMethod method);
    static std::string BuildPluginSpeakerState(const IPSpeakerNotifyParam& param);
    static std::string BuildPluginRecordUploaded(const RecordTaskParam& record, const ErrorCode& error);
    static std::string BuildPluginTTSResult(const std::vector<TTSResponseError>& errors);
    static std::string BuildPluginDeviceBroadcastStarted(const std::vector<ResourceManager::ID>& deviceIDs,
                                                         const ErrorCode& error);
    static std::string BuildPluginDeviceState(const DeviceNotifyParam& param);

    // Notifications to the web front end (named "/Method").
    static std::string BuildBroadcastStartFinish();
    static std::string BuildBroadcastStopFinish();
    static std::string BuildIPSpeakerBroadcastState(const IPSpeakerNotifyParam& param);
    static std::string BuildDownloadShoutFileFinished(int32_t fileID, const std::string& filePath,
                                                      const ErrorCode& error);
    static std::string BuildBroadcastListeningResult(int32_t resourceID, const ErrorCode& error);
    /// "UploadRecordFile" notification describing a recording.
    static std::string BuildUploadRecordNotification(const RecordTaskParam& record);

    /// "/Data/PlayState" of a speaker event: the broadcast stage for stage events; for speaker status
    /// events 1 playing, 2 failed, 3 stopped, 0 while connecting or in the prompt tone.
    static int32_t PlayStateOf(const IPSpeakerNotifyParam& param);
};

}  // namespace BroadCastPlugin
