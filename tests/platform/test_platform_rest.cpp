// The platform's answers to the client's REST calls: paths, envelopes and keys as the client reads them
// (misspellings included), bodies on GET requests, and the secrets it encrypts for the session.

#include <gtest/gtest.h>

#include <set>

#include "support/PlatformFixture.h"

using namespace PlatformTest;

namespace {

std::vector<int> Ids(const RestReply& reply, const char* arrayPointer, const char* key) {
    std::vector<int> ids;
    const rapidjson::Value* list = reply.Node(arrayPointer);
    if (list == nullptr || !list->IsArray()) {
        return ids;
    }
    for (const rapidjson::Value& item : list->GetArray()) {
        auto it = item.FindMember(key);
        ids.push_back(it != item.MemberEnd() && it->value.IsInt() ? it->value.GetInt() : -999);
    }
    return ids;
}

}  // namespace

using RestTest = PlatformFixture;

TEST_F(RestTest, PartitionsAndTerminalsUseTheMisspelledKeysAndReadGetBodies) {
    const std::string partitions = Plugin("/TerminalManagement/Partitions");
    RestReply all =
        Get(partitions, R"({"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":""}}})");
    ASSERT_EQ(all.status, 200) << all.Describe();
    EXPECT_EQ(all.ErrorCode(), 0);
    EXPECT_EQ(Ids(all, "/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition", "ID"),
              (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(all.Str("/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition/1/BaseInfo/Name"),
              "Parking");
    RestReply filtered = Get(
        partitions, R"({"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":"park"}}})");
    EXPECT_EQ(Ids(filtered, "/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition", "ID"),
              (std::vector<int>{2}))
        << "the GET body's filter was applied: " << filtered.body;
    RestReply malformed = Get(partitions, R"({"BroadcastPatitionRequest":)");
    EXPECT_EQ(malformed.status, 200);
    EXPECT_EQ(malformed.ErrorModule(), 30);
    EXPECT_EQ(malformed.ErrorCode(), 2) << "a malformed GET body is read and refused";

    const std::string terminals = Plugin("/TerminalManagement/BroadcastTerminals");
    RestReply list =
        Get(terminals, R"({"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":true}}})");
    const char* kList = "/ResponseStatus/Data/BroadcastTerminalsList/BroadcastTerminal";
    EXPECT_EQ(Ids(list, kList, "ID"), (std::vector<int>{1001, 1002, 1003, 1004, 1005, 1006, 1007}));
    ExpectFields(list, std::string(kList) + "/",
                 {{"1/BaseInfo/Name", "Corridor"},
                  {"1/BaseInfo/BroadcastPartitionIDList/1", 3},
                  {"0/Config/Volume", 70},
                  {"1/Config/PeerTaskHandling", 1},
                  {"3/Config/AudioCount", 2},
                  {"6/TerminalStatus", 0},
                  {"0/Area/AreaID", 10},
                  {"0/Area/AreaName", "Ground floor"}});
    EXPECT_FALSE(
        list.Has("/ResponseStatus/Data/BroadcastTerminalsList/BroadcastTerminal/6/BaseInfo/"
                 "BroadcastPartitionIDList"))
        << "the terminal outside every partition carries no partition list";

    RestReply parking = Get(
        terminals,
        R"({"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":false,"BroadcastPatitionID":2}}})");
    EXPECT_EQ(Ids(parking, kList, "ID"), (std::vector<int>{1006}));
    RestReply outside = Get(
        terminals,
        R"({"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":false,"BroadcastPatitionID":-1}}})");
    EXPECT_EQ(Ids(outside, kList, "ID"), (std::vector<int>{1007}));
    RestReply noPartition =
        Get(terminals, R"({"BroadcastTerminalsListRequest":{"SearchCriteria":{"AllPartition":false}}})");
    EXPECT_EQ(noPartition.ErrorCode(), 2);
}

TEST_F(RestTest, GetBodiesDoNotDisturbAKeptAliveConnection) {
    const std::string partitions = Plugin("/TerminalManagement/Partitions");
    const std::string body =
        R"({"BroadcastPatitionRequest":{"SearchCriteria":{"BroadcastPatitionName":"main"}}})";
    RestReply first = Get(partitions, body);
    ASSERT_EQ(first.status, 200) << first.Describe();
    for (int i = 0; i < 5; ++i) {
        RestReply again = Get(i % 2 == 0 ? partitions : Plugin("/BaseConfig"), i % 2 == 0 ? body : "{}");
        ASSERT_EQ(again.status, 200) << "request " << i << ": " << again.Describe();
        EXPECT_EQ(again.newConnections, 0) << "request " << i << " reused the connection";
        if (i % 2 == 0) {
            EXPECT_EQ(Ids(again, "/ResponseStatus/Data/BroadcastPatitionList/BroadcastPatition", "ID"),
                      (std::vector<int>{1}));
        } else {
            EXPECT_TRUE(again.Has("/ResponseStatus/Data/BaseConfig/AudioCompressionType"));
        }
    }
    RestReply log = Control("GET", "/requests?path=" + partitions);
    const rapidjson::Value* entries = log.Node("/ResponseStatus/Data/Requests");
    ASSERT_NE(entries, nullptr);
    ASSERT_EQ(entries->Size(), 4u);
    for (const rapidjson::Value& e : entries->GetArray()) {
        EXPECT_STREQ(e["Method"].GetString(), "GET");
        EXPECT_EQ(std::string(e["Body"].GetString()), body) << "the GET body reached the platform whole";
    }
}

TEST_F(RestTest, MediaDirectoriesFormATreeAndFilesUseLowerCaseKeys) {
    const std::string directories = Plugin("/MediaManagement/FileDirectorys");
    const char* kDirs = "/ResponseStatus/Data/FileDirectoryList/FileDirectory";
    RestReply tree =
        Post(directories, R"({"FileDirectoryRequest":{"SearchCriteria":{"ParentFileDirectoryID":-1,)"
                          R"("FileDirectoryName":"","DepthTraversal":1}}})");
    EXPECT_EQ(Ids(tree, kDirs, "ID"), (std::vector<int>{1, 2, 3, 5, 4})) << "the whole tree in pre-order";
    ExpectFields(tree, std::string(kDirs) + "/",
                 {{"2/BaseInfo/ParentID", 2},
                  {"2/BaseInfo/Name", "Daily"},
                  {"1/BaseInfo/IsHaveChildDirectory", 1},
                  {"0/BaseInfo/IsHaveChildDirectory", 0}});
    RestReply children =
        Post(directories, R"({"FileDirectoryRequest":{"SearchCriteria":{"ParentFileDirectoryID":2}}})");
    EXPECT_EQ(Ids(children, kDirs, "ID"), (std::vector<int>{3, 4})) << "direct children only";
    RestReply unknown =
        Post(directories, R"({"FileDirectoryRequest":{"SearchCriteria":{"ParentFileDirectoryID":77}}})");
    EXPECT_EQ(unknown.ErrorCode(), 3);

    const std::string files = Plugin("/MediaManagement/MediaFiles");
    const char* kFiles = "/ResponseStatus/Data/MediaFileList/MediaFile";
    RestReply daily = Post(files, R"({"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":3,)"
                                  R"("MediaFileName":""},"PageIndex":-1}})");
    EXPECT_EQ(Ids(daily, kFiles, "ID"), (std::vector<int>{2, 3}));
    const std::string first = std::string(kFiles) + "/0/";
    ExpectFields(daily, first,
                 {{"Name", "opening"}, {"format", "mp3"}, {"StorageType", "localStorage"}, {"ParentID", 3}});
    // Size and duration are those of the stored object (test_platform_storage checks them by downloading).
    EXPECT_GT(daily.Int((first + "size").c_str()), 10);
    EXPECT_GE(daily.Int((first + "duration").c_str()), 3);
    EXPECT_LE(daily.Int((first + "duration").c_str()), 8);
    EXPECT_FALSE(daily.Has("/ResponseStatus/Data/MediaFileList/MediaFile/0/Format"));
    RestReply named = Post(files, R"({"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":-1,)"
                                  R"("MediaFileName":"EVAC"},"PageIndex":-1}})");
    EXPECT_EQ(Ids(named, kFiles, "ID"), (std::vector<int>{4}));
    ExpectFields(named, first, {{"StorageType", "pStorage"}, {"StorageServerID", 501}});
    RestReply page2 = Post(files, R"({"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":-1},)"
                                  R"("PageIndex":2,"PageSize":2}})");
    EXPECT_EQ(Ids(page2, kFiles, "ID"), (std::vector<int>{3, 4}));
    EXPECT_EQ(page2.Int("/ResponseStatus/Data/TotalCount"), 5);

    RestReply one = Post(Plugin("/MediaManagement/MediaFile/1"));
    ExpectFields(one, "/ResponseStatus/Data/materialInfo/",
                 {{"Name", "bell"}, {"format", "wav"}, {"duration", 2}});
    const int storePort = Get(PlatformV1("/Storage/LocalCloudStorageConfig"))
                              .Int("/ResponseStatus/Data/StorageConfig/ObjectDownloadPort");
    EXPECT_EQ(one.Str("/ResponseStatus/Data/materialInfo/StoreUrl"),
              "http://127.0.0.1:" + std::to_string(storePort) + "/broadcast/prompt/bell.wav")
        << "the address of the object in the store that really runs";
    RestReply none = Post(Plugin("/MediaManagement/MediaFile/404"));
    EXPECT_EQ(none.status, 200);
    EXPECT_EQ(none.ErrorModule(), 30);
    EXPECT_EQ(none.ErrorCode(), 3);
}

TEST_F(RestTest, BaseConfigLanguagesAndStorageCarryEveryKey) {
    RestReply config = Get(Plugin("/BaseConfig"));
    ExpectFields(config, "/ResponseStatus/Data/BaseConfig/",
                 {{"AudioCompressionType", "G711_u"},
                  {"RealTimeBroadcastRecord/Record", true},
                  {"RealTimeBroadcastRecord/RecordStorageType", "pStorage"},
                  {"RealTimeBroadcastRecord/RecordStorageServerID", 501},
                  {"RealTimeBroadcastRecord/RecordPoolID", "pool-records"},
                  {"StorageServerInfo/StorageType", "localStorage"},
                  {"StorageServerInfo/StorageServerID", 0},
                  {"StorageServerInfo/PoolID", "broadcast"},
                  {"BroadcastMode", 2},
                  {"SamplingRate", "8000"},
                  {"BitRate", "64"},
                  {"IsPromptToneActivated", true},
                  {"PromptToneMediaID", 1},
                  {"PromptToneDuration", 2},
                  {"IsTTSDelayedPlayActivated", false},
                  {"IsMediaDelayedPlayActivated", false},
                  {"TTSPlayDelayedTime", 0}});

    RestReply german = Get(Plugin("/GetLanguage"), R"({"LogInLanguage":"de_DE"})");
    EXPECT_EQ(Ids(german, "/ResponseStatus/Data/SupportLanguage", "LanguageKey").size(), 3u);
    ExpectFields(german, "/ResponseStatus/Data/",
                 {{"SupportLanguage/1/LanguageKey", "zh-CN"},
                  {"DisplayLanguageKey", "de-DE"},
                  {"DisplayLanguageValue", "Deutsch"}});
    RestReply other = Get(Plugin("/GetLanguage"), R"({"LogInLanguage":"fr_FR"})");
    EXPECT_EQ(other.Str("/ResponseStatus/Data/DisplayLanguageKey"), "en-US")
        << "unknown languages show the first";

    RestReply storage = Get(PlatformV1("/Storage/LocalCloudStorageConfig"));
    const std::string s = "/ResponseStatus/Data/StorageConfig/";
    auto key = [&s](const char* k) { return s + k; };
    ExpectFields(storage, s,
                 {{"EnableHttps", 0},
                  {"EnableWan", 1},
                  {"SecureEncryptType", 1},
                  {"ServerIp", "127.0.0.1"},
                  {"WanServerIp", "203.0.113.10"},
                  {"HttpsWanObjectDownloadPort", 28656},
                  {"PoolName", "broadcast"}});
    for (const char* port : {"ObjectUploadPort", "ObjectDownloadPort", "WanObjectUploadPort",
                             "WanObjectDownloadPort", "HttpsObjectUploadPort", "HttpsObjectDownloadPort",
                             "HttpsWanObjectUploadPort", "HttpsWanObjectDownloadPort"}) {
        EXPECT_GT(storage.Int(key(port).c_str()), 0) << port;
    }
    const std::string accessKey = storage.Str(key("AccessKey").c_str());
    EXPECT_NE(accessKey, "BCASTDEMOACCESSKEY01") << "keys travel encrypted";
    EXPECT_EQ(Decrypt(sessionKey_, 1, accessKey), "BCASTDEMOACCESSKEY01");
    EXPECT_EQ(Decrypt(sessionKey_, 1, storage.Str(key("SecretKey").c_str())), "demo/Secret+Key/2026");
    EXPECT_EQ(Decrypt("another session's key", 1, accessKey), "<not decryptable>");

    RestReply disks = Get("/DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/501");
    ExpectFields(disks, "/ResponseStatus/Data/HDDList/",
                 {{"Count", 3}, {"HDD/1/PoolType", 4}, {"HDD/1/PoolName", "pool-records"}});
    EXPECT_EQ(Get("/DXAPI/Galewing/Platform/V0/SAM/Status/RecordServerDisk/999").ErrorCode(), 3);
}

// The answers for servers 501 and 502 under both schemes are read through the framework's client in
// tests/clientnet (AccessWayTest), and test_platform_storage downloads with what 501's answer gives; here
// the port of the store that runs, the third access type and the refusals.
TEST_F(RestTest, DeviceAccessWayGivesTheRunningStoreAndRefusesWhatItCannotServe) {
    const std::string path = PlatformV1("/DeviceAccessWay");
    RestReply direct = Post(path, R"({"SiteID":0,"DeviceID":501,"DeviceType":2})");
    ASSERT_EQ(direct.ErrorCode(), 0) << direct.Describe();
    EXPECT_EQ(direct.Int("/ResponseStatus/Data/ObjectPort"),
              Control("GET", "/storage").Int("/ResponseStatus/Data/Stores/1/Port"))
        << "the port of the store that runs for it (free ports in tests)";
    EXPECT_EQ(
        Post(path, R"({"SiteID":0,"DeviceID":503,"DeviceType":2})").Int("/ResponseStatus/Data/AccessType"),
        2);
    const std::vector<std::pair<std::string, int>> refusals = {
        {R"({"SiteID":0,"DeviceID":9,"DeviceType":2})", 3},
        {R"({"SiteID":0,"DeviceID":101,"DeviceType":2020})", 4},
        {R"({"SiteID":0})", 2},
    };
    for (const auto& [body, code] : refusals) {
        EXPECT_EQ(Post(path, body).ErrorCode(), code) << body;
    }
}

// Each element's and device's fields, passwords decrypted under both schemes, and the access type of single
// speakers are read through the framework's clients in tests/clientnet (ResourceDownloadTest,
// StreamConfigTest); here what the wire alone shows: order, one entry per device, the running encoder's
// port, the ids not found and the refusals.
TEST_F(RestTest, ElementDownloadListsEachDeviceOnceWithTheRunningPorts) {
    const std::string path = PlatformV1("/Resource/IncrementalDownload");
    RestReply some = Post(
        path, R"({"SourceType":1027,"ExtraIDs":[1004,1005,4242,1006],"ExtraRequestType":4,"PageIndex":0})");
    ASSERT_EQ(some.ErrorCode(), 0) << some.Describe();
    EXPECT_EQ(Ids(some, "/ResponseStatus/Data/ElementList", "ID"), (std::vector<int>{1004, 1005, 1006}));
    EXPECT_EQ(Ids(some, "/ResponseStatus/Data/DeviceList", "ID"), (std::vector<int>{201, 301}))
        << "one entry per device";
    // The simulated encoder listens where the platform says it does (a free port in tests).
    EXPECT_EQ(some.Int("/ResponseStatus/Data/DeviceList/0/Port"),
              Control("GET", "/devices").Int("/ResponseStatus/Data/Devices/1/Port"));
    EXPECT_EQ(Control("GET", "/devices").Int("/ResponseStatus/Data/Devices/1/DeviceID"), 201);
    EXPECT_EQ(some.Int("/ResponseStatus/Data/NotFoundIDList/0"), 4242);

    RestReply all = Post(path, R"({"SourceType":1027})");
    EXPECT_EQ(Ids(all, "/ResponseStatus/Data/ElementList", "ID").size(), 7u);
    EXPECT_EQ(Ids(all, "/ResponseStatus/Data/DeviceList", "ID").size(), 6u);
    EXPECT_EQ(Post(path, R"({"SourceType":1,"ExtraIDs":[1001]})").ErrorCode(), 4);
    EXPECT_EQ(Post(path, R"({"SourceType":1027,"ExtraIDs":"1001"})").ErrorCode(), 2);

    std::set<int> seen;
    RestReply types = Get(PlatformV1("/StreamConfig/IPSpeakerAccessTypes"));
    for (int v : Ids(types, "/ResponseStatus/Data/AccessTypeList", "StreamAccessType")) {
        seen.insert(v);
    }
    EXPECT_EQ(seen, (std::set<int>{0, 2, 3, 4, 20})) << "the demo covers every access type";
    EXPECT_EQ(Get(PlatformV1("/StreamConfig/IPSpeakerAccessType/7")).ErrorCode(), 3);
}
