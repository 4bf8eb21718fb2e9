#include "BroadCastPlugin/logical/IPSpeakerManager/TalkRecording.h"

#include <algorithm>
#include <ctime>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/DataProcess/SpeakerDataManagers.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceRecord/VoiceRecord.h"
#include "framework/base/FileSystem.h"
#include "framework/base/TimeUtil.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/UserCommonManager.h"

namespace BroadCastPlugin {

namespace {
constexpr int kClientTypeNoUpload = 1;
constexpr int kRecordModeTalk = 0;
constexpr int kRecordModeFile = 1;
}  // namespace

bool CTalkRecording::Start(int32_t encodeType) {
    std::string dir = BusinessCommon::CFrameSystemConfigMgr::Instance()->GetVideoCaptureDataPath();
    std::replace(dir.begin(), dir.end(), '\\', '/');
    const std::string now = Tal::Base::TimeUtil::TimeT2StrShortDatetime(std::time(nullptr));
    dir += "Audio/" + now.substr(0, 8) + "/";
    BCAST_LOG(3, "[%s]Voice record save to: %s[%s(%d)]", dir.c_str());
    if (!Tal::Base::FileSystem::DirectoryExists(dir) && !Tal::Base::FileSystem::MakeFullDir(dir)) {
        BCAST_LOG(5, "[%s]Make full dir failed.[%s(%d)]");
        return false;
    }
    const std::string path =
        dir + now + "_" + std::to_string(static_cast<long long>(clock())) + "_broadcast.wav";
    if (!recorder_.StartRecord(path, encodeType)) {
        BCAST_LOG(5, "[%s]Start record failed. file save path: %s, encode type: %d[%s(%d)]", path.c_str(),
                  encodeType);
        Tal::Base::FileSystem::DeleteFileW(path);
        return false;
    }
    return true;
}

void CTalkRecording::Upload(const RecordSource& source) {
    if (BusinessCommon::CUserCommonManager::Instance()->GetClientType() == kClientTypeNoUpload) {
        return;
    }
    const BroadcastBaseConfig config = CIPSpeakerConfigManager::Instance()->GetConfig();
    RecordTaskParam record;
    for (const auto& speaker : source.speakers) {
        record.recordDevice += (record.recordDevice.empty() ? "" : ",") + std::to_string(speaker.first);
    }
    record.recordStartTime = source.startTime;
    record.recordFilePath = source.kind == kBroadcastFile ? source.playFilePath : std::string();
    if (record.recordDevice.empty() || !config.Record) {
        return;
    }
    bool ok = true;
    if (source.kind == kBroadcastSpeak) {
        record.mode = kRecordModeTalk;
        record.recordFilePath = recorder_.RecordFilePath();
        if (record.recordFilePath.empty()) {
            return;  // the talk ended before its recording began: nothing to upload, nothing failed
        }
        ok = CMediaFileManager::Instance()->UploadRecordFile(record);
    } else if (source.kind == kBroadcastFile) {
        record.mode = kRecordModeFile;
        ok = CMediaFileManager::Instance()->UpdateMediaRecord(record);
    }
    if (!ok) {
        BCAST_LOG(5, "[%s]Upload record file failed.[%s(%d)]");
    }
}

}  // namespace BroadCastPlugin
