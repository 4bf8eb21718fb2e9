#include "ManagerFixture.h"

#include <dirent.h>

#include <algorithm>

#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "TestProcess.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PlatformLogin.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "support/QtWait.h"

using BroadCastPlugin::CFrameMessageMgr;
using BroadCastPlugin::CIPSpeakerManager;
using BroadCastPlugin::IPSpeakerNotifyParam;
using NetworkCommunication::CRapidJsonProto;

namespace BroadcastTest {

void CEventLog::Add(const std::vector<IPSpeakerNotifyParam>& batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    batches_.push_back(batch);
}

std::vector<std::vector<IPSpeakerNotifyParam>> CEventLog::Batches() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return batches_;
}

std::vector<IPSpeakerNotifyParam> CEventLog::All() const {
    std::vector<IPSpeakerNotifyParam> all;
    for (const auto& batch : Batches()) {
        all.insert(all.end(), batch.begin(), batch.end());
    }
    return all;
}

int CEventLog::CountStage(int broadcastStatus) const {
    int n = 0;
    for (const auto& e : All()) {
        n += e.type == 0 && e.broadcastStatus == broadcastStatus ? 1 : 0;
    }
    return n;
}

int CEventLog::CountSpeakerStatus(int elementId, int status, const std::string& groupGuid) const {
    int n = 0;
    for (const auto& e : All()) {
        n += e.type == 1 && e.elementID == elementId && e.speakerStatus == status &&
                     (groupGuid.empty() || e.groupGUID == groupGuid)
                 ? 1
                 : 0;
    }
    return n;
}

void CEventLog::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    batches_.clear();
}

CStartCall::CStartCall(std::function<bool()> start)
    : thread_([this, start = std::move(start)] {
          result_ = start();
          done_ = true;
      }) {}

CStartCall::~CStartCall() {
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool CStartCall::Finish(int timeoutMs) {
    const bool done = BcastTest::WaitFor([this] { return done_.load(); }, timeoutMs);
    if (done && thread_.joinable()) {
        thread_.join();
    }
    return done;
}

BcastTest::CPulseAudioPeer* CManagerTest::pulse_ = nullptr;
PlatformTest::CPlatformProcess* CManagerTest::platform_ = nullptr;
CEventLog* CManagerTest::events_ = nullptr;
std::string CManagerTest::captureDir_;

void CManagerTest::StartProcesses(const std::vector<std::string>& platformArgs, const std::string& fixture) {
    pulse_ = new BcastTest::CPulseAudioPeer();
    std::string error;
    ASSERT_TRUE(pulse_->Start(&error)) << error;
    pulse_->ExportClientEnvironment();
    platform_ = new PlatformTest::CPlatformProcess();
    std::vector<std::string> args = {"--fixture", fixture.empty() ? PlatformTest::DemoFixture() : fixture};
    args.insert(args.end(), platformArgs.begin(), platformArgs.end());
    ASSERT_TRUE(platform_->Start(args)) << platform_->Error();
}

void CManagerTest::StopProcesses() {
    if (platform_ != nullptr) {
        EXPECT_EQ(platform_->Stop(), 0) << platform_->Stderr();
        delete platform_;
        platform_ = nullptr;
    }
    if (pulse_ != nullptr) {
        pulse_->Stop();
        delete pulse_;
        pulse_ = nullptr;
    }
}

void CManagerTest::StartPeers(const std::vector<std::string>& platformArgs, const std::string& fixture) {
    StartProcesses(platformArgs, fixture);
    if (HasFatalFailure()) {
        return;
    }
    std::string error;
    BusinessCommon::InitBusinessCommon(nullptr, "en_US");
    captureDir_ = PlatformTest::MakeTempDir("manager-capture");
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(captureDir_);
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(captureDir_);
    BusinessCommon::PlatformLoginRequest login;
    login.address = "127.0.0.1";
    login.port = std::stoi(platform_->RestUrl().substr(platform_->RestUrl().rfind(':') + 1));
    login.user = PlatformTest::kUser;
    login.password = PlatformTest::kPassword;
    ASSERT_TRUE(BusinessCommon::LoginToPlatform(login, error)) << error;
    // Pushes reach the manager the way the controller wires them.
    ASSERT_TRUE(CFrameMessageMgr::Instance()->InitManager());
    CFrameMessageMgr::Instance()->SetMessageCallback([](const BroadCastPlugin::PushMessage& message, int) {
        CIPSpeakerManager::Instance()->HandleWebsocketMessage(message);
    });
    ASSERT_TRUE(BcastTest::WaitFor(
        [] { return TalClientFrameWork::CFrameworkManagerInterface::Instance()->IsPushLinkConnected(); },
        10000));
    events_ = new CEventLog();
    CIPSpeakerManager::Instance()->Init([](const std::vector<IPSpeakerNotifyParam>& b) { events_->Add(b); });
}

void CManagerTest::StopPeers() {
    CIPSpeakerManager::Instance()->Uninit();
    CFrameMessageMgr::Instance()->UnInitManager();
    BusinessCommon::LogoutFromPlatform();
    BusinessCommon::UnInitBusinessCommon();
    StopProcesses();
    delete events_;
    events_ = nullptr;
}

void CManagerTest::SetUp() {
    ASSERT_NE(platform_, nullptr) << "the peers did not start";
    Control("POST", "/reset");
    events_->Clear();
}

void CManagerTest::TearDown() {
    CIPSpeakerManager::Instance()->Stop();
    BcastTest::Settle(50);
}

PlatformTest::RestReply CManagerTest::Control(const std::string& method, const std::string& path,
                                              const std::string& body) {
    PlatformTest::CRestClient control(platform_->RestUrl());
    return control.Send(method, "/_control" + path, body);
}

std::vector<CRapidJsonProto> CManagerTest::Requests(const std::string& path) {
    PlatformTest::RestReply log = Control("GET", "/requests?path=" + path);
    std::vector<CRapidJsonProto> bodies;
    const rapidjson::Value* list = log.Node("/ResponseStatus/Data/Requests");
    for (rapidjson::SizeType i = 0; list != nullptr && list->IsArray() && i < list->Size(); ++i) {
        CRapidJsonProto body;
        body.set_str((*list)[i]["Body"].GetString());
        bodies.push_back(body);
    }
    return bodies;
}

CRapidJsonProto CManagerTest::ControlEntry(const std::string& path, const std::string& list,
                                           const std::string& idKey, int id) {
    CRapidJsonProto all;
    all.set_str(Control("GET", path).body);
    const std::string items = "/ResponseStatus/Data/" + list;
    CRapidJsonProto one;
    for (int i = 1; i <= all.get_cnt(items); ++i) {
        const std::string item = items + "[" + std::to_string(i) + "]";
        if (all.get_int_v(item + "/" + idKey, 0) == id) {
            one.set_str(all.get_node_str(item));
        }
    }
    return one;
}

CRapidJsonProto CManagerTest::Speaker(int elementId) {
    return ControlEntry("/speakers", "Speakers", "ElementID", elementId);
}

CRapidJsonProto CManagerTest::Device(int deviceId) {
    return ControlEntry("/devices", "Devices", "DeviceID", deviceId);
}

BcastTool::AudioMatch CManagerTest::MatchOf(int elementId, const BcastTool::PcmAudio& reference) {
    BcastTool::PcmAudio recording;
    std::string error;
    if (!BcastTool::ReadWavMono(Speaker(elementId).get_v("/WavPath"), recording, error)) {
        ADD_FAILURE() << "speaker " << elementId << ": " << error;
        return {};
    }
    return BcastTool::CompareAudio(reference, recording, 8.0);
}

std::string CManagerTest::GroupOf(int elementId) {
    const auto speakers = CIPSpeakerManager::Instance()->GetSpeakerStates();
    const auto it = speakers.find(elementId);
    return it != speakers.end() ? it->second.groupGUID : "<none>";
}

std::vector<int> CManagerTest::ServerStatuses() {
    std::vector<int> statuses;
    for (const CRapidJsonProto& body : Requests(Plugin("/RealTimeBroadcast/UpdateBroadcastStatus"))) {
        statuses.push_back(body.get_int_v("/Status", -1));
    }
    return statuses;
}

std::vector<int> CManagerTest::OperationLogTypes() {
    CRapidJsonProto log;
    log.set_str(Control("GET", "/oplog").body);
    std::vector<int> types;
    for (int i = 1; i <= log.get_cnt("/ResponseStatus/Data/OperationLogList"); ++i) {
        types.push_back(
            log.get_int_v("/ResponseStatus/Data/OperationLogList[" + std::to_string(i) + "]/LogType", 0));
    }
    return types;
}

int CManagerTest::AddFault(const std::string& method, const std::string& path, const std::string& rest) {
    PlatformTest::RestReply r =
        Control("POST", "/fault", R"({"Method":")" + method + R"(","Path":")" + path + R"(",)" + rest + "}");
    return r.Int("/ResponseStatus/Data/FaultID", -1);
}

void CManagerTest::ExpectStartedThenStopped() {
    const std::vector<int> statuses = ServerStatuses();
    ASSERT_FALSE(statuses.empty());
    EXPECT_EQ(statuses.front(), 1);
    EXPECT_EQ(statuses.back(), 3);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 2), 0);
}

void CManagerTest::MakeSpeech(const std::string& path, const std::string& text,
                              BcastTool::PcmAudio& reference) {
    BcastTest::ProcessResult made = BcastTest::RunProcess({"espeak-ng", "-v", "en", "-w", path, text}, 60000);
    ASSERT_EQ(made.exitCode, 0) << "espeak-ng (installed by scripts/setup.sh): " << made.output;
    std::string error;
    BcastTool::PcmAudio raw;
    ASSERT_TRUE(BcastTool::ReadWavMono(path, raw, error)) << error;
    ASSERT_TRUE(BcastTool::ToRate(raw, 8000, reference));
}

BcastTest::CTempDir* CSentenceTest::speech_ = nullptr;
BcastTool::PcmAudio* CSentenceTest::sentence_ = nullptr;

void CSentenceTest::StartWithSentence(const std::string& text, const std::string& dirName,
                                      const std::string& fixture) {
    StartPeers({}, fixture);
    speech_ = new BcastTest::CTempDir(dirName);
    sentence_ = new BcastTool::PcmAudio();
    MakeSpeech(SentenceWav(), text, *sentence_);
}

void CSentenceTest::StopWithSentence() {
    StopPeers();
    delete speech_;
    speech_ = nullptr;
    delete sentence_;
    sentence_ = nullptr;
}

int CManagerTest::ThreadCount() {
    int n = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir)) {
            n += entry->d_name[0] != '.' ? 1 : 0;
        }
        closedir(dir);
    }
    return n;
}

}  // namespace BroadcastTest
