#pragma once
// The controller's tasks: each holds its request by value and reports through a callback bound to the
// controller. Callbacks are called only when set, with the thread's last error.

#include <functional>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "framework/base/MessageLoop.h"

namespace BroadCastPlugin {

using DownloadStateCallback = std::function<void(DownloadResourceState, ErrorCode)>;
using TTSResultCallback = std::function<void(std::vector<TTSResponseError>)>;
using IdResultCallback = std::function<void(ResourceManager::ID, ErrorCode, void*)>;
using StopListenCallback = std::function<void(ErrorCode, void*)>;
using StopBroadcastCallback = std::function<void(std::string, ErrorCode, void*)>;
using SearchResultCallback = std::function<void(std::vector<MediaFile>, ErrorCode)>;
using DeviceBroadcastCallback = std::function<void(std::vector<ResourceManager::ID>, ErrorCode)>;
using UploadRecordCallback = std::function<void(bool, ErrorCode)>;

/// The steps of the resource download, in the order they run: configuration, TTS languages, partitions,
/// terminals, media directories, media files.
struct ResourceDownloadSteps {
    std::function<bool()> config;
    std::function<bool()> ttsLanguages;
    std::function<bool()> partitions;
    std::function<bool()> terminals;
    std::function<bool()> mediaDirectories;
    std::function<bool()> mediaFiles;

    /// The steps against the module's own caches.
    static ResourceDownloadSteps Default();
};

class CDownloadResourceTask : public Tal::Base::CTask {
public:
    CDownloadResourceTask(ResourceDownloadSteps steps, DownloadStateCallback callback);
    ~CDownloadResourceTask() override;
    void Exec() override;

private:
    void Report(DownloadResourceState state);
    ResourceDownloadSteps steps_;
    DownloadStateCallback callback_;
};

class CSpeakVoiceTask : public Tal::Base::CTask {
public:
    CSpeakVoiceTask(IPSpeakBroadcastParam param, void* user);
    ~CSpeakVoiceTask() override;
    void Exec() override;

private:
    IPSpeakBroadcastParam param_;
    void* user_;
};

class CPlayAudioFileTask : public Tal::Base::CTask {
public:
    CPlayAudioFileTask(IPSpeakBroadcastParam param, std::string filePath, void* user);
    ~CPlayAudioFileTask() override;
    void Exec() override;

private:
    IPSpeakBroadcastParam param_;
    std::string filePath_;
    void* user_;
};

class CTTSPlayTask : public Tal::Base::CTask {
public:
    CTTSPlayTask(TTSRequestParam param, TTSResultCallback callback);
    ~CTTSPlayTask() override;
    void Exec() override;

private:
    TTSRequestParam param_;
    TTSResultCallback callback_;
};

class CBroadcastStartListenTask : public Tal::Base::CTask {
public:
    CBroadcastStartListenTask(int32_t elementID, void* user, IdResultCallback callback);
    ~CBroadcastStartListenTask() override;
    void Exec() override;

private:
    int32_t elementID_;
    void* user_;
    IdResultCallback callback_;
};

class CBroadcastStopListenTask : public Tal::Base::CTask {
public:
    CBroadcastStopListenTask(void* user, StopListenCallback callback);
    ~CBroadcastStopListenTask() override;
    void Exec() override;

private:
    void* user_;
    StopListenCallback callback_;
};

class CStopBroadcastTask : public Tal::Base::CTask {
public:
    CStopBroadcastTask(void* user, StopBroadcastCallback callback);
    ~CStopBroadcastTask() override;
    void Exec() override;

private:
    void* user_;
    StopBroadcastCallback callback_;
};

class CDownloadMediaFileTask : public Tal::Base::CTask {
public:
    CDownloadMediaFileTask(ResourceManager::ID fileID, void* user, IdResultCallback callback);
    ~CDownloadMediaFileTask() override;
    void Exec() override;

private:
    ResourceManager::ID fileID_;
    void* user_;
    IdResultCallback callback_;
};

class CSearchMediaFileTask : public Tal::Base::CTask {
public:
    CSearchMediaFileTask(std::string filter, SearchResultCallback callback);
    ~CSearchMediaFileTask() override;
    void Exec() override;

private:
    std::string filter_;
    SearchResultCallback callback_;
};

class CUploadRecordFileTask : public Tal::Base::CTask {
public:
    CUploadRecordFileTask(RecordTaskParam param, UploadRecordCallback callback);
    ~CUploadRecordFileTask() override;
    void Exec() override;

private:
    bool UploadRecording();
    bool RegisterPlayedFile();
    RecordTaskParam param_;
    UploadRecordCallback callback_;
};

class CDeviceSpeakVoiceTask : public Tal::Base::CTask {
public:
    CDeviceSpeakVoiceTask(std::vector<ResourceManager::ID> deviceIDs, int broadcastType,
                          DeviceBroadcastCallback callback);
    ~CDeviceSpeakVoiceTask() override;
    void Exec() override;

private:
    std::vector<ResourceManager::ID> deviceIDs_;
    int broadcastType_;
    DeviceBroadcastCallback callback_;
};

}  // namespace BroadCastPlugin
