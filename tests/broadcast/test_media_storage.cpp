// Media files, recordings and text-to-speech against the platform's real object stores: the media manager
// of this process downloads the library's files (local cloud storage and storage server 501) into the audio
// cache once, uploads a live talk's recording and registers it, lists the registered recordings and plays
// them from their store by presigned addresses, and the platform speaks a text at the speakers. Stores that
// are down or refuse the keys fail with the codes the user interface has messages for and leave no partial
// file (a recording kept through a store that is down: tests/faults).

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <memory>

#include "ManagerFixture.h"
#include "TestProcess.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "support/QtWait.h"
#include "tool/audio/AudioCompare.h"

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "framework/media/devnet/CurlHandles.h"
#include "framework/media/objectclient/ObjectAddress.h"

using namespace BroadCastPlugin;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;

namespace {

constexpr int kModuleObjectClient = 60;
constexpr const char* kTtsText = "Visitors are kindly asked to leave their bags at the reception.";

class MediaStorageTest : public BroadcastTest::CManagerTest {
protected:
    static ErrorCode LastError() { return Tal::Base::Error::GetLastError(); }
    static bool Exists(const std::string& path) { return std::ifstream(path).good(); }
    static long SizeOf(const std::string& path) {
        std::ifstream in(path, std::ios::binary | std::ios::ate);
        return in ? static_cast<long>(in.tellg()) : -1;
    }
    /// Entries of a directory whose names start with `stem` (a partial download would be one).
    static int EntriesStartingWith(const std::string& dir, const std::string& stem) {
        int n = 0;
        if (DIR* d = opendir(dir.c_str())) {
            while (dirent* e = readdir(d)) {
                n += std::string(e->d_name).rfind(stem, 0) == 0 ? 1 : 0;
            }
            closedir(d);
        }
        return n;
    }
    static void SetStore(const std::string& store, const std::string& body) {
        ASSERT_EQ(Control("POST", "/storage/" + store, body).ErrorCode(), 0) << store << " " << body;
    }
    /// The recordings the platform registered, as a document rooted at the /_control/broadcasts answer.
    static CRapidJsonProto Broadcasts() {
        CRapidJsonProto doc;
        doc.set_str(Control("GET", "/broadcasts").body);
        return doc;
    }
    static int RecordCount() { return Broadcasts().get_cnt("/ResponseStatus/Data/Records"); }
    static std::string RecordValue(int index, const std::string& key) {
        return Broadcasts().get_v("/ResponseStatus/Data/Records[" + std::to_string(index + 1) + "]/" + key);
    }

    /// A live talk to 1006 for `seconds`; returns the recording's path as the manager had it.
    static std::string RecordedTalk(int seconds, int64_t requestId) {
        BroadcastTest::CStartCall call(
            [requestId] { return CIPSpeakerManager::Instance()->StartSpeakVoice({1006}, requestId); });
        EXPECT_TRUE(call.Finish());
        EXPECT_TRUE(call.Result());
        const std::string path = CIPSpeakerManager::Instance()->GetRecordedFilePath();
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1006) > 4000; }, 10000)) << "the talk is heard";
        BcastTest::Settle(seconds * 1000);
        CIPSpeakerManager::Instance()->Stop();  // uploads the recording
        return path;
    }

    static std::string ReadAll(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    /// A GET with no signing of its own, as a browser plays an address: the status and the body.
    static std::pair<long, std::string> PlainGet(const std::string& url) {
        std::pair<long, std::string> answer{0, std::string()};
        DevNet::EasyPtr easy(curl_easy_init());
        if (!easy) {
            return answer;
        }
        curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, 30L);
        curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &answer.second);
        curl_easy_setopt(
            easy.get(), CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t n, void* sink) {
                static_cast<std::string*>(sink)->append(data, size * n);
                return size * n;
            });
        if (curl_easy_perform(easy.get()) == CURLE_OK) {
            curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &answer.first);
        }
        return answer;
    }
    /// The ids of the records, in the order listed.
    static std::vector<int32_t> IdsOf(const std::vector<BroadcastRecordEntry>& records) {
        std::vector<int32_t> ids;
        for (const BroadcastRecordEntry& record : records) {
            ids.push_back(record.RecordID);
        }
        return ids;
    }
    /// The records the platform lists for `query`; a failed call fails the test.
    static std::vector<int32_t> Listed(const BroadcastRecordQuery& query, int32_t* total = nullptr) {
        std::vector<BroadcastRecordEntry> records;
        EXPECT_TRUE(CBroadcastSession::GetBroadcastRecords(query, records, total))
            << LastError().GetMainErrorCode() << "/" << LastError().GetSubErrorCode();
        return IdsOf(records);
    }
};

}  // namespace

TEST_F(MediaStorageTest, MediaFilesAreDownloadedOnceFromEitherStorageAndAFailedDownloadLeavesNoFile) {
    CMediaFileManager* media = CMediaFileManager::Instance();
    ASSERT_TRUE(media->DownloadAllMediaFiles());

    std::string opening;  // media file 2: local cloud storage
    ASSERT_TRUE(media->DownloadMediaFileToLocal(opening, 2)) << LastError().GetSubErrorCode();
    ASSERT_TRUE(Exists(opening)) << opening;
    const long openingBytes = SizeOf(opening);
    EXPECT_GT(openingBytes, 10000) << "a six-second MP3";
    EXPECT_EQ(CMediaFileManager::GetLocalFileSize(opening), static_cast<uint32_t>(openingBytes));
    {
        std::ifstream in(opening, std::ios::binary);
        char head[3] = {};
        in.read(head, 3);
        const bool mp3 = std::string(head, 3) == "ID3" ||
                         (static_cast<unsigned char>(head[0]) == 0xFF && (head[1] & 0xE0) == 0xE0);
        EXPECT_TRUE(mp3) << "the stored audio, not an error page";
    }

    std::string evacuation;  // media file 4: storage server 501, reached through its access way
    ASSERT_TRUE(media->DownloadMediaFileToLocal(evacuation, 4)) << LastError().GetSubErrorCode();
    EXPECT_GT(SizeOf(evacuation), 10000);

    {
        SCOPED_TRACE("the second download is the cached copy: it needs no store");
        SetStore("local", R"({"Running":false})");
        std::string again;
        EXPECT_TRUE(media->DownloadMediaFileToLocal(again, 2));
        EXPECT_EQ(again, opening);
        EXPECT_EQ(SizeOf(again), openingBytes);
    }
    {
        SCOPED_TRACE("store down: the download client cannot start, nothing is left behind");
        ASSERT_EQ(std::remove(opening.c_str()), 0);
        std::string path;
        EXPECT_FALSE(media->DownloadMediaFileToLocal(path, 2));
        EXPECT_EQ(LastError().GetMainErrorCode(), kModuleBroadcast);
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorDownloadClientStart);
        EXPECT_FALSE(Exists(opening));
    }
    const std::string audioDir = opening.substr(0, opening.find_last_of('/') + 1);
    {
        SCOPED_TRACE("store refuses the keys");
        SetStore("local", R"({"Running":true})");
        SetStore("local", R"({"AccessKey":"OTHERACCESSKEY000001","SecretKey":"other/secret"})");
        std::string path;
        EXPECT_FALSE(media->DownloadMediaFileToLocal(path, 2));
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorDownloadClientStart);
        EXPECT_EQ(EntriesStartingWith(audioDir, "opening"), 0) << "no file and no partial file";
    }
    {
        SCOPED_TRACE("a media record whose object is not in the store");
        ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);  // the fixture's keys again
        MediaFile ghost;
        ASSERT_TRUE(media->GetMediaFile(2, ghost));
        ghost.ID = 77;
        ghost.Name = "ghost";
        ghost.LocalPath = audioDir + "ghost.mp3";
        ghost.StoreUrl = ghost.StoreUrl.substr(0, ghost.StoreUrl.find_last_of('/')) + "/ghost.mp3";
        ASSERT_TRUE(media->UpdateMediaFile(ghost));
        CLogCapture log;
        std::string path;
        EXPECT_FALSE(media->DownloadMediaFileToLocal(path, 77));
        EXPECT_EQ(LastError().GetMainErrorCode(), kModuleObjectClient);
        EXPECT_EQ(LastError().GetSubErrorCode(), CloudStorage::kObjectNotFound);
        EXPECT_TRUE(log.Contains("DownloadFile failed!", 5));
        EXPECT_EQ(EntriesStartingWith(audioDir, "ghost"), 0);
    }
    {
        SCOPED_TRACE("a media file the platform does not know");
        std::string path;
        EXPECT_FALSE(media->DownloadMediaFileToLocal(path, 4242));
        EXPECT_NE(LastError().GetSubErrorCode(), 0);
    }
    {
        SCOPED_TRACE("after the faults the store serves again");
        std::string path;
        EXPECT_TRUE(media->DownloadMediaFileToLocal(path, 2));
        EXPECT_EQ(SizeOf(path), openingBytes);
    }
}

TEST_F(MediaStorageTest, ARecordedTalkIsUploadedAndRegisteredAndAFailedUploadKeepsTheRecording) {
    const std::string first = RecordedTalk(2, 41);
    ASSERT_FALSE(first.empty()) << "the demo site records live talks";
    EXPECT_TRUE(WaitFor([] { return RecordCount() == 1; }, 10000)) << Control("GET", "/broadcasts").body;
    EXPECT_NE(RecordValue(0, "StoreUrl").find("/pool-records/"), std::string::npos)
        << RecordValue(0, "StoreUrl");
    EXPECT_EQ(RecordValue(0, "Store"), "501");
    const long bytes = SizeOf(first);
    EXPECT_GT(bytes, 8000) << "two seconds and more of audio";
    EXPECT_EQ(Broadcasts().get_int_v("/ResponseStatus/Data/Records[1]/Bytes", -1), bytes)
        << "the stored object is the whole recording";

    {
        SCOPED_TRACE("nothing to upload");
        RecordTaskParam empty;
        empty.mode = 0;
        empty.recordDevice = "1006";
        EXPECT_FALSE(CMediaFileManager::Instance()->UploadRecordFile(empty));
        EXPECT_EQ(LastError().GetSubErrorCode(), Tal::Base::Error::kCodeInvalidInput);
    }
    {
        SCOPED_TRACE("a played media file is registered with its stored object");
        ASSERT_TRUE(CMediaFileManager::Instance()->DownloadAllMediaFiles());
        MediaFile file;
        ASSERT_TRUE(CMediaFileManager::Instance()->GetMediaFile(4, file));
        RecordTaskParam played;
        played.mode = 1;
        played.mediaFileID = 4;
        played.recordDevice = "1003,1006";
        played.recordStartTime = "2026-11-24 10:05:00";
        const int before = RecordCount();
        EXPECT_TRUE(CMediaFileManager::Instance()->UpdateMediaRecord(played));
        ASSERT_EQ(RecordCount(), before + 1);
        EXPECT_EQ(RecordValue(before, "StoreUrl"), file.StoreUrl);
        played.mediaFileID = 4242;
        played.recordFilePath = "/nowhere/unknown.mp3";
        EXPECT_FALSE(CMediaFileManager::Instance()->UpdateMediaRecord(played));
    }
}

TEST_F(MediaStorageTest, TextToSpeechIsHeardAtTheSpeakersStopsOnRequestAndNamesOfflineTerminals) {
    BcastTest::CTempDir dir("tts-reference");
    // The platform speaks en-US with espeak-ng's en-us voice: the same sound the speakers must play.
    const std::string wav = dir.File("reference.wav");
    ASSERT_EQ(BcastTest::RunProcess({"espeak-ng", "-v", "en-us", "-w", wav, kTtsText}, 60000).exitCode, 0);
    BcastTool::PcmAudio raw, reference;
    std::string error;
    ASSERT_TRUE(BcastTool::ReadWavMono(wav, raw, error)) << error;
    ASSERT_TRUE(BcastTool::ToRate(raw, 8000, reference));

    TTSRequestParam request;
    request.elementIDs = {1001, 1006};
    request.CustomContent = kTtsText;
    request.Language = "en-US";
    std::vector<TTSResponseError> errors;
    ASSERT_TRUE(CIPSpeakerManager::Instance()->StartTTSBroadcast(errors, request));
    EXPECT_TRUE(errors.empty());
    EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1006, 1) > 0; }, 20000)) << "speech starts";
    EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1006, 3) > 0; }, 30000)) << "and ends";
    for (int id : {1001, 1006}) {
        SCOPED_TRACE("speaker " + std::to_string(id));
        const BcastTool::AudioMatch match = MatchOf(id, reference);
        EXPECT_GE(match.correlation, 0.9) << "delay " << match.delayMs << " ms";
    }

    {
        SCOPED_TRACE("a stop ends a long text at once");
        events_->Clear();
        std::string longText;
        for (int i = 0; i < 10; ++i) {
            longText += std::string(kTtsText) + " ";
        }
        request.CustomContent = longText;
        errors.clear();
        ASSERT_TRUE(CIPSpeakerManager::Instance()->StartTTSBroadcast(errors, request));
        ASSERT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1006, 1) > 0; }, 30000));
        BcastTest::Settle(1000);
        CIPSpeakerManager::Instance()->StopTTSBroadcast();
        EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1006, 3) > 0; }, 2000))
            << "stopped within two seconds";
        EXPECT_LT(TotalSeconds(1006), 20.0) << "not the whole text";
        CIPSpeakerManager::Instance()->Stop();
    }
    {
        SCOPED_TRACE("an offline terminal is named in the error list, the others speak");
        ASSERT_EQ(Control("POST", "/speaker/1006", R"({"Online":false})").ErrorCode(), 0);
        events_->Clear();
        request.CustomContent = kTtsText;
        errors.clear();
        EXPECT_TRUE(CIPSpeakerManager::Instance()->StartTTSBroadcast(errors, request));
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_EQ(errors[0].ElementID, 1006);
        EXPECT_EQ(errors[0].Error.GetSubErrorCode(), 7);
        EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1001, 1) > 0; }, 20000));
        CIPSpeakerManager::Instance()->StopTTSBroadcast();
        CIPSpeakerManager::Instance()->Stop();
    }
    {
        SCOPED_TRACE("a refused request fails the start");
        ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
        AddFault("POST", Plugin("/RealTimeBroadcast/TTS"),
                 R"("Kind":"error","ErrorModule":30,"ErrorCode":6)");
        errors.clear();
        EXPECT_FALSE(CIPSpeakerManager::Instance()->StartTTSBroadcast(errors, request));
        EXPECT_EQ(CIPSpeakerManager::Instance()->GetBroadcastKind(), -1);
    }
}

TEST_F(MediaStorageTest, RegisteredRecordingsAreListedAndPlayFromTheirStoreByPresignedAddresses) {
    // Three recordings: a live talk at 1006 (storage server 501, as the configuration says), a WAV for the
    // gates on 501 and one for the parking pole in the local cloud storage.
    const std::string talk = RecordedTalk(1, 51);
    ASSERT_FALSE(talk.empty());
    ASSERT_TRUE(WaitFor([] { return RecordCount() == 1; }, 10000)) << Control("GET", "/broadcasts").body;
    BcastTest::CTempDir dir("record-list");
    BcastTool::PcmAudio unused;
    const std::string gates = dir.File("gate-announcement.wav");
    const std::string parking = dir.File("parking-announcement.wav");
    MakeSpeech(gates, "The gates close in five minutes.", unused);
    MakeSpeech(parking, "Please keep the parking exit free.", unused);
    CMediaFileManager* media = CMediaFileManager::Instance();
    ASSERT_TRUE(media->UploadRecordFile({1004, 1005}, gates, "2031-03-04 09:15:00", 0,
                                        RecordStorage{kStorageServer, 501, "pool-records"}));
    ASSERT_TRUE(media->UploadRecordFile({1006}, parking, "2031-03-05 18:00:00", 1,
                                        RecordStorage{kStorageLocalCloud, 0, "broadcast"}));

    std::vector<BroadcastRecordEntry> all;
    int32_t total = -1;
    ASSERT_TRUE(CBroadcastSession::GetBroadcastRecords(BroadcastRecordQuery(), all, &total))
        << LastError().GetSubErrorCode();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(total, 3);
    {
        SCOPED_TRACE("every field of a record, in the order they were registered");
        EXPECT_LT(all[0].RecordID, all[1].RecordID);
        EXPECT_LT(all[1].RecordID, all[2].RecordID);
        EXPECT_EQ(all[0].Elements.size(), 1u);
        EXPECT_EQ(all[0].Name + "." + all[0].Format, talk.substr(talk.find_last_of('/') + 1));
        EXPECT_EQ(all[0].Bytes, SizeOf(talk));

        const BroadcastRecordEntry& g = all[1];
        ASSERT_EQ(g.Elements.size(), 2u);
        EXPECT_EQ(g.Elements[0].ID, 1004);
        EXPECT_EQ(g.Elements[0].Name, "Gate left");
        EXPECT_EQ(g.Elements[1].ID, 1005);
        EXPECT_EQ(g.Elements[1].Name, "Gate right");
        EXPECT_EQ(g.StartTime, "2031-03-04 09:15:00");
        EXPECT_EQ(g.Name, "gate-announcement");
        EXPECT_EQ(g.Format, "wav");
        EXPECT_EQ(g.Bytes, SizeOf(gates));
        EXPECT_EQ(g.Size, static_cast<int32_t>((SizeOf(gates) + 1023) / 1024)) << "KB rounded up";
        EXPECT_EQ(g.StorageType, kStorageServer);
        EXPECT_EQ(g.StorageServerID, 501);
        EXPECT_NE(g.StoreUrl.find("/pool-records/gate-announcement.wav"), std::string::npos) << g.StoreUrl;
        EXPECT_EQ(g.BroadcastMode, 0);
        EXPECT_EQ(g.UserName, PlatformTest::kUser);
        EXPECT_EQ(g.RegisterTime.size(), 19u) << g.RegisterTime;

        const BroadcastRecordEntry& p = all[2];
        EXPECT_EQ(p.StorageType, kStorageLocalCloud);
        EXPECT_EQ(p.StorageServerID, 0);
        EXPECT_NE(p.StoreUrl.find("/broadcast/parking-announcement.wav"), std::string::npos) << p.StoreUrl;
        EXPECT_EQ(p.BroadcastMode, 1);
        EXPECT_EQ(p.Bytes, SizeOf(parking));
    }
    const int32_t talkId = all[0].RecordID;
    const int32_t gatesId = all[1].RecordID;
    const int32_t parkingId = all[2].RecordID;
    {
        SCOPED_TRACE("criteria: by element, by start time (bounds inclusive), both, pages");
        BroadcastRecordQuery query;
        query.ElementID = 1005;
        EXPECT_EQ(Listed(query), std::vector<int32_t>({gatesId}));
        query.ElementID = 1006;
        EXPECT_EQ(Listed(query), std::vector<int32_t>({talkId, parkingId}));
        query.ElementID = 1002;
        EXPECT_TRUE(Listed(query).empty());
        query = BroadcastRecordQuery();
        query.StartTimeFrom = "2031-03-04 09:15:00";
        query.StartTimeTo = "2031-03-05 17:59:59";
        EXPECT_EQ(Listed(query), std::vector<int32_t>({gatesId}));
        query.StartTimeTo = "2031-03-05 18:00:00";
        EXPECT_EQ(Listed(query), std::vector<int32_t>({gatesId, parkingId}));
        query.ElementID = 1006;
        EXPECT_EQ(Listed(query), std::vector<int32_t>({parkingId}));
        query = BroadcastRecordQuery();
        query.PageIndex = 2;
        query.PageSize = 2;
        int32_t pagedTotal = -1;
        EXPECT_EQ(Listed(query, &pagedTotal), std::vector<int32_t>({parkingId}));
        EXPECT_EQ(pagedTotal, 3);
    }
    {
        SCOPED_TRACE("each recording plays from its store by a plain GET of its address");
        const std::pair<const BroadcastRecordEntry*, std::string> cases[] = {
            {&all[0], talk}, {&all[1], gates}, {&all[2], parking}};
        for (const auto& entry : cases) {
            const BroadcastRecordEntry& record = *entry.first;
            SCOPED_TRACE(record.StoreUrl);
            CloudStorage::SStorageServerConfig config;
            ASSERT_TRUE(media->GetSStorageServerConfig(config, record.StorageServerID, record.StorageType));
            std::string url;
            ASSERT_TRUE(media->GetRecordPlayUrl(record, 600, url)) << LastError().GetSubErrorCode();
            const std::string base =
                CloudStorage::ServerBase(config.EnableHttps, config.ServerIp, config.DownloadPort);
            const std::string path =
                record.StoreUrl.substr(record.StoreUrl.find('/', record.StoreUrl.find("//") + 2));
            EXPECT_EQ(url.rfind(base + path + "?X-Amz-Algorithm=AWS4-HMAC-SHA256&", 0), 0u) << url;
            const std::pair<long, std::string> answer = PlainGet(url);
            EXPECT_EQ(answer.first, 200) << answer.second.substr(0, 300);
            EXPECT_TRUE(answer.second == ReadAll(entry.second))
                << answer.second.size() << " bytes, the file has " << SizeOf(entry.second);
        }
    }
    {
        SCOPED_TRACE("play addresses that cannot be made");
        CLogCapture log;
        std::string url = "unchanged";
        EXPECT_FALSE(media->GetRecordPlayUrl(all[1], 0, url));
        EXPECT_EQ(LastError().GetMainErrorCode(), kModuleObjectClient);
        EXPECT_EQ(LastError().GetSubErrorCode(), CloudStorage::kObjectBadConfig);
        EXPECT_TRUE(log.Contains("Presign record", 5));
        EXPECT_FALSE(media->GetRecordPlayUrl(all[1], 604801, url));
        EXPECT_EQ(LastError().GetSubErrorCode(), CloudStorage::kObjectBadConfig);

        BroadcastRecordEntry other = all[1];
        other.StoreUrl = "rtsp://127.0.0.1/pool-records/gate-announcement.wav";
        EXPECT_FALSE(media->GetRecordPlayUrl(other, 60, url));
        EXPECT_EQ(LastError().GetSubErrorCode(), CloudStorage::kObjectBadUrl);
        other = all[1];
        other.StorageType = 7;
        EXPECT_FALSE(media->GetRecordPlayUrl(other, 60, url));
        EXPECT_EQ(LastError().GetSubErrorCode(), Tal::Base::Error::kCodeInvalidInput);
        other.StorageType = kStorageServer;
        other.StorageServerID = 503;  // access type 2: no object storage the module can reach
        EXPECT_FALSE(media->GetRecordPlayUrl(other, 60, url));
        EXPECT_EQ(LastError().GetMainErrorCode(), kModuleBroadcast);
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorDownloadClientStart);
        other.StorageServerID = 4242;
        EXPECT_FALSE(media->GetRecordPlayUrl(other, 60, url));
        EXPECT_FALSE(LastError().IsSucceed());
        EXPECT_TRUE(log.Contains("Get storage server config failed.", 5));
        EXPECT_EQ(url, "unchanged");
    }
    {
        SCOPED_TRACE("an address expires");
        std::string url;
        ASSERT_TRUE(media->GetRecordPlayUrl(all[2], 1, url));
        BcastTest::Settle(2100);
        EXPECT_EQ(PlainGet(url).first, 403);
    }
    {
        SCOPED_TRACE("refused and malformed answers");
        std::vector<BroadcastRecordEntry> records;
        BroadcastRecordQuery query;
        query.StartTimeFrom = "2031/03/04";
        EXPECT_FALSE(CBroadcastSession::GetBroadcastRecords(query, records));
        EXPECT_EQ(LastError().GetSubErrorCode(), 2) << "the platform refuses another time form";

        const std::string path = Plugin("/RealTimeBroadcast/Records");
        AddFault("POST", path, R"("Kind":"malformed","Count":1)");
        EXPECT_FALSE(CBroadcastSession::GetBroadcastRecords(BroadcastRecordQuery(), records));
        EXPECT_EQ(LastError().GetMainErrorCode(), kModuleBroadcast);
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorBadServerResponse);
        AddFault(
            "POST", path,
            R"("Kind":"malformed","Count":1,"Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,)"
            R"(\"Data\":{\"TotalCount\":1}}}")");
        EXPECT_FALSE(CBroadcastSession::GetBroadcastRecords(BroadcastRecordQuery(), records));
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorBadServerResponse) << "no record list";
        AddFault(
            "POST", path,
            R"("Kind":"malformed","Count":1,"Body":"{\"ResponseStatus\":{\"ErrorModule\":0,\"ErrorCode\":0,)"
            R"(\"Data\":{\"RealTimeBroadcastRecordList\":{\"RealTimeBroadcastRecord\":[{\"RecordID\":\"x\"}]}}}}")");
        EXPECT_FALSE(CBroadcastSession::GetBroadcastRecords(BroadcastRecordQuery(), records));
        EXPECT_EQ(LastError().GetSubErrorCode(), kErrorBadServerResponse) << "a record without an id";
        AddFault("POST", path, R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"Count":1)");
        EXPECT_FALSE(CBroadcastSession::GetBroadcastRecords(BroadcastRecordQuery(), records));
        EXPECT_EQ(LastError().GetMainErrorCode(), 30);
        EXPECT_EQ(LastError().GetSubErrorCode(), 6);
        EXPECT_TRUE(records.empty()) << "nothing is added by a failed call";
        EXPECT_EQ(Listed(BroadcastRecordQuery()).size(), 3u) << "the faults were used up";
    }
}
