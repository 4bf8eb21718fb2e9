#include <gtest/gtest.h>

#include <QObject>

#include <map>
#include <mutex>
#include <vector>

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastTasks.h"
#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::Settle;
using BcastTest::WaitFor;
using Tal::Base::CLogCapture;

namespace {

// Records, in emission order and on the emitting thread, what the controller reports.
class SignalRecorder {
public:
    explicit SignalRecorder(CBroadcastController* c) {
        auto direct = Qt::DirectConnection;
        conns_.push_back(QObject::connect(c, &CBroadcastController::SignalDownloadResult,
                                          [this](DownloadResourceState s, ErrorCode e) {
                                              Add("download " + std::to_string(static_cast<int>(s)), e);
                                          }));
        conns_.push_back(QObject::connect(c, &CBroadcastController::SignalSearchMediaFiles,
                                          [this](std::vector<MediaFile>, ErrorCode e) { Add("search", e); }));
        conns_.push_back(QObject::connect(
            c, &CBroadcastController::SignalDownloadFileToLocal,
            [this](ResourceManager::ID id, ErrorCode e, void*) { Add("file " + std::to_string(id), e); }));
        conns_.push_back(QObject::connect(
            c, &CBroadcastController::SignalListenBroadcast,
            [this](ResourceManager::ID id, ErrorCode e, void*) { Add("listen " + std::to_string(id), e); }));
        conns_.push_back(QObject::connect(c, &CBroadcastController::SignalStopBroadcast,
                                          [this](std::string, ErrorCode e, void*) { Add("stop", e); }));
        conns_.push_back(
            QObject::connect(c, &CBroadcastController::SignalTTSBroadcastState,
                             [this](std::vector<TTSResponseError>) { Add("tts", ErrorCode()); }));
        conns_.push_back(
            QObject::connect(c, &CBroadcastController::SignalStartDeviceBroadcast,
                             [this](std::vector<ResourceManager::ID>, ErrorCode e) { Add("device", e); }));
        conns_.push_back(QObject::connect(c, &CBroadcastController::SignalDeviceBroadcastState,
                                          [this](DeviceNotifyParam p) {
                                              std::lock_guard<std::mutex> lock(mutex_);
                                              deviceStates_.push_back(p);
                                          }));
        conns_.push_back(QObject::connect(c, &CBroadcastController::SignalBroadcastState,
                                          [this](std::vector<IPSpeakerNotifyParam> p) {
                                              std::lock_guard<std::mutex> lock(mutex_);
                                              broadcastStates_.push_back(p);
                                          }));
        (void)direct;
    }
    ~SignalRecorder() {
        for (auto& c : conns_) {
            QObject::disconnect(c);
        }
    }
    std::vector<std::string> Names() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return names_;
    }
    std::vector<ErrorCode> Errors() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return errors_;
    }
    std::vector<DeviceNotifyParam> DeviceStates() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return deviceStates_;
    }
    std::vector<std::vector<IPSpeakerNotifyParam>> BroadcastStates() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return broadcastStates_;
    }
    std::size_t Count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return names_.size();
    }

private:
    void Add(const std::string& name, const ErrorCode& e) {
        std::lock_guard<std::mutex> lock(mutex_);
        names_.push_back(name);
        errors_.push_back(e);
    }
    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    std::vector<ErrorCode> errors_;
    std::vector<DeviceNotifyParam> deviceStates_;
    std::vector<std::vector<IPSpeakerNotifyParam>> broadcastStates_;
    std::vector<QMetaObject::Connection> conns_;
};

class ControllerTest : public ::testing::Test {
protected:
    void SetUp() override { BusinessCommon::InitBusinessCommon(nullptr, "en_US"); }
    void TearDown() override {
        CBroadcastController::Instance()->Unit();
        BusinessCommon::UnInitBusinessCommon();
    }
};

}  // namespace

TEST_F(ControllerTest, EveryAsyncRequestBeforeInitIsRefusedWithInputParamError) {
    CBroadcastController* c = CBroadcastController::Instance();
    ASSERT_FALSE(c->IsInit());
    CLogCapture log;
    SignalRecorder recorder(c);
    EXPECT_FALSE(c->AsyncDownloadAllResource());
    EXPECT_FALSE(c->AsyncDownloadFileToLocal(3, nullptr));
    EXPECT_FALSE(c->AsyncSearchMediaFile("bell"));
    EXPECT_FALSE(c->AsyncUploadRecordFile(RecordTaskParam()));
    EXPECT_FALSE(c->AsyncStartSpeakVoice(IPSpeakBroadcastParam{{1, 2}}, nullptr));
    EXPECT_FALSE(c->AsyncStartPlayAudioFile(IPSpeakBroadcastParam{{1}}, "/tmp/a.wav", nullptr));
    EXPECT_FALSE(c->AsyncTTSPlay(TTSRequestParam()));
    EXPECT_FALSE(c->AsyncStartListen(4, nullptr));
    EXPECT_FALSE(c->AsyncStartDeviceBroadcast({1, 2}, 0));
    EXPECT_EQ(log.Count("Input param error.", 5), 9u);
    EXPECT_EQ(log.Count("Post task to message loop failed."), 0u);
    // The two stop shortcuts answer without posting when there is nothing to stop.
    EXPECT_TRUE(c->AsyncStopBroadcast(nullptr));
    EXPECT_TRUE(log.Contains("Async to stop broadcast, current control type: -1.", 3));
    EXPECT_TRUE(c->AsyncStopListen(nullptr));
    EXPECT_TRUE(log.Contains("IPSpeaker has already stop listen.", 4));
    EXPECT_EQ(log.Count("Input param error."), 9u);
    Settle(50);
    EXPECT_EQ(recorder.Count(), 0u) << "no callback runs for a refused request";
}

TEST_F(ControllerTest, InitIsIdempotentAndUnitThenInitBuildsNewLoops) {
    CBroadcastController* c = CBroadcastController::Instance();
    CLogCapture log;
    ASSERT_TRUE(c->Init());
    EXPECT_TRUE(log.Contains("Succ Init CBroadcastController", 3));
    ASSERT_TRUE(c->Init());
    EXPECT_TRUE(log.Contains("Has already init.", 4));
    c->Unit();
    EXPECT_TRUE(log.Contains("Start to unit CBroadcastController, init state: 1"));
    EXPECT_TRUE(log.Contains("Succ Unit CBroadcastController"));
    EXPECT_FALSE(c->AsyncDownloadAllResource()) << "no loops after Unit";
    c->Unit();
    EXPECT_TRUE(log.Contains("Start to unit CBroadcastController, init state: 0"));
    ASSERT_TRUE(c->Init());
    SignalRecorder recorder(c);
    EXPECT_TRUE(c->AsyncSearchMediaFile("x"));
    EXPECT_TRUE(WaitFor([&] { return recorder.Count() == 1; }));
}

TEST_F(ControllerTest, TasksRunInPostOrderAndCallbacksCarryTheThreadsLastError) {
    CBroadcastController* c = CBroadcastController::Instance();
    ASSERT_TRUE(c->Init());
    SignalRecorder recorder(c);
    CLogCapture log;
    ASSERT_TRUE(c->AsyncDownloadFileToLocal(7, nullptr));
    ASSERT_TRUE(c->AsyncSearchMediaFile("bell"));
    ASSERT_TRUE(c->AsyncDownloadAllResource());
    ASSERT_TRUE(c->AsyncTTSPlay(TTSRequestParam()));
    ASSERT_TRUE(c->AsyncStartDeviceBroadcast({5, 6}, 1));
    ASSERT_TRUE(c->AsyncStartListen(11, nullptr));
    ASSERT_TRUE(WaitFor([&] { return recorder.Count() == 7; }));
    auto names = recorder.Names();
    // The main loop runs its five tasks in order; the listen runs on the sub loop, in any interleaving.
    std::vector<std::string> mainOrder;
    for (const auto& n : names) {
        if (n.rfind("listen", 0) != 0) {
            mainOrder.push_back(n);
        }
    }
    EXPECT_EQ(mainOrder,
              (std::vector<std::string>{"file 7", "search", "download 0", "download 2", "tts", "device"}));
    // Each callback carries the error its own operation left: the platform requests fail at the transport
    // because no session exists here.
    const ErrorCode noSession(2, 11, 7);
    const std::map<std::string, ErrorCode> expected = {
        {"file 7", noSession}, {"search", noSession}, {"download 0", ErrorCode()}, {"download 2", noSession},
        {"tts", ErrorCode()},  {"device", noSession}, {"listen 11", noSession}};
    auto errors = recorder.Errors();
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(errors[i], expected.at(names[i])) << names[i];
    }
    EXPECT_TRUE(log.Contains("DownloadMediaFileToLocal failed, file id: 7", 5));
    EXPECT_TRUE(log.Contains("SearchMediaFiles failed, filter_message_: bell.", 5));
    EXPECT_TRUE(log.Contains("Download config failed.", 5));
    EXPECT_TRUE(log.Contains("Start device broadcast failed. device ids: 5,6", 5));
    EXPECT_TRUE(log.Contains("Start broadcast listen failed.", 5));
    EXPECT_EQ(c->GetMainTaskCount(), 0);
}

TEST(DownloadResourceTask, StopsAtTheFirstFailingStepAndReportsStartedThenFailed) {
    std::vector<std::string> called;
    std::vector<DownloadResourceState> states;
    ResourceDownloadSteps steps;
    auto step = [&](const char* name, bool ok) {
        return [&called, name, ok] {
            called.push_back(name);
            if (!ok) {
                Tal::Base::Error::SetLastError(ErrorCode(1, 17, 404));
            }
            return ok;
        };
    };
    steps.config = step("config", true);
    steps.ttsLanguages = step("tts", true);
    steps.partitions = step("partitions", false);
    steps.terminals = step("terminals", true);
    steps.mediaDirectories = step("dirs", true);
    steps.mediaFiles = step("files", true);
    std::vector<ErrorCode> errors;
    CLogCapture log;
    Tal::Base::Error::SetLastError(ErrorCode(2, 99, 99));
    CDownloadResourceTask task(steps, [&](DownloadResourceState s, ErrorCode e) {
        states.push_back(s);
        errors.push_back(e);
    });
    task.Exec();
    EXPECT_EQ(called, (std::vector<std::string>{"config", "tts", "partitions"}));
    EXPECT_EQ(states, (std::vector<DownloadResourceState>{DownloadResourceStart, DownloadResourceFailed}));
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_TRUE(errors[0].IsSucceed()) << "the task resets the last error before it starts";
    EXPECT_EQ(errors[1], ErrorCode(1, 17, 404));
    EXPECT_TRUE(log.Contains("Download ALL Partition failed.", 5));

    called.clear();
    states.clear();
    steps.partitions = step("partitions", true);
    CDownloadResourceTask ok(steps, [&](DownloadResourceState s, ErrorCode) { states.push_back(s); });
    ok.Exec();
    EXPECT_EQ(called.size(), 6u);
    EXPECT_EQ(states, (std::vector<DownloadResourceState>{DownloadResourceStart, DownloadResourceFinish}));

    CDownloadResourceTask silent(steps, nullptr);
    silent.Exec();  // an empty callback is simply not called
}

TEST_F(ControllerTest, DeviceMessagesAreMappedAndOthersIgnored) {
    CBroadcastController* c = CBroadcastController::Instance();
    SignalRecorder recorder(c);
    CLogCapture log;
    c->HandleDeviceMessageCallback(R"({"NotifyType":2,"Status":0})");
    EXPECT_TRUE(log.Contains("Receive unsupport notify type: 2", 5));
    c->HandleDeviceMessageCallback("not json");
    c->HandleDeviceMessageCallback("{}");
    c->HandleDeviceMessageCallback("[1]");
    const int mapping[][2] = {{0, 3}, {1, 0}, {2, 1}, {3, 2}, {9, -1}};
    for (const auto& m : mapping) {
        c->HandleDeviceMessageCallback(
            R"({"NotifyType":1,"GroupId":"g1","IndexCode":"42","ErrorInfo":"busy",)"
            R"("ResourceStatus":5,"Status":)" +
            std::to_string(m[0]) + "}");
    }
    auto states = recorder.DeviceStates();
    ASSERT_EQ(states.size(), 5u) << "only NotifyType 1 objects emit";
    for (std::size_t i = 0; i < states.size(); ++i) {
        EXPECT_EQ(states[i].status, mapping[i][1]) << "Status " << mapping[i][0];
        EXPECT_EQ(states[i].groupId, "g1");
        EXPECT_EQ(states[i].resourceId, 42u);
        EXPECT_EQ(states[i].resourceStatus, 5);
        EXPECT_EQ(states[i].error.GetCasadingErrorInfo(), "busy");
    }
    EXPECT_EQ(log.Count("Receive device broadcast message callback:"), 9u);
}

TEST_F(ControllerTest, StopWorkingDrainsRestartsLoopsAndRemovesTheFourCacheFiles) {
    char pattern[] = "/tmp/bcast-stop-XXXXXX";
    std::string dir = mkdtemp(pattern);
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(dir);
    const char* names[] = {"broadcast_raw_mp3_file.mp3", "broadcast_mp3_to_wav_file.wav",
                           "broadcast_single_file.wav", "broadcast_resample_file.wav"};
    for (const char* n : names) {
        int h = Tal::Base::FileSystem::OpenFile(dir + "/" + n, Tal::Base::FileSystem::kOpenWrite);
        ASSERT_GE(h, 0);
        Tal::Base::FileSystem::CloseFile(h);
    }
    int keep = Tal::Base::FileSystem::OpenFile(dir + "/other.wav", Tal::Base::FileSystem::kOpenWrite);
    Tal::Base::FileSystem::CloseFile(keep);

    CBroadcastController* c = CBroadcastController::Instance();
    ASSERT_TRUE(c->Init());
    SignalRecorder recorder(c);
    // Work queued before the stop still runs: Quit drains the loop before it starts again.
    ASSERT_TRUE(c->AsyncSearchMediaFile("a"));
    ASSERT_TRUE(c->AsyncSearchMediaFile("b"));
    CLogCapture log;
    c->StopWorking();
    EXPECT_EQ(recorder.Count(), 2u) << "queued tasks ran before StopWorking returned";
    for (const char* n : names) {
        EXPECT_FALSE(Tal::Base::FileSystem::FileExists(dir + "/" + n)) << n;
    }
    EXPECT_TRUE(Tal::Base::FileSystem::FileExists(dir + "/other.wav"));
    const char* order[] = {"Start to StopWorking.",
                           "Start to sync stop device broadcast.",
                           "Start to wait main message loop running.",
                           "Main messageloop quit and start finish.",
                           "Start to wait sub message loop running.",
                           "Sub messageloop quit and start finish.",
                           "Start to remove cache file.",
                           "Finish to StopWorking."};
    auto lines = log.Lines();
    std::size_t at = 0;
    for (const char* expected : order) {
        while (at < lines.size() && lines[at].text.find(expected) == std::string::npos) {
            ++at;
        }
        EXPECT_LT(at, lines.size()) << "missing or out of order: " << expected;
    }
    EXPECT_TRUE(c->AsyncSearchMediaFile("after")) << "the loops run again after StopWorking";
    EXPECT_TRUE(WaitFor([&] { return recorder.Count() == 3; }));
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath("");
}

TEST_F(ControllerTest, ServerPushWithoutStatusListNotifiesAnEmptyListThroughTheFramePath) {
    CBroadcastController* c = CBroadcastController::Instance();
    ASSERT_TRUE(c->Init());
    SignalRecorder recorder(c);
    CLogCapture log;
    c->HandleServerPushMessage(R"({"Event":{}})", 3);
    ASSERT_TRUE(WaitFor([&] { return recorder.BroadcastStates().size() == 1; }));
    EXPECT_TRUE(recorder.BroadcastStates()[0].empty());
    EXPECT_TRUE(log.Contains("Receive websocket message: {\"Event\":{}}.", 3));

    // A status element of a speaker that is not in a running broadcast yields only its resource event.
    c->HandleServerPushMessage(
        R"({"Event":{"BroadcastStatusList":[{"BoardcastGroupGUID":"g","ResourceID":8,)"
        R"("ErrorCode":0,"ErrorModule":0,"ResourceType":1027,"ResourceStatus":3,"Status":1}]}})",
        3);
    ASSERT_TRUE(WaitFor([&] { return recorder.BroadcastStates().size() == 2; }));
    auto events = recorder.BroadcastStates()[1];
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].type, 2);
    EXPECT_EQ(events[0].elementID, 8);
    EXPECT_EQ(events[0].resourceStatus, 0) << "ResourceStatus 3 maps to 0";
    EXPECT_EQ(events[0].resourceType, 1027);
    EXPECT_EQ(events[0].groupGUID, "g");
}

TEST(IPSpeakerManager, ResourceStatusMappingKeepsDefaultsForUnknownValues) {
    CIPSpeakerManager manager;
    std::vector<IPSpeakerNotifyParam> got;
    manager.Init(
        [&](const std::vector<IPSpeakerNotifyParam>& p) { got.insert(got.end(), p.begin(), p.end()); });
    std::string list;
    const int statuses[] = {1, 3, 4, 5, 6, 2, 0, 9};
    for (int s : statuses) {
        list += std::string(list.empty() ? "" : ",") + R"({"ResourceID":1,"ResourceStatus":)" +
                std::to_string(s) + "}";
    }
    manager.HandleWebsocketMessage(R"({"Event":{"BroadcastStatusList":[)" + list + "]}}");
    ASSERT_EQ(got.size(), 8u);
    const int expected[] = {2, 0, 4, 5, 6, -1, -1, -1};
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].resourceStatus, expected[i]) << "ResourceStatus " << statuses[i];
        EXPECT_EQ(got[i].error.GetMainErrorCode(), -1) << "a missing ErrorModule reads -1";
    }
    got.clear();
    manager.HandleWebsocketMessage("not json at all");
    EXPECT_TRUE(got.empty());
    EXPECT_EQ(manager.GetBroadcastKind(), kBroadcastNone);
    EXPECT_TRUE(manager.IsStopped());
}
