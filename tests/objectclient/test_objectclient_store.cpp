// The object client against a real S3-compatible store (s3rver under node on loopback): round trips with
// awkward keys, refusals and their messages, downloads that never leave a partial file, presigned addresses
// fetched without keys, TLS with a private certificate authority, and Cancel from another thread.

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>

#include "ObjectStorePeer.h"
#include "TestFiles.h"
#include "TestProcess.h"
#include "framework/media/devnet/CurlHandles.h"
#include "framework/media/objectclient/ObjectClient.h"
#include "framework/media/objectclient/SignedRequest.h"

namespace {

using namespace CloudStorage;
using BcastTest::CObjectStorePeer;
using BcastTest::CTempDir;
using BcastTest::ObjectStoreOptions;
using BcastTest::RandomBytes;
using BcastTest::ReadWholeFile;
using BcastTest::WriteWholeFile;
using Clock = std::chrono::steady_clock;
using Progress = std::pair<uint64_t, uint64_t>;

constexpr const char* kPool = "broadcast";
constexpr const char* kAccessKey = "store-access";
constexpr const char* kSecretKey = "store/secret+key";

bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

SStorageServerConfig ConfigFor(const CObjectStorePeer& store, const std::string& secretKey = kSecretKey) {
    SStorageServerConfig config;
    config.EnableHttps = store.Scheme() == "https";
    config.ServerIp = "127.0.0.1";
    config.UploadPort = store.Port();
    config.DownloadPort = store.Port();
    config.PoolName = kPool;
    config.AccessKey = kAccessKey;
    config.SecretKey = secretKey;
    return config;
}

ObjectStoreOptions StoreOptions() {
    ObjectStoreOptions options;
    options.accessKey = kAccessKey;
    options.secretKey = kSecretKey;
    options.buckets = {kPool, "other-pool"};
    return options;
}

struct LastError {
    int code = -1;
    std::string message;
};

LastError ErrorOf(const CObjectClient& client) {
    LastError error;
    client.GetLastError(error.code, error.message);
    return error;
}

struct PlainAnswer {
    long status = 0;
    std::string body;
};

// A GET with no signing of its own, as a browser fetches a presigned address.
PlainAnswer PlainGet(const std::string& url) {
    PlainAnswer answer;
    DevNet::EasyPtr easy(curl_easy_init());
    if (!easy) {
        return answer;
    }
    curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, 30L);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &answer.body);
    curl_easy_setopt(
        easy.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t n, void* sink) {
            static_cast<std::string*>(sink)->append(data, size * n);
            return size * n;
        });
    if (curl_easy_perform(easy.get()) == CURLE_OK) {
        curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    }
    return answer;
}

// Sets an environment variable for the scope.
class CScopedEnv {
public:
    CScopedEnv(const char* name, const std::string& value) : name_(name) {
        const char* old = std::getenv(name);
        if (old != nullptr) {
            old_ = old;
            hadOld_ = true;
        }
        if (value.empty()) {
            ::unsetenv(name);
        } else {
            ::setenv(name, value.c_str(), 1);
        }
    }
    ~CScopedEnv() {
        if (hadOld_) {
            ::setenv(name_, old_.c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::string old_;
    bool hadOld_ = false;
};

// One store shared by the cases that do not change it.
class ObjectClientStore : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        store_ = new CObjectStorePeer();
        store_->Start(StoreOptions());
    }
    static void TearDownTestSuite() {
        delete store_;
        store_ = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(store_->IsRunning()) << "the object store did not start: " << store_->Error();
    }

    static CObjectStorePeer* store_;
    CTempDir dir_{"objectclient-store"};
};

CObjectStorePeer* ObjectClientStore::store_ = nullptr;

TEST_F(ObjectClientStore, FilesMakeTheRoundTripByteForByte) {
    CObjectClient client(ConfigFor(*store_));
    ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
    std::vector<std::pair<uint64_t, uint64_t>> progress;
    client.SetProgressCallback([&](uint64_t done, uint64_t total) { progress.emplace_back(done, total); });

    const std::string data = RandomBytes(3 * 1024 * 1024 + 123, 1);
    const std::string source = dir_.File("talk.wav");
    WriteWholeFile(source, data);
    const std::string key = "recordings/2024-05-01 08:00 live talk \xC3\xBC\xE5\xB9\xBF\xE6\x92\xAD (1).wav";
    std::string url;
    {
        SCOPED_TRACE("upload under a key that needs encoding");
        ASSERT_TRUE(client.UploadFile(url, source, key)) << ErrorOf(client).message;
        EXPECT_EQ(url,
                  store_->Url() +
                      "/broadcast/recordings/2024-05-01%2008%3A00%20live%20talk%20%C3%BC%E5%B9%BF%E6%92%AD%20"
                      "%281%29.wav");
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.back(), Progress(data.size(), data.size()));
    }
    {
        SCOPED_TRACE("download by the returned URL, by /pool/key and by the bare key");
        const std::string byUrl = dir_.File("by-url.wav");
        const std::string byPath = dir_.File("by-path.wav");
        const std::string byKey = dir_.File("by-key.wav");
        progress.clear();
        ASSERT_TRUE(client.DownloadFile(url, byUrl)) << ErrorOf(client).message;
        ASSERT_FALSE(progress.empty());
        EXPECT_EQ(progress.back(), Progress(data.size(), data.size()));
        ASSERT_TRUE(client.DownloadFile(std::string("/") + kPool + "/" + key, byPath))
            << ErrorOf(client).message;
        ASSERT_TRUE(client.DownloadFile(key, byKey)) << ErrorOf(client).message;
        for (const std::string& path : {byUrl, byPath, byKey}) {
            EXPECT_TRUE(ReadWholeFile(path) == data) << path << " differs from what was uploaded";
            EXPECT_FALSE(Exists(path + ".part"));
        }
    }
    {
        SCOPED_TRACE("the URL's host and port are not where the object is fetched");
        const std::string target = dir_.File("moved.wav");
        const std::string path = url.substr(store_->Url().size());
        ASSERT_TRUE(client.DownloadFile("http://storage.example.invalid:1" + path, target))
            << ErrorOf(client).message;
        EXPECT_TRUE(ReadWholeFile(target) == data);
    }
    {
        SCOPED_TRACE("default key and an empty file");
        const std::string empty = dir_.File("silence.wav");
        WriteWholeFile(empty, "");
        std::string emptyUrl;
        ASSERT_TRUE(client.UploadFile(emptyUrl, empty)) << ErrorOf(client).message;
        EXPECT_EQ(emptyUrl, store_->Url() + "/broadcast/silence.wav");
        WriteWholeFile(dir_.File("back.wav"), "old content");
        ASSERT_TRUE(client.DownloadFile("silence.wav", dir_.File("back.wav"))) << ErrorOf(client).message;
        EXPECT_EQ(ReadWholeFile(dir_.File("back.wav")), "");
    }
    {
        SCOPED_TRACE("an object of another pool of the same store");
        const std::string small = dir_.File("bell.mp3");
        WriteWholeFile(small, RandomBytes(4096, 2));
        SStorageServerConfig other = ConfigFor(*store_);
        other.PoolName = "other-pool";
        CObjectClient otherClient(other);
        ASSERT_TRUE(otherClient.Init()) << ErrorOf(otherClient).message;
        std::string otherUrl;
        ASSERT_TRUE(otherClient.UploadFile(otherUrl, small, "prompt/bell.mp3"))
            << ErrorOf(otherClient).message;
        ASSERT_TRUE(client.DownloadFile(otherUrl, dir_.File("bell-back.mp3"))) << ErrorOf(client).message;
        EXPECT_TRUE(ReadWholeFile(dir_.File("bell-back.mp3")) == ReadWholeFile(small));
    }
}

TEST_F(ObjectClientStore, MissingObjectsAndPoolsLeaveNoFileBehind) {
    CObjectClient client(ConfigFor(*store_));
    ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
    {
        SCOPED_TRACE("missing object");
        const std::string target = dir_.File("absent.wav");
        EXPECT_FALSE(client.DownloadFile("prompt/absent.wav", target));
        LastError error = ErrorOf(client);
        EXPECT_EQ(error.code, kObjectNotFound) << error.message;
        EXPECT_NE(error.message.find("GET " + store_->Url() + "/broadcast/prompt/absent.wav: 404 NoSuchKey"),
                  std::string::npos)
            << error.message;
        EXPECT_FALSE(Exists(target));
        EXPECT_FALSE(Exists(target + ".part"));
    }
    {
        SCOPED_TRACE("a complete file already at the target stays as it was");
        const std::string target = dir_.File("kept.wav");
        WriteWholeFile(target, "the complete earlier download");
        EXPECT_FALSE(client.DownloadFile("/broadcast/absent.wav", target));
        EXPECT_EQ(ErrorOf(client).code, kObjectNotFound);
        EXPECT_EQ(ReadWholeFile(target), "the complete earlier download");
        EXPECT_FALSE(Exists(target + ".part"));
    }
    {
        SCOPED_TRACE("missing pool named by a URL");
        EXPECT_FALSE(client.DownloadFile(store_->Url() + "/no-such-pool/a.wav", dir_.File("x.wav")));
        LastError error = ErrorOf(client);
        EXPECT_EQ(error.code, kObjectNotFound) << error.message;
        EXPECT_NE(error.message.find("NoSuchBucket"), std::string::npos) << error.message;
        EXPECT_FALSE(Exists(dir_.File("x.wav")));
    }
    {
        SCOPED_TRACE("unknown pool at Init");
        SStorageServerConfig config = ConfigFor(*store_);
        config.PoolName = "no-such-pool";
        CObjectClient other(config);
        EXPECT_FALSE(other.Init());
        LastError error = ErrorOf(other);
        EXPECT_EQ(error.code, kObjectNotFound) << error.message;
        EXPECT_NE(error.message.find("no-such-pool"), std::string::npos) << error.message;
        std::string url;
        WriteWholeFile(dir_.File("y.wav"), "y");
        EXPECT_FALSE(other.UploadFile(url, dir_.File("y.wav")));
        EXPECT_EQ(ErrorOf(other).code, kObjectNotInitialised);
    }
    {
        SCOPED_TRACE("local failures");
        EXPECT_FALSE(client.DownloadFile("silence.wav", dir_.File("no-such-dir/a.wav")));
        EXPECT_EQ(ErrorOf(client).code, kObjectLocalWrite) << ErrorOf(client).message;
        std::string url;
        EXPECT_FALSE(client.UploadFile(url, dir_.File("no-such-file.wav")));
        EXPECT_EQ(ErrorOf(client).code, kObjectLocalRead) << ErrorOf(client).message;
        EXPECT_FALSE(client.UploadFile(url, dir_.Path(), "a-directory"));
        EXPECT_EQ(ErrorOf(client).code, kObjectLocalRead) << ErrorOf(client).message;
        EXPECT_TRUE(url.empty());
    }
}

TEST_F(ObjectClientStore, PresignedAddressesServeTheObjectWithoutKeysUntilTheyExpire) {
    CObjectClient client(ConfigFor(*store_));
    ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
    const std::string data = RandomBytes(200 * 1024 + 7, 4);
    WriteWholeFile(dir_.File("record.wav"), data);
    const std::string key = "records/2026/01/02/talk 1001 (\xC3\xBC).wav";
    std::string stored;
    ASSERT_TRUE(client.UploadFile(stored, dir_.File("record.wav"), key)) << ErrorOf(client).message;
    {
        SCOPED_TRACE("a plain GET of the address returns the object, however the object is named");
        for (const std::string& name :
             {stored, std::string("/") + kPool + "/" + key, key,
              "http://storage.example.invalid:1" + stored.substr(store_->Url().size())}) {
            std::string url;
            ASSERT_TRUE(client.PresignGetUrl(name, 300, url)) << ErrorOf(client).message;
            EXPECT_EQ(url.rfind(stored + "?X-Amz-Algorithm=AWS4-HMAC-SHA256&", 0), 0u) << url;
            const PlainAnswer answer = PlainGet(url);
            EXPECT_EQ(answer.status, 200) << name << ": " << answer.body.substr(0, 300);
            EXPECT_TRUE(answer.body == data) << name << ": " << answer.body.size() << " bytes";
        }
    }
    {
        SCOPED_TRACE("the longest expiry; no Init needed to presign");
        CObjectClient fresh(ConfigFor(*store_));
        std::string url;
        ASSERT_TRUE(fresh.PresignGetUrl(stored, 604800, url)) << ErrorOf(fresh).message;
        EXPECT_TRUE(PlainGet(url).body == data);
    }
    std::string url;
    ASSERT_TRUE(client.PresignGetUrl(stored, 300, url)) << ErrorOf(client).message;
    {
        SCOPED_TRACE("a tampered signature is refused");
        std::string tampered = url;
        tampered.back() = tampered.back() == '0' ? '1' : '0';
        const PlainAnswer answer = PlainGet(tampered);
        EXPECT_EQ(answer.status, 403);
        EXPECT_NE(answer.body.find("SignatureDoesNotMatch"), std::string::npos) << answer.body;
    }
    {
        SCOPED_TRACE("the signature does not carry over to another object or a longer validity");
        WriteWholeFile(dir_.File("other.wav"), "other");
        std::string other;
        ASSERT_TRUE(client.UploadFile(other, dir_.File("other.wav"), "records/other.wav"));
        const std::string query = url.substr(url.find('?'));
        EXPECT_EQ(PlainGet(other + query).status, 403);
        std::string longer = url;
        longer.replace(longer.find("X-Amz-Expires=300"), 17, "X-Amz-Expires=301");
        EXPECT_EQ(PlainGet(longer).status, 403);
        EXPECT_EQ(PlainGet(stored).status, 403) << "the object itself is not public";
    }
    {
        SCOPED_TRACE("keys the store does not accept sign addresses it refuses");
        CObjectClient wrong(ConfigFor(*store_, "not-the-secret"));
        std::string refused;
        ASSERT_TRUE(wrong.PresignGetUrl(stored, 300, refused));
        EXPECT_EQ(PlainGet(refused).status, 403);
    }
    {
        SCOPED_TRACE("a missing object is 404 for the holder of the address");
        std::string missing;
        ASSERT_TRUE(client.PresignGetUrl("records/absent.wav", 300, missing));
        const PlainAnswer answer = PlainGet(missing);
        EXPECT_EQ(answer.status, 404);
        EXPECT_NE(answer.body.find("NoSuchKey"), std::string::npos) << answer.body;
    }
    {
        SCOPED_TRACE("an expired address is refused");
        std::string shortLived;
        ASSERT_TRUE(client.PresignGetUrl(stored, 1, shortLived)) << ErrorOf(client).message;
        std::this_thread::sleep_for(std::chrono::milliseconds(2100));
        const PlainAnswer answer = PlainGet(shortLived);
        EXPECT_EQ(answer.status, 403);
        EXPECT_NE(answer.body.find("Request has expired"), std::string::npos) << answer.body;
    }
    {
        SCOPED_TRACE("expiries outside 1..604800 s are refused");
        for (int expiry : {0, 604801}) {
            std::string none;
            EXPECT_FALSE(client.PresignGetUrl(stored, expiry, none));
            EXPECT_EQ(ErrorOf(client).code, kObjectBadConfig) << ErrorOf(client).message;
            EXPECT_TRUE(none.empty());
        }
    }
}

TEST_F(ObjectClientStore, BadConfigurationsAreRefusedBeforeAnyRequest) {
    struct Case {
        const char* what;
        std::function<void(SStorageServerConfig&)> change;
    };
    const Case cases[] = {
        {"no address", [](SStorageServerConfig& c) { c.ServerIp.clear(); }},
        {"address with a path", [](SStorageServerConfig& c) { c.ServerIp = "127.0.0.1/x"; }},
        {"no pool", [](SStorageServerConfig& c) { c.PoolName.clear(); }},
        {"no access key", [](SStorageServerConfig& c) { c.AccessKey.clear(); }},
        {"no secret key", [](SStorageServerConfig& c) { c.SecretKey.clear(); }},
        {"upload port 0", [](SStorageServerConfig& c) { c.UploadPort = 0; }},
        {"download port 65536", [](SStorageServerConfig& c) { c.DownloadPort = 65536; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SStorageServerConfig config = ConfigFor(*store_);
        c.change(config);
        CObjectClient client(config);
        EXPECT_FALSE(client.Init());
        EXPECT_EQ(ErrorOf(client).code, kObjectBadConfig) << ErrorOf(client).message;
        EXPECT_FALSE(client.DownloadFile("silence.wav", dir_.File("a.wav")));
        EXPECT_EQ(ErrorOf(client).code, kObjectNotInitialised);
    }
    CObjectClient client(ConfigFor(*store_));
    ASSERT_TRUE(client.Init());
    client.Uninit();
    EXPECT_FALSE(client.DownloadFile("silence.wav", dir_.File("a.wav")));
    EXPECT_EQ(ErrorOf(client).code, kObjectNotInitialised);
}

TEST_F(ObjectClientStore, CancelFromAnotherThreadEndsADownload) {
    CObjectClient client(ConfigFor(*store_));
    ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
    const std::string data = RandomBytes(24 * 1024 * 1024, 3);
    const std::string source = dir_.File("long.wav");
    WriteWholeFile(source, data);
    std::string url;
    ASSERT_TRUE(client.UploadFile(url, source, "long.wav")) << ErrorOf(client).message;

    // The first progress report with data hands over to the other thread and waits until it has called
    // Cancel, so the cancel lands in the middle of the transfer.
    std::mutex mutex;
    std::condition_variable changed;
    bool started = false;
    bool cancelled = false;
    uint64_t doneAtCancel = 0;
    client.SetProgressCallback([&](uint64_t done, uint64_t total) {
        std::unique_lock<std::mutex> lock(mutex);
        if (!started && done > 0 && done < total) {
            started = true;
            doneAtCancel = done;
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(5), [&] { return cancelled; });
        }
    });
    std::thread canceller([&] {
        std::unique_lock<std::mutex> lock(mutex);
        if (changed.wait_for(lock, std::chrono::seconds(30), [&] { return started; })) {
            client.Cancel();
            cancelled = true;
            changed.notify_all();
        }
    });
    const std::string target = dir_.File("long-back.wav");
    WriteWholeFile(target, "earlier");
    const auto start = Clock::now();
    const bool ok = client.DownloadFile(url, target);
    const auto elapsed = Clock::now() - start;
    canceller.join();
    ASSERT_TRUE(started) << "no progress was reported";
    EXPECT_FALSE(ok);
    LastError error = ErrorOf(client);
    EXPECT_EQ(error.code, kObjectCancelled) << error.message;
    EXPECT_LT(doneAtCancel, data.size());
    EXPECT_LT(elapsed, std::chrono::seconds(10));
    EXPECT_EQ(ReadWholeFile(target), "earlier");
    EXPECT_FALSE(Exists(target + ".part"));

    SCOPED_TRACE("the next transfer is not affected by the earlier Cancel");
    client.SetProgressCallback(nullptr);
    ASSERT_TRUE(client.DownloadFile(url, target)) << ErrorOf(client).message;
    EXPECT_TRUE(ReadWholeFile(target) == data);
}

// Stores of their own: these cases restart a store or change its keys or certificate.

TEST(ObjectClientStoreKeys, RefusedKeysFailWith403AndUploadNothing) {
    CObjectStorePeer store;
    ASSERT_TRUE(store.Start(StoreOptions())) << store.Error();
    CTempDir dir("objectclient-keys");
    {
        SCOPED_TRACE("wrong secret key at Init");
        CObjectClient client(ConfigFor(store, "not-the-secret"));
        EXPECT_FALSE(client.Init());
        LastError error = ErrorOf(client);
        EXPECT_EQ(error.code, kObjectAccessDenied) << error.message;
        EXPECT_NE(error.message.find("HEAD " + store.Url() + "/broadcast: 403"), std::string::npos)
            << error.message;
    }
    {
        SCOPED_TRACE("unknown access key at Init");
        SStorageServerConfig config = ConfigFor(store);
        config.AccessKey = "nobody";
        CObjectClient client(config);
        EXPECT_FALSE(client.Init());
        EXPECT_EQ(ErrorOf(client).code, kObjectAccessDenied) << ErrorOf(client).message;
    }
    {
        SCOPED_TRACE("the store changes its keys after Init");
        CObjectClient client(ConfigFor(store));
        ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
        const int port = store.Port();
        const std::string dataDir = dir.File("rotated-data");
        store.Stop();
        ObjectStoreOptions rotated = StoreOptions();
        rotated.secretKey = "rotated-secret";
        rotated.port = port;
        rotated.dataDir = dataDir;
        ASSERT_TRUE(store.Start(rotated)) << store.Error();

        const std::string source = dir.File("rec.wav");
        WriteWholeFile(source, RandomBytes(2 * 1024 * 1024, 4));
        std::string url;
        EXPECT_FALSE(client.UploadFile(url, source, "rec/refused.wav"));
        LastError error = ErrorOf(client);
        EXPECT_EQ(error.code, kObjectAccessDenied) << error.message;
        EXPECT_NE(error.message.find("PUT " + store.Url() +
                                     "/broadcast/rec/refused.wav: 403 SignatureDoesNotMatch: "
                                     "The request signature we calculated does not match"),
                  std::string::npos)
            << error.message;
        EXPECT_TRUE(url.empty());

        SCOPED_TRACE("nothing was stored");
        CObjectClient rotatedClient(ConfigFor(store, "rotated-secret"));
        ASSERT_TRUE(rotatedClient.Init()) << ErrorOf(rotatedClient).message;
        EXPECT_FALSE(rotatedClient.DownloadFile("rec/refused.wav", dir.File("refused.wav")));
        EXPECT_EQ(ErrorOf(rotatedClient).code, kObjectNotFound) << ErrorOf(rotatedClient).message;
    }
}

TEST(ObjectClientStorePorts, UploadAndDownloadPortsAreCheckedAndUsedSeparately) {
    // Two stores over one data directory stand for the upload and the download side of one storage.
    CTempDir dir("objectclient-ports");
    ObjectStoreOptions options = StoreOptions();
    options.dataDir = dir.File("data");
    CObjectStorePeer upload;
    CObjectStorePeer download;
    ASSERT_TRUE(upload.Start(options)) << upload.Error();
    ASSERT_TRUE(download.Start(options)) << download.Error();
    SStorageServerConfig config = ConfigFor(upload);
    config.DownloadPort = download.Port();
    {
        SCOPED_TRACE("Init checks both ports");
        CObjectClient client(config);
        download.Stop();
        EXPECT_FALSE(client.Init());
        EXPECT_EQ(ErrorOf(client).code, kObjectConnect) << ErrorOf(client).message;
        options.port = config.DownloadPort;
        ASSERT_TRUE(download.Start(options)) << download.Error();
        upload.Stop();
        EXPECT_FALSE(client.Init());
        LastError error = ErrorOf(client);
        EXPECT_EQ(error.code, kObjectConnect) << error.message;
        EXPECT_NE(error.message.find(":" + std::to_string(config.UploadPort) + "/"), std::string::npos)
            << error.message;
        options.port = config.UploadPort;
        ASSERT_TRUE(upload.Start(options)) << upload.Error();
    }
    CObjectClient client(config);
    ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
    const std::string data = RandomBytes(512 * 1024, 5);
    WriteWholeFile(dir.File("a.wav"), data);
    std::string url;
    ASSERT_TRUE(client.UploadFile(url, dir.File("a.wav"), "a.wav")) << ErrorOf(client).message;
    EXPECT_EQ(url, upload.Url() + "/broadcast/a.wav");
    upload.Stop();
    ASSERT_TRUE(client.DownloadFile(url, dir.File("b.wav"))) << ErrorOf(client).message;
    EXPECT_TRUE(ReadWholeFile(dir.File("b.wav")) == data);
}

TEST(ObjectClientStoreTls, HttpsWorksWhenTheCertificateIsTrustedAndFailsOtherwise) {
    CTempDir dir("objectclient-tls");
    auto makeCertificate = [&](const std::string& name) {
        return BcastTest::RunProcess(
            {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
             "-days", "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
             dir.File(name + ".key"), "-out", dir.File(name + ".pem")},
            20000);
    };
    for (const char* name : {"store", "stranger"}) {
        auto result = makeCertificate(name);
        ASSERT_EQ(result.exitCode, 0) << "openssl req failed: " << result.output;
    }
    ObjectStoreOptions options = StoreOptions();
    options.certFile = dir.File("store.pem");
    options.keyFile = dir.File("store.key");
    CObjectStorePeer store;
    ASSERT_TRUE(store.Start(options)) << store.Error();
    ASSERT_EQ(store.Scheme(), "https");
    {
        SCOPED_TRACE("the system's authorities do not know the certificate");
        CScopedEnv env(kCaFileVariable, "");
        CObjectClient client(ConfigFor(store));
        EXPECT_FALSE(client.Init());
        EXPECT_EQ(ErrorOf(client).code, kObjectTls) << ErrorOf(client).message;
    }
    {
        SCOPED_TRACE("another private authority is trusted");
        CScopedEnv env(kCaFileVariable, dir.File("stranger.pem"));
        CObjectClient client(ConfigFor(store));
        EXPECT_FALSE(client.Init());
        EXPECT_EQ(ErrorOf(client).code, kObjectTls) << ErrorOf(client).message;
    }
    {
        SCOPED_TRACE("the store's certificate is trusted");
        CScopedEnv env(kCaFileVariable, dir.File("store.pem"));
        CObjectClient client(ConfigFor(store));
        ASSERT_TRUE(client.Init()) << ErrorOf(client).message;
        const std::string data = RandomBytes(1024 * 1024 + 1, 6);
        WriteWholeFile(dir.File("secure.wav"), data);
        std::string url;
        ASSERT_TRUE(client.UploadFile(url, dir.File("secure.wav"), "tls/secure.wav"))
            << ErrorOf(client).message;
        EXPECT_EQ(url, "https://127.0.0.1:" + std::to_string(store.Port()) + "/broadcast/tls/secure.wav");
        ASSERT_TRUE(client.DownloadFile(url, dir.File("secure-back.wav"))) << ErrorOf(client).message;
        EXPECT_TRUE(ReadWholeFile(dir.File("secure-back.wav")) == data);
    }
}

}  // namespace
