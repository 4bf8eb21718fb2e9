#include "ClientNetFixture.h"

#include <signal.h>

namespace ClientNetTest {

using TalClientFrameWork::CFrameworkManagerInterface;
using TalClientFrameWork::PushLinkEvent;
using TalClientFrameWork::PushLinkState;

bool WaitUntil(const std::function<bool()>& condition, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

int PortOf(const std::string& url) {
    const size_t scheme = url.find("://");
    const size_t colon = url.find(':', scheme == std::string::npos ? 0 : scheme + 3);
    if (colon == std::string::npos) {
        return -1;
    }
    return std::atoi(url.c_str() + colon + 1);
}

void CRecordingObserver::OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        frames_.push_back({rawMsg, msgType, websocketMsgType, std::this_thread::get_id()});
    }
    arrived_.notify_all();
}

std::vector<CRecordingObserver::Frame> CRecordingObserver::Frames() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_;
}

size_t CRecordingObserver::Count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_.size();
}

bool CRecordingObserver::WaitForCount(size_t count, int timeoutMs) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return frames_.size() >= count; });
}

CStateRecorder::CStateRecorder() {
    listenerId_ =
        CFrameworkManagerInterface::Instance()->AddPushLinkListener([this](const PushLinkEvent& event) {
            std::lock_guard<std::mutex> lock(mutex_);
            events_.push_back(event);
        });
}

CStateRecorder::~CStateRecorder() {
    CFrameworkManagerInterface::Instance()->RemovePushLinkListener(listenerId_);
}

std::vector<PushLinkEvent> CStateRecorder::Events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

int CStateRecorder::Count(PushLinkState state, int closeCode) const {
    std::lock_guard<std::mutex> lock(mutex_);
    int n = 0;
    for (const PushLinkEvent& e : events_) {
        n += e.state == state && (closeCode == 0 || e.closeCode == closeCode) ? 1 : 0;
    }
    return n;
}

void CStateRecorder::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
}

void PlatformClientTest::SetUp() {
    platform_ = std::make_unique<PlatformTest::CPlatformProcess>();
    std::vector<std::string> args = {"--fixture", PlatformTest::DemoFixture()};
    for (const std::string& a : ExtraArgs()) {
        args.push_back(a);
    }
    ASSERT_TRUE(platform_->Start(args)) << platform_->Error();
    restPort_ = PortOf(platform_->RestUrl());
    pushPort_ = PortOf(platform_->PushUrl());
    ASSERT_GT(restPort_, 0) << platform_->RestUrl();
    ASSERT_GT(pushPort_, 0) << platform_->PushUrl();
}

void PlatformClientTest::TearDown() {
    BusinessCommon::LogoutFromPlatform();
    for (const std::string& name : observers_) {
        CFrameworkManagerInterface::Instance()->UnRegisterWebsocketObserver(name);
    }
    if (platform_ && platform_->Pid() > 0) {
        const int code = platform_->Stop();
        EXPECT_EQ(code, 0) << "the platform did not stop cleanly: " << platform_->Error() << "\n"
                           << platform_->Stderr().substr(0, 20000);
    }
    platform_.reset();
}

BusinessCommon::PlatformLoginRequest PlatformClientTest::DemoLogin() const {
    BusinessCommon::PlatformLoginRequest request;
    request.address = host_;
    request.port = restPort_;
    request.user = PlatformTest::kUser;
    request.password = PlatformTest::kPassword;
    request.language = "en_US";
    return request;
}

::testing::AssertionResult PlatformClientTest::Login() {
    std::string error;
    if (!BusinessCommon::LoginToPlatform(DemoLogin(), error)) {
        return ::testing::AssertionFailure() << "login failed: " << error;
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult PlatformClientTest::WaitConnected(int timeoutMs) {
    if (WaitUntil([] { return CFrameworkManagerInterface::Instance()->IsPushLinkConnected(); }, timeoutMs)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "the push link is not connected after " << timeoutMs << " ms (state "
           << TalClientFrameWork::PushLinkStateName(
                  CFrameworkManagerInterface::Instance()->GetPushLinkState())
           << ")";
}

PlatformTest::RestReply PlatformClientTest::Control(const std::string& method, const std::string& path,
                                                    const std::string& body) {
    PlatformTest::CRestClient control(platform_->RestUrl());
    control.SetCaFile(ControlCaFile());
    return control.Send(method, "/_control" + path, body);
}

int PlatformClientTest::Fault(const std::string& json) {
    PlatformTest::RestReply reply = Control("POST", "/fault", json);
    return reply.Int("/ResponseStatus/Data/FaultID", -1);
}

int PlatformClientTest::CountRequests(const std::string& method, const std::string& path) {
    PlatformTest::RestReply reply = Control("GET", "/requests?method=" + method + "&path=" + path);
    const rapidjson::Value* list = reply.Node("/ResponseStatus/Data/Requests");
    return list != nullptr && list->IsArray() ? static_cast<int>(list->Size()) : -1;
}

::testing::AssertionResult PlatformClientTest::Push(int messageType, int eventType,
                                                    const std::string& dataJson) {
    const std::string body = "{\"MessageType\":" + std::to_string(messageType) +
                             ",\"EventType\":" + std::to_string(eventType) +
                             ",\"ProtocolType\":1,\"Module\":0,\"Data\":" + dataJson + "}";
    PlatformTest::RestReply reply = Control("POST", "/push/send", body);
    if (reply.status != 200 || reply.ErrorCode() != 0) {
        return ::testing::AssertionFailure() << "push/send refused: " << reply.Describe();
    }
    return ::testing::AssertionSuccess();
}

PlatformTest::RestReply PlatformClientTest::PushClients() {
    return Control("GET", "/push/clients");
}

::testing::AssertionResult PlatformClientTest::KillPlatform() {
    if (!platform_ || platform_->Pid() <= 0) {
        return ::testing::AssertionFailure() << "no platform to kill";
    }
    // The destructor kills with SIGKILL and reaps: the platform gets no chance to close its links.
    platform_.reset();
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult PlatformClientTest::RestartPlatformOnSamePorts() {
    platform_ = std::make_unique<PlatformTest::CPlatformProcess>();
    std::vector<std::string> args = {"--fixture",   PlatformTest::DemoFixture(),
                                     "--listen",    host_ + ":" + std::to_string(restPort_),
                                     "--push-port", std::to_string(pushPort_)};
    for (const std::string& a : ExtraArgs()) {
        args.push_back(a);
    }
    if (!platform_->Start(args)) {
        return ::testing::AssertionFailure() << "the platform did not start again on ports " << restPort_
                                             << "/" << pushPort_ << ": " << platform_->Error();
    }
    return ::testing::AssertionSuccess();
}

}  // namespace ClientNetTest
