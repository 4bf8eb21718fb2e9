#pragma once
// Records shared by the broadcast subsystems: events, results, request parameters and transport targets.

#include <cstdint>
#include <string>
#include <vector>

#include "framework/base/ErrorCode.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

using Tal::Base::Error::ErrorCode;

/// Encode types shared by capture, file encoding and the transports.
enum EncodeType {
    kEncodeG722 = 0,
    kEncodeG711U = 1,
    kEncodeG711A = 2,
    kEncodeAAC = 7,
    kEncodeMP3 = 15,
};

/// Progress of the resource download: 0 started, 1 finished, 2 failed.
enum DownloadResourceState { DownloadResourceStart = 0, DownloadResourceFinish = 1, DownloadResourceFailed = 2 };

/// Progress of a file encoding: prepared when it begins, running once the encoder reads its input.
enum EncodeState { EncodePrepare = 0, EncodeRunning = 1 };

/// One broadcast event.
struct IPSpeakerNotifyParam {
    int32_t type = 0;              ///< 0 broadcast stage, 1 speaker status, 2 speaker resource status
    int32_t elementID = -1;        ///< broadcast element id; -1 in whole-broadcast events
    int32_t resourceType = -1;     ///< the server's "ResourceType"
    std::string groupGUID;         ///< the server's "BoardcastGroupGUID"
    ErrorCode error;               ///< module and code of a failure
    int32_t speakerStatus = -1;    ///< the server's "Status" for the speaker
    int32_t resourceStatus = -1;   ///< the server's "ResourceStatus", mapped
    int32_t broadcastStatus = -1;  ///< stage of the broadcast (0 started ... 7 encoding)
    bool promptVoiceActive = false;
    int64_t requestID = 0;  ///< the caller's request identifier (its user pointer); 0 for none
};

/// A status message of the device broadcast manager, mapped for the UI.
struct DeviceNotifyParam {
    std::string groupId;
    std::string indexCode;
    std::string errorInfo;
    int32_t resourceStatus = -1;
    ResourceManager::ID resourceId = 0;
    ErrorCode error;
    int32_t status = -1;
};

/// A media file of the platform's media library.
struct MediaFile {
    int32_t ID = -1;
    std::string Name;    ///< without extension
    std::string Format;  ///< the extension, such as "mp3"
    int32_t Size = -1;
    int32_t StorageType = 0;  ///< 0 local cloud storage, 1 storage server
    int32_t StorageServerID = -1;
    std::string StoragePoolID;
    std::string StoreUrl;
    int32_t Duration = -1;
    int32_t ParentID = -1;
    std::string LocalPath;  ///< place in the local audio cache
};

/// A speaker the server could not start for a text-to-speech broadcast.
struct TTSResponseError {
    int32_t ElementID = -1;
    std::string ElementName;
    ErrorCode Error;
};

/// A live-talk or file broadcast request.
struct IPSpeakBroadcastParam {
    std::vector<int32_t> elementIDs;
};

/// A text-to-speech request. "PlayType" is its start flag: the same record with it cleared stops the speech.
struct TTSRequestParam {
    std::vector<int32_t> elementIDs;
    int32_t PlayMode = 0;
    std::string AssignPlaybackDuration;
    std::string CustomContent;
    bool PlayType = true;
    std::string Language;
};

/// A recording to upload (kind 0) or a played media file to register (kind 1).
struct RecordTaskParam {
    int32_t mode = -1;
    std::string recordDevice;
    std::string recordFilePath;
    std::string recordStartTime;
    int32_t mediaFileID = -1;
};

/// A streaming-server session: where to talk or listen and how to authenticate.
struct ZPSTransferTarget {
    std::string token;
    std::string url;
    std::string userName;
    std::string password;
};

/// One element (channel) of a device reached through the device network interface.
struct SDKChannelTarget {
    std::string name;
    int32_t channel = 1;
};

/// A device reached through the device network interface, with the channels to broadcast to.
struct SDKTransferTarget {
    int32_t deviceID = -1;
    int32_t encodeType = kEncodeG711U;
    std::vector<SDKChannelTarget> channels;
};

/// A speaker reached by RTP over UDP.
struct OEMTransferTarget {
    int32_t elementID = -1;
    std::string ipAddress;
    uint16_t port = 0;
    int32_t encodeType = kEncodeG711U;
};

/// Audio parameters of a received stream.
struct ZPSAudioParam {
    int32_t sampleRate = 0;
    int32_t channels = 0;
    int32_t bitsPerSample = 0;
    int32_t bitRate = 0;
    int32_t encodeType = -1;
};

}  // namespace BroadCastPlugin
