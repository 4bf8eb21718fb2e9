// The platform's object stores through the real program: the stores it runs and lists, the media library
// in them as a client finds it (keys decrypted with the session key, downloaded with the framework's object
// client, decoded with ffmpeg), recordings that must be stored before they are registered and the list of
// them, stores stopped or given other keys by the control interface and healed by a reset, and start-up
// failures. The stores are node and scripts/objectstore (scripts/setup.sh installs them).

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>

#include "AudioCheck.h"
#include "framework/media/mediakit/WavFile.h"
#include "framework/media/objectclient/ObjectClient.h"
#include "support/PlatformFixture.h"

using namespace PlatformTest;
using CloudStorage::CObjectClient;
using CloudStorage::SStorageServerConfig;

namespace {

constexpr char kLocalConfig[] = "/DXAPI/Galewing/Platform/V1/Storage/LocalCloudStorageConfig";
constexpr char kAccessWay[] = "/DXAPI/Galewing/Platform/V1/DeviceAccessWay";
constexpr char kAnyPort[] = "127.0.0.1:0";

struct Transfer {
    bool ok = false;
    int code = 0;
    std::string message;
};

Transfer Download(const SStorageServerConfig& config, const std::string& url, const std::string& path) {
    CObjectClient client(config);
    Transfer t;
    t.ok = client.Init() && client.DownloadFile(url, path);
    if (!t.ok) {
        client.GetLastError(t.code, t.message);
    }
    return t;
}

Transfer Upload(const SStorageServerConfig& config, const std::string& path, const std::string& key,
                std::string& url) {
    CObjectClient client(config);
    Transfer t;
    t.ok = client.Init() && client.UploadFile(url, path, key);
    if (!t.ok) {
        client.GetLastError(t.code, t.message);
    }
    return t;
}

// A 16-bit PCM WAV's rate, channels and length.
struct WavFacts {
    int rate = 0;
    int channels = 0;
    double seconds = 0;
};

bool ReadWavFacts(const std::string& path, WavFacts& facts) {
    Tal::MediaKit::PcmAudio audio;
    std::string error;
    if (!Tal::MediaKit::ReadWav(path, audio, error) || audio.sampleRate <= 0) {
        return false;
    }
    facts.rate = audio.sampleRate;
    facts.channels = audio.channels;
    facts.seconds = static_cast<double>(audio.Frames()) / audio.sampleRate;
    return true;
}

// A short tone as a WAV, the kind of file the client uploads after a recorded talk.
std::string MakeRecording(const std::string& dir, const std::string& name) {
    const std::string path = dir + "/" + name;
    const std::string error = BcastTest::MakeToneWav(path, 8000, {600}, 1.5);
    EXPECT_TRUE(error.empty()) << error;
    return path;
}

int PortOf(const std::string& url) {
    const size_t colon = url.find(':', url.find("://") + 3);
    return colon == std::string::npos ? 0 : std::atoi(url.c_str() + colon + 1);
}

// "bcast-platform: ..." lines of an output that contain `text`.
std::vector<std::string> PlatformLines(const std::string& output, const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        end = end == std::string::npos ? output.size() : end;
        const std::string line = output.substr(start, end - start);
        if (line.rfind("bcast-platform: ", 0) == 0 && line.find(text) != std::string::npos) {
            lines.push_back(line);
        }
        start = end + 1;
    }
    return lines;
}

time_t ParseLocalTime(const std::string& text) {
    struct tm parts {};
    if (strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr) {
        return 0;
    }
    parts.tm_isdst = -1;
    return mktime(&parts);
}

class StorageTest : public PlatformFixture {
protected:
    std::vector<std::string> ExtraArgs() const override {
        // The default storage directory: its media cache is shared with every other platform of the run.
        return {"--fixture", DemoFixture()};
    }

    void SetUp() override {
        PlatformFixture::SetUp();
        scratch_ = MakeTempDir("storage-test");
        ASSERT_FALSE(scratch_.empty());
    }

    void TearDown() override {
        std::error_code ec;
        std::filesystem::remove_all(scratch_, ec);
        PlatformFixture::TearDown();
    }

    // The local cloud storage as the client configures it from LocalCloudStorageConfig.
    SStorageServerConfig LocalStorage() {
        RestReply r = Get(kLocalConfig);
        EXPECT_EQ(r.ErrorCode(), 0) << r.Describe();
        const std::string s = "/ResponseStatus/Data/StorageConfig/";
        const int type = r.Int((s + "SecureEncryptType").c_str());
        SStorageServerConfig c;
        c.ServerIp = r.Str((s + "ServerIp").c_str());
        c.UploadPort = r.Int((s + "ObjectUploadPort").c_str());
        c.DownloadPort = r.Int((s + "ObjectDownloadPort").c_str());
        c.PoolName = r.Str((s + "PoolName").c_str());
        c.AccessKey = Decrypt(sessionKey_, type, r.Str((s + "AccessKey").c_str()));
        c.SecretKey = Decrypt(sessionKey_, type, r.Str((s + "SecretKey").c_str()));
        return c;
    }

    // A storage server as the client configures it from DeviceAccessWay, for one of its pools.
    SStorageServerConfig ServerStorage(int id, const std::string& pool) {
        RestReply r =
            Post(kAccessWay, R"({"SiteID":0,"DeviceID":)" + std::to_string(id) + R"(,"DeviceType":2})");
        EXPECT_EQ(r.ErrorCode(), 0) << r.Describe();
        const int type = r.Int("/ResponseStatus/Data/SecureEncryptType");
        SStorageServerConfig c;
        c.ServerIp = r.Str("/ResponseStatus/Data/DeviceIP");
        c.UploadPort = r.Int("/ResponseStatus/Data/ObjectPort");
        c.DownloadPort = c.UploadPort;
        c.PoolName = pool;
        c.AccessKey = Decrypt(sessionKey_, type, r.Str("/ResponseStatus/Data/AccessKey"));
        c.SecretKey = Decrypt(sessionKey_, type, r.Str("/ResponseStatus/Data/SecretKey"));
        return c;
    }

    // Stores by name from the control interface.
    std::map<std::string, const rapidjson::Value*> Stores(const RestReply& storage) {
        std::map<std::string, const rapidjson::Value*> byName;
        const rapidjson::Value* list = storage.Node("/ResponseStatus/Data/Stores");
        if (list != nullptr && list->IsArray()) {
            for (const rapidjson::Value& s : list->GetArray()) {
                byName[s["Name"].GetString()] = &s;
            }
        }
        return byName;
    }

    RestReply Record(const std::string& elements, const std::string& startTime, const std::string& name,
                     const std::string& storeUrl) {
        return Post(Plugin("/RealTimeBroadcast/Record"),
                    R"({"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[)" + elements +
                        R"(]},"StartTime":")" + startTime + R"(","MediaFile":{"Name":")" + name +
                        R"(","format":"wav","size":1,"StorageServerID":501,"StorageType":1,"StoreUrl":")" +
                        storeUrl + R"("},"BroadcastMode":0}})");
    }

    RestReply Records(const std::string& criteria, const std::string& paging = R"("PageIndex":-1)") {
        return Post(
            Plugin("/RealTimeBroadcast/Records"),
            R"({"RealTimeBroadcastRecordListRequest":{"SearchCriteria":{)" + criteria + "}," + paging + "}}");
    }

    std::vector<int> RecordIds(const RestReply& reply) {
        std::vector<int> ids;
        const rapidjson::Value* list =
            reply.Node("/ResponseStatus/Data/RealTimeBroadcastRecordList/RealTimeBroadcastRecord");
        if (list != nullptr && list->IsArray()) {
            for (const rapidjson::Value& r : list->GetArray()) {
                ids.push_back(r["RecordID"].GetInt());
            }
        }
        return ids;
    }

    std::string scratch_;
};

TEST_F(StorageTest, TheStoresHoldTheMediaLibraryAndTheClientDownloadsRealAudioWithItsKeys) {
    RestReply storage = Control("GET", "/storage");
    ASSERT_EQ(storage.ErrorCode(), 0) << storage.Describe();
    auto stores = Stores(storage);
    ASSERT_EQ(stores.size(), 2u) << storage.body;
    ASSERT_TRUE(stores.count("local") && stores.count("501")) << storage.body;
    const rapidjson::Value& local = *stores["local"];
    const rapidjson::Value& records = *stores["501"];
    const int localPort = local["Port"].GetInt();
    const int recordsPort = records["Port"].GetInt();
    {
        SCOPED_TRACE("the stores are listed and announced");
        EXPECT_TRUE(local["Running"].GetBool());
        EXPECT_TRUE(records["Running"].GetBool());
        EXPECT_GT(localPort, 0);
        EXPECT_NE(localPort, 18655) << "tests run the stores on free ports (--sim-ports any)";
        EXPECT_STREQ(local["AccessKey"].GetString(), "BCASTDEMOACCESSKEY01");
        EXPECT_STREQ(records["SecretKey"].GetString(), "record/Secret/501");
        EXPECT_EQ(storage.Int("/ResponseStatus/Data/Stores/0/Objects/0/Count"), 4) << storage.body;
        EXPECT_EQ(storage.Str("/ResponseStatus/Data/Stores/1/Objects/1/Pool"), "pool-media");
        EXPECT_EQ(storage.Int("/ResponseStatus/Data/Stores/1/Objects/1/Count"), 1);
        EXPECT_EQ(storage.Int("/ResponseStatus/Data/Stores/1/Objects/0/Count"), 0) << "no recording yet";
        EXPECT_EQ(storage.Int("/ResponseStatus/Data/NotServed/0/StorageServerID"), 502);
        EXPECT_EQ(storage.Int("/ResponseStatus/Data/NotServed/1/StorageServerID"), 503);
        const std::string out = platform_.Stdout();
        EXPECT_EQ(PlatformLines(out, "object store local on http://127.0.0.1:" + std::to_string(localPort) +
                                         " (pools broadcast)")
                      .size(),
                  1u)
            << out;
        EXPECT_EQ(PlatformLines(out, "object store 501 on http://127.0.0.1:" + std::to_string(recordsPort) +
                                         " (pools pool-records, pool-media)")
                      .size(),
                  1u)
            << out;
    }

    const SStorageServerConfig localClient = LocalStorage();
    const SStorageServerConfig mediaClient = ServerStorage(501, "pool-media");
    {
        SCOPED_TRACE("the client is told where the stores really are, with keys it can decrypt");
        EXPECT_EQ(localClient.UploadPort, localPort);
        EXPECT_EQ(localClient.DownloadPort, localPort);
        EXPECT_EQ(localClient.AccessKey, "BCASTDEMOACCESSKEY01");
        EXPECT_EQ(localClient.SecretKey, "demo/Secret+Key/2026");
        EXPECT_EQ(mediaClient.UploadPort, recordsPort);
        EXPECT_EQ(mediaClient.AccessKey, "RECORDSERVERKEY0501");
    }

    RestReply list =
        Post(Plugin("/MediaManagement/MediaFiles"),
             R"({"MediaFilesListRequest":{"SearchCriteria":{"MediaFileDirectoryID":-1},"PageIndex":-1}})");
    const rapidjson::Value* files = list.Node("/ResponseStatus/Data/MediaFileList/MediaFile");
    ASSERT_TRUE(files != nullptr && files->IsArray()) << list.Describe();
    ASSERT_EQ(files->Size(), 5u);
    for (const rapidjson::Value& f : files->GetArray()) {
        const std::string name = f["Name"].GetString();
        const std::string format = f["format"].GetString();
        const std::string url = f["StoreUrl"].GetString();
        const int duration = f["duration"].GetInt();
        SCOPED_TRACE(name + " " + url);
        const bool onServer = std::string(f["StorageType"].GetString()) == "pStorage";
        EXPECT_EQ(PortOf(url), onServer ? recordsPort : localPort);
        RestReply one = Post(Plugin("/MediaManagement/MediaFile/" + std::to_string(f["ID"].GetInt())));
        EXPECT_EQ(one.Str("/ResponseStatus/Data/materialInfo/StoreUrl"), url);
        EXPECT_EQ(one.Int("/ResponseStatus/Data/materialInfo/size"), f["size"].GetInt());

        const std::string path = scratch_ + "/" + name + "." + format;
        const Transfer got = Download(onServer ? mediaClient : localClient, url, path);
        ASSERT_TRUE(got.ok) << got.code << " " << got.message;
        const auto bytes = static_cast<int>(std::filesystem::file_size(path));
        EXPECT_EQ(f["size"].GetInt(), (bytes + 1023) / 1024) << "the size of the stored object, in KB";

        std::string error;
        const std::vector<int16_t> audio = BcastTest::DecodeWithFfmpeg(path, 8000, {}, &error);
        ASSERT_FALSE(audio.empty()) << error;
        const double seconds = audio.size() / 8000.0;
        EXPECT_NEAR(seconds, duration, 0.6) << "the duration of the stored audio";
        EXPECT_GT(BcastTest::Rms(audio), 0.02) << "audible";
        if (name == "bell") {
            WavFacts wav;
            ASSERT_TRUE(ReadWavFacts(path, wav));
            EXPECT_EQ(wav.rate, 44100);
            EXPECT_EQ(wav.channels, 2) << "a layout the client has to convert";
            EXPECT_NEAR(wav.seconds, 2.0, 0.01);
            EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(audio, 4000), 8000), 880, 10);
        } else {
            EXPECT_GE(seconds, 3.0) << "a short spoken announcement";
            EXPECT_LE(seconds, 8.0);
            const std::vector<int16_t> speech = BcastTest::TrimSilence(audio);
            EXPECT_GT(speech.size(), audio.size() * 8 / 10) << "speech from start to end";
        }
        if (name == "night-watch") {
            WavFacts wav;
            ASSERT_TRUE(ReadWavFacts(path, wav));
            EXPECT_EQ(wav.rate, 22050);
            EXPECT_EQ(wav.channels, 1);
        }
    }
}

TEST_F(StorageTest, RecordingsMustBeStoredBeforeTheyAreRegisteredAndAreListed) {
    const SStorageServerConfig records = ServerStorage(501, "pool-records");
    const std::string talk = MakeRecording(scratch_, "talk.wav");
    std::string firstUrl;
    Transfer up = Upload(records, talk, "2026/01/02/talk-1001.wav", firstUrl);
    ASSERT_TRUE(up.ok) << up.code << " " << up.message;
    const int64_t bytes = static_cast<int64_t>(std::filesystem::file_size(talk));

    RestReply first = Record(R"({"ID":1001},{"ID":1003})", "2026-01-02 10:00:00", "talk-1001", firstUrl);
    ASSERT_EQ(first.ErrorCode(), 0) << first.Describe();
    EXPECT_EQ(first.Int("/ResponseStatus/Data/RecordID"), 1);

    const SStorageServerConfig local = LocalStorage();
    std::string secondUrl;
    up = Upload(local, talk, "records/talk-1002.wav", secondUrl);
    ASSERT_TRUE(up.ok) << up.code << " " << up.message;
    RestReply second = Record(R"({"ID":1002})", "2026-01-03 08:30:00", "talk-1002", secondUrl);
    ASSERT_EQ(second.ErrorCode(), 0) << second.Describe();

    {
        SCOPED_TRACE("what is not stored is refused");
        std::string neverUploaded = firstUrl;
        neverUploaded.replace(neverUploaded.rfind("talk-1001.wav"), std::string::npos, "never-uploaded.wav");
        RestReply missing = Record(R"({"ID":1001})", "2026-01-02 11:00:00", "lost", neverUploaded);
        EXPECT_EQ(missing.ErrorModule(), 30);
        EXPECT_EQ(missing.ErrorCode(), 3);
        EXPECT_NE(missing.Str("/ResponseStatus/CascadingErrorInfo").find("no object"), std::string::npos)
            << missing.body;
        RestReply elsewhere =
            Record(R"({"ID":1001})", "2026-01-02 11:00:00", "lost", "http://127.0.0.1:1/elsewhere/x.wav");
        EXPECT_EQ(elsewhere.ErrorCode(), 3);
        EXPECT_NE(elsewhere.Str("/ResponseStatus/CascadingErrorInfo").find("no object store"),
                  std::string::npos)
            << elsewhere.body;
    }

    RestReply all = Records("");
    ASSERT_EQ(all.ErrorCode(), 0) << all.Describe();
    EXPECT_EQ(all.Int("/ResponseStatus/Data/TotalCount"), 2);
    EXPECT_EQ(RecordIds(all), (std::vector<int>{1, 2}));
    {
        SCOPED_TRACE("a record as operators see it");
        const std::string r = "/ResponseStatus/Data/RealTimeBroadcastRecordList/RealTimeBroadcastRecord/";
        ExpectFields(all, r,
                     {{"0/ElementList/Element/1/ID", 1003},
                      {"0/ElementList/Element/1/Name", "Lobby"},
                      {"0/StartTime", "2026-01-02 10:00:00"},
                      {"0/MediaFile/Name", "talk-1001"},
                      {"0/MediaFile/format", "wav"},
                      {"0/MediaFile/Bytes", static_cast<int>(bytes)},
                      {"0/MediaFile/size", static_cast<int>((bytes + 1023) / 1024)},
                      {"0/MediaFile/StorageType", "pStorage"},
                      {"0/MediaFile/StorageServerID", 501},
                      {"0/MediaFile/StoreUrl", firstUrl.c_str()},
                      {"0/UserName", kUser},
                      // Where the second is stored, whatever the client said.
                      {"1/MediaFile/StorageType", "localStorage"},
                      {"1/MediaFile/StorageServerID", 0}});
        const std::string registeredAt = all.Str((r + "0/RegisterTime").c_str());
        EXPECT_LT(std::abs(std::difftime(ParseLocalTime(registeredAt), std::time(nullptr))), 120.0)
            << registeredAt;
    }
    {
        SCOPED_TRACE("search criteria and paging");
        EXPECT_EQ(RecordIds(Records(R"("ElementID":1003)")), (std::vector<int>{1}));
        EXPECT_EQ(RecordIds(Records(
                      R"("StartTimeFrom":"2026-01-03 00:00:00","StartTimeTo":"2026-01-03 23:59:59")")),
                  (std::vector<int>{2}));
        EXPECT_EQ(RecordIds(Records(R"("StartTimeTo":"2026-01-02 10:00:00")")), (std::vector<int>{1}))
            << "the range includes its ends";
        RestReply page = Records("", R"("PageIndex":2,"PageSize":1)");
        EXPECT_EQ(RecordIds(page), (std::vector<int>{2}));
        EXPECT_EQ(page.Int("/ResponseStatus/Data/TotalCount"), 2);
        EXPECT_EQ(page.Int("/ResponseStatus/Data/PageIndex"), 2);
        EXPECT_EQ(Records(R"("StartTimeFrom":"yesterday")").ErrorCode(), 2);
        EXPECT_EQ(Records("", R"("PageIndex":0)").ErrorCode(), 2);
    }
    RestReply storage = Control("GET", "/storage");
    EXPECT_EQ(storage.Int("/ResponseStatus/Data/Stores/1/Objects/0/Count"), 1)
        << "pool-records: " << storage.body;
}

TEST_F(StorageTest, AStoppedStoreAndRefusedKeysFailTheClientUntilReset) {
    const SStorageServerConfig local = LocalStorage();
    const SStorageServerConfig media = ServerStorage(501, "pool-media");
    RestReply bellInfo = Post(Plugin("/MediaManagement/MediaFile/1"));
    RestReply evacuationInfo = Post(Plugin("/MediaManagement/MediaFile/4"));
    const std::string bell = bellInfo.Str("/ResponseStatus/Data/materialInfo/StoreUrl");
    const std::string evacuation = evacuationInfo.Str("/ResponseStatus/Data/materialInfo/StoreUrl");
    ASSERT_TRUE(Download(local, bell, scratch_ + "/bell.wav").ok);
    {
        SCOPED_TRACE("a stopped store: no connection, its port kept, recordings there refused");
        ASSERT_EQ(Control("POST", "/storage/local", R"({"Running":false})").ErrorCode(), 0);
        EXPECT_FALSE(Stores(Control("GET", "/storage"))["local"]->operator[]("Running").GetBool());
        const Transfer t = Download(local, bell, scratch_ + "/bell-2.wav");
        EXPECT_FALSE(t.ok);
        EXPECT_EQ(t.code, CloudStorage::kObjectConnect) << t.message;
        EXPECT_FALSE(std::filesystem::exists(scratch_ + "/bell-2.wav"));
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<uint16_t>(local.DownloadPort));
        EXPECT_NE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0)
            << "the port is kept";
        ::close(fd);
        RestReply record = Record(R"({"ID":1001})", "2026-01-02 10:00:00", "bell", bell);
        EXPECT_EQ(record.ErrorCode(), 3) << record.body;
        ASSERT_EQ(Control("POST", "/storage/local", R"({"Running":true})").ErrorCode(), 0);
        EXPECT_EQ(Stores(Control("GET", "/storage"))["local"]->operator[]("Port").GetInt(),
                  local.DownloadPort);
        const Transfer back = Download(local, bell, scratch_ + "/bell-3.wav");
        EXPECT_TRUE(back.ok) << "the same port, the same objects: " << back.message;
    }
    {
        SCOPED_TRACE("a store that refuses the keys the platform hands out");
        ASSERT_EQ(
            Control("POST", "/storage/501", R"({"AccessKey":"ROTATEDKEY","SecretKey":"rotated/secret"})")
                .ErrorCode(),
            0);
        RestReply storage = Control("GET", "/storage");
        const rapidjson::Value& server = *Stores(storage)["501"];
        EXPECT_STREQ(server["AccessKey"].GetString(), "ROTATEDKEY");
        EXPECT_FALSE(server["FixtureKeys"].GetBool());
        EXPECT_EQ(ServerStorage(501, "pool-media").AccessKey, "RECORDSERVERKEY0501")
            << "the old keys are handed out";
        const Transfer refused = Download(media, evacuation, scratch_ + "/evacuation.mp3");
        EXPECT_FALSE(refused.ok);
        EXPECT_EQ(refused.code, CloudStorage::kObjectAccessDenied) << refused.message;
        SStorageServerConfig rotated = media;
        rotated.AccessKey = "ROTATEDKEY";
        rotated.SecretKey = "rotated/secret";
        const Transfer withNew = Download(rotated, evacuation, scratch_ + "/evacuation-2.mp3");
        EXPECT_TRUE(withNew.ok) << "the objects are still there: " << withNew.message;
    }
    {
        SCOPED_TRACE("a reset heals both");
        ASSERT_EQ(Control("POST", "/storage/local", R"({"Running":false})").ErrorCode(), 0);
        RestReply reset = Control("POST", "/reset");
        ASSERT_EQ(reset.ErrorCode(), 0) << reset.body;
        RestReply storage = Control("GET", "/storage");
        auto stores = Stores(storage);
        EXPECT_TRUE((*stores["local"])["Running"].GetBool());
        EXPECT_TRUE((*stores["501"])["FixtureKeys"].GetBool());
        const Transfer bellAgain = Download(local, bell, scratch_ + "/bell-4.wav");
        EXPECT_TRUE(bellAgain.ok) << bellAgain.message;
        const Transfer evacuationAgain = Download(media, evacuation, scratch_ + "/evacuation-3.mp3");
        EXPECT_TRUE(evacuationAgain.ok) << evacuationAgain.message;
    }
    EXPECT_EQ(Control("POST", "/storage/999", R"({"Running":false})").ErrorCode(), 3);
    EXPECT_EQ(Control("POST", "/storage/local", R"({"Running":"no"})").ErrorCode(), 2);
    EXPECT_EQ(Control("POST", "/storage/local", R"({"AccessKey":"only"})").ErrorCode(), 2);
}

TEST(StorageStart, FailuresExitWithOneClearLineAndWithoutStoresNoNodeIsNeeded) {
    const std::string dir = MakeTempDir("storage-start");
    ASSERT_FALSE(dir.empty());
    auto failure = [](CPlatformProcess& p, const std::string& text) {
        const std::vector<std::string> lines = PlatformLines(p.Stderr(), "");
        EXPECT_EQ(lines.size(), 1u) << p.Stderr();
        EXPECT_NE(p.Stderr().find(text), std::string::npos) << p.Stderr();
    };
    {
        SCOPED_TRACE("node is missing");
        CPlatformProcess p;
        EXPECT_EQ(p.RunToExit({"--fixture", DemoFixture(), "--listen", kAnyPort, "--node", dir + "/no-node"}),
                  1);
        failure(p, "cannot run " + dir + "/no-node");
        failure(p, "scripts/setup.sh");
    }
    {
        SCOPED_TRACE("the store's package is not installed");
        const std::string script = dir + "/s3rver.js";
        std::filesystem::copy_file(SourceDir() + "/scripts/objectstore/s3rver.js", script);
        CPlatformProcess p;
        EXPECT_EQ(
            p.RunToExit({"--fixture", DemoFixture(), "--listen", kAnyPort, "--object-store-script", script}),
            1);
        failure(p, "object store package is not installed (run scripts/setup.sh");
    }
    {
        SCOPED_TRACE("the store's port is taken");
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(::listen(fd, 1), 0);
        socklen_t length = sizeof(address);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        const int taken = ntohs(address.sin_port);
        const std::string fixture = dir + "/taken.json";
        std::ofstream(fixture) << R"({"Users":[{"ID":1,"Name":"operator","Password":"Operator#2026"}],)"
                               << R"("StreamingServer":{"RtspPort":0},"StorageConfig":{"AccessKey":"K",)"
                               << R"("SecretKey":"S","ServerIp":"127.0.0.1","ObjectUploadPort":)" << taken
                               << R"(,"ObjectDownloadPort":)" << taken << R"(,"PoolName":"broadcast"}})";
        CPlatformProcess p;
        EXPECT_EQ(p.RunToExit({"--fixture", fixture, "--listen", kAnyPort, "--sim-ports", "fixture"}), 1);
        failure(p, "the port is taken");
        ::close(fd);
    }
    {
        SCOPED_TRACE("--object-store off: no node, the fixture's addresses, today's checks");
        CPlatformProcess p;
        ASSERT_TRUE(
            p.Start({"--fixture", DemoFixture(), "--object-store", "off", "--node", dir + "/no-node"}))
            << p.Error();
        EXPECT_TRUE(PlatformLines(p.Stdout(), "object store").empty()) << p.Stdout();
        CRestClient client(p.RestUrl());
        std::string error;
        ASSERT_TRUE(client.Login(kUser, kPassword, error)) << error;
        EXPECT_EQ(client.Send("GET", kLocalConfig).Int("/ResponseStatus/Data/StorageConfig/ObjectUploadPort"),
                  18655);
        EXPECT_EQ(client.Send("POST", kAccessWay, R"({"SiteID":0,"DeviceID":501,"DeviceType":2})")
                      .Int("/ResponseStatus/Data/ObjectPort"),
                  18657);
        RestReply bell = client.Send("POST", Plugin("/MediaManagement/MediaFile/1"));
        EXPECT_EQ(bell.Str("/ResponseStatus/Data/materialInfo/StoreUrl"),
                  "http://127.0.0.1:18655/broadcast/prompt/bell.wav");
        EXPECT_EQ(bell.Int("/ResponseStatus/Data/materialInfo/size"), 345) << "the fixture's size";
        RestReply record = client.Send(
            "POST", Plugin("/RealTimeBroadcast/Record"),
            R"({"RealTimeBroadcastRecordsRequest":{"ElementList":{"Element":[{"ID":1001}]},)"
            R"("StartTime":"2026-01-02 10:00:00","MediaFile":{"Name":"r","format":"wav","size":4,)"
            R"("StorageServerID":501,"StorageType":1,"StoreUrl":"http://s/pool-records/r.wav"}}})");
        EXPECT_EQ(record.ErrorCode(), 0) << record.body;
        RestReply records = client.Send("POST", Plugin("/RealTimeBroadcast/Records"), "{}");
        const std::string r = "/ResponseStatus/Data/RealTimeBroadcastRecordList/RealTimeBroadcastRecord/0/";
        EXPECT_EQ(records.Int((r + "MediaFile/size").c_str()), 4) << "as the client said";
        EXPECT_EQ(records.Int((r + "MediaFile/Bytes").c_str()), -1);
        EXPECT_EQ(records.Str((r + "MediaFile/StorageType").c_str()), "pStorage");
        CRestClient control(p.RestUrl());
        RestReply storage = control.Send("GET", "/_control/storage");
        EXPECT_FALSE(storage.Node("/ResponseStatus/Data/Enabled")->GetBool());
        EXPECT_EQ(control.Send("POST", "/_control/storage/local", R"({"Running":false})").ErrorCode(), 4);
        EXPECT_EQ(p.Stop(), 0);
    }
    {
        SCOPED_TRACE("--no-peers starts no store either");
        CPlatformProcess p;
        ASSERT_TRUE(p.Start({"--fixture", DemoFixture(), "--no-peers", "--node", dir + "/no-node"}))
            << p.Error();
        EXPECT_TRUE(PlatformLines(p.Stdout(), "object store").empty()) << p.Stdout();
        CRestClient control(p.RestUrl());
        EXPECT_FALSE(
            control.Send("GET", "/_control/storage").Node("/ResponseStatus/Data/Enabled")->GetBool());
        EXPECT_EQ(p.Stop(), 0);
    }
    std::filesystem::remove_all(dir);
}

TEST(StorageStart, ItsOwnFixtureMakesATonePassesOverAFileWithoutRecipeAndReusesTheCache) {
    const std::string dir = MakeTempDir("storage-own");
    ASSERT_FALSE(dir.empty());
    const std::string fixture = dir + "/site.json";
    std::ofstream(fixture)
        << R"({"Users":[{"ID":1,"Name":"operator","Password":"Operator#2026"}],)"
        << R"("MediaDirectories":[{"ID":1,"Name":"Tones","ParentID":0}],"MediaFiles":[)"
        << R"({"ID":1,"Name":"a440","format":"mp3","StorageType":"localStorage","StoragePoolID":"library",)"
        << R"("StoreUrl":"http://127.0.0.1:0/library/tones/a440.mp3","ParentID":1,)"
        << R"("Audio":{"Tone":{"Hz":440,"Seconds":3}}},)"
        << R"({"ID":2,"Name":"missing","format":"wav","size":99,"duration":9,"StorageType":"localStorage",)"
        << R"("StoragePoolID":"library","StoreUrl":"http://127.0.0.1:1/library/missing.wav","ParentID":1}],)"
        << R"("StorageConfig":{"AccessKey":"OWNKEY","SecretKey":"own/secret","ServerIp":"127.0.0.1",)"
        << R"("PoolName":"library"}})";
    const std::string storageDir = dir + "/storage";
    int firstSize = 0;
    for (int run = 1; run <= 2; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        CPlatformProcess p;
        ASSERT_TRUE(p.Start({"--fixture", fixture, "--storage-dir", storageDir})) << p.Error();
        const std::string cached = run == 1 ? "(0 from the cache" : "(1 from the cache";
        EXPECT_EQ(PlatformLines(p.Stdout(), "media library: 1 files stored " + cached).size(), 1u)
            << p.Stdout();
        CRestClient client(p.RestUrl());
        std::string error;
        RestReply login;
        ASSERT_TRUE(client.Login(kUser, kPassword, error, &login)) << error;
        const std::string key = login.Str("/ResponseStatus/Data/SessionKey");
        RestReply config = client.Send("GET", kLocalConfig);
        const std::string s = "/ResponseStatus/Data/StorageConfig/";
        SStorageServerConfig c;
        c.ServerIp = "127.0.0.1";
        c.UploadPort = config.Int((s + "ObjectUploadPort").c_str());
        c.DownloadPort = config.Int((s + "ObjectDownloadPort").c_str());
        c.PoolName = "library";
        const int type = config.Int((s + "SecureEncryptType").c_str());
        c.AccessKey = Decrypt(key, type, config.Str((s + "AccessKey").c_str()));
        c.SecretKey = Decrypt(key, type, config.Str((s + "SecretKey").c_str()));

        RestReply tone = client.Send("POST", Plugin("/MediaManagement/MediaFile/1"));
        const std::string toneUrl = tone.Str("/ResponseStatus/Data/materialInfo/StoreUrl");
        EXPECT_EQ(PortOf(toneUrl), c.DownloadPort);
        EXPECT_EQ(tone.Int("/ResponseStatus/Data/materialInfo/duration"), 3);
        const std::string path = dir + "/a440-" + std::to_string(run) + ".mp3";
        const Transfer got = Download(c, toneUrl, path);
        ASSERT_TRUE(got.ok) << got.message;
        const std::vector<int16_t> audio = BcastTest::DecodeWithFfmpeg(path, 8000, {}, &error);
        ASSERT_FALSE(audio.empty()) << error;
        EXPECT_NEAR(audio.size() / 8000.0, 3.0, 0.1);
        EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(audio, 8000), 8000), 440, 5);
        const int size = tone.Int("/ResponseStatus/Data/materialInfo/size");
        if (run == 1) {
            firstSize = size;
        } else {
            EXPECT_EQ(size, firstSize) << "the same file from the cache";
        }

        RestReply missing = client.Send("POST", Plugin("/MediaManagement/MediaFile/2"));
        EXPECT_EQ(missing.Int("/ResponseStatus/Data/materialInfo/size"), 99) << "as the fixture says";
        EXPECT_EQ(missing.Int("/ResponseStatus/Data/materialInfo/duration"), 9);
        const std::string missingUrl = missing.Str("/ResponseStatus/Data/materialInfo/StoreUrl");
        EXPECT_EQ(PortOf(missingUrl), c.DownloadPort) << "it names the store, which has no such object";
        const Transfer none = Download(c, missingUrl, dir + "/missing.wav");
        EXPECT_FALSE(none.ok);
        EXPECT_EQ(none.code, CloudStorage::kObjectNotFound) << none.message;
        EXPECT_EQ(p.Stop(), 0);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
