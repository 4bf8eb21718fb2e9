// Broadcast configuration, TTS languages and where media files are stored.

#include <algorithm>

#include "platform/server/handlers/HandlerUtil.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/json/Json.h"

namespace Platform {

namespace {

// Data: {"BaseConfig":{"RealTimeBroadcastRecord":{"Record":true,"RecordStorageType":"pStorage",
//   "RecordStorageServerID":501,"RecordPoolID":"pool-records"},"StorageServerInfo":{"StorageType":"localStorage",
//   "StorageServerID":0,"PoolID":"broadcast"},"AudioCompressionType":"G711_u","BroadcastMode":2,
//   "SamplingRate":"8000","BitRate":"64","IsPromptToneActivated":true,"PromptToneMediaID":1,
//   "PromptToneDuration":2,"IsTTSDelayedPlayActivated":false,"IsMediaDelayedPlayActivated":false,
//   "TTSPlayDelayedTime":0}}
RestResponse GetBaseConfig(const RestRequest&, PlatformContext& context) {
    const BaseConfig& c = context.fixture.baseConfig;
    Json::CWriter w;
    w.BeginObject().BeginObject("BaseConfig");
    w.BeginObject("RealTimeBroadcastRecord")
        .Bool("Record", c.record)
        .String("RecordStorageType", c.recordStorageType);
    w.Int("RecordStorageServerID", c.recordStorageServerId)
        .String("RecordPoolID", c.recordPoolId)
        .EndObject();
    w.BeginObject("StorageServerInfo")
        .String("StorageType", c.storageType)
        .Int("StorageServerID", c.storageServerId);
    w.String("PoolID", c.poolId).EndObject();
    w.String("AudioCompressionType", c.audioCompressionType).Int("BroadcastMode", c.broadcastMode);
    w.String("SamplingRate", c.samplingRate).String("BitRate", c.bitRate);
    w.Bool("IsPromptToneActivated", c.isPromptToneActivated).Int("PromptToneMediaID", c.promptToneMediaId);
    w.Int("PromptToneDuration", c.promptToneDuration);
    w.Bool("IsTTSDelayedPlayActivated", c.isTTSDelayedPlayActivated);
    w.Bool("IsMediaDelayedPlayActivated", c.isMediaDelayedPlayActivated);
    w.Int("TTSPlayDelayedTime", c.ttsPlayDelayedTime);
    w.EndObject().EndObject();
    return Ok(w.Text());
}

// Request: {"LogInLanguage":"en_US"}
// Data: {"SupportLanguage":[{"LanguageKey":"en-US","LanguageValue":"English (United States)"}],
//   "DisplayLanguageKey":"en-US","DisplayLanguageValue":"English (United States)"}
RestResponse GetLanguage(const RestRequest&, const rapidjson::Document& body, PlatformContext& context) {
    const std::string login = Json::GetString(body, "LogInLanguage");
    const std::vector<TtsLanguage>& languages = context.fixture.ttsLanguages;
    const TtsLanguage* display = languages.empty() ? nullptr : &languages.front();
    for (const TtsLanguage& l : languages) {
        if (std::find(l.loginLanguages.begin(), l.loginLanguages.end(), login) != l.loginLanguages.end()) {
            display = &l;
            break;
        }
    }
    Json::CWriter w;
    w.BeginObject().BeginArray("SupportLanguage");
    for (const TtsLanguage& l : languages) {
        w.BeginObject().String("LanguageKey", l.key).String("LanguageValue", l.value).EndObject();
    }
    w.EndArray();
    w.String("DisplayLanguageKey", display != nullptr ? display->key : "");
    w.String("DisplayLanguageValue", display != nullptr ? display->value : "");
    w.EndObject();
    return Ok(w.Text());
}

// Data: {"StorageConfig":{"EnableHttps":0,"EnableWan":1,"AccessKey":"<encrypted>","SecretKey":"<encrypted>",
//   "SecureEncryptType":1,"ServerIp":"..","WanServerIp":"..","ObjectUploadPort":..,"ObjectDownloadPort":..,
//   "WanObjectUploadPort":..,"WanObjectDownloadPort":..,"HttpsObjectUploadPort":..,"HttpsObjectDownloadPort":..,
//   "HttpsWanObjectUploadPort":..,"HttpsWanObjectDownloadPort":..,"PoolName":"broadcast"}}
RestResponse GetLocalCloudStorage(const RestRequest& request, PlatformContext& context) {
    const LocalCloudStorage& s = context.fixture.storage;
    std::string accessKey;
    std::string secretKey;
    if (!EncryptForSession(request, s.secureEncryptType, s.accessKey, accessKey) ||
        !EncryptForSession(request, s.secureEncryptType, s.secretKey, secretKey)) {
        return PlatformError(kErrInternal, "cannot encrypt the storage keys", 500);
    }
    Json::CWriter w;
    w.BeginObject().BeginObject("StorageConfig");
    w.Int("EnableHttps", s.enableHttps).Int("EnableWan", s.enableWan);
    w.String("AccessKey", accessKey)
        .String("SecretKey", secretKey)
        .Int("SecureEncryptType", s.secureEncryptType);
    w.String("ServerIp", s.serverIp).String("WanServerIp", s.wanServerIp);
    w.Int("ObjectUploadPort", s.objectUploadPort).Int("ObjectDownloadPort", s.objectDownloadPort);
    w.Int("WanObjectUploadPort", s.wanObjectUploadPort).Int("WanObjectDownloadPort", s.wanObjectDownloadPort);
    w.Int("HttpsObjectUploadPort", s.httpsObjectUploadPort)
        .Int("HttpsObjectDownloadPort", s.httpsObjectDownloadPort);
    w.Int("HttpsWanObjectUploadPort", s.httpsWanObjectUploadPort);
    w.Int("HttpsWanObjectDownloadPort", s.httpsWanObjectDownloadPort);
    w.String("PoolName", s.poolName);
    w.EndObject().EndObject();
    return Ok(w.Text());
}

// Data: {"HDDList":{"Count":2,"HDD":[{"PoolType":1,"PoolName":"pool-video"},{"PoolType":4,"PoolName":".."}]}}
RestResponse GetRecordServerDisks(const RestRequest& request, PlatformContext& context) {
    RestResponse error;
    const StorageServer* server = FindCaptured(
        request, "storage server", [&context](int id) { return context.fixture.FindStorageServer(id); },
        error);
    if (server == nullptr) {
        return error;
    }
    Json::CWriter w;
    w.BeginObject().BeginObject("HDDList").Int("Count", static_cast<int64_t>(server->disks.size()));
    w.BeginArray("HDD");
    for (const StorageDisk& d : server->disks) {
        w.BeginObject().Int("PoolType", d.poolType).String("PoolName", d.poolName).EndObject();
    }
    w.EndArray().EndObject().EndObject();
    return Ok(w.Text());
}

// How a storage server is reached.
// Request: {"SiteID":0,"DeviceID":501,"DeviceType":2}
// Data:
// {"ErrorCode":0,"DeviceID":501,"AccessType":0,"ProtocolType":"http","AccessPath":"","DeviceIP":"127.0.0.1",
//   "AccessKey":"<encrypted>","SecretKey":"<encrypted>","SecureEncryptType":1,"ObjectPort":18657}
RestResponse GetDeviceAccessWay(const RestRequest& request, const rapidjson::Document& body,
                                PlatformContext& context) {
    const rapidjson::Value* idNode = Json::Find(body, "DeviceID");
    if (!Json::IsInt(idNode)) {
        return PlatformError(kErrBadRequest, "\"DeviceID\" must be an integer");
    }
    const int deviceType = static_cast<int>(Json::GetInt(body, "DeviceType", kDeviceTypeStorageServer));
    if (deviceType != kDeviceTypeStorageServer) {
        return PlatformError(kErrUnsupported,
                             "access ways are served for storage servers (device type 2) only");
    }
    const int id = static_cast<int>(Json::ToInt(idNode, 0));
    const StorageServer* server = context.fixture.FindStorageServer(id);
    if (server == nullptr) {
        return PlatformError(kErrNotFound, "no storage server " + std::to_string(id));
    }
    const int secureType = context.registry.SecureEncryptType();
    std::string accessKey;
    std::string secretKey;
    if (!EncryptForSession(request, secureType, server->accessKey, accessKey) ||
        !EncryptForSession(request, secureType, server->secretKey, secretKey)) {
        return PlatformError(kErrInternal, "cannot encrypt the access keys", 500);
    }
    Json::CWriter w;
    w.BeginObject().Int("ErrorCode", 0).Int("DeviceID", server->id).Int("AccessType", server->accessType);
    w.String("ProtocolType", server->protocol).String("AccessPath", server->accessPath);
    w.String("DeviceIP", server->deviceIp).String("AccessKey", accessKey).String("SecretKey", secretKey);
    w.Int("SecureEncryptType", secureType).Int("ObjectPort", server->objectPort);
    w.EndObject();
    return Ok(w.Text());
}

}  // namespace

void AddConfigRoutes(CRouter& router, PlatformContext& context) {
    AddRoutes(
        router, context,
        {{"GET", PluginPath("/BaseConfig"), RouteAccess::kSession, GetBaseConfig},
         {"GET", PluginPath("/GetLanguage"), RouteAccess::kSession, WithBody<GetLanguage>},
         {"GET", PlatformPath("/Storage/LocalCloudStorageConfig"), RouteAccess::kSession,
          GetLocalCloudStorage},
         {"GET", std::string(kPlatformV0) + "/SAM/Status/RecordServerDisk/{int}", RouteAccess::kSession,
          GetRecordServerDisks},
         {"POST", PlatformPath("/DeviceAccessWay"), RouteAccess::kSession, WithBody<GetDeviceAccessWay>}});
}

}  // namespace Platform
