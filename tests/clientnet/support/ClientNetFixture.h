#pragma once
// Tests of the framework's platform clients against the real bcast-platform program: a platform per test
// on free loopback ports, the framework logged in through LoginToPlatform, helpers to watch push frames and
// push-link states, and the platform's control interface to inject faults and read back what it saw.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "PlatformProcess.h"
#include "RestClient.h"
#include "framework/business/PlatformLogin.h"
#include "framework/clientframe/FrameworkManagerInterface.h"

namespace ClientNetTest {

/// Polls `condition` every 10 ms until it holds or `timeoutMs` passes; returns its final value.
bool WaitUntil(const std::function<bool()>& condition, int timeoutMs);

/// The port of "http://127.0.0.1:PORT" or "ws://127.0.0.1:PORT/push"; -1 when there is none.
int PortOf(const std::string& url);

/// An observer that records every frame it is handed, and on which thread.
class CRecordingObserver : public TalClientFrameWork::IWebsocketObserver {
public:
    struct Frame {
        std::string raw;
        int msgType = 0;
        int websocketMsgType = 0;
        std::thread::id thread;
    };
    void OnWebsocketMessage(const std::string& rawMsg, int msgType, int websocketMsgType) override;
    std::vector<Frame> Frames() const;
    size_t Count() const;
    /// Waits until at least `count` frames arrived.
    bool WaitForCount(size_t count, int timeoutMs) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<Frame> frames_;
};

/// Records the push link's changes of state for the lifetime of the object.
class CStateRecorder {
public:
    CStateRecorder();
    ~CStateRecorder();
    CStateRecorder(const CStateRecorder&) = delete;
    CStateRecorder& operator=(const CStateRecorder&) = delete;

    std::vector<TalClientFrameWork::PushLinkEvent> Events() const;
    /// Number of events of this state (and close code, when not 0) so far.
    int Count(TalClientFrameWork::PushLinkState state, int closeCode = 0) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<TalClientFrameWork::PushLinkEvent> events_;
    int listenerId_ = -1;
};

/// A real platform for each test, the demo fixture, and the framework's clients pointed at it.
class PlatformClientTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Arguments besides --listen and --fixture.
    virtual std::vector<std::string> ExtraArgs() const { return {}; }
    /// The authority the control client trusts (a platform serving https).
    virtual std::string ControlCaFile() const { return std::string(); }

    /// The login request for the demo operator.
    BusinessCommon::PlatformLoginRequest DemoLogin() const;
    /// Logs in as the demo operator; a test failure names the reason.
    ::testing::AssertionResult Login();
    /// Waits until the push link is connected (acknowledged by the platform).
    ::testing::AssertionResult WaitConnected(int timeoutMs = 20000);

    /// The control interface (no session).
    PlatformTest::RestReply Control(const std::string& method, const std::string& path,
                                    const std::string& body = "");
    /// Installs a fault; returns its id (-1 on failure).
    int Fault(const std::string& json);
    /// Requests the platform logged for a method and path.
    int CountRequests(const std::string& method, const std::string& path);
    /// Pushes a frame through the platform.
    ::testing::AssertionResult Push(int messageType, int eventType, const std::string& dataJson);
    /// The push links the platform holds, as its control interface reports them.
    PlatformTest::RestReply PushClients();

    /// Kills the platform (SIGKILL) and starts it again on the same REST and push ports.
    ::testing::AssertionResult KillPlatform();
    ::testing::AssertionResult RestartPlatformOnSamePorts();

    std::string host_ = "127.0.0.1";
    int restPort_ = -1;
    int pushPort_ = -1;
    std::unique_ptr<PlatformTest::CPlatformProcess> platform_;
    std::vector<std::string> observers_;  ///< names registered by the test, removed at tear-down
};

}  // namespace ClientNetTest
