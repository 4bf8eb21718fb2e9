#pragma once
// The module's client of the platform's broadcast REST interface. Stateless: every call builds its own
// request and result, blocks until the answer, and leaves the reason of a failure in the thread's last error
// (GetBroadcastUrl returns it in its result instead).

#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSessionTypes.h"

namespace NetworkCommunication {
class CRapidJsonProto;
}

namespace BroadCastPlugin {

class CBroadcastSession {
public:
    static bool GetBroadcastPartitionList(std::vector<BroadcastPartition>& partitions);
    static bool GetAllBroadcastTerminalList(std::vector<BroadcastTerminal>& terminals);
    /// The directories below `parentID` (-1: the whole tree); each also carries its direct children.
    static bool GetMediaDirectorys(int32_t parentID, std::vector<MediaDirectory>& directories);
    static bool GetMediaFiles(int32_t directoryID, const std::string& filter, std::vector<MediaFile>& files);
    static bool GetMediaFileByID(int32_t fileID, MediaFile& file);
    static bool GetBaseConfig(BroadcastBaseConfig& config);
    static bool GetLocalCloudStorageConfig(LocalCloudStorageConfig& config);
    /// The pool of the first disk of type 4 of a storage server; empty when none or on failure.
    static std::string GetFilePoolName(int32_t storageServerID);
    static bool UploadBroadcastRecord(const BroadcastRecordInfo& record);
    /// The registered recordings that match `query`, in the order they were registered, appended to
    /// `records`; `totalCount`, when given, receives the number of every match (all pages).
    static bool GetBroadcastRecords(const BroadcastRecordQuery& query,
                                    std::vector<BroadcastRecordEntry>& records,
                                    int32_t* totalCount = nullptr);
    static bool NotifyServerBroadcastStatus(int32_t status, const std::string& resourceGuid,
                                            const std::vector<std::string>& resourceIDs,
                                            const ErrorCode& error);
    /// True when at least one speaker started; the speakers that did not are in `errors` either way.
    static bool StartBroadcastByTTS(const TTSRequestParam& request, std::vector<TTSResponseError>& errors);
    static bool GetBroadCastTTSLanuage(const std::string& loginLanguage, TTSLanguageInfo& languages);
    static bool GetBroadcastUrl(const std::vector<BroadcastUrlRequest>& requests, BroadcastUrlResult& result);
    static bool StartPromptVoice(const std::vector<std::string>& resourceGuids);
    static bool StopPromptVoice(const std::vector<std::string>& resourceGuids);
};

/// Decodes a "CommonUrlList" answer: status into `error`, addresses appended to `urls`.
bool ParseBroadUrlRawData(ErrorCode& error, std::vector<BroadcastUrlInfo>& urls, const std::string& rawData);
/// Appends the addresses of an answer whose status was checked.
void ParseBroadUrlRawData(const NetworkCommunication::CRapidJsonProto& response,
                          std::vector<BroadcastUrlInfo>& urls);
/// Hands the device login data of the addresses (resources with a device id) to the device registry.
void UpdateDeviceLogins(const std::vector<BroadcastUrlInfo>& urls);
/// Sets the method and address of `info` from the address prefix ("[sms:...]" or "[sdk:...]").
void ParseBroadcastUrl(const std::string& url, BroadcastUrlInfo& info, bool isVersion1);
/// "AdaptiveNetWork" of an access type: 0, 2, 3 and 20 as they are, 4 and anything else 0.
int32_t MapAdaptiveNetwork(int32_t networkMode);
/// The local audio cache directory ("<capture path>Audio/"), created when missing; empty on failure.
std::string GetFileSavePath();

}  // namespace BroadCastPlugin
