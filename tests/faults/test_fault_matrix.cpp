// One table of faults, each run end to end against the real peers: the speaker manager of this process, the
// platform process (its fault injector and simulation controls), its simulated speakers, devices, streaming
// server and object stores, and a PulseAudio virtual microphone. Every row sets its fault up, checks the
// events, statuses and error codes the module gives for it, that the broadcast ends within a bound, that
// nothing recorded is lost, then clears the fault and checks that the next broadcast is heard and that no
// thread, descriptor or heap memory was left behind.
//
// The platform runs on a fixture whose simulated peers listen on ports chosen here, so that a platform that
// was killed comes back on the very same addresses (the client keeps the addresses it downloaded).

#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <sys/socket.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer's count of live heap bytes (its header is not installed with every compiler).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "DeviceStatusLog.h"
#include "FileSizeLimit.h"
#include "ManagerFixture.h"
#include "TestProcess.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/business/PlatformLogin.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/media/videotool/DeviceStateBoard.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/NetlibWrapper.h"
#include "framework/resource/ResourceManager.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::WaitFor;
using NetworkCommunication::CRapidJsonProto;
using Tal::Base::CLogCapture;
using Tal::Base::Error::ErrorCode;
using TOOL::CBroadcastBusinessManager;

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSentence = "Fire drill. Please walk to the nearest exit.";
// Every platform call of the module gives up after this; the slow rows answer later than that.
constexpr int kRequestTimeoutMs = 1500;
constexpr int kSlowAnswerMs = 2600;
// Bounds within which a start and a stop must return whatever the fault.
constexpr int kStartBoundMs = 12000;
constexpr int kStopBoundMs = 8000;
// The RTP speaker of the demo site: a device target, so a talk to it uses every platform call of a start.
constexpr int kSpeaker = 1006;
constexpr int kCurlCouldntConnect = 7;
constexpr int kCurlGotNothing = 52;
constexpr int kCurlRecvError = 56;
constexpr int kCurlTimedOut = 28;
// Heap growth a row may leave behind: the sanitizer's running count drifts by a few KiB per broadcast (its
// per-thread statistics; its heap profile shows no growth over 20 talks), a leaked audio buffer or session
// is far more.
constexpr long kHeapToleranceBytes = 1L << 20;
constexpr int kOperationLogStart = 265001;
constexpr int kOperationLogStop = 265002;

long Millis(Clock::time_point since) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

int CountEntries(const char* dir) {
    int n = 0;
    if (DIR* d = opendir(dir)) {
        while (dirent* e = readdir(d)) {
            n += e->d_name[0] != '.' ? 1 : 0;
        }
        closedir(d);
    }
    return n;
}

// The names of this process's threads, for a failure message.
std::string ThreadNames() {
    std::string names;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') {
                std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
                std::string name;
                std::getline(comm, name);
                names += name + " ";
            }
        }
        closedir(d);
    }
    return names;
}

long HeapBytes() {
#if defined(__SANITIZE_ADDRESS__)
    return static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
    return static_cast<long>(mallinfo2().uordblks);
#endif
}

// Threads of this process, less GLib's shared pool workers ("pool-<program>"): GLib keeps up to two idle ones
// for 15 s after GStreamer used them, whoever asked; every thread of the module has a name of its own.
int ThreadCount() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d)) {
            if (e->d_name[0] != '.') {
                std::ifstream comm(std::string("/proc/self/task/") + e->d_name + "/comm");
                std::string name;
                std::getline(comm, name);
                n += name.rfind("pool-", 0) == 0 ? 0 : 1;
            }
        }
        closedir(d);
    }
    return n;
}

struct Usage {
    int threads = 0;
    int fds = 0;  // the directory stream that counts them is one of them
    long heap = 0;
};

Usage Measure() {
    Usage u;
    u.threads = ThreadCount();
    u.fds = CountEntries("/proc/self/fd");
    u.heap = HeapBytes();
    return u;
}

long FileSize(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return in ? static_cast<long>(in.tellg()) : -1;
}

int PortOf(const std::string& url) {
    const std::size_t colon = url.rfind(':');
    return colon == std::string::npos ? 0 : std::atoi(url.c_str() + colon + 1);
}

// The demo site with every simulated peer that listens pinned to a port free now and a shorter prompt tone;
// written to `path`.
bool WritePinnedFixture(const std::string& path, std::string& error) {
    rapidjson::Document site;
    site.Parse(PlatformTest::ReadFile(PlatformTest::DemoFixture()).c_str());
    if (site.HasParseError() || !site.IsObject()) {
        error = "the demo fixture does not parse";
        return false;
    }
    auto pin = [&](rapidjson::Value& owner, const char* key, int type) {
        const int port = BcastTest::FreeLoopbackPort(type);
        if (port == 0 || !owner.HasMember(key)) {
            error = std::string("cannot pin ") + key;
            return false;
        }
        owner[key].SetInt(port);
        return true;
    };
    for (auto& device : site["Devices"].GetArray()) {
        const bool udp = device["AccessProtocol"].GetInt() == 23;
        if (!pin(device, "Port", udp ? SOCK_DGRAM : SOCK_STREAM)) {
            return false;
        }
    }
    rapidjson::Value& storage = site["StorageConfig"];
    if (!pin(storage, "ObjectUploadPort", SOCK_STREAM)) {
        return false;
    }
    storage["ObjectDownloadPort"].SetInt(storage["ObjectUploadPort"].GetInt());
    for (auto& server : site["StorageServers"].GetArray()) {
        if (server["ID"].GetInt() == 501 && !pin(server, "ObjectPort", SOCK_STREAM)) {
            return false;
        }
    }
    if (!pin(site["StreamingServer"], "RtspPort", SOCK_STREAM)) {
        return false;
    }
    // A one-second prompt tone: every talk waits for it, and the rows make some sixty talks.
    site["BaseConfig"]["PromptToneDuration"].SetInt(1);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    site.Accept(writer);
    std::ofstream out(path, std::ios::trunc);
    out << text.GetString();
    return static_cast<bool>(out);
}

using BroadcastTest::CDeviceStatusLog;

// The platform calls a live talk's start makes once its element is known, in order (the element download
// happens once per element and process, before any of the rows).
struct ApiCall {
    const char* tag;
    const char* method;
    const char* path;
    bool startFailsWithIt;  // a failure of the call fails the start
    int badAnswerModule;    // the module and code an answer that does not parse is reported with
    int badAnswerCode;
    bool elementDownload;  // made only for an element this process does not know yet
};

enum class ApiFault { kDown, kSlow, kHttp500, kMalformed, kEmpty };

const char* FaultTag(ApiFault fault) {
    switch (fault) {
        case ApiFault::kDown:
            return "Down";
        case ApiFault::kSlow:
            return "Slow";
        case ApiFault::kHttp500:
            return "Http500";
        case ApiFault::kMalformed:
            return "Malformed";
        case ApiFault::kEmpty:
            return "Empty";
    }
    return "?";
}

class FaultMatrixTest;

struct Row {
    std::string name;
    std::string setUp;     // how the fault is made
    std::string expected;  // what the module is expected to give
    void (*run)(const Row&) = nullptr;
    ApiCall call{};
    ApiFault fault = ApiFault::kDown;
};

void PrintTo(const Row& row, std::ostream* os) {
    *os << row.name;
}

class FaultMatrixTest : public BroadcastTest::CSentenceTest, public ::testing::WithParamInterface<Row> {
public:
    static void RunApiFault(const Row& row);
    static void RunPushLinkDrop(const Row& row);
    static void RunStreamingRefusal(const Row& row);
    static void RunStreamingTeardown(const Row& row);
    static void RunDeviceRefusesLogin(const Row& row);
    static void RunDeviceVanishes(const Row& row);
    static void RunObjectStoreDown(const Row& row);
    static void RunDiskFull(const Row& row);
    static void RunPlatformKilled(const Row& row);

protected:
    static void SetUpTestSuite() {
        fixtureDir_ = new BcastTest::CTempDir("fault-matrix");
        fixturePath_ = fixtureDir_->File("site.json");
        std::string error;
        ASSERT_TRUE(WritePinnedFixture(fixturePath_, error)) << error;
        NetworkCommunication::NetlibWrapper::SetRequestTimeoutMs(kRequestTimeoutMs);
        StartPeers({"--sim-ports", "fixture"}, fixturePath_);
        if (HasFatalFailure()) {
            return;
        }
        restPort_ = PortOf(platform_->RestUrl());
        pushPort_ = PortOf(platform_->PushUrl().substr(0, platform_->PushUrl().rfind('/')));
        speech_ = new BcastTest::CTempDir("fault-matrix-speech");
        sentence_ = new BcastTool::PcmAudio();
        MakeSpeech(SentenceWav(), kSentence, *sentence_);
        // Every push goes to the device broadcast manager too, as the controller hands it on.
        CFrameMessageMgr::Instance()->SetMessageCallback(
            [](const BroadCastPlugin::PushMessage& message, int) {
                CBroadcastBusinessManager::PushBroadcastState(message.data);
                CIPSpeakerManager::Instance()->HandleWebsocketMessage(message);
            });
        deviceLog_ = new CDeviceStatusLog();
        ASSERT_TRUE(CBroadcastBusinessManager::InitManager());
        CBroadcastBusinessManager::SetBroadcastResoluteCallback(&CDeviceStatusLog::Collect, deviceLog_);
    }
    static void TearDownTestSuite() {
        CBroadcastBusinessManager::UninitManager();
        StopWithSentence();
        NetworkCommunication::NetlibWrapper::SetRequestTimeoutMs(0);
        delete deviceLog_;
        deviceLog_ = nullptr;
        delete fixtureDir_;
        fixtureDir_ = nullptr;
    }
    void TearDown() override {
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        CManagerTest::TearDown();
    }

    static std::unique_ptr<BroadcastTest::CStartCall> Start(std::vector<int32_t> ids, int64_t requestId) {
        return std::make_unique<BroadcastTest::CStartCall>(
            [ids, requestId] { return CIPSpeakerManager::Instance()->StartSpeakVoice(ids, requestId); });
    }
    static bool StartDevices(const std::string& ids) {
        TOOL::CRequestBroadcast request;
        request.device_ids = ids;
        return CBroadcastBusinessManager::StartBroadcast(request);
    }
    static long DeviceBytes(int deviceId) {
        return static_cast<long>(Device(deviceId).get_int64_v("/Bytes", 0));
    }
    // Stops the talk and checks that the stop returned within its bound.
    static void TimedStop() {
        const Clock::time_point t0 = Clock::now();
        CIPSpeakerManager::Instance()->Stop();
        EXPECT_LT(Millis(t0), kStopBoundMs) << "the stop returns in bounded time";
        EXPECT_EQ(CIPSpeakerManager::Instance()->GetBroadcastKind(), -1);
    }
    // The whole-broadcast failure events (stage 2) the manager gave.
    static std::vector<IPSpeakerNotifyParam> Failures() {
        std::vector<IPSpeakerNotifyParam> failures;
        for (const IPSpeakerNotifyParam& e : events_->All()) {
            if (e.type == 0 && e.broadcastStatus == 2) {
                failures.push_back(e);
            }
        }
        return failures;
    }
    static int Hits(int faultId) {
        PlatformTest::RestReply faults = Control("GET", "/faults");
        for (int i = 0;; ++i) {
            const std::string item = "/ResponseStatus/Data/Faults/" + std::to_string(i);
            const int id = faults.Int((item + "/FaultID").c_str(), -1);
            if (id < 0) {
                return 0;
            }
            if (id == faultId) {
                return faults.Int((item + "/Hits").c_str(), 0);
            }
        }
    }
    static int RecordCount() {
        CRapidJsonProto doc;
        doc.set_str(Control("GET", "/broadcasts").body);
        return doc.get_cnt("/ResponseStatus/Data/Records");
    }

    // SIGKILL: the platform, its speakers, devices, streaming server and stores are gone at once.
    static void KillPlatform() { ASSERT_TRUE(platform_->Kill()) << "no platform to kill"; }
    // The platform again on the same REST, push and peer ports; the module is expected to renew its session
    // by itself (its push link hears that the session is unknown) and to be connected again.
    static void RestartPlatform(int renewalsBefore) {
        delete platform_;
        platform_ = nullptr;
        const std::vector<std::string> args = {"--fixture",   fixturePath_,
                                               "--sim-ports", "fixture",
                                               "--listen",    "127.0.0.1:" + std::to_string(restPort_),
                                               "--push-port", std::to_string(pushPort_)};
        // The stores of the killed platform end when their standard input closes: their ports may still be
        // taken for a moment.
        std::string lastError;
        const Clock::time_point t0 = Clock::now();
        while (Millis(t0) < 15000) {
            platform_ = new PlatformTest::CPlatformProcess();
            if (platform_->Start(args)) {
                break;
            }
            lastError = platform_->Error();
            delete platform_;
            platform_ = nullptr;
            BcastTest::Settle(300);
        }
        ASSERT_NE(platform_, nullptr) << "the platform did not come back on its ports: " << lastError;
        auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
        ASSERT_TRUE(WaitFor(
            [&] {
                return BusinessCommon::SessionRenewalCount() > renewalsBefore &&
                       framework->IsPushLinkConnected();
            },
            30000))
            << "the module logs in again and its push link comes back";
    }

    // A talk to the RTP speaker that hears the microphone and reports through pushes: the broadcast after a
    // fault works.
    static void ExpectAWorkingTalk() {
        SCOPED_TRACE("the next broadcast");
        events_->Clear();
        auto call = Start({kSpeaker}, 99);
        ASSERT_TRUE(call->Finish(kStartBoundMs));
        EXPECT_TRUE(call->Result()) << Tal::Base::Error::GetLastError().ToString();
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(kSpeaker) > 4000; }, 10000))
            << "the speaker hears the talk";
        EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(kSpeaker, 1) > 0; }, 5000))
            << "pushes reach the manager";
        EXPECT_EQ(events_->CountStage(2), 0);
        CIPSpeakerManager::Instance()->Stop();
        EXPECT_TRUE(WaitFor([] { return Phase(kSpeaker) == "stopped"; }, 5000)) << Phase(kSpeaker);
    }

    static BcastTest::CTempDir* fixtureDir_;
    static std::string fixturePath_;
    static int restPort_;
    static int pushPort_;
    static CDeviceStatusLog* deviceLog_;
    static bool warm_;
};

BcastTest::CTempDir* FaultMatrixTest::fixtureDir_ = nullptr;
std::string FaultMatrixTest::fixturePath_;
int FaultMatrixTest::restPort_ = 0;
int FaultMatrixTest::pushPort_ = 0;
CDeviceStatusLog* FaultMatrixTest::deviceLog_ = nullptr;
bool FaultMatrixTest::warm_ = false;

// ---- platform calls of a live start -------------------------------------------------------------------

std::string FaultBody(ApiFault fault) {
    switch (fault) {
        case ApiFault::kDown:  // held until the platform is killed under it (a used-up rule is not listed)
            return R"("Kind":"delay","DelayMs":60000,"Count":-1)";
        case ApiFault::kSlow:
            return R"("Kind":"delay","DelayMs":)" + std::to_string(kSlowAnswerMs) + R"(,"Count":1)";
        case ApiFault::kHttp500:
            return R"("Kind":"http","HttpStatus":500,"Count":1)";
        case ApiFault::kMalformed:
            return R"("Kind":"malformed","Count":1)";
        case ApiFault::kEmpty:
            return R"("Kind":"empty","Count":1)";
    }
    return {};
}

// The module and code the failure of a call is reported with.
void ExpectErrorOf(const ApiCall& call, ApiFault fault, const ErrorCode& error) {
    switch (fault) {
        case ApiFault::kDown:
            EXPECT_EQ(error.GetMainErrorCode(), NetworkCommunication::kModuleTransport) << error.ToString();
            // On a fresh connection the call ends without an answer. On a kept connection libcurl sends it
            // once more on a new one (a kept connection may have been closed by the server while idle),
            // which the killed platform refuses.
            EXPECT_TRUE(error.GetSubErrorCode() == kCurlGotNothing ||
                        error.GetSubErrorCode() == kCurlRecvError ||
                        error.GetSubErrorCode() == kCurlCouldntConnect)
                << "the connection ends without an answer: " << error.ToString();
            break;
        case ApiFault::kSlow:
            EXPECT_EQ(error.GetMainErrorCode(), NetworkCommunication::kModuleTransport) << error.ToString();
            EXPECT_EQ(error.GetSubErrorCode(), kCurlTimedOut) << error.ToString();
            break;
        case ApiFault::kHttp500:
            EXPECT_EQ(error.GetMainErrorCode(), NetworkCommunication::kModuleHttp) << error.ToString();
            EXPECT_EQ(error.GetSubErrorCode(), 500) << error.ToString();
            break;
        case ApiFault::kMalformed:
        case ApiFault::kEmpty:
            EXPECT_EQ(error.GetMainErrorCode(), call.badAnswerModule) << error.ToString();
            EXPECT_EQ(error.GetSubErrorCode(), call.badAnswerCode) << error.ToString();
            break;
    }
}

void FaultMatrixTest::RunApiFault(const Row& row) {
    const ApiCall& call = row.call;
    const int renewals = BusinessCommon::SessionRenewalCount();
    if (call.elementDownload) {
        ResourceManager::CElementManager::Instance()->RemoveElement(kSpeaker);
    }
    const int faultId = AddFault(call.method, call.path, FaultBody(row.fault));
    ASSERT_GT(faultId, 0);
    CLogCapture log;
    const Clock::time_point t0 = Clock::now();
    auto start = Start({kSpeaker}, 61);
    if (row.fault == ApiFault::kDown) {
        ASSERT_TRUE(WaitFor([&] { return Hits(faultId) > 0; }, kStartBoundMs))
            << "the start reached the call";
        KillPlatform();
    }
    ASSERT_TRUE(start->Finish(kStartBoundMs)) << "the start returns in bounded time";
    const long startMs = Millis(t0);
    if (row.fault == ApiFault::kSlow) {
        EXPECT_GE(startMs, kRequestTimeoutMs) << "the call was waited for up to the time-out";
    }
    EXPECT_EQ(events_->CountStage(0), 1);
    if (call.startFailsWithIt) {
        EXPECT_FALSE(start->Result());
        EXPECT_EQ(events_->CountStage(5), 0) << "no transport started";
        const std::vector<IPSpeakerNotifyParam> failures = Failures();
        ASSERT_EQ(failures.size(), 1u) << "one failure event per element";
        EXPECT_EQ(failures[0].elementID, kSpeaker);
        EXPECT_EQ(failures[0].requestID, 61);
        ExpectErrorOf(call, row.fault, failures[0].error);
    } else {
        EXPECT_TRUE(start->Result()) << "a failed " << call.tag << " call does not fail the talk";
        EXPECT_EQ(events_->CountStage(5), 1);
        EXPECT_TRUE(Failures().empty());
        if (row.fault != ApiFault::kDown) {
            EXPECT_TRUE(WaitFor([] { return SamplesPlayed(kSpeaker) > 4000; }, 10000)) << "the talk is heard";
        }
    }
    const std::string recording = CIPSpeakerManager::Instance()->GetRecordedFilePath();
    TimedStop();

    if (row.fault == ApiFault::kDown) {
        if (!recording.empty()) {
            EXPECT_GT(FileSize(recording), 0)
                << "the recording that could not be uploaded stays: " << recording;
        }
        RestartPlatform(renewals);
        return;
    }
    // What the platform saw: the faulted call (logged once answered, late for a slow one), and the statuses
    // the module reported.
    const std::string query = std::string("/requests?method=") + call.method + "&path=" + call.path;
    auto faulted = [&] {
        PlatformTest::RestReply seen = Control("GET", query);
        for (int i = 0; seen.Has(("/ResponseStatus/Data/Requests/" + std::to_string(i)).c_str()); ++i) {
            if (!seen.Str(("/ResponseStatus/Data/Requests/" + std::to_string(i) + "/Fault").c_str(), "")
                     .empty()) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(WaitFor(faulted, kSlowAnswerMs + 2000))
        << "the platform applied the fault: " << Control("GET", query).body;
    // The log is in the order the answers went out: a late answer comes after the stop's.
    std::vector<int> statuses = ServerStatuses();
    if (row.fault == ApiFault::kSlow) {
        std::sort(statuses.begin(), statuses.end());
    }
    if (std::string(call.tag) == "StartPromptTone") {
        // The device group is told that the start failed, with the reason.
        ASSERT_EQ(statuses, (std::vector<int>{2, 3}));
        const CRapidJsonProto failed = Requests(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus")).front();
        EXPECT_EQ(failed.get_int_v("/ErrorModule", -1), Failures().at(0).error.GetMainErrorCode());
        EXPECT_EQ(failed.get_int_v("/ErrorCode", -1), Failures().at(0).error.GetSubErrorCode());
    } else if (call.startFailsWithIt) {
        EXPECT_TRUE(statuses.empty()) << "no group was made: neither a start nor a stop is reported";
    } else {
        EXPECT_EQ(statuses, (std::vector<int>{1, 3}));
    }
    if (std::string(call.tag) == "OperationLog" && row.fault != ApiFault::kSlow) {
        EXPECT_EQ(OperationLogTypes(), (std::vector<int>{kOperationLogStop}))
            << "the start's entry was refused";
    } else if (row.fault != ApiFault::kSlow) {
        EXPECT_EQ(OperationLogTypes(), (std::vector<int>{kOperationLogStart, kOperationLogStop}));
    }
}

// ---- the push link -------------------------------------------------------------------------------------

void FaultMatrixTest::RunPushLinkDrop(const Row&) {
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    auto call = Start({1004, kSpeaker}, 51);
    ASSERT_TRUE(call->Finish(kStartBoundMs));
    ASSERT_TRUE(call->Result());
    ASSERT_TRUE(WaitFor([] { return SamplesPlayed(kSpeaker) > 0; }, 10000));

    ASSERT_EQ(Control("POST", "/push/drop", R"({"RefuseSeconds":2})").ErrorCode(), 0);
    ASSERT_TRUE(WaitFor([&] { return !framework->IsPushLinkConnected(); }, 5000));
    const int before = SamplesPlayed(kSpeaker);
    BcastTest::Settle(1000);
    EXPECT_GT(SamplesPlayed(kSpeaker), before + 4000) << "the audio does not depend on the push link";
    ASSERT_TRUE(WaitFor([&] { return framework->IsPushLinkConnected(); }, 20000)) << "the link comes back";
    EXPECT_TRUE(Failures().empty());

    TimedStop();
    ExpectStartedThenStopped();
    EXPECT_TRUE(WaitFor([] { return Phase(1004) == "stopped" && Phase(kSpeaker) == "stopped"; }, 5000));
}

// ---- the streaming server ------------------------------------------------------------------------------

void FaultMatrixTest::RunStreamingRefusal(const Row&) {
    ASSERT_EQ(Control("POST", "/streaming", R"({"RefuseSessions":true,"RefuseStatus":503})").ErrorCode(), 0);
    auto call = Start({1001}, 32);
    ASSERT_TRUE(call->Finish(kStartBoundMs));
    EXPECT_FALSE(call->Result());
    const std::vector<IPSpeakerNotifyParam> failures = Failures();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].elementID, 1001);
    EXPECT_NE(failures[0].error.GetSubErrorCode(), 0) << "the failure carries a reason";
    EXPECT_EQ(events_->CountStage(5), 0) << "the device transports never start";
    EXPECT_TRUE(ServerStatuses().empty()) << "a streaming-only broadcast reports no status itself";
    PlatformTest::RestReply streaming = Control("GET", "/streaming");
    EXPECT_GE(streaming.Int("/ResponseStatus/Data/Refused", 0), 1);
    EXPECT_EQ(streaming.Int("/ResponseStatus/Data/TalkStreams", -1), 0) << "no talk reached the server";
    TimedStop();
}

void FaultMatrixTest::RunStreamingTeardown(const Row&) {
    auto call = Start({1001, kSpeaker}, 33);
    ASSERT_TRUE(call->Finish(kStartBoundMs));
    ASSERT_TRUE(call->Result());
    ASSERT_TRUE(WaitFor([] { return SamplesPlayed(1001) > 4000; }, 10000))
        << "the streaming speaker hears it";
    CLogCapture log;
    ASSERT_EQ(Control("POST", "/streaming/drop").ErrorCode(), 0);
    EXPECT_TRUE(WaitFor(
        [] { return Control("GET", "/streaming").Int("/ResponseStatus/Data/TalkStreams", -1) == 0; }, 5000))
        << "the server closed the talk";
    // The platform tells that the streaming speaker stopped; the manager hands that on, and nothing fails.
    EXPECT_TRUE(WaitFor([] { return events_->CountSpeakerStatus(1001, 3) > 0; }, 5000))
        << "the speaker's stop reaches the manager";
    EXPECT_TRUE(Failures().empty());
    EXPECT_EQ(events_->CountSpeakerStatus(kSpeaker, 2), 0) << "the other speaker does not fail";
    const int before = SamplesPlayed(kSpeaker);
    BcastTest::Settle(1000);
    EXPECT_GT(SamplesPlayed(kSpeaker), before + 4000) << "the other transport goes on";
    TimedStop();
    EXPECT_TRUE(WaitFor([] { return Phase(kSpeaker) == "stopped"; }, 5000)) << Phase(kSpeaker);
}

// ---- devices -------------------------------------------------------------------------------------------

void FaultMatrixTest::RunDeviceRefusesLogin(const Row&) {
    // 202 is not used by the other rows, so no login of this client is open on it.
    deviceLog_->Clear();
    ASSERT_EQ(Control("POST", "/device/202", R"({"RefuseLogin":true})").ErrorCode(), 0);
    const Clock::time_point t0 = Clock::now();
    EXPECT_FALSE(StartDevices("202"));
    EXPECT_LT(Millis(t0), kStartBoundMs);
    const ErrorCode error = Tal::Base::Error::GetLastError();
    EXPECT_EQ(error.GetMainErrorCode(), Tal::Base::Error::kModuleFramework) << error.ToString();
    EXPECT_EQ(error.GetSubErrorCode(), Tal::Base::Error::kCodeNoTargetReached);
    EXPECT_FALSE(error.GetCasadingErrorInfo().empty()) << "the device's reason comes along";
    EXPECT_EQ(deviceLog_->StatusesOf(202), (std::vector<int>{TOOL::kDeviceConnecting, TOOL::kDeviceFailed}))
        << deviceLog_->Dump();
    ASSERT_FALSE(deviceLog_->Of(202).empty());
    EXPECT_NE(deviceLog_->Of(202).back().get_v("/ErrorInfo", "").find("login"), std::string::npos)
        << deviceLog_->Dump();
    EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
    EXPECT_EQ(Device(202).get_int_v("/TalksOpened", -1), 0) << "no talk reached the device";
}

void FaultMatrixTest::RunDeviceVanishes(const Row&) {
    deviceLog_->Clear();
    const long before = DeviceBytes(201);
    ASSERT_TRUE(StartDevices("201")) << Tal::Base::Error::GetLastError().ToString();
    ASSERT_TRUE(WaitFor([&] { return DeviceBytes(201) > before + 8000; }, 10000))
        << "the device hears the talk";
    ASSERT_EQ(Control("POST", "/device/201", R"({"Online":false})").ErrorCode(), 0);
    EXPECT_TRUE(WaitFor([] { return deviceLog_->StatusesOf(201).back() == TOOL::kDeviceFailed; }, 10000))
        << deviceLog_->Dump();
    EXPECT_EQ(deviceLog_->StatusesOf(201),
              (std::vector<int>{TOOL::kDeviceConnecting, TOOL::kDevicePlaying, TOOL::kDeviceFailed}))
        << deviceLog_->Dump();
    EXPECT_EQ(deviceLog_->Of(201).back().get_int_v("/ResourceStatus", -1), TOOL::kDeviceOffline);
    const Clock::time_point t0 = Clock::now();
    EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
    EXPECT_LT(Millis(t0), kStopBoundMs);
    ASSERT_EQ(Control("POST", "/device/201", R"({"Online":true})").ErrorCode(), 0);

    SCOPED_TRACE("the next device broadcast");
    deviceLog_->Clear();
    const long again = DeviceBytes(201);
    ASSERT_TRUE(StartDevices("201")) << Tal::Base::Error::GetLastError().ToString();
    EXPECT_TRUE(WaitFor([&] { return DeviceBytes(201) > again + 8000; }, 10000))
        << "the device hears it again";
    EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
    EXPECT_EQ(deviceLog_->StatusesOf(201),
              (std::vector<int>{TOOL::kDeviceConnecting, TOOL::kDevicePlaying, TOOL::kDeviceStopped}))
        << deviceLog_->Dump();
}

// ---- recordings ----------------------------------------------------------------------------------------

void FaultMatrixTest::RunObjectStoreDown(const Row&) {
    const int records = RecordCount();
    ASSERT_EQ(Control("POST", "/storage/501", R"({"Running":false})").ErrorCode(), 0);
    auto call = Start({kSpeaker}, 42);
    ASSERT_TRUE(call->Finish(kStartBoundMs));
    ASSERT_TRUE(call->Result());
    const std::string recording = CIPSpeakerManager::Instance()->GetRecordedFilePath();
    ASSERT_FALSE(recording.empty()) << "the site records live talks";
    EXPECT_TRUE(WaitFor([] { return SamplesPlayed(kSpeaker) > 8000; }, 10000));
    BcastTest::Settle(1500);  // the prompt tone is over: the talk records
    CLogCapture log;
    TimedStop();  // uploads the recording
    EXPECT_TRUE(log.Contains("Upload record file failed.", 5));
    EXPECT_TRUE(log.Contains("CObjectClient Init failed!", 5));
    EXPECT_TRUE(Failures().empty()) << "the talk itself did not fail";
    const long bytes = FileSize(recording);
    EXPECT_GT(bytes, 4000) << "the recording stays: " << recording;
    EXPECT_EQ(RecordCount(), records) << "nothing registered";

    RecordTaskParam retry;
    retry.mode = 0;
    retry.recordDevice = std::to_string(kSpeaker);
    retry.recordFilePath = recording;
    retry.recordStartTime = "2026-11-24 10:00:00";
    EXPECT_FALSE(CMediaFileManager::Instance()->UploadRecordFile(retry));
    EXPECT_EQ(Tal::Base::Error::GetLastError().GetSubErrorCode(), kErrorUploadClientStart);

    SCOPED_TRACE("the store back: the kept recording uploads whole");
    ASSERT_EQ(Control("POST", "/storage/501", R"({"Running":true})").ErrorCode(), 0);
    EXPECT_TRUE(CMediaFileManager::Instance()->UploadRecordFile(retry));
    ASSERT_EQ(RecordCount(), records + 1);
    CRapidJsonProto doc;
    doc.set_str(Control("GET", "/broadcasts").body);
    EXPECT_EQ(doc.get_int_v("/ResponseStatus/Data/Records[" + std::to_string(records + 1) + "]/Bytes", -1),
              bytes);
    EXPECT_EQ(FileSize(recording), bytes) << "the local recording stays after an upload";
}

void FaultMatrixTest::RunDiskFull(const Row&) {
    // Files of this process may not grow past 16 KiB: a second of the talk's recording fills the disk.
    constexpr rlim_t kLimit = 16 * 1024;
    const int records = RecordCount();
    std::string recording;
    long bytes = -1;
    {
        CLogCapture log;
        BcastTest::CFileSizeLimit full(kLimit);
        ASSERT_TRUE(full.IsActive());
        auto call = Start({kSpeaker}, 43);
        ASSERT_TRUE(call->Finish(kStartBoundMs));
        EXPECT_TRUE(call->Result());
        recording = CIPSpeakerManager::Instance()->GetRecordedFilePath();
        ASSERT_FALSE(recording.empty());
        EXPECT_TRUE(WaitFor(
            [&] { return log.Contains("Record file " + recording + " is full, data dropped."); }, 15000))
            << "the recording fills the disk";
        const int heard = SamplesPlayed(kSpeaker);
        BcastTest::Settle(1000);
        EXPECT_GT(SamplesPlayed(kSpeaker), heard + 4000) << "the talk goes on with the disk full";
        TimedStop();
        bytes = FileSize(recording);
        EXPECT_FALSE(log.Contains("Upload record file failed."));
    }
    EXPECT_TRUE(Failures().empty());
    EXPECT_GT(bytes, 4000) << "what was written before the disk filled stays: " << recording;
    EXPECT_LE(bytes, static_cast<long>(kLimit));
    EXPECT_EQ(FileSize(recording + ".part"), -1);
    ASSERT_EQ(RecordCount(), records + 1) << "what was recorded is uploaded";
    CRapidJsonProto doc;
    doc.set_str(Control("GET", "/broadcasts").body);
    EXPECT_EQ(doc.get_int_v("/ResponseStatus/Data/Records[" + std::to_string(records + 1) + "]/Bytes", -1),
              bytes);
}

// ---- the platform killed -------------------------------------------------------------------------------

void FaultMatrixTest::RunPlatformKilled(const Row&) {
    const int renewals = BusinessCommon::SessionRenewalCount();
    auto call = Start({kSpeaker}, 71);
    ASSERT_TRUE(call->Finish(kStartBoundMs));
    ASSERT_TRUE(call->Result());
    ASSERT_TRUE(WaitFor([] { return SamplesPlayed(kSpeaker) > 4000; }, 10000));
    const std::string recording = CIPSpeakerManager::Instance()->GetRecordedFilePath();
    KillPlatform();
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    EXPECT_TRUE(WaitFor([&] { return !framework->IsPushLinkConnected(); }, 5000)) << "the link notices";
    BcastTest::Settle(500);  // the talk goes on into the void
    CLogCapture log;
    TimedStop();
    EXPECT_TRUE(log.Contains("Upload record file failed.", 5));
    EXPECT_TRUE(log.Contains("Notify server broadcast status failed.", 5));
    EXPECT_TRUE(Failures().empty()) << "the talk had started; the stop is not a failure";
    EXPECT_GT(FileSize(recording), 4000) << "the recording that could not be uploaded stays: " << recording;
    RestartPlatform(renewals);
}

// ---- the table -----------------------------------------------------------------------------------------

std::vector<Row> AllRows() {
    constexpr int kFramework = Tal::Base::Error::kModuleFramework;
    constexpr int kBadAnswer = Tal::Base::Error::kCodeBadServerAnswer;
    const std::vector<ApiCall> calls = {
        {"ElementDownload", "POST", "/DXAPI/Galewing/Platform/V1/Resource/IncrementalDownload", true,
         kFramework, kBadAnswer, true},
        {"BaseConfig", "GET", "/DXAPI/Galewing/BroadcastPlugin/V1/BaseConfig", true, kModuleBroadcast,
         kErrorBadServerResponse, false},
        {"CommonUrlList", "GET", "/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/CommonUrlList", true,
         kModuleBroadcast, kErrorBadServerResponse, false},
        {"StartPromptTone", "POST", "/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/StartPromptTone",
         true, kModuleBroadcast, kErrorBadServerResponse, false},
        {"UpdateBroadcastStatus", "PUT",
         "/DXAPI/Galewing/BroadcastPlugin/V1/RealTimeBroadcast/UpdateBroadcastStatus", false,
         kModuleBroadcast, kErrorBadServerResponse, false},
        {"OperationLog", "POST", "/DXAPI/Galewing/Platform/V1/OperationLog", false, kFramework, kBadAnswer,
         false},
    };
    const ApiFault faults[] = {ApiFault::kDown, ApiFault::kSlow, ApiFault::kHttp500, ApiFault::kMalformed,
                               ApiFault::kEmpty};
    std::vector<Row> rows;
    for (const ApiCall& call : calls) {
        for (ApiFault fault : faults) {
            Row row;
            row.name = std::string(call.tag) + "_" + FaultTag(fault);
            row.setUp = std::string(call.method) + " " + call.path + ": " + FaultTag(fault);
            row.expected = call.startFailsWithIt ? "start false, stage 0 then stage 2 with the call's error"
                                                 : "start true, stage 5, the talk is heard";
            row.run = &FaultMatrixTest::RunApiFault;
            row.call = call;
            row.fault = fault;
            rows.push_back(row);
        }
    }
    rows.push_back({"PushLinkDroppedAndRestored", "/_control/push/drop RefuseSeconds 2 during a talk",
                    "the talk goes on, the link comes back, statuses 1 then 3",
                    &FaultMatrixTest::RunPushLinkDrop});
    rows.push_back({"StreamingServerRefuses", "/_control/streaming RefuseSessions 503",
                    "start false, stage 2 for 1001, no device transport",
                    &FaultMatrixTest::RunStreamingRefusal});
    rows.push_back({"StreamingServerTearsDownMidTalk", "/_control/streaming/drop during a talk",
                    "the other transport goes on, the stop is bounded",
                    &FaultMatrixTest::RunStreamingTeardown});
    rows.push_back({"DeviceRefusesLogin", "/_control/device/202 RefuseLogin, device broadcast",
                    "start false, module 10 code 6, statuses connecting, failed",
                    &FaultMatrixTest::RunDeviceRefusesLogin});
    rows.push_back({"DeviceVanishesMidTalk", "/_control/device/201 Online false during a device broadcast",
                    "statuses connecting, playing, failed (offline)", &FaultMatrixTest::RunDeviceVanishes});
    rows.push_back(
        {"ObjectStoreDownDuringUpload", "/_control/storage/501 Running false, then a recorded talk",
         "upload fails, the recording stays and uploads later", &FaultMatrixTest::RunObjectStoreDown});
    rows.push_back({"DiskFullWhileRecording", "RLIMIT_FSIZE 16 KiB during a recorded talk",
                    "the talk goes on, the recording keeps what fitted and is uploaded",
                    &FaultMatrixTest::RunDiskFull});
    rows.push_back({"PlatformKilledMidTalk", "SIGKILL of the platform during a talk, then a restart",
                    "bounded stop, recording kept, session renewed", &FaultMatrixTest::RunPlatformKilled});
    return rows;
}

}  // namespace

TEST_P(FaultMatrixTest, FailsAsExpectedLeavesNothingBehindAndTheNextBroadcastWorks) {
    const Row& row = GetParam();
    RecordProperty("fault", row.setUp);
    RecordProperty("expected", row.expected);
    if (!warm_) {
        // Threads and caches that live as long as the process (GStreamer's, the device library's) are made by
        // the first broadcast on each transport: a talk on all three and a device broadcast.
        auto talk = Start({1001, 1004, kSpeaker}, 98);
        ASSERT_TRUE(talk->Finish(kStartBoundMs));
        ASSERT_TRUE(talk->Result());
        EXPECT_TRUE(WaitFor([] { return SamplesPlayed(1001) > 4000 && SamplesPlayed(1004) > 4000; }, 10000));
        CIPSpeakerManager::Instance()->Stop();
        ASSERT_TRUE(StartDevices("201")) << Tal::Base::Error::GetLastError().ToString();
        EXPECT_TRUE(CBroadcastBusinessManager::StopBroadcast());
        ExpectAWorkingTalk();
        warm_ = true;
        Control("POST", "/reset");
    }
    const Usage before = Measure();
    events_->Clear();
    row.run(row);
    Control("POST", "/reset");
    ExpectAWorkingTalk();
    BcastTest::Settle(200);
    EXPECT_TRUE(WaitFor([&] { return Measure().threads <= before.threads; }, 5000))
        << "threads before: " << before.threads << ", after: " << Measure().threads << " (" << ThreadNames()
        << ")";
    EXPECT_TRUE(WaitFor([&] { return Measure().fds <= before.fds; }, 5000))
        << "descriptors before: " << before.fds << ", after: " << Measure().fds;
    const Usage after = Measure();
    std::printf("[ usage    ] %s: threads %d -> %d, descriptors %d -> %d, heap %+ld bytes\n",
                row.name.c_str(), before.threads, after.threads, before.fds, after.fds,
                after.heap - before.heap);
    EXPECT_LT(after.heap - before.heap, kHeapToleranceBytes)
        << "heap before: " << before.heap << ", after: " << after.heap;
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultMatrixTest, ::testing::ValuesIn(AllRows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });
