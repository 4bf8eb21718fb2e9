#pragma once
// Records read from the platform's broadcast REST interface.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"

namespace BroadCastPlugin {

/// Values of the records' storage types: the platform's "localStorage" and "pStorage".
constexpr int32_t kStorageTypeLocal = 0;
constexpr int32_t kStorageTypeServer = 1;

struct BroadcastPartition {
    int32_t ID = -1;
    std::string Name;
};

/// One IP speaker. A terminal outside every partition has the partition list [-1].
struct BroadcastTerminal {
    int32_t ID = -1;
    std::string Name;
    std::vector<int32_t> PartitionIDList{-1};
    int32_t PeerTaskHandling = -1;
    int32_t AudioCount = -1;
    int32_t Volume = -1;
    int32_t TerminalStatus = -1;
    int32_t AreaID = -1;
    std::string AreaName;
};

struct MediaDirectory {
    int32_t ID = -1;
    std::string Name;
    int32_t ParentID = 0;
    bool HasChildDirectory = false;
    std::vector<MediaDirectory> Children;
};

/// The platform's broadcast configuration.
struct BroadcastBaseConfig {
    bool Record = false;
    int32_t RecordStorageType = 0;
    int32_t RecordStorageServerID = -1;
    std::string RecordPoolID;
    int32_t StorageType = 0;
    int32_t StorageServerID = -1;
    std::string PoolID;
    int32_t AudioCompressionType = kEncodeG711U;
    /// The default stream access type of speakers whose own type is automatic or the system default.
    int32_t BroadcastMode = 0;
    std::string SamplingRate;
    std::string BitRate;
    bool IsPromptToneActivated = false;
    int32_t PromptToneMediaID = -1;
    int32_t PromptToneDuration = -1;
    bool IsTTSDelayedPlayActivated = false;
    bool IsMediaDelayedPlayActivated = false;
    int32_t TTSPlayDelayedTime = -1;
};

/// How to reach the platform's own object storage.
struct LocalCloudStorageConfig {
    bool EnableHttps = false;
    std::string PoolName;
    std::string ServerIp;
    int32_t ObjectUploadPort = -1;
    int32_t ObjectDownloadPort = -1;
    std::string AccessKey;
    std::string SecretKey;
};

/// A finished recording to register with the platform.
struct BroadcastRecordInfo {
    std::vector<int32_t> ElementIDs;
    std::string StartTime;
    std::string FileName;  ///< with its extension
    std::string Format;
    uint32_t Size = 0;  ///< bytes
    int32_t StorageType = 0;
    int32_t StorageServerID = -1;
    std::string StoreUrl;
    int32_t BroadcastMode = -1;
};

/// What to list of the recordings registered at the platform; every criterion is optional.
struct BroadcastRecordQuery {
    int32_t ElementID = -1;     ///< records that include this element; -1: any
    std::string StartTimeFrom;  ///< inclusive bound on StartTime, "YYYY-MM-DD HH:MM:SS"; empty: none
    std::string StartTimeTo;    ///< likewise
    int32_t PageIndex = -1;     ///< -1: every match; from 1: that page of PageSize records
    int32_t PageSize = 20;
};

struct BroadcastRecordElement {
    int32_t ID = -1;
    std::string Name;
};

/// One recording registered at the platform.
struct BroadcastRecordEntry {
    int32_t RecordID = -1;
    std::vector<BroadcastRecordElement> Elements;
    std::string StartTime;
    std::string Name;  ///< the file's name without its extension
    std::string Format;
    int32_t Size = -1;        ///< KB
    int64_t Bytes = -1;       ///< the stored object's size; -1 when the platform does not know it
    int32_t StorageType = 0;  ///< 0 the local cloud storage, 1 a storage server
    int32_t StorageServerID = -1;
    std::string StoreUrl;
    int32_t BroadcastMode = -1;
    std::string UserName;
    std::string RegisterTime;  ///< the platform's local time
};

/// One broadcast target of an address request.
struct BroadcastUrlRequest {
    int32_t ResourceType = 1027;
    std::string ResourceIDs;  ///< decimal ids joined by commas
    int32_t AudioSource = 1;  ///< 1 live talk, 2 file playback
    int32_t NetworkMode = 0;  ///< stream access type
    bool IsPromptToneSupportedInFront = false;
};

/// One resource (speaker channel) behind a broadcast address.
struct BroadcastUrlResource {
    int32_t ID = -1;
    int32_t ResourceType = -1;  ///< the enclosing address's type
    std::string DeviceIP;
    int32_t DevicePort = -1;
    std::string DeviceUserName;
    std::string DevicePassword;  ///< decrypted
    int32_t DeviceID = -1;
    int32_t DeviceType = -1;
    std::string DeviceIndex;
    int32_t DeviceResourceID = -1;
};

/// Voice-talk methods of a broadcast address.
enum BroadcastMethod {
    kMethodUnknown = -1,
    kMethodStreaming = 1,
    kMethodDeviceSdk = 2,
    kMethodStreamingV1 = 7
};

/// One decoded broadcast address.
struct BroadcastUrlInfo {
    int32_t Method = kMethodUnknown;
    std::string Url;  ///< as received, prefix included
    std::string ResourceGuid;
    bool TokenEnabled = false;
    std::string Token;  ///< decrypted
    std::vector<BroadcastUrlResource> Resources;
};

struct BroadcastUrlResult {
    ErrorCode Error;
    std::vector<BroadcastUrlInfo> Urls;
};

struct TTSLanguageInfo {
    std::map<std::string, std::string> Languages;
    std::string DisplayLanguageKey;
    std::string DisplayLanguageValue;
};

}  // namespace BroadCastPlugin
