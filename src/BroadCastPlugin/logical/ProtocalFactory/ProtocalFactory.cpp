#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/errortext/ErrorCodeTrans.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BroadCastPlugin {

using NetworkCommunication::CRapidJsonProto;

namespace {
std::string Indexed(const std::string& path, std::size_t zeroBasedIndex) {
    return path + "[" + std::to_string(zeroBasedIndex + 1) + "]";
}
}  // namespace

bool CProtocalFactory::ParseElementIDs(const std::string& text, std::vector<int32_t>& ids) {
    ids.clear();
    if (text.empty()) {
        return true;
    }
    std::size_t start = 0;
    for (;;) {
        std::size_t comma = text.find(',', start);
        std::string piece =
            text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        while (!piece.empty() && piece.front() == ' ') {
            piece.erase(piece.begin());
        }
        while (!piece.empty() && piece.back() == ' ') {
            piece.pop_back();
        }
        if (piece.empty()) {
            return false;
        }
        char* end = nullptr;
        errno = 0;
        long value = std::strtol(piece.c_str(), &end, 10);
        if (errno != 0 || *end != '\0' || value < INT32_MIN || value > INT32_MAX) {
            return false;
        }
        ids.push_back(static_cast<int32_t>(value));
        if (comma == std::string::npos) {
            return true;
        }
        start = comma + 1;
    }
}

bool CProtocalFactory::ParseStartIPSpeakerJson(const std::string& json, StartIPSpeakerRequest& request) {
    CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        return false;
    }
    if (!ParseElementIDs(doc.get_v("/Data/ElementIDs", ""), request.param.elementIDs)) {
        return false;
    }
    request.mode = doc.get_int_v("/Data/Mode", -1);
    if (request.mode == kRequestModeSpeak) {
        return true;
    }
    if (request.mode == kRequestModeFile) {
        request.mediaFilePath = doc.get_v("/Data/MediaFilePath", "");
        return true;
    }
    BCAST_LOG(5, "[%s]Cannot support this broadcast mode: %d[%s(%d)]", request.mode);
    return false;
}

bool CProtocalFactory::ParseRegisterMessageRequest(const std::string& json, bool& isRegister,
                                                   std::string& pluginID) {
    CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        BCAST_LOG(5, "[%s]Input json error. json: %s[%s(%d)]", json.c_str());
        return false;
    }
    isRegister = doc.get_bool_v("/IsRegister", false);
    pluginID = doc.get_v("/PluginID", "");
    return !pluginID.empty();
}

bool CProtocalFactory::ParseUploadRecordFileJson(const std::string& json, RecordTaskParam& record) {
    CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        BCAST_LOG(5, "[%s]Input json error. json: %s[%s(%d)]", json.c_str());
        return false;
    }
    record.recordDevice = doc.get_v("/Data/RecordDevice", "");
    record.recordFilePath = doc.get_v("/Data/RecordFilePath", "");
    record.recordStartTime = doc.get_v("/Data/RecordStartTime", "");
    record.mode = doc.get_int_v("/Data/Mode", -1);
    record.mediaFileID = doc.get_int_v("/Data/MediaFileID", -1);
    return true;
}

bool CProtocalFactory::ParseListenRequest(const std::string& json, ListenRequest& request) {
    CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        return false;
    }
    request.resourceID = doc.get_int_v("/Data/ResourceID", -1);
    request.resourceType = doc.get_int_v("/Data/ResourceType", -1);
    request.siteID = doc.get_int_v("/Data/SiteID", -1);
    return true;
}

bool CProtocalFactory::ParseDownloadMediaFileRequest(const std::string& json, int32_t& fileID) {
    CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        return false;
    }
    fileID = doc.get_int_v("/Data/FileID", -1);
    return true;
}

bool CProtocalFactory::ParseStartTTSJson(const std::string& json, TTSRequestParam& tts) {
    CRapidJsonProto doc;
    if (!doc.set_str(json) || !ParseElementIDs(doc.get_v("/Data/ElementIDs", ""), tts.elementIDs) ||
        tts.elementIDs.empty()) {
        return false;
    }
    tts.CustomContent = doc.get_v("/Data/CustomContent", "");
    tts.Language = doc.get_v("/Data/Language", "");
    tts.PlayMode = doc.get_int_v("/Data/PlayMode", 0);
    tts.AssignPlaybackDuration = doc.get_v("/Data/AssignPlaybackDuration", "");
    tts.PlayType = true;
    return !tts.CustomContent.empty();
}

bool CProtocalFactory::ParseStartDeviceBroadcastJson(const std::string& json,
                                                     DeviceBroadcastRequest& request) {
    CRapidJsonProto doc;
    std::vector<int32_t> ids;
    if (!doc.set_str(json) || !ParseElementIDs(doc.get_v("/Data/DeviceIDs", ""), ids) || ids.empty()) {
        return false;
    }
    request.deviceIDs.assign(ids.begin(), ids.end());
    request.type = doc.get_int_v("/Data/Type", 0);
    return true;
}

std::string CProtocalFactory::BuildResultResponse(const ErrorCode& error) {
    CRapidJsonProto doc;
    doc.set_v("/Response/ErrorModule", error.GetMainErrorCode());
    doc.set_v("/Response/ErrorCode", error.GetSubErrorCode());
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildTaskRunStateResponse(int taskCount) {
    CRapidJsonProto doc;
    doc.set_v("/Response/TaskRunState", taskCount);
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildConfigResponse(const BroadcastBaseConfig& config) {
    CRapidJsonProto doc;
    doc.set_bool_v("/ConfigParam/RecordParam/Enable", config.Record);
    doc.set_v("/ConfigParam/RecordParam/StorageType", config.RecordStorageType);
    doc.set_v("/ConfigParam/RecordParam/StorageID", config.RecordStorageServerID);
    doc.set_v("/ConfigParam/RecordParam/StoragePool", config.RecordPoolID);
    doc.set_bool_v("/ConfigParam/PomptVoiceParam/Enable", config.IsPromptToneActivated);
    doc.set_v("/ConfigParam/PomptVoiceParam/MediaFileID", config.PromptToneMediaID);
    doc.set_v("/ConfigParam/PomptVoiceParam/VoiceDuration", config.PromptToneDuration);
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildTerminalsResponse(const std::vector<BroadcastTerminal>& terminals) {
    CRapidJsonProto doc;
    // An empty list still answers with the list node, so callers can tell "none" from "no answer".
    doc.set_node_str("/BroadcastTerminalList", "{\"BroadcastTerminal\":[]}");
    for (std::size_t i = 0; i < terminals.size(); ++i) {
        const BroadcastTerminal& t = terminals[i];
        const std::string p = Indexed("/BroadcastTerminalList/BroadcastTerminal", i) + "/";
        doc.set_v(p + "ID", t.ID);
        doc.set_v(p + "AreaID", t.AreaID);
        doc.set_v(p + "Name", t.Name);
        doc.set_v(p + "AreaName", t.AreaName);
        doc.set_v(p + "WorkStatus", t.TerminalStatus);
        doc.set_node_str(p + "PartitionIDList", "{\"PartitionID\":[]}");
        for (std::size_t j = 0; j < t.PartitionIDList.size(); ++j) {
            doc.set_v(Indexed(p + "PartitionIDList/PartitionID", j), t.PartitionIDList[j]);
        }
    }
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildPluginNotification(PluginNotifyMethod method) {
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(method));
    return doc.get_str(0);
}

namespace {
// The mapped resource status of a speaker that takes no broadcast.
constexpr int32_t kResourceStatusIdle = 0;
}  // namespace

int32_t CProtocalFactory::PlayStateOf(const IPSpeakerNotifyParam& param) {
    if (param.type == 0) {
        return param.broadcastStatus;
    }
    // A resource-status event carries no speaker status: an idle resource (a speaker whose broadcast ended,
    // as pushed after a stop) reads as stopped; anything else says nothing (-1), never "connecting".
    if (param.type == 2) {
        return param.resourceStatus == kResourceStatusIdle ? 3 : -1;
    }
    switch (param.speakerStatus) {
        case 1:
            return 1;
        case 2:
            return 2;
        case 3:
            return 3;
        default:
            return 0;
    }
}

std::string CProtocalFactory::BuildPluginSpeakerState(const IPSpeakerNotifyParam& param) {
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(kNotifySpeakerState));
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(param.error));
    doc.set_v("/Data/ID", param.elementID);
    doc.set_v("/Data/NotifyType", param.type);
    doc.set_v("/Data/PlayState", PlayStateOf(param));
    doc.set_v("/Data/ConnectState", param.speakerStatus);
    doc.set_v("/Data/WorkState", param.resourceStatus);
    return doc.get_str(0);
}

// {"Method":5,"Data":{"RecordFilePath":"..","Mode":0,"MediaFileID":-1,"ErrorModule":0,"ErrorCode":0,
//   "ErrorInfo":""}}
std::string CProtocalFactory::BuildPluginRecordUploaded(const RecordTaskParam& record,
                                                        const ErrorCode& error) {
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(kNotifyRecordUploaded));
    doc.set_v("/Data/RecordFilePath", record.recordFilePath);
    doc.set_v("/Data/Mode", record.mode);
    doc.set_v("/Data/MediaFileID", record.mediaFileID);
    doc.set_v("/Data/ErrorModule", error.GetMainErrorCode());
    doc.set_v("/Data/ErrorCode", error.GetSubErrorCode());
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    return doc.get_str(0);
}

// {"Method":6,"Data":{"ErrorList":[{"ElementID":1007,"ElementName":"..","ErrorModule":30,"ErrorCode":7,
//   "ErrorInfo":".."}]}}: the speakers that did not start (empty: all started).
std::string CProtocalFactory::BuildPluginTTSResult(const std::vector<TTSResponseError>& errors) {
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(kNotifyTTSStarted));
    doc.set_node_str("/Data/ErrorList", "[]");
    for (std::size_t i = 0; i < errors.size(); ++i) {
        const std::string item = "/Data/ErrorList[" + std::to_string(i + 1) + "]";
        doc.set_v(item + "/ElementID", errors[i].ElementID);
        doc.set_v(item + "/ElementName", errors[i].ElementName);
        doc.set_v(item + "/ErrorModule", errors[i].Error.GetMainErrorCode());
        doc.set_v(item + "/ErrorCode", errors[i].Error.GetSubErrorCode());
        doc.set_v(item + "/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(errors[i].Error));
    }
    return doc.get_str(0);
}

// {"Method":7,"Data":{"DeviceIDs":"201,202","ErrorModule":0,"ErrorCode":0,"ErrorInfo":""}}
std::string CProtocalFactory::BuildPluginDeviceBroadcastStarted(
    const std::vector<ResourceManager::ID>& deviceIDs, const ErrorCode& error) {
    std::string ids;
    for (ResourceManager::ID id : deviceIDs) {
        ids += (ids.empty() ? "" : ",") + std::to_string(id);
    }
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(kNotifyDeviceBroadcastStarted));
    doc.set_v("/Data/DeviceIDs", ids);
    doc.set_v("/Data/ErrorModule", error.GetMainErrorCode());
    doc.set_v("/Data/ErrorCode", error.GetSubErrorCode());
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    return doc.get_str(0);
}

// {"Method":8,"Data":{"GroupId":"..","ID":201,"Status":1,"ResourceStatus":1,"ErrorInfo":""}}; Status as the
// speakers' (0 connecting, 1 playing, 2 failed, 3 stopped).
std::string CProtocalFactory::BuildPluginDeviceState(const DeviceNotifyParam& param) {
    CRapidJsonProto doc;
    doc.set_v("/Method", static_cast<int>(kNotifyDeviceState));
    doc.set_v("/Data/GroupId", param.groupId);
    doc.set_v("/Data/ID", static_cast<int>(param.resourceId));
    doc.set_v("/Data/Status", param.status);
    doc.set_v("/Data/ResourceStatus", param.resourceStatus);
    doc.set_v("/Data/ErrorInfo", param.errorInfo);
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildBroadcastStartFinish() {
    CRapidJsonProto doc;
    doc.set_v("/Method", "BroadcastStartFinish");
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildBroadcastStopFinish() {
    CRapidJsonProto doc;
    doc.set_v("/Method", "BroadcastStopFinish");
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildIPSpeakerBroadcastState(const IPSpeakerNotifyParam& param) {
    CRapidJsonProto doc;
    doc.set_v("/Method", "IPSpeakerBroadcastState");
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(param.error));
    doc.set_v("/Data/ID", param.elementID);
    doc.set_v("/Data/PlayState", PlayStateOf(param));
    doc.set_bool_v("/Data/PromptVoicePlaying", param.promptVoiceActive);
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildDownloadShoutFileFinished(int32_t fileID, const std::string& filePath,
                                                             const ErrorCode& error) {
    CRapidJsonProto doc;
    doc.set_v("/Method", "DownloadShoutFileFinished");
    doc.set_v("/Data/FileID", fileID);
    doc.set_v("/Data/FilePath", filePath);
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildBroadcastListeningResult(int32_t resourceID, const ErrorCode& error) {
    CRapidJsonProto doc;
    doc.set_v("/Method", "BroadcastListeningResult");
    doc.set_v("/Data/ResourceID", resourceID);
    doc.set_v("/Data/Result", error.GetMainErrorCode() == 0 && error.GetSubErrorCode() == 0 ? 1 : 0);
    doc.set_v("/Data/ErrorInfo", ErrorCodeTrans::GetErrorInfoByErrorCode(error));
    return doc.get_str(0);
}

std::string CProtocalFactory::BuildUploadRecordNotification(const RecordTaskParam& record) {
    CRapidJsonProto doc;
    doc.set_v("/Method", "UploadRecordFile");
    doc.set_v("/Data/RecordDevice", record.recordDevice);
    doc.set_v("/Data/RecordFilePath", record.recordFilePath);
    doc.set_v("/Data/RecordStartTime", record.recordStartTime);
    doc.set_v("/Data/Mode", record.mode);
    doc.set_v("/Data/MediaFileID", record.mediaFileID);
    return doc.get_str(0);
}

}  // namespace BroadCastPlugin
