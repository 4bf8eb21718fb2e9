// The module's REST session against the real reference platform over loopback.

#include <gtest/gtest.h>

#include <memory>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "PlatformProcess.h"
#include "RestClient.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/UserCommonManager.h"
#include "framework/business/secret/SecretCipher.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/NetlibWrapper.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/resource/ResourceManager.h"

using namespace BroadCastPlugin;
using NetworkCommunication::CRapidJsonProto;
using PlatformTest::CPlatformProcess;
using PlatformTest::CRestClient;
using PlatformTest::RestReply;
using Tal::Base::CLogCapture;

namespace {

const std::string kPlugin = "/DXAPI/Galewing/BroadcastPlugin/V1";

// One platform for the suite; each test resets its logs and faults.
class SessionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        platform_ = new CPlatformProcess();
        // Without object stores: these tests read the fixture's storage addresses and register recordings
        // that were never uploaded.
        ASSERT_TRUE(platform_->Start({"--fixture", PlatformTest::DemoFixture(), "--object-store", "off"}))
            << platform_->Error();
        CRestClient client(platform_->RestUrl());
        std::string error;
        RestReply login;
        ASSERT_TRUE(client.Login(PlatformTest::kUser, PlatformTest::kPassword, error, &login)) << error;
        const std::string url = platform_->RestUrl();  // http://127.0.0.1:PORT
        NetworkCommunication::ServerSession session;
        session.host = "127.0.0.1";
        session.port = std::stoi(url.substr(url.rfind(':') + 1));
        session.token = client.Token();
        NetworkCommunication::CNetCommManager::Instance()->SetSession(session);
        BusinessCommon::LoginInfo info;
        info.address = session.host;
        info.port = session.port;
        info.userName = PlatformTest::kUser;
        info.token = session.token;
        info.sessionKey = login.Str("/ResponseStatus/Data/SessionKey");
        BusinessCommon::CUserCommonManager::Instance()->SetLoginInfo(info);
        captureDir_ = PlatformTest::MakeTempDir("session-capture");
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(captureDir_);
    }
    static void TearDownTestSuite() {
        NetworkCommunication::CNetCommManager::Instance()->ClearSession();
        BusinessCommon::CUserCommonManager::Instance()->ClearLoginInfo();
        EXPECT_EQ(platform_->Stop(), 0) << platform_->Stderr();
        delete platform_;
        platform_ = nullptr;
    }
    void SetUp() override {
        Control("POST", "/reset");
        Tal::Base::Error::SetLastError(ErrorCode());
        BusinessCommon::CUserCommonManager::Instance()->SetClientDomain("LAN");
    }
    static RestReply Control(const std::string& method, const std::string& path,
                             const std::string& body = "") {
        CRestClient control(platform_->RestUrl());
        return control.Send(method, "/_control" + path, body);
    }
    // Makes the platform answer one request with exactly this body (a "malformed" fault carrying any text).
    static void Answer(const std::string& method, const std::string& path, const std::string& body) {
        CRapidJsonProto fault;
        fault.set_v("/Method", method);
        fault.set_v("/Path", path);
        fault.set_v("/Kind", "malformed");
        fault.set_v("/Body", body);
        fault.set_v("/Count", 1);
        ASSERT_EQ(Control("POST", "/fault", fault.get_str(0)).ErrorCode(), 0);
    }
    static void Fault(const std::string& json) { ASSERT_EQ(Control("POST", "/fault", json).ErrorCode(), 0); }
    // The body of the last request the platform saw for a path.
    static CRapidJsonProto LastRequestBody(const std::string& path) {
        RestReply log = Control("GET", "/requests?path=" + path);
        const rapidjson::Value* requests = log.Node("/ResponseStatus/Data/Requests");
        CRapidJsonProto body;
        if (requests != nullptr && requests->IsArray() && requests->Size() > 0) {
            body.set_str((*requests)[requests->Size() - 1]["Body"].GetString());
        }
        return body;
    }
    static std::string Encrypt(const std::string& plain, bool sensitive) {
        BusinessCommon::CSecretCipher cipher(
            BusinessCommon::CUserCommonManager::Instance()->GetLogin().sessionKey);
        std::string text;
        EXPECT_TRUE(sensitive ? cipher.SensitiveEncrypt(plain, text) : cipher.Encrypt(plain, text));
        return text;
    }
    static ErrorCode LastError() { return Tal::Base::Error::GetLastError(); }

    static CPlatformProcess* platform_;
    static std::string captureDir_;
};

CPlatformProcess* SessionTest::platform_ = nullptr;
std::string SessionTest::captureDir_;

std::string Envelope(const std::string& data) {
    return R"({"ResponseStatus":{"ErrorModule":0,"ErrorCode":0,"CascadingErrorInfo":"","Data":)" + data +
           "}}";
}

}  // namespace

TEST_F(SessionTest, BaseConfigLanguagesAndTheCodecText) {
    BroadcastBaseConfig config;
    ASSERT_TRUE(CBroadcastSession::GetBaseConfig(config)) << LastError().ToString();
    EXPECT_TRUE(config.Record);
    EXPECT_EQ(config.RecordStorageType, 1) << "pStorage";
    EXPECT_EQ(config.RecordStorageServerID, 501);
    EXPECT_EQ(config.RecordPoolID, "pool-records");
    EXPECT_EQ(config.StorageType, 0) << "localStorage";
    EXPECT_EQ(config.AudioCompressionType, kEncodeG711U);
    EXPECT_EQ(config.BroadcastMode, 2);
    EXPECT_TRUE(config.IsPromptToneActivated);
    EXPECT_EQ(config.PromptToneMediaID, 1);
    EXPECT_EQ(config.PromptToneDuration, 2);

    // A codec text other than the three known ones leaves the field as it was.
    Answer("GET", kPlugin + "/BaseConfig", Envelope(R"({"BaseConfig":{"AudioCompressionType":"G711_a"}})"));
    BroadcastBaseConfig kept;
    kept.AudioCompressionType = kEncodeMP3;
    ASSERT_TRUE(CBroadcastSession::GetBaseConfig(kept));
    EXPECT_EQ(kept.AudioCompressionType, kEncodeMP3);
    EXPECT_EQ(kept.RecordStorageType, 0) << "an unknown storage text keeps the default";

    TTSLanguageInfo languages;
    ASSERT_TRUE(CBroadcastSession::GetBroadCastTTSLanuage("en_US", languages)) << LastError().ToString();
    EXPECT_EQ(languages.Languages.size(), 3u);
    EXPECT_EQ(languages.Languages.count("de-DE"), 1u);
    EXPECT_FALSE(languages.DisplayLanguageKey.empty());
    EXPECT_EQ(LastRequestBody(kPlugin + "/GetLanguage").get_v("/LogInLanguage"), "en_US")
        << "GET with a body";
}

TEST_F(SessionTest, EnvelopeErrorsEmptyAndMalformedBodiesAndTransportFailures) {
    CLogCapture log;
    BroadcastBaseConfig config;
    Fault(R"({"Method":"GET","Path":"/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig","Kind":"error",)"
          R"("ErrorModule":30,"ErrorCode":6,"CascadingErrorInfo":"disk full","Count":1})");
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    ErrorCode server(1, 30, 6);
    server.SetCasadingErrorInfo("disk full");
    EXPECT_EQ(LastError(), server);

    Answer("GET", kPlugin + "/BaseConfig", "{\"ResponseStatus\":{\"ErrorCo");
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(LastError(), ErrorCode(1, 20, 2001)) << "a malformed body";
    Control("POST", "/reset");

    Fault(
        R"({"Method":"GET","Path":"/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig","Kind":"empty","Count":1})");
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(LastError(), ErrorCode(1, 20, 2001)) << "an empty body does not parse";

    // An empty JSON object is well-formed: its codes read -1, which is not 0.
    Answer("GET", kPlugin + "/BaseConfig", "{}");
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(LastError(), ErrorCode(1, -1, -1));
    Control("POST", "/reset");

    Fault(
        R"({"Method":"GET","Path":"/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig","Kind":"http","HttpStatus":500,"Count":1})");
    log.Clear();
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(LastError(), ErrorCode(2, NetworkCommunication::kModuleHttp, 500));
    EXPECT_TRUE(log.Contains("Get config error. error code: [12][500]", 5));

    // Slow past the time-out: the call ends with the transport's time-out, without hanging.
    NetworkCommunication::NetlibWrapper::SetRequestTimeoutMs(500);
    Fault(
        R"({"Method":"GET","Path":"/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig","Kind":"delay","DelayMs":3000,"Count":1})");
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(LastError(), ErrorCode(2, NetworkCommunication::kModuleTransport, 28));
    NetworkCommunication::NetlibWrapper::SetRequestTimeoutMs(0);
}

TEST_F(SessionTest, StorageConfigurationByDomainSchemeAndHttps) {
    LocalCloudStorageConfig config;
    ASSERT_TRUE(CBroadcastSession::GetLocalCloudStorageConfig(config)) << LastError().ToString();
    EXPECT_EQ(config.AccessKey, "BCASTDEMOACCESSKEY01") << "decrypted with the newer scheme";
    EXPECT_EQ(config.SecretKey, "demo/Secret+Key/2026");
    EXPECT_EQ(config.ServerIp, "127.0.0.1") << "the address the client logged in to";
    EXPECT_EQ(config.ObjectUploadPort, 18655);
    EXPECT_EQ(config.PoolName, "broadcast");

    const std::string path = "/DXAPI/Galewing/Platform/V1/Storage/LocalCloudStorageConfig";
    const std::string oldKey = Encrypt("old-access", false);
    Answer("GET", path,
           Envelope(R"({"StorageConfig":{"EnableHttps":1,"EnableWan":1,"SecureEncryptType":0,"AccessKey":")" +
                    oldKey +
                    R"(","SecretKey":"","WanObjectDownloadPort":1,"HttpsWanObjectDownloadPort":28656,)"
                    R"("HttpsWanObjectUploadPort":28657,"PoolName":"p"}})"));
    BusinessCommon::CUserCommonManager::Instance()->SetClientDomain("WAN");
    LocalCloudStorageConfig wan;
    ASSERT_TRUE(CBroadcastSession::GetLocalCloudStorageConfig(wan));
    EXPECT_TRUE(wan.EnableHttps);
    EXPECT_EQ(wan.ObjectDownloadPort, 28656) << "https on the WAN reads HttpsWanObjectDownloadPort";
    EXPECT_EQ(wan.ObjectUploadPort, 28657);
    EXPECT_EQ(wan.AccessKey, "old-access") << "SecureEncryptType 0: the older scheme";

    CLogCapture log;
    Answer("GET", path, Envelope(R"({"StorageConfig":{"EnableWan":0,"AccessKey":"x"}})"));
    EXPECT_FALSE(CBroadcastSession::GetLocalCloudStorageConfig(wan));
    EXPECT_EQ(LastError(), ErrorCode(2, 20, 2002));
    EXPECT_TRUE(
        log.Contains("Client domain is on \"WAN\", but but the platform has not opened the wan port.", 5));

    BusinessCommon::CUserCommonManager::Instance()->SetClientDomain("LAN");
    Control("POST", "/reset");
    Answer("GET", path,
           Envelope(R"({"StorageConfig":{"SecureEncryptType":2,"AccessKey":"abc","SecretKey":"def"}})"));
    LocalCloudStorageConfig odd;
    EXPECT_TRUE(CBroadcastSession::GetLocalCloudStorageConfig(odd)) << "an unknown scheme still succeeds";
    EXPECT_TRUE(log.Contains("Secure type is error.", 5));
    EXPECT_TRUE(odd.AccessKey.empty());
    EXPECT_TRUE(odd.SecretKey.empty());
}

TEST_F(SessionTest, PartitionsTerminalsAndPools) {
    std::vector<BroadcastPartition> partitions;
    ASSERT_TRUE(CBroadcastSession::GetBroadcastPartitionList(partitions)) << LastError().ToString();
    EXPECT_EQ(partitions.size(), 3u);
    EXPECT_EQ(LastRequestBody(kPlugin + "/TerminalManagement/Partitions")
                  .get_v("/BroadcastPatitionRequest/SearchCriteria/BroadcastPatitionName", "<none>"),
              "");

    std::vector<BroadcastTerminal> terminals;
    ASSERT_TRUE(CBroadcastSession::GetAllBroadcastTerminalList(terminals)) << LastError().ToString();
    ASSERT_EQ(terminals.size(), 7u);
    for (const BroadcastTerminal& t : terminals) {
        ASSERT_FALSE(t.PartitionIDList.empty()) << t.ID;
        if (t.ID == 1007) {
            EXPECT_EQ(t.PartitionIDList, std::vector<int32_t>{-1}) << "outside every partition";
            EXPECT_EQ(t.TerminalStatus, 0);
        }
        if (t.ID == 1001) {
            EXPECT_EQ(t.Name, "Hall A");
            EXPECT_EQ(t.Volume, 70);
            EXPECT_EQ(t.AreaName, "Ground floor");
        }
    }
    EXPECT_EQ(CBroadcastSession::GetFilePoolName(501), "pool-records") << "the first disk of type 4";
    EXPECT_EQ(CBroadcastSession::GetFilePoolName(502), "") << "no disk of type 4";
    EXPECT_EQ(CBroadcastSession::GetFilePoolName(999), "") << "unknown server";
}

TEST_F(SessionTest, MediaDirectoriesTreeFilesAndLocalPaths) {
    std::vector<MediaDirectory> directories;
    ASSERT_TRUE(CBroadcastSession::GetMediaDirectorys(-1, directories)) << LastError().ToString();
    CRapidJsonProto body = LastRequestBody(kPlugin + "/MediaManagement/FileDirectorys");
    EXPECT_EQ(body.get_int_v("/FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID", 0), -1);
    EXPECT_EQ(body.get_int_v("/FileDirectoryRequest/SearchCriteria/DepthTraversal", 0), 1);
    EXPECT_TRUE(body.is_exist("/FileDirectoryRequest/SearchCriteria/FileDirectoryName"));
    ASSERT_EQ(directories.size(), 5u) << "every directory stays at top level";
    for (const MediaDirectory& d : directories) {
        std::vector<int32_t> children;
        for (const MediaDirectory& c : d.Children) {
            children.push_back(c.ID);
            EXPECT_EQ(c.ParentID, d.ID);
        }
        if (d.ID == 2) {
            EXPECT_EQ(children, (std::vector<int32_t>{3, 4}));
            EXPECT_TRUE(d.HasChildDirectory);
        } else if (d.ID == 3) {
            EXPECT_EQ(children, std::vector<int32_t>{5});
        } else {
            EXPECT_TRUE(children.empty()) << d.ID;
        }
    }

    std::vector<MediaDirectory> below;
    ASSERT_TRUE(CBroadcastSession::GetMediaDirectorys(2, below));
    body = LastRequestBody(kPlugin + "/MediaManagement/FileDirectorys");
    EXPECT_EQ(body.get_int_v("/FileDirectoryRequest/SearchCriteria/ParentFileDirectoryID", 0), 2);
    EXPECT_FALSE(body.is_exist("/FileDirectoryRequest/SearchCriteria/DepthTraversal"));
    EXPECT_FALSE(body.is_exist("/FileDirectoryRequest/SearchCriteria/FileDirectoryName"));

    std::vector<MediaFile> files;
    ASSERT_TRUE(CBroadcastSession::GetMediaFiles(-1, "", files)) << LastError().ToString();
    ASSERT_GE(files.size(), 5u);
    EXPECT_EQ(LastRequestBody(kPlugin + "/MediaManagement/MediaFiles")
                  .get_int_v("/MediaFilesListRequest/PageIndex", 0),
              -1);
    MediaFile bell;
    ASSERT_TRUE(CBroadcastSession::GetMediaFileByID(1, bell)) << LastError().ToString();
    EXPECT_EQ(bell.Name, "bell");
    EXPECT_EQ(bell.Format, "wav");
    EXPECT_EQ(bell.LocalPath, captureDir_ + "/Audio/bell.wav");
    bool sawServerFile = false;
    for (const MediaFile& f : files) {
        sawServerFile = sawServerFile || f.StorageType == 1;
    }
    EXPECT_TRUE(sawServerFile) << "one file lives on a storage server (pStorage)";
    MediaFile missing;
    EXPECT_FALSE(CBroadcastSession::GetMediaFileByID(424242, missing));
    EXPECT_EQ(LastError().GetSubSystemErrorCode(), 1);
    EXPECT_EQ(LastError().GetMainErrorCode(), 30);
}

TEST_F(SessionTest, RecordStatusTtsAndPromptToneBodies) {
    BroadcastRecordInfo record;
    record.ElementIDs = {1001, 1003};
    record.StartTime = "2026-11-22 10:00:00";
    record.FileName = "rec.2024.mp3";
    record.Format = "mp3";
    record.Size = 5000;
    record.StorageType = 1;
    record.StorageServerID = 501;
    record.StoreUrl = "http://s/records/rec.2024.mp3";
    ASSERT_TRUE(CBroadcastSession::UploadBroadcastRecord(record)) << LastError().ToString();
    CRapidJsonProto body = LastRequestBody(kPlugin + "/RealTimeBroadcast/Record");
    EXPECT_EQ(body.get_v("/RealTimeBroadcastRecordsRequest/MediaFile/Name"), "rec.2024");
    EXPECT_EQ(body.get_int_v("/RealTimeBroadcastRecordsRequest/MediaFile/size", -1), 4)
        << "kilobytes, rounded down";
    EXPECT_EQ(body.get_int_v("/RealTimeBroadcastRecordsRequest/ElementList/Element[2]/ID", -1), 1003);
    record.FileName = "rec";
    ASSERT_TRUE(CBroadcastSession::UploadBroadcastRecord(record));
    EXPECT_EQ(LastRequestBody(kPlugin + "/RealTimeBroadcast/Record")
                  .get_v("/RealTimeBroadcastRecordsRequest/MediaFile/Name"),
              "rec");

    TTSRequestParam tts;
    tts.elementIDs = {1001, 1002, 1007};
    tts.CustomContent = "Hello";
    tts.Language = "en-US";
    tts.PlayType = true;
    std::vector<TTSResponseError> errors;
    EXPECT_TRUE(CBroadcastSession::StartBroadcastByTTS(tts, errors)) << LastError().ToString();
    ASSERT_EQ(errors.size(), 1u) << "the offline speaker";
    EXPECT_EQ(errors[0].ElementID, 1007);

    const std::string two =
        Envelope(R"({"ErrorList":[{"ElementID":1001,"ElementName":"a","ErrorModule":30,"ErrorCode":7},)"
                 R"({"ElementID":1002,"ElementName":"b","ErrorModule":30,"ErrorCode":7}]})");
    Answer("POST", kPlugin + "/RealTimeBroadcast/TTS", two);
    errors.clear();
    EXPECT_TRUE(CBroadcastSession::StartBroadcastByTTS(tts, errors)) << "two of three failed: one started";
    EXPECT_EQ(errors.size(), 2u);
    Control("POST", "/reset");
    Answer("POST", kPlugin + "/RealTimeBroadcast/TTS",
           Envelope(R"({"ErrorList":[{"ElementID":1001},{"ElementID":1002},{"ElementID":1007}]})"));
    errors.clear();
    EXPECT_FALSE(CBroadcastSession::StartBroadcastByTTS(tts, errors)) << "three of three failed";
    EXPECT_EQ(errors.size(), 3u);
}

TEST_F(SessionTest, BroadcastAddressesForStreamingAndDeviceTargets) {
    // The registry knows the devices, as after a resource download; addresses update their login data.
    auto* devices = ResourceManager::CDeviceManager::Instance();
    for (int id : {103, 201, 301}) {
        ResourceManager::DeviceInfo info;
        info.id = id;
        devices->AddOrUpdateDevice(info);
    }
    std::vector<BroadcastUrlRequest> requests(3);
    requests[0].ResourceIDs = "1001,1002";
    requests[0].NetworkMode = 4;
    requests[1].ResourceIDs = "1003,1004,1005";
    requests[1].NetworkMode = 20;
    requests[2].ResourceIDs = "1006";
    requests[2].NetworkMode = 7;
    requests[2].IsPromptToneSupportedInFront = true;
    BroadcastUrlResult result;
    ASSERT_TRUE(CBroadcastSession::GetBroadcastUrl(requests, result)) << result.Error.ToString();
    EXPECT_TRUE(result.Error.IsSucceed());
    CRapidJsonProto body = LastRequestBody(kPlugin + "/RealTimeBroadcast/CommonUrlList");
    EXPECT_EQ(body.get_int_v("/CommonUrlRequest[1]/AdaptiveNetWork", -1), 0) << "4 folds onto 0";
    EXPECT_EQ(body.get_int_v("/CommonUrlRequest[2]/AdaptiveNetWork", -1), 20);
    EXPECT_EQ(body.get_int_v("/CommonUrlRequest[3]/AdaptiveNetWork", -1), 0) << "unknown modes give 0";
    EXPECT_EQ(body.get_int_v("/CommonUrlRequest[3]/IsPromptToneSupportedInFront", -1), 1);
    EXPECT_EQ(body.get_v("/CommonUrlRequest[2]/ResourceIDs"), "1003,1004,1005");

    int streaming = 0, sdk = 0;
    int lobbyPort = -1;
    for (const BroadcastUrlInfo& info : result.Urls) {
        for (const BroadcastUrlResource& r : info.Resources) {
            lobbyPort = r.ID == 1003 ? r.DevicePort : lobbyPort;
        }
        EXPECT_FALSE(info.ResourceGuid.empty());
        if (info.Method == kMethodStreamingV1) {
            ++streaming;
            EXPECT_EQ(info.Url.rfind("[sms:", 0), 0u) << info.Url;
            EXPECT_TRUE(info.TokenEnabled);
            EXPECT_FALSE(info.Token.empty()) << "the token decrypts";
            for (const BroadcastUrlResource& r : info.Resources) {
                EXPECT_EQ(r.DeviceID, -1) << "streaming resources carry no device login";
            }
        } else if (info.Method == kMethodDeviceSdk) {
            ++sdk;
            for (const BroadcastUrlResource& r : info.Resources) {
                EXPECT_NE(r.DeviceID, -1);
                EXPECT_EQ(r.ResourceType, 1027);
            }
        } else {
            ADD_FAILURE() << "unexpected method " << info.Method << " for " << info.Url;
        }
    }
    EXPECT_GE(streaming, 1);
    EXPECT_GE(sdk, 1);
    auto lobby = devices->FindDeviceByID(103);
    ASSERT_TRUE(lobby);
    EXPECT_EQ(lobby->GetIPModeLoginParam().GetVal_strUserPwd(), "Lobby#Speaker3") << "the password decrypts";
    // The port the platform handed out: its simulated device listens there (a free port in tests).
    EXPECT_GT(lobbyPort, 0);
    EXPECT_EQ(lobby->GetIPModeLoginParam().GetVal_uLoginPort(), lobbyPort);
    auto encoder = devices->FindDeviceByID(201);
    EXPECT_EQ(encoder->GetIPModeLoginParam().GetVal_strUserPwd(), "Gate#Encoder1");
    devices->Clear();
}

TEST_F(SessionTest, BroadcastAddressDecodingRules) {
    const std::string path = kPlugin + "/RealTimeBroadcast/CommonUrlList";
    const std::string token = Encrypt("tok-1", true);
    const std::string password = Encrypt("pw-9", true);
    Answer(
        "GET", path,
        Envelope(
            R"({"CommonUrlList":{"CommonUrl":[)"
            R"({"Url":"[SMS:12]rtsp://h:1/a","SMSversion":1,"SecureEncryptType":1,"ResourceGuid":"g1",)"
            R"("SMSToken":{"Enable":1,"Token":")" +
            token +
            R"("},"ResourceType":1027,"ResourceList":[)"
            R"({"ID":1,"DevcieInfo":{"DeviceID":-1}},{"ID":2,"DevcieInfo":{"DeviceID":77,"DevicePassword":")" +
            password +
            R"(","DeviceIP":"10.0.0.9","DevicePort":81,"Channelnfo":{"DeviceIndex":"x","DeviceResourceID":5}}}]},)"
            R"({"Url":"sdk:rtsp://nobracket","ResourceGuid":"g2","ResourceType":9},)"
            R"({"Url":"[sms:1]rtsp://h:1/b","ResourceGuid":"g3","SMSToken":{"Enable":1,"Token":"garbage"}})"
            R"(]}})"));
    ResourceManager::DeviceInfo known;
    known.id = 77;
    ResourceManager::CDeviceManager::Instance()->AddOrUpdateDevice(known);
    CLogCapture log;
    BroadcastUrlResult result;
    ASSERT_TRUE(CBroadcastSession::GetBroadcastUrl({BroadcastUrlRequest()}, result))
        << result.Error.ToString();
    ASSERT_EQ(result.Urls.size(), 3u);
    EXPECT_EQ(result.Urls[0].Method, kMethodStreamingV1) << "SMS in capitals with SMSversion 1";
    EXPECT_EQ(result.Urls[0].Token, "tok-1");
    ASSERT_EQ(result.Urls[0].Resources.size(), 2u);
    EXPECT_EQ(result.Urls[0].Resources[0].ResourceType, 1027) << "both take the address's resource type";
    EXPECT_EQ(result.Urls[0].Resources[1].ResourceType, 1027);
    EXPECT_EQ(result.Urls[0].Resources[1].DevicePassword, "pw-9");
    EXPECT_EQ(result.Urls[0].Resources[1].DeviceResourceID, 5);
    EXPECT_EQ(ResourceManager::CDeviceManager::Instance()
                  ->FindDeviceByID(77)
                  ->GetIPModeLoginParam()
                  .GetVal_uLoginPort(),
              81);
    EXPECT_EQ(result.Urls[1].Method, kMethodUnknown) << "without a bracket the method text is one short";
    EXPECT_TRUE(result.Urls[1].Url.empty());
    EXPECT_TRUE(log.Contains("Invalid Voice Talk Method sd", 5));
    EXPECT_EQ(result.Urls[2].Method, kMethodStreaming);
    EXPECT_TRUE(result.Urls[2].TokenEnabled);
    EXPECT_TRUE(result.Urls[2].Token.empty());
    EXPECT_TRUE(log.Contains("Decrypt SMSToken password failed. using old decrypt method.", 5));
    ResourceManager::CDeviceManager::Instance()->Clear();

    // Empty and malformed answers: the same codes, told apart by the subsystem.
    Control("POST", "/reset");
    Fault(
        R"({"Method":"GET","Path":"/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/CommonUrlList","Kind":"empty","Count":1})");
    BroadcastUrlResult empty;
    EXPECT_FALSE(CBroadcastSession::GetBroadcastUrl({BroadcastUrlRequest()}, empty));
    EXPECT_EQ(empty.Error, ErrorCode(2, 20, 2001));
    EXPECT_TRUE(log.Contains("empty strRawData!", 5));
    Answer("GET", path, "{oops");
    BroadcastUrlResult malformed;
    EXPECT_FALSE(CBroadcastSession::GetBroadcastUrl({BroadcastUrlRequest()}, malformed));
    EXPECT_EQ(malformed.Error, ErrorCode(1, 20, 2001));
    EXPECT_TRUE(log.Contains("ParseRawData failed, [SubSystem: 1],[MainError: 20],[SubError: 2001]", 5));
}

TEST_F(SessionTest, PromptTonesAndServerStatus) {
    EXPECT_TRUE(CBroadcastSession::StartPromptVoice({"unknown-guid"}) == false);
    EXPECT_EQ(LastError().GetMainErrorCode(), 30) << "the platform names unknown groups";
    CRapidJsonProto body = LastRequestBody(kPlugin + "/RealTimeBroadcast/StartPromptTone");
    EXPECT_EQ(body.get_v("/Request/ResourceGuids[1]"), "unknown-guid");
    EXPECT_FALSE(CBroadcastSession::NotifyServerBroadcastStatus(3, "unknown-guid", {"1003", "1004"},
                                                                ErrorCode(2, 1, 5)));
    body = LastRequestBody(kPlugin + "/RealTimeBroadcast/UpdateBroadcastStatus");
    EXPECT_EQ(body.get_v("/ResourceIDs"), "1003,1004");
    EXPECT_EQ(body.get_int_v("/ResourceType", 0), 1027);
    EXPECT_EQ(body.get_int_v("/ErrorModule", 0), 1);
    EXPECT_EQ(body.get_int_v("/ErrorCode", 0), 5);
}

TEST(SessionWithoutPlatform, EveryCallFailsAtTheTransportWithoutHanging) {
    NetworkCommunication::ServerSession dead;
    dead.host = "127.0.0.1";
    dead.port = 1;  // nothing listens there
    NetworkCommunication::CNetCommManager::Instance()->SetSession(dead);
    BroadcastBaseConfig config;
    EXPECT_FALSE(CBroadcastSession::GetBaseConfig(config));
    EXPECT_EQ(Tal::Base::Error::GetLastError(), ErrorCode(2, NetworkCommunication::kModuleTransport, 7));
    BroadcastUrlResult urls;
    EXPECT_FALSE(CBroadcastSession::GetBroadcastUrl({BroadcastUrlRequest()}, urls));
    EXPECT_EQ(urls.Error, ErrorCode(2, NetworkCommunication::kModuleTransport, 7));
    NetworkCommunication::CNetCommManager::Instance()->ClearSession();
}
