// The terminal, configuration and real-time broadcast endpoints. Answers are shown by their "Data" member,
// inside the envelope that CPlatformCall checks.

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"

#include <algorithm>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformCall.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformPaths.h"
#include "framework/business/UserCommonManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::kSubSystemClient;
using Tal::Base::Error::kSubSystemServer;
using Tal::Base::Error::SetLastError;

namespace {

constexpr int kPatternQuery = 2;

int32_t StorageTypeOf(const std::string& text, int32_t fallback) {
    if (text == "pStorage") {
        return kStorageTypeServer;
    }
    if (text == "localStorage") {
        return kStorageTypeLocal;
    }
    return fallback;
}

// One terminal of the terminal list, at `p`.
BroadcastTerminal ReadTerminal(const CRapidJsonProto& response, const std::string& p) {
    BroadcastTerminal terminal;
    terminal.ID = response.get_int_v(p + "ID", -1);
    terminal.Name = response.get_v(p + "BaseInfo/Name", "");
    const std::string partitionList = p + "BaseInfo/BroadcastPartitionIDList";
    const int partitionCount = response.get_cnt(partitionList);
    if (partitionCount > 0) {
        terminal.PartitionIDList.clear();
        for (int j = 1; j <= partitionCount; ++j) {
            terminal.PartitionIDList.push_back(
                response.get_int_v(partitionList + "[" + std::to_string(j) + "]", -1));
        }
    }
    terminal.PeerTaskHandling = response.get_int_v(p + "Config/PeerTaskHandling", -1);
    terminal.AudioCount = response.get_int_v(p + "Config/AudioCount", -1);
    terminal.Volume = response.get_int_v(p + "Config/Volume", -1);
    terminal.TerminalStatus = response.get_int_v(p + "TerminalStatus", -1);
    terminal.AreaID = response.get_int_v(p + "Area/AreaID", -1);
    terminal.AreaName = response.get_v(p + "Area/AreaName", "");
    return terminal;
}

void ReadAudioCompression(const std::string& codec, BroadcastBaseConfig& config) {
    if (codec == "MP3") {
        config.AudioCompressionType = kEncodeMP3;
    } else if (codec == "AAC") {
        config.AudioCompressionType = kEncodeAAC;
    } else if (codec == "G711_u") {
        config.AudioCompressionType = kEncodeG711U;
    }
}

// The access and secret key, decrypted by the scheme the platform names.
void DecryptStorageKeys(const CRapidJsonProto& response, const std::string& p,
                        LocalCloudStorageConfig& config) {
    auto* user = BusinessCommon::CUserCommonManager::Instance();
    const std::string accessKey = response.get_v(p + "AccessKey", "");
    const std::string secretKey = response.get_v(p + "SecretKey", "");
    const int secureType = response.get_int_v(p + "SecureEncryptType", -1);
    config.AccessKey.clear();
    config.SecretKey.clear();
    if (secureType == 0 || secureType == -1) {
        user->Decryption(config.AccessKey, accessKey, true);
        user->Decryption(config.SecretKey, secretKey, true);
    } else if (secureType == 1) {
        user->SensitiveInforDecryption(config.AccessKey, accessKey, false);
        user->SensitiveInforDecryption(config.SecretKey, secretKey, false);
    } else {
        BCAST_LOG(5, "[%s]Secure type is error.[%s(%d)]");
    }
}

bool SendPromptTone(const std::string& path, const std::vector<std::string>& guids, bool start) {
    CRapidJsonProto body;
    for (std::size_t i = 0; i < guids.size(); ++i) {
        body.set_v("/Request/ResourceGuids[" + std::to_string(i + 1) + "]", guids[i]);
    }
    CPlatformCall call("POST", path, body.get_str(0));
    return call.Send([&](const ErrorCode& e) {
        if (start) {
            BCAST_LOG(
                5,
                "[%s]StartPromptVoice:/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/StartPromptTone. "
                "request json [%s]. error code: [%d][%d][%s(%d)]",
                call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        } else {
            BCAST_LOG(
                5,
                "[%s]StopPromptVoice:/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/StopPromptTone. "
                "request json [%s]. error code: [%d][%d][%s(%d)]",
                call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        }
    });
}

}  // namespace

// GET TerminalManagement/Partitions
// Request: {"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":""}}}
// Answer Data: {"BroadcastPatitionList":{"BroadcastPatition":[{"ID":1,"BaseInfo":{"Name":"Main building"}}]}}
bool CBroadcastSession::GetBroadcastPartitionList(std::vector<BroadcastPartition>& partitions) {
    CRapidJsonProto body;
    body.set_v("/BroadcastPatitionRequest/SearchCriteria/BroadcastPatitionName", "");
    CPlatformCall call("GET", PlatformPaths::kPartitions, body.get_str(0), kPatternQuery);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get partition list error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) { LogInPieces(raw, false); });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition";
    for (const std::string& p : Items(response, list)) {
        BroadcastPartition partition;
        partition.ID = response.get_int_v(p + "ID", -1);
        partition.Name = response.get_v(p + "BaseInfo/Name", "");
        partitions.push_back(partition);
    }
    return true;
}

// GET TerminalManagement/BroadcastTerminals
// Request: {"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":true}}}
// Answer Data: {"BroadcastTerminalsList":{"BroadcastTerminal":[{"ID":1001,"BaseInfo":{"Name":"Hall A",
//   "BroadcastPartitionIDList":[1]},"Config":{"PeerTaskHandling":0,"AudioCount":1,"Volume":70},
//   "TerminalStatus":1,"Area":{"AreaID":10,"AreaName":"Ground floor"}}]}}
bool CBroadcastSession::GetAllBroadcastTerminalList(std::vector<BroadcastTerminal>& terminals) {
    CRapidJsonProto body;
    body.set_bool_v("/BroadcastTerminalsListRequest/SearchCriteria/AllPartition", true);
    CPlatformCall call("GET", PlatformPaths::kTerminals, body.get_str(0));
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get terminal list error. request json [%s]. error code: [%d][%d][%s(%d)]",
                      call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) { LogInPieces(raw, true); });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/BroadcastTerminalsList/BroadcastTerminal";
    for (const std::string& p : Items(response, list)) {
        terminals.push_back(ReadTerminal(response, p));
    }
    return true;
}

// GET BaseConfig
// Answer Data: {"BaseConfig":{"RealTimeBroadcastRecord":{"Record":true,"RecordStorageType":"pStorage",
//   "RecordStorageServerID":501,"RecordPoolID":"pool-records"},"StorageServerInfo":{"StorageType":"localStorage",
//   "StorageServerID":0,"PoolID":"broadcast"},"AudioCompressionType":"G711_u","BroadcastMode":2,
//   "SamplingRate":"8000","BitRate":"64","IsPromptToneActivated":true,"PromptToneMediaID":1,
//   "PromptToneDuration":2,"IsTTSDelayedPlayActivated":false,"IsMediaDelayedPlayActivated":false,
//   "TTSPlayDelayedTime":0}}
bool CBroadcastSession::GetBaseConfig(BroadcastBaseConfig& config) {
    CPlatformCall call("GET", PlatformPaths::kBaseConfig);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get config error. error code: [%d][%d][%s(%d)]", e.GetMainErrorCode(),
                      e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get Broadcast config info response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string p = "/ResponseStatus/Data/BaseConfig/";
    config.Record = response.get_bool_v(p + "RealTimeBroadcastRecord/Record", false);
    config.RecordStorageType = StorageTypeOf(
        response.get_v(p + "RealTimeBroadcastRecord/RecordStorageType", ""), config.RecordStorageType);
    config.RecordStorageServerID =
        response.get_int_v(p + "RealTimeBroadcastRecord/RecordStorageServerID", -1);
    config.RecordPoolID = response.get_v(p + "RealTimeBroadcastRecord/RecordPoolID", "");
    config.StorageType =
        StorageTypeOf(response.get_v(p + "StorageServerInfo/StorageType", ""), config.StorageType);
    config.StorageServerID = response.get_int_v(p + "StorageServerInfo/StorageServerID", -1);
    config.PoolID = response.get_v(p + "StorageServerInfo/PoolID", "");
    ReadAudioCompression(response.get_v(p + "AudioCompressionType", ""), config);
    config.BroadcastMode = response.get_int_v(p + "BroadcastMode", -1);
    config.SamplingRate = response.get_v(p + "SamplingRate", "");
    config.BitRate = response.get_v(p + "BitRate", "");
    config.IsPromptToneActivated = response.get_bool_v(p + "IsPromptToneActivated", false);
    config.PromptToneMediaID = response.get_int_v(p + "PromptToneMediaID", -1);
    config.PromptToneDuration = response.get_int_v(p + "PromptToneDuration", -1);
    config.IsTTSDelayedPlayActivated = response.get_bool_v(p + "IsTTSDelayedPlayActivated", false);
    config.IsMediaDelayedPlayActivated = response.get_bool_v(p + "IsMediaDelayedPlayActivated", false);
    config.TTSPlayDelayedTime = response.get_int_v(p + "TTSPlayDelayedTime", -1);
    return true;
}

// GET /DXAPI/Galewing/Platform/V1/Storage/LocalCloudStorageConfig
// Answer Data:
// {"StorageConfig":{"EnableHttps":0,"EnableWan":1,"AccessKey":"<encrypted>","SecretKey":"<encrypted>",
//   "SecureEncryptType":1,"ServerIp":"..","WanServerIp":"..","ObjectUploadPort":..,"ObjectDownloadPort":..,
//   "WanObjectUploadPort":..,"HttpsObjectUploadPort":..,"HttpsWanObjectDownloadPort":..,"PoolName":"broadcast"}}
// A client on the WAN reads the "Wan" fields, and needs the platform to have opened its WAN port.
bool CBroadcastSession::GetLocalCloudStorageConfig(LocalCloudStorageConfig& config) {
    CPlatformCall call("GET", PlatformPaths::kStorageConfig);
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get local cloud storage config error. error code: [%d][%d][%s(%d)]",
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) { BCAST_LOG(3, "[%s]Get local storage info: %s.[%s(%d)]", raw.c_str()); });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string p = "/ResponseStatus/Data/StorageConfig/";
    config.EnableHttps = response.get_int_v(p + "EnableHttps", 0) == 1;
    const bool enableWan = response.get_int_v(p + "EnableWan", 0) == 1;

    auto* user = BusinessCommon::CUserCommonManager::Instance();
    std::string domain;
    user->GetClientDomain(domain);
    if (domain == "WAN" && !enableWan) {
        SetLastError(ErrorCode(kSubSystemClient, kModuleBroadcast, kErrorWanPortClosed));
        BCAST_LOG(
            5, "[%s]Client domain is on \"WAN\", but but the platform has not opened the wan port.[%s(%d)]");
        return false;
    }
    const std::string infix = domain == "WAN" ? "Wan" : "";
    DecryptStorageKeys(response, p, config);

    std::string address;
    int port = 0;
    std::string userName;
    if (user->GetLoginInfo(address, port, userName)) {
        config.ServerIp = address;
    } else {
        config.ServerIp = response.get_v(p + infix + "ServerIp", "");
    }
    if (!config.EnableHttps) {
        BCAST_LOG(3, "[%s]Enable http model to upload or download file to server local storage.[%s(%d)]");
        config.ObjectUploadPort = response.get_int_v(p + infix + "ObjectUploadPort", -1);
        config.ObjectDownloadPort = response.get_int_v(p + infix + "ObjectDownloadPort", -1);
    } else {
        BCAST_LOG(3, "[%s]Enable https model to upload or download file to server local storage.[%s(%d)]");
        config.ObjectUploadPort = response.get_int_v(p + "Https" + infix + "ObjectUploadPort", -1);
        config.ObjectDownloadPort = response.get_int_v(p + "Https" + infix + "ObjectDownloadPort", -1);
    }
    config.PoolName = response.get_v(p + "PoolName", "");
    return true;
}

// GET /DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/<storage server id>
// Answer Data:
// {"HDDList":{"Count":2,"HDD":[{"PoolType":1,"PoolName":"pool-video"},{"PoolType":4,"PoolName":".."}]}}
std::string CBroadcastSession::GetFilePoolName(int32_t storageServerID) {
    CPlatformCall call("GET", PlatformPaths::kRecordServerDisk + std::to_string(storageServerID));
    const bool ok = call.Send(
        [&](const ErrorCode& e) {
            BCAST_LOG(5, "[%s]Get record server disk error. error code: [%d][%d][%s(%d)]",
                      e.GetMainErrorCode(), e.GetSubErrorCode());
        },
        [](const std::string& raw) {
            BCAST_LOG(3, "[%s]Get file pool name response : %s.[%s(%d)]", raw.c_str());
        });
    if (!ok) {
        return std::string();
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string p = "/ResponseStatus/Data/HDDList/";
    // "Count" is what the platform says it lists; only disks it really lists are looked at, so that a
    // wrong count cannot keep the loop going.
    const int count = std::min(response.get_int_v(p + "Count", 0), response.get_cnt(p + "HDD"));
    for (int i = 1; i <= count; ++i) {
        if (response.get_int_v(Item(p + "HDD", i) + "PoolType", -1) == 4) {
            return response.get_v(Item(p + "HDD", i) + "PoolName", "");
        }
    }
    return std::string();
}

// PUT RealTimeBroadcast/UpdateBroadcastStatus
// Request: {"ResourceGuid":"..","ResourceIDs":"1003,1004","ResourceType":1027,"Status":1,"ErrorModule":0,
//   "ErrorCode":0}; Status 1 started, 2 start failed, 3 stopped.
bool CBroadcastSession::NotifyServerBroadcastStatus(int32_t status, const std::string& resourceGuid,
                                                    const std::vector<std::string>& resourceIDs,
                                                    const ErrorCode& error) {
    std::string ids;
    for (std::size_t i = 0; i < resourceIDs.size(); ++i) {
        ids += (i == 0 ? "" : ",") + resourceIDs[i];
    }
    CRapidJsonProto body;
    body.set_v("/ResourceGuid", resourceGuid);
    body.set_v("/ResourceIDs", ids);
    body.set_v("/ResourceType", ResourceManager::kSourceTypeBroadcastElement);
    body.set_v("/Status", status);
    body.set_v("/ErrorModule", error.GetMainErrorCode());
    body.set_v("/ErrorCode", error.GetSubErrorCode());
    CPlatformCall call("PUT", PlatformPaths::kUpdateStatus, body.get_str(0));
    return call.Send([&](const ErrorCode& e) {
        BCAST_LOG(5, "[%s]update broadcast status error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
    });
}

// POST RealTimeBroadcast/TTS
// Request: {"RealTimeBroadcastTTSRequest":{"ElementList":{"Element":[{"ID":1001}]},"PlayMode":0,
//   "AssignPlaybackDuration":"","CustomContent":"text","PlayType":true,"Language":"en-US"}}
// Answer Data: {"ErrorList":[{"ElementID":1007,"ElementName":"Yard horn","ErrorModule":30,"ErrorCode":7}]}
bool CBroadcastSession::StartBroadcastByTTS(const TTSRequestParam& tts,
                                            std::vector<TTSResponseError>& errors) {
    const std::string p = "/RealTimeBroadcastTTSRequest/";
    CRapidJsonProto body;
    for (std::size_t i = 0; i < tts.elementIDs.size(); ++i) {
        body.set_v(p + "ElementList/Element[" + std::to_string(i + 1) + "]/ID", tts.elementIDs[i]);
    }
    body.set_v(p + "PlayMode", tts.PlayMode);
    body.set_v(p + "AssignPlaybackDuration", tts.AssignPlaybackDuration);
    body.set_v(p + "CustomContent", tts.CustomContent);
    body.set_bool_v(p + "PlayType", tts.PlayType);
    body.set_v(p + "Language", tts.Language);
    CPlatformCall call("POST", PlatformPaths::kTTS, body.get_str(0));
    const bool ok = call.Send([&](const ErrorCode& e) {
        BCAST_LOG(5, "[%s]start broadcast by tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
    });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/ErrorList";
    const int count = response.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        const std::string e = Item(list, i);
        TTSResponseError failed;
        failed.ElementID = response.get_int_v(e + "ElementID", -1);
        failed.ElementName = response.get_v(e + "ElementName", "");
        failed.Error = ErrorCode(kSubSystemServer, response.get_int_v(e + "ErrorModule", -1),
                                 response.get_int_v(e + "ErrorCode", -1));
        errors.push_back(failed);
    }
    return static_cast<std::size_t>(count) < tts.elementIDs.size();
}

// GET GetLanguage
// Request: {"LogInLanguage":"en_US"}
// Answer Data: {"SupportLanguage":[{"LanguageKey":"en-US","LanguageValue":"English (United States)"}],
//   "DisplayLanguageKey":"en-US","DisplayLanguageValue":"English (United States)"}
bool CBroadcastSession::GetBroadCastTTSLanuage(const std::string& loginLanguage, TTSLanguageInfo& languages) {
    CRapidJsonProto body;
    body.set_v("/LogInLanguage", loginLanguage);
    CPlatformCall call("GET", PlatformPaths::kLanguage, body.get_str(0));
    const bool ok = call.Send([&](const ErrorCode& e) {
        BCAST_LOG(5, "[%s]GetBroadCastTTSLanuage tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
    });
    if (!ok) {
        return false;
    }
    const CRapidJsonProto& response = call.Answer();
    const std::string list = "/ResponseStatus/Data/SupportLanguage";
    for (const std::string& p : Items(response, list)) {
        languages.Languages[response.get_v(p + "LanguageKey", "")] = response.get_v(p + "LanguageValue", "");
    }
    languages.DisplayLanguageKey = response.get_v("/ResponseStatus/Data/DisplayLanguageKey", "");
    languages.DisplayLanguageValue = response.get_v("/ResponseStatus/Data/DisplayLanguageValue", "");
    return true;
}

// POST RealTimeBroadcast/StartPromptTone
// Request: {"Request":{"ResourceGuids":["<guid>"]}}
bool CBroadcastSession::StartPromptVoice(const std::vector<std::string>& resourceGuids) {
    return SendPromptTone(PlatformPaths::kStartPrompt, resourceGuids, true);
}

// POST RealTimeBroadcast/StopPromptTone
// Request: {"Request":{"ResourceGuids":["<guid>"]}}
bool CBroadcastSession::StopPromptVoice(const std::vector<std::string>& resourceGuids) {
    return SendPromptTone(PlatformPaths::kStopPrompt, resourceGuids, false);
}

}  // namespace BroadCastPlugin
