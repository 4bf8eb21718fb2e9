#include "BroadCastPlugin/controller/BroadcastController/BroadcastTasks.h"

#include <cstdint>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "framework/media/videotool/VideoTool.h"

namespace BroadCastPlugin {

using Tal::Base::Error::GetLastError;
using Tal::Base::Error::SetLastError;

namespace {
int64_t RequestID(void* user) {
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(user));
}

std::string JoinIDs(const std::vector<ResourceManager::ID>& ids) {
    std::string joined;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (i > 0) {
            joined += ",";
        }
        joined += std::to_string(ids[i]);
    }
    return joined;
}
}  // namespace

ResourceDownloadSteps ResourceDownloadSteps::Default() {
    ResourceDownloadSteps steps;
    steps.config = [] { return CIPSpeakerConfigManager::Instance()->DownloadConfig(); };
    steps.ttsLanguages = [] { return CIPSpeakerConfigManager::Instance()->DownloadTTSLanguages(); };
    steps.partitions = [] { return CIPSpeakerPartitionManager::Instance()->DownloadAllPartitions(); };
    steps.terminals = [] { return CIPSpeakerTerminalManager::Instance()->DownloadAllTerminals(); };
    steps.mediaDirectories = [] { return CMediaFileManager::Instance()->DownloadAllMediaDirectorys(); };
    steps.mediaFiles = [] { return CMediaFileManager::Instance()->DownloadAllMediaFiles(); };
    return steps;
}

CDownloadResourceTask::CDownloadResourceTask(ResourceDownloadSteps steps, DownloadStateCallback callback)
    : steps_(std::move(steps)), callback_(std::move(callback)) {}

CDownloadResourceTask::~CDownloadResourceTask() = default;

void CDownloadResourceTask::Report(DownloadResourceState state) {
    if (callback_) {
        callback_(state, GetLastError());
    }
}

void CDownloadResourceTask::Exec() {
    SetLastError(ErrorCode());
    Report(DownloadResourceStart);
    // Stops at the first failing step; the caches of the steps already done keep their new data.
    if (!steps_.config || !steps_.config()) {
        BCAST_LOG(5, "[%s]Download config failed.[%s(%d)]");
    } else if (!steps_.ttsLanguages || !steps_.ttsLanguages()) {
        BCAST_LOG(5, "[%s]Download TTSLanguages failed.[%s(%d)]");
    } else if (!steps_.partitions || !steps_.partitions()) {
        BCAST_LOG(5, "[%s]Download ALL Partition failed.[%s(%d)]");
    } else if (!steps_.terminals || !steps_.terminals()) {
        BCAST_LOG(5, "[%s]Download all terminals failed.[%s(%d)]");
    } else if (!steps_.mediaDirectories || !steps_.mediaDirectories()) {
        BCAST_LOG(5, "[%s]Download all media directorys failed.[%s(%d)]");
    } else if (!steps_.mediaFiles || !steps_.mediaFiles()) {
        BCAST_LOG(5, "[%s]Download all media files failed.[%s(%d)]");
    } else {
        Report(DownloadResourceFinish);
        return;
    }
    Report(DownloadResourceFailed);
}

CSpeakVoiceTask::CSpeakVoiceTask(IPSpeakBroadcastParam param, void* user)
    : param_(std::move(param)), user_(user) {}

CSpeakVoiceTask::~CSpeakVoiceTask() = default;

void CSpeakVoiceTask::Exec() {
    if (!CIPSpeakerManager::Instance()->StartSpeakVoice(param_.elementIDs, RequestID(user_))) {
        BCAST_LOG(5, "[%s]Start speak voice failed.[%s(%d)]");
    }
}

CPlayAudioFileTask::CPlayAudioFileTask(IPSpeakBroadcastParam param, std::string filePath, void* user)
    : param_(std::move(param)), filePath_(std::move(filePath)), user_(user) {}

CPlayAudioFileTask::~CPlayAudioFileTask() = default;

void CPlayAudioFileTask::Exec() {
    if (!CIPSpeakerManager::Instance()->StartPlayAudioFile(param_.elementIDs, filePath_, RequestID(user_))) {
        BCAST_LOG(5, "[%s]Start play audio failed.[%s(%d)]");
    }
}

CTTSPlayTask::CTTSPlayTask(TTSRequestParam param, TTSResultCallback callback)
    : param_(std::move(param)), callback_(std::move(callback)) {}

CTTSPlayTask::~CTTSPlayTask() = default;

void CTTSPlayTask::Exec() {
    std::vector<TTSResponseError> errors;
    if (!CIPSpeakerManager::Instance()->StartTTSBroadcast(errors, param_)) {
        BCAST_LOG(5, "[%s]Start tts play failed.[%s(%d)]");
        if (errors.empty()) {
            // The request itself failed: one entry without an element carries the reason.
            TTSResponseError whole;
            whole.Error = GetLastError();
            errors.push_back(whole);
        }
    }
    if (callback_) {
        callback_(errors);
    }
}

CBroadcastStartListenTask::CBroadcastStartListenTask(int32_t elementID, void* user, IdResultCallback callback)
    : elementID_(elementID), user_(user), callback_(std::move(callback)) {}

CBroadcastStartListenTask::~CBroadcastStartListenTask() = default;

void CBroadcastStartListenTask::Exec() {
    SetLastError(ErrorCode());
    if (!CIPSpeakerManager::Instance()->StartBroadcastListen(elementID_)) {
        BCAST_LOG(5, "[%s]Start broadcast listen failed.[%s(%d)]");
    }
    if (callback_) {
        callback_(static_cast<ResourceManager::ID>(elementID_), GetLastError(), user_);
    }
}

CBroadcastStopListenTask::CBroadcastStopListenTask(void* user, StopListenCallback callback)
    : user_(user), callback_(std::move(callback)) {}

CBroadcastStopListenTask::~CBroadcastStopListenTask() = default;

void CBroadcastStopListenTask::Exec() {
    SetLastError(ErrorCode());
    if (!CIPSpeakerManager::Instance()->StopBroadcastListen()) {
        BCAST_LOG(5, "[%s]Stop broadcast listen failed.[%s(%d)]");
    }
    if (callback_) {
        callback_(GetLastError(), user_);
    }
}

CStopBroadcastTask::CStopBroadcastTask(void* user, StopBroadcastCallback callback)
    : user_(user), callback_(std::move(callback)) {}

CStopBroadcastTask::~CStopBroadcastTask() = default;

void CStopBroadcastTask::Exec() {
    SetLastError(ErrorCode());
    CIPSpeakerManager* manager = CIPSpeakerManager::Instance();
    // The recording of a live talk is described before the stop clears the broadcast's record.
    RecordTaskParam record;
    record.mode = 0;
    record.recordFilePath = manager->GetRecordedFilePath();
    record.recordStartTime = manager->GetStartTime();
    for (const auto& speaker : manager->GetSpeakerStates()) {
        record.recordDevice += (record.recordDevice.empty() ? "" : ",") + std::to_string(speaker.first);
    }
    const bool recordedTalk =
        manager->GetBroadcastKind() == kBroadcastSpeak && !record.recordFilePath.empty();
    manager->Stop();
    std::string text = recordedTalk ? CProtocalFactory::BuildUploadRecordNotification(record) : std::string();
    if (callback_) {
        callback_(text, GetLastError(), user_);
    }
}

CDownloadMediaFileTask::CDownloadMediaFileTask(ResourceManager::ID fileID, void* user,
                                               IdResultCallback callback)
    : fileID_(fileID), user_(user), callback_(std::move(callback)) {}

CDownloadMediaFileTask::~CDownloadMediaFileTask() = default;

void CDownloadMediaFileTask::Exec() {
    SetLastError(ErrorCode());
    std::string path;
    if (CMediaFileManager::Instance()->DownloadMediaFileToLocal(path, static_cast<int32_t>(fileID_))) {
        BCAST_LOG(3, "[%s]DownloadMediaFileToLocal SUCC, file id: %d, file path: %s.[%s(%d)]",
                  static_cast<int>(fileID_), path.c_str());
    } else {
        BCAST_LOG(5, "[%s]DownloadMediaFileToLocal failed, file id: %d, file path: %s.[%s(%d)]",
                  static_cast<int>(fileID_), path.c_str());
    }
    if (callback_) {
        callback_(fileID_, GetLastError(), user_);
    }
}

CSearchMediaFileTask::CSearchMediaFileTask(std::string filter, SearchResultCallback callback)
    : filter_(std::move(filter)), callback_(std::move(callback)) {}

CSearchMediaFileTask::~CSearchMediaFileTask() = default;

void CSearchMediaFileTask::Exec() {
    SetLastError(ErrorCode());
    std::vector<MediaFile> files;
    if (CMediaFileManager::Instance()->SearchMediaFiles(filter_, files)) {
        // Logged at the error level on purpose, so that searches show in reduced logs.
        BCAST_LOG(5, "[%s]SearchMediaFiles succ, filter_message_: %s.[%s(%d)]", filter_.c_str());
    } else {
        BCAST_LOG(5, "[%s]SearchMediaFiles failed, filter_message_: %s.[%s(%d)]", filter_.c_str());
    }
    if (callback_) {
        callback_(files, GetLastError());
    }
}

CUploadRecordFileTask::CUploadRecordFileTask(RecordTaskParam param, UploadRecordCallback callback)
    : param_(std::move(param)), callback_(std::move(callback)) {}

CUploadRecordFileTask::~CUploadRecordFileTask() = default;

bool CUploadRecordFileTask::UploadRecording() {
    if (!CIPSpeakerConfigManager::Instance()->DownloadConfig()) {
        BCAST_LOG(5, "[%s]Download broadcast config failed.[%s(%d)]");
        return false;
    }
    if (!CMediaFileManager::Instance()->UploadRecordFile(param_)) {
        BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
        return false;
    }
    return true;
}

bool CUploadRecordFileTask::RegisterPlayedFile() {
    CMediaFileManager* media = CMediaFileManager::Instance();
    if (!media->DownloadAllMediaFiles()) {
        BCAST_LOG(5, "[%s]Download media files failed.[%s(%d)]");
        return false;
    }
    MediaFile file;
    if (!media->GetMediaFile(param_.mediaFileID, file)) {
        BCAST_LOG(5, "[%s]Get media file failed. file id: %d[%s(%d)]", param_.mediaFileID);
        return false;
    }
    if (!media->UpdateMediaRecord(param_)) {
        BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
        return false;
    }
    return true;
}

void CUploadRecordFileTask::Exec() {
    SetLastError(ErrorCode());
    bool ok = false;
    if (param_.mode == 0) {
        ok = UploadRecording();
    } else if (param_.mode == 1) {
        ok = RegisterPlayedFile();
    } else {
        SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework,
                               Tal::Base::Error::kCodeInvalidInput));
        BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
    }
    if (callback_) {
        callback_(ok, GetLastError());
    }
}

CDeviceSpeakVoiceTask::CDeviceSpeakVoiceTask(std::vector<ResourceManager::ID> deviceIDs, int broadcastType,
                                             DeviceBroadcastCallback callback)
    : deviceIDs_(std::move(deviceIDs)), broadcastType_(broadcastType), callback_(std::move(callback)) {}

CDeviceSpeakVoiceTask::~CDeviceSpeakVoiceTask() = default;

void CDeviceSpeakVoiceTask::Exec() {
    SetLastError(ErrorCode());
    TOOL::CRequestBroadcast request;
    request.device_ids = JoinIDs(deviceIDs_);
    request.file_path.clear();
    request.i_record = 0;
    request.group_id.clear();
    request.type = broadcastType_;
    if (!TOOL::CBroadcastBusinessManager::StartBroadcast(request)) {
        BCAST_LOG(5, "[%s]Start device broadcast failed. device ids: %s[%s(%d)]", request.device_ids.c_str());
    }
    if (callback_) {
        callback_(deviceIDs_, GetLastError());
    }
}

}  // namespace BroadCastPlugin
