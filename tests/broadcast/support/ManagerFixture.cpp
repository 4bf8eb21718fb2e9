#include "ManagerFixture.h"

#include <dirent.h>

#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
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

BcastTest::CPulseAudioPeer* CManagerTest::pulse_ = nullptr;
PlatformTest::CPlatformProcess* CManagerTest::platform_ = nullptr;
CEventLog* CManagerTest::events_ = nullptr;
std::string CManagerTest::captureDir_;

void CManagerTest::StartPeers(const std::vector<std::string>& platformArgs) {
    pulse_ = new BcastTest::CPulseAudioPeer();
    std::string error;
    ASSERT_TRUE(pulse_->Start(&error)) << error;
    pulse_->ExportClientEnvironment();
    platform_ = new PlatformTest::CPlatformProcess();
    std::vector<std::string> args = {"--fixture", PlatformTest::DemoFixture()};
    args.insert(args.end(), platformArgs.begin(), platformArgs.end());
    ASSERT_TRUE(platform_->Start(args)) << platform_->Error();
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
    CFrameMessageMgr::Instance()->SetMessageCallback(
        [](const std::string& data, int) { CIPSpeakerManager::Instance()->HandleWebsocketMessage(data); });
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
