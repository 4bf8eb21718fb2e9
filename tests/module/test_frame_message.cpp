#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/WebSocket/FrameMessageMgr.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::WaitFor;
using Tal::Base::CLogCapture;

namespace {

struct Received {
    std::mutex mutex;
    std::vector<std::pair<std::string, int>> frames;
    std::size_t Size() {
        std::lock_guard<std::mutex> lock(mutex);
        return frames.size();
    }
};

class FrameMessageTest : public ::testing::Test {
protected:
    void SetUp() override {
        BusinessCommon::InitBusinessCommon(nullptr, "en_US");
        mgr = CFrameMessageMgr::Instance();
        ASSERT_TRUE(mgr->InitManager());
        mgr->SetMessageCallback([this](const PushMessage& message, int type) {
            std::lock_guard<std::mutex> lock(received.mutex);
            received.frames.emplace_back(message.data, type);
        });
    }
    void TearDown() override {
        mgr->UnInitManager();
        BusinessCommon::UnInitBusinessCommon();
    }
    // What the push link does with a frame: hand it to the subscribed observers.
    int Push(const std::string& raw, int msgType, int eventType = 0) {
        return TalClientFrameWork::CFrameworkManagerInterface::Instance()->DeliverFrame(raw, msgType,
                                                                                        eventType, 1);
    }
    // Frames are handled in order on the network loop: a marker frame tells when earlier ones are done.
    void Flush() {
        Push(R"({"Msg":{"Data":{"marker":1}}})", 3);
        ASSERT_TRUE(WaitFor([&] {
            std::lock_guard<std::mutex> lock(received.mutex);
            return !received.frames.empty() && received.frames.back().first == R"({"marker":1})";
        }));
        std::lock_guard<std::mutex> lock(received.mutex);
        received.frames.pop_back();
    }
    CFrameMessageMgr* mgr = nullptr;
    Received received;
};

}  // namespace

TEST_F(FrameMessageTest, MessageTypeThreeIsQueuedWithoutLookingAtItsContent) {
    CLogCapture log;
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":9,"Module":4,"Data":{"Event":{"BroadcastStatusList":[]}}}})", 3),
              1);
    EXPECT_EQ(Push("this is not json", 3), 1);
    Flush();
    ASSERT_EQ(received.frames.size(), 2u);
    EXPECT_EQ(received.frames[0].first, R"({"Event":{"BroadcastStatusList":[]}})");
    EXPECT_EQ(received.frames[0].second, 3);
    EXPECT_EQ(received.frames[1].first, "") << "a frame that does not parse has empty data";
    EXPECT_TRUE(log.Contains("msg_type:3, raw_msg: this is not json, websocket_msg_type:1.", 3));
}

TEST_F(FrameMessageTest, OtherTypesAreFilteredByProtocolTypeAndModule) {
    // Delivered through the event subscription (310001) with another message type.
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":1,"Data":{"n":1}}})", 5, 310001), 1);
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":1,"Module":0,"Data":{"n":2}}})", 5, 310001), 1);
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":1,"Module":2,"Data":{"n":3}}})", 5, 310001), 1);
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":2,"Module":0,"Data":{"n":4}}})", 5, 310001), 1);
    EXPECT_EQ(Push("garbage", 5, 310001), 1);
    EXPECT_EQ(Push(R"({"Msg":{"ProtocolType":1}})", 6, 0), 0) << "not subscribed at all";
    Flush();
    ASSERT_EQ(received.frames.size(), 2u);
    EXPECT_EQ(received.frames[0].first, R"({"n":1})") << "a missing Module reads 0";
    EXPECT_EQ(received.frames[0].second, 5);
    EXPECT_EQ(received.frames[1].first, R"({"n":2})");
}

TEST_F(FrameMessageTest, SecondInitRegistersNothingMoreAndUninitIsIdempotent) {
    CLogCapture log;
    EXPECT_TRUE(mgr->InitManager());
    EXPECT_TRUE(log.Contains("Has already init.", 4));
    EXPECT_EQ(Push(R"({"Msg":{"Data":{}}})", 3), 1) << "one observer, not two";
    EXPECT_TRUE(mgr->UnInitManager());
    EXPECT_TRUE(log.Contains("Uninit websocket message succ.", 3));
    EXPECT_EQ(Push(R"({"Msg":{"Data":{}}})", 3), 0) << "the observer is gone";
    EXPECT_TRUE(mgr->UnInitManager());
    EXPECT_TRUE(log.Contains("Has not uninit.", 4));
    EXPECT_TRUE(mgr->InitManager());
}

TEST_F(FrameMessageTest, FramesBeforeTheCallbackIsSetAreDiscarded) {
    mgr->UnInitManager();
    ASSERT_TRUE(mgr->InitManager());  // no callback yet
    Push(R"({"Msg":{"Data":{"early":1}}})", 3);
    // Wait until the network loop has handled it, then set the callback.
    ASSERT_TRUE(WaitFor(
        [] { return BusinessCommon::CMessageLoopForNetworkComm::Instance()->GetAllTaskCount() == 0; }));
    mgr->SetMessageCallback([this](const PushMessage& message, int type) {
        std::lock_guard<std::mutex> lock(received.mutex);
        received.frames.emplace_back(message.data, type);
    });
    Flush();
    EXPECT_TRUE(received.frames.empty());
}

TEST_F(FrameMessageTest, UninitWaitsForARunningCallbackAndLaterFramesFindNone) {
    std::atomic<bool> inCallback{false};
    std::atomic<bool> callbackDone{false};
    std::atomic<int> calls{0};
    mgr->SetMessageCallback([&](const PushMessage&, int) {
        ++calls;
        inCallback = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        callbackDone = true;
    });
    Push(R"({"Msg":{"Data":{}}})", 3);
    ASSERT_TRUE(WaitFor([&] { return inCallback.load(); }));
    mgr->UnInitManager();
    EXPECT_TRUE(callbackDone.load()) << "clearing the callback waits for the running one";
    // A frame already queued when the manager stopped finds no callback.
    auto* loop = BusinessCommon::CMessageLoopForNetworkComm::Instance();
    mgr->OnRawMsg(R"({"Msg":{"Data":{}}})", 3, 1);
    ASSERT_TRUE(WaitFor([&] { return loop->GetAllTaskCount() == 0; }));
    EXPECT_EQ(calls.load(), 1);
}

TEST(FrameMessage, LocationDataMsgExtractsDataOrKeepsTheRawText) {
    CLogCapture log;
    std::string out;
    EXPECT_TRUE(LocationDataMsg(out, R"({"Msg":{"Data":{"a":[1,2]}}})"));
    EXPECT_EQ(out, R"({"a":[1,2]})");
    EXPECT_TRUE(LocationDataMsg(out, R"({"Msg":{}})"));
    EXPECT_EQ(out, "");
    EXPECT_FALSE(LocationDataMsg(out, "{oops"));
    EXPECT_EQ(out, "{oops");
    EXPECT_TRUE(log.Contains("Long link message format is not standardized. ", 4));
}

TEST(FrameMessage, APushReadFromTheParsedFrameEqualsThePushReadFromItsDataText) {
    const std::string data =
        R"({"Event":{"UpdateVersion":{},"BroadcastStatusList":[{"BoardcastGroupGUID":"g1","ResourceID":1001,)"
        R"("ResourceType":1027,"ResourceStatus":3,"Status":100,"ErrorModule":30,"ErrorCode":7,)"
        R"("PromptToneBeginEnd":0},{"ResourceID":"not a number"}]}})";
    const TalClientFrameWork::PushFrame frame(R"({"MessageType":3,"Msg":{"Data":)" + data + "}}", 3, 0, 1);
    const PushMessage fromFrame = PushMessage::FromDocument(frame.document, "/Msg/Data");
    const PushMessage fromText = PushMessage::FromData(data);
    EXPECT_EQ(fromFrame.data, data);
    ASSERT_EQ(fromFrame.statusList.size(), 2u);
    ASSERT_EQ(fromText.statusList.size(), 2u);
    for (const PushMessage* message : {&fromFrame, &fromText}) {
        const BroadcastStatusItem& first = message->statusList[0];
        EXPECT_EQ(first.groupGUID, "g1");
        EXPECT_EQ(first.resourceID, 1001);
        EXPECT_EQ(first.resourceType, 1027);
        EXPECT_EQ(first.resourceStatus, 3);
        EXPECT_EQ(first.status, 100);
        EXPECT_EQ(first.errorModule, 30);
        EXPECT_EQ(first.errorCode, 7);
        EXPECT_EQ(first.promptToneBeginEnd, 0);
        EXPECT_EQ(message->statusList[1].resourceID, -1) << "a field of another type keeps the default";
        EXPECT_EQ(message->statusList[1].groupGUID, "");
        EXPECT_TRUE(message->updateVersion);
    }
    EXPECT_TRUE(PushMessage::FromData("{oops").statusList.empty());
    EXPECT_FALSE(PushMessage::FromData("{oops").updateVersion);
}
