// Units of the platform's storage: which stores a fixture needs, object addresses, audio recipes in the
// fixture, rendering them (checked by decoding what was made), the media cache, and one object store run
// as the platform runs it (node and scripts/objectstore, installed by scripts/setup.sh).

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "AudioCheck.h"
#include "framework/media/codec/AudioCodec.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/storage/MediaCache.h"
#include "platform/server/storage/MediaRender.h"
#include "platform/server/storage/ObjectProbe.h"
#include "platform/server/storage/PortHold.h"
#include "platform/server/storage/StoragePlan.h"
#include "platform/server/storage/StoreProcess.h"

using namespace Platform;

namespace {

std::string SourceDir() {
    const char* dir = std::getenv("BCAST_SOURCE_DIR");
    return dir != nullptr ? dir : ".";
}

std::string TempDir(const std::string& tag) {
    std::string pattern = "/tmp/bcast-" + tag + "-XXXXXX";
    char* dir = mkdtemp(&pattern[0]);
    return dir != nullptr ? dir : "";
}

Fixture Demo() {
    Fixture f;
    std::string error;
    EXPECT_TRUE(LoadFixture(SourceDir() + "/fixtures/demo-site.json", f, error)) << error;
    return f;
}

std::string FixtureWithFiles(const std::string& files) {
    return R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"MediaDirectories":[{"ID":1,"Name":"a","ParentID":0}],)"
           R"("MediaFiles":[)" +
           files + "]}";
}

MediaRecipe Tone(double hz, double seconds) {
    MediaRecipe r;
    r.kind = MediaRecipe::Kind::kTone;
    r.hz = hz;
    r.seconds = seconds;
    return r;
}

// Decodes a made file with ffmpeg (independently of the platform) to mono at `rate`.
std::vector<int16_t> Decode(const std::string& path, int rate) {
    std::string error;
    std::vector<int16_t> samples = BcastTest::DecodeWithFfmpeg(path, rate, {}, &error);
    EXPECT_FALSE(samples.empty()) << "ffmpeg cannot decode " << path << ": " << error;
    return samples;
}

}  // namespace

TEST(StoragePlan, TheDemoSiteServesItsLocalStorageAndTheRecordServerAndSaysWhyNotTheOthers) {
    Fixture f = Demo();
    StoragePlan plan;
    std::string error;
    ASSERT_TRUE(PlanStorage(f, "127.0.0.1", plan, error)) << error;
    ASSERT_EQ(plan.stores.size(), 2u);
    const PlannedStore* local = plan.Find("local");
    ASSERT_NE(local, nullptr);
    EXPECT_EQ(local->storageServerId, 0);
    EXPECT_EQ(local->address, "127.0.0.1");
    EXPECT_EQ(local->port, 18655);
    EXPECT_EQ(local->pools, (std::vector<std::string>{"broadcast"}));
    EXPECT_EQ(local->accessKey, "BCASTDEMOACCESSKEY01");
    const PlannedStore* records = plan.Find("501");
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(records->port, 18657);
    EXPECT_EQ(records->pools, (std::vector<std::string>{"pool-records", "pool-media"}))
        << "media pools (type 4) only: the video pool is not an object pool of the broadcast";
    ASSERT_EQ(plan.notServed.size(), 2u);
    EXPECT_EQ(plan.notServed[0].storageServerId, 502);
    EXPECT_NE(plan.notServed[0].reason.find("access path"), std::string::npos) << plan.notServed[0].reason;
    EXPECT_EQ(plan.notServed[1].storageServerId, 503);
    EXPECT_NE(plan.notServed[1].reason.find("AccessType 2"), std::string::npos) << plan.notServed[1].reason;
    EXPECT_EQ(StoreNameOf(*f.FindFile(4), plan), "501");
    EXPECT_EQ(StoreNameOf(*f.FindFile(1), plan), "local");

    {
        SCOPED_TRACE("a storage server by a foreign address, and pools named by media files");
        Fixture g = Demo();
        g.storageServers[0].deviceIp = "192.0.2.50";
        g.files[0].storeUrl = "http://127.0.0.1:18655/jingles/bell.wav";
        ASSERT_TRUE(PlanStorage(g, "127.0.0.1", plan, error)) << error;
        EXPECT_EQ(plan.Find("501"), nullptr);
        EXPECT_EQ(plan.Find("local")->pools, (std::vector<std::string>{"broadcast", "jingles"}));
        EXPECT_EQ(StoreNameOf(*g.FindFile(4), plan), "") << "a file on a storage server that is not served";
    }
    {
        SCOPED_TRACE("fixtures a store cannot serve");
        Fixture ports = Demo();
        ports.storage.objectDownloadPort = 18656;
        EXPECT_FALSE(PlanStorage(ports, "127.0.0.1", plan, error));
        EXPECT_NE(error.find("must be equal"), std::string::npos) << error;
        Fixture pool = Demo();
        pool.storageServers[0].disks[1].poolName = "Pool_Records";
        EXPECT_FALSE(PlanStorage(pool, "127.0.0.1", plan, error));
        EXPECT_NE(error.find("\"Pool_Records\" cannot be a bucket"), std::string::npos) << error;
    }
}

TEST(StoragePlan, ObjectAddressesGiveTheirPoolAndKeyAndTakeAnotherPort) {
    ObjectUrl url;
    ASSERT_TRUE(ParseObjectUrl("http://127.0.0.1:18655/broadcast/daily/night/night-watch.wav", url));
    EXPECT_EQ(url.scheme, "http");
    EXPECT_EQ(url.host, "127.0.0.1");
    EXPECT_EQ(url.port, 18655);
    EXPECT_EQ(url.pool, "broadcast");
    EXPECT_EQ(url.key, "daily/night/night-watch.wav");
    EXPECT_EQ(WithPort(url, 40001), "http://127.0.0.1:40001/broadcast/daily/night/night-watch.wav");
    ASSERT_TRUE(ParseObjectUrl("https://[::1]:9000/pool-media/a.mp3?versionId=3", url));
    EXPECT_EQ(url.host, "[::1]");
    EXPECT_EQ(url.port, 9000);
    EXPECT_EQ(url.key, "a.mp3");
    ASSERT_TRUE(ParseObjectUrl("http://store.example/records/r.wav", url));
    EXPECT_EQ(url.port, 0);
    ASSERT_TRUE(ParseObjectUrl("/records/r%20a.wav", url));
    EXPECT_EQ(url.host, "");
    EXPECT_EQ(url.pool, "records");
    EXPECT_EQ(url.key, "r%20a.wav") << "a bare path is taken literally";
    ASSERT_TRUE(ParseObjectUrl("http://h:1/records/talk%20one/%C3%BC.wav", url));
    EXPECT_EQ(url.key, "talk one/\xC3\xBC.wav") << "an address's path is decoded";
    EXPECT_EQ(WithPort(url, 2), "http://h:2/records/talk%20one/%C3%BC.wav");
    for (const char* bad : {"", "u", "http://h:1/", "http://h:1/pool", "http://h:1/pool/", "http://:1/p/k",
                            "http://h:port/p/k", "http://h:1/p/k%2"}) {
        EXPECT_FALSE(ParseObjectUrl(bad, url)) << bad;
    }
    EXPECT_TRUE(IsBucketName("pool-media"));
    EXPECT_FALSE(IsBucketName("ab"));
    EXPECT_FALSE(IsBucketName("-pool"));
}

TEST(FixtureLoader, ReadsAudioRecipesAndRefusesBadOnes) {
    Fixture f;
    std::string error;
    ASSERT_TRUE(ParseFixture(
        FixtureWithFiles(
            R"({"ID":1,"Name":"a","format":"wav","ParentID":1,"Audio":{"Speech":"Hello there","Voice":"de"}},)"
            R"({"ID":2,"Name":"b","format":"mp3","ParentID":1,"Audio":{"Chime":2.5}},)"
            R"({"ID":3,"Name":"c","format":"wav","ParentID":1,"Audio":{"Tone":{"Hz":440,"Seconds":3}}},)"
            R"({"ID":4,"Name":"d","format":"aac","ParentID":1})"),
        f, error))
        << error;
    EXPECT_EQ(f.files[0].audio.kind, MediaRecipe::Kind::kSpeech);
    EXPECT_EQ(f.files[0].audio.speech, "Hello there");
    EXPECT_EQ(f.files[0].audio.voice, "de");
    EXPECT_EQ(f.files[1].audio.kind, MediaRecipe::Kind::kChime);
    EXPECT_DOUBLE_EQ(f.files[1].audio.seconds, 2.5);
    EXPECT_EQ(f.files[2].audio.kind, MediaRecipe::Kind::kTone);
    EXPECT_DOUBLE_EQ(f.files[2].audio.hz, 440);
    EXPECT_EQ(f.files[3].audio.kind, MediaRecipe::Kind::kNone) << "no recipe: served as the fixture says";

    const std::vector<std::pair<std::string, std::string>> bad = {
        {R"({"Speech":"x","Chime":2})", "exactly one of"},
        {R"({})", "exactly one of"},
        {R"("loud")", "must be an object"},
        {R"({"Speech":""})", "1..2000 characters"},
        {R"({"Speech":"x","Voice":"en us"})", "espeak-ng voice"},
        {R"({"Chime":"two"})", "\"Chime\" must be a number"},
        {R"({"Chime":0})", "0.1..600 seconds"},
        {R"({"Tone":{"Hz":30000,"Seconds":1}})", "\"Hz\" must be 20..16000"},
        {R"({"Tone":{"Hz":440}})", "\"Seconds\" must be a number"},
    };
    for (const auto& c : bad) {
        SCOPED_TRACE(c.first);
        error.clear();
        EXPECT_FALSE(ParseFixture(
            FixtureWithFiles(R"({"ID":1,"Name":"a","format":"wav","ParentID":1,"Audio":)" + c.first + "}"), f,
            error));
        EXPECT_NE(error.find("MediaFiles[0]/Audio"), std::string::npos) << error;
        EXPECT_NE(error.find(c.second), std::string::npos) << error;
    }
    EXPECT_FALSE(ParseFixture(
        FixtureWithFiles(R"({"ID":1,"Name":"a","format":"ogg","ParentID":1,"Audio":{"Chime":1}})"), f,
        error));
    EXPECT_NE(error.find("\"wav\" or \"mp3\""), std::string::npos) << error;
}

TEST(MediaRender, EachRecipeIsMadeInItsLayoutWithTheLengthAndSoundItNames) {
    const std::string dir = TempDir("render");
    ASSERT_FALSE(dir.empty());
    struct Case {
        const char* name;
        MediaRecipe recipe;
        const char* format;
        int rate;
        int channels;
        double seconds;    ///< expected length; 0: speech, any length from 1 s
        double frequency;  ///< dominant frequency; 0: not a tone
    };
    MediaRecipe speech;
    speech.kind = MediaRecipe::Kind::kSpeech;
    speech.speech = "The building is now open.";
    MediaRecipe chime;
    chime.kind = MediaRecipe::Kind::kChime;
    chime.seconds = 2;
    const std::vector<Case> cases = {
        {"tone.wav", Tone(440, 3), "wav", 44100, 2, 3.0, 440},
        {"tone.mp3", Tone(1000, 1.5), "mp3", 44100, 2, 1.5, 1000},
        {"chime.wav", chime, "wav", 44100, 2, 2.0, 880},
        {"speech.wav", speech, "wav", 22050, 1, 0, 0},
        {"speech.mp3", speech, "mp3", 44100, 1, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = dir + "/" + c.name;
        std::string error;
        ASSERT_TRUE(RenderMedia(c.recipe, c.format, path, dir, error)) << error;
        AudioFacts facts;
        ASSERT_TRUE(InspectAudio(path, c.format, facts, error)) << error;
        EXPECT_EQ(facts.sampleRate, c.rate);
        EXPECT_EQ(facts.channels, c.channels);
        const std::vector<int16_t> decoded = Decode(path, 8000);
        const double decodedSeconds = decoded.size() / 8000.0;
        // MP3 adds the encoder's delay and pads the last frame: at most two frames (52 ms) more.
        EXPECT_NEAR(facts.seconds, decodedSeconds, 0.06) << "the length read from the file is what plays";
        if (c.seconds > 0) {
            EXPECT_NEAR(decodedSeconds, c.seconds, 0.06);
        } else {
            EXPECT_GT(decodedSeconds, 1.0);
            EXPECT_LT(decodedSeconds, 4.0);
        }
        EXPECT_GT(BcastTest::Rms(decoded), 0.02) << "audible";
        if (c.frequency > 0) {
            EXPECT_NEAR(BcastTest::DominantFrequency(BcastTest::Middle(decoded, 4000), 8000), c.frequency, 5);
        }
    }
    std::string error;
    EXPECT_FALSE(RenderMedia(Tone(440, 1), "ogg", dir + "/x.ogg", dir, error));
    AudioFacts facts;
    EXPECT_FALSE(InspectAudio(dir + "/tone.mp3", "wav", facts, error)) << "an MP3 is no WAV";
    std::filesystem::remove_all(dir);
}

TEST(MediaCache, ARecipeIsMadeOnceAndFoundAgainByWhatItIs) {
    const std::string dir = TempDir("cache");
    ASSERT_FALSE(dir.empty());
    CMediaCache cache(dir + "/media-cache");
    std::string first;
    std::string again;
    std::string other;
    bool hit = true;
    std::string error;
    ASSERT_TRUE(cache.Get(Tone(440, 1), "wav", first, hit, error)) << error;
    EXPECT_FALSE(hit) << "made the first time";
    const auto made = std::filesystem::last_write_time(first);
    ASSERT_TRUE(cache.Get(Tone(440, 1), "wav", again, hit, error)) << error;
    EXPECT_TRUE(hit);
    EXPECT_EQ(again, first);
    EXPECT_EQ(std::filesystem::last_write_time(again), made) << "not made again";
    ASSERT_TRUE(cache.Get(Tone(440, 1), "mp3", other, hit, error)) << error;
    EXPECT_FALSE(hit) << "another format is another file";
    EXPECT_NE(other, first);
    EXPECT_NE(CMediaCache::KeyOf(Tone(440, 1), "wav"), CMediaCache::KeyOf(Tone(440, 1.5), "wav"));
    EXPECT_NE(CMediaCache::KeyOf(Tone(440, 1), "wav"), CMediaCache::KeyOf(Tone(441, 1), "wav"));
    EXPECT_EQ(CMediaCache::KeyOf(Tone(440, 1), "wav").size(), 64u);
    size_t leftovers = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir + "/media-cache")) {
        leftovers += entry.path().string().find(".part-") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(leftovers, 0u) << "no half-made files stay behind";
    std::filesystem::remove_all(dir);
}

TEST(StoreProcess, AStoreListensWithItsKeysAndPoolsAndEndsWhenStopped) {
    const std::string dir = TempDir("store");
    ASSERT_FALSE(dir.empty());
    StoreLauncher launcher;
    launcher.script = SourceDir() + "/scripts/objectstore/s3rver.js";
    StoreProcessConfig config;
    config.name = "unit";
    config.address = "127.0.0.1";
    config.accessKey = "UNITKEY";
    config.secretKey = "unit/secret";
    config.buckets = {"pool-a"};
    config.dataDir = dir + "/data";
    config.logPath = dir + "/store.log";
    CStoreProcess store(launcher, config);
    std::string error;
    ASSERT_TRUE(store.Spawn(error)) << error;
    ASSERT_TRUE(store.WaitReady(std::chrono::steady_clock::now() + std::chrono::seconds(10), error))
        << error << " (node and scripts/objectstore are installed by scripts/setup.sh)";
    ASSERT_GT(store.Port(), 0);
    EXPECT_TRUE(store.Running());

    StoreEndpoint endpoint{"127.0.0.1", store.Port(), "UNITKEY", "unit/secret"};
    int64_t count = -1;
    bool more = true;
    EXPECT_EQ(CountObjects(endpoint, "pool-a", count, more, error), ProbeResult::kFound) << error;
    EXPECT_EQ(count, 0);
    EXPECT_FALSE(more);
    int64_t bytes = 0;
    EXPECT_EQ(HeadObject(endpoint, "pool-a", "no/such.wav", bytes, error), ProbeResult::kMissing) << error;
    StoreEndpoint wrong = endpoint;
    wrong.secretKey = "guessed";
    EXPECT_EQ(HeadObject(wrong, "pool-a", "no/such.wav", bytes, error), ProbeResult::kRefused) << error;

    {
        SCOPED_TRACE("its port is kept while it is stopped");
        const int port = store.Port();
        store.Stop();
        EXPECT_FALSE(store.Running());
        EXPECT_EQ(HeadObject(endpoint, "pool-a", "no/such.wav", bytes, error), ProbeResult::kUnreachable);
        CPortHold hold;
        ASSERT_TRUE(hold.Take("127.0.0.1", port, error)) << error;
        CPortHold second;
        EXPECT_FALSE(second.Take("127.0.0.1", port, error)) << "the port is taken";
        hold.Release();
        EXPECT_TRUE(second.Take("127.0.0.1", port, error)) << error;
    }
    {
        SCOPED_TRACE("a node that is not there");
        StoreLauncher missing = launcher;
        missing.node = dir + "/no-node";
        CStoreProcess none(missing, config);
        EXPECT_FALSE(none.Spawn(error));
        EXPECT_NE(error.find("cannot run " + dir + "/no-node"), std::string::npos) << error;
        EXPECT_NE(error.find("scripts/setup.sh"), std::string::npos) << error;
    }
    {
        SCOPED_TRACE("a launcher without its package");
        StoreLauncher bare = launcher;
        bare.script = dir + "/s3rver.js";
        std::filesystem::copy_file(launcher.script, bare.script);
        CStoreProcess notInstalled(bare, config);
        ASSERT_TRUE(notInstalled.Spawn(error)) << error;
        EXPECT_FALSE(
            notInstalled.WaitReady(std::chrono::steady_clock::now() + std::chrono::seconds(10), error));
        EXPECT_NE(error.find("not installed (run scripts/setup.sh"), std::string::npos) << error;
    }
    std::filesystem::remove_all(dir);
}
