// Pushes against starts and stops: the platform's status pushes, frames handed in from another thread,
// readers of the speaker state and a stop that arrives at any moment of a start, all at once. Built for
// ThreadSanitizer; under the other builds it checks that every start ends and the manager ends idle.

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "ManagerFixture.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using NetworkCommunication::CRapidJsonProto;

namespace {

class SpeakerRaceTest : public BroadcastTest::CManagerTest {};

std::string StatusFrame(const std::string& guid, int elementId, int status) {
    CRapidJsonProto frame;
    frame.set_v("/Event/BroadcastStatusList[1]/BoardcastGroupGUID", guid);
    frame.set_v("/Event/BroadcastStatusList[1]/ResourceID", elementId);
    frame.set_v("/Event/BroadcastStatusList[1]/ResourceType", 1027);
    frame.set_v("/Event/BroadcastStatusList[1]/Status", status);
    frame.set_v("/Event/BroadcastStatusList[1]/ResourceStatus", status == 1 ? 1 : 3);
    frame.set_v("/Event/BroadcastStatusList[1]/ErrorModule", status == 2 ? 30 : 0);
    frame.set_v("/Event/BroadcastStatusList[1]/ErrorCode", status == 2 ? 7 : 0);
    return frame.get_str(0);
}

}  // namespace

TEST_F(SpeakerRaceTest, PushesStopsAndReadersAgainstStartsLeaveTheManagerIdle) {
    auto* manager = CIPSpeakerManager::Instance();
    std::atomic<bool> running{true};
    std::atomic<int> framesHandled{0};

    // Frames for the running broadcast's group and for foreign ones, in every status the platform sends.
    std::thread pusher([&] {
        const int statuses[] = {0, 100, 101, 1, 2, 3};
        std::mt19937 random(7);
        while (running) {
            const auto speakers = manager->GetSpeakerStates();
            const auto it = speakers.find(1006);
            const std::string guid =
                it != speakers.end() && random() % 2 == 0 ? it->second.groupGUID : "foreign";
            manager->HandleWebsocketMessage(
                StatusFrame(guid, random() % 2 == 0 ? 1006 : 1004, statuses[random() % 6]));
            manager->HandleWebsocketMessage("{\"Event\":{}}");
            framesHandled += 2;
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });
    std::thread reader([&] {
        while (running) {
            (void)manager->GetSpeakerStates();
            (void)manager->IsPromptVoiceActive();
            (void)manager->GetBroadcastKind();
            (void)manager->IsStopped();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });

    std::mt19937 random(11);
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::atomic<bool> done{false};
        bool result = false;
        std::thread start([&] {
            result = manager->StartSpeakVoice({1004, 1006}, 100 + round);
            done = true;
        });
        // The stop lands somewhere in the start, or after it, as an operator's click would.
        const int delayMs = static_cast<int>(random() % 1500);
        BcastTest::Settle(delayMs);
        manager->Stop();
        const bool ended = BcastTest::WaitFor([&] { return done.load(); }, 30000);
        if (!ended) {
            manager->SetStopFlag(true);
        }
        start.join();
        ASSERT_TRUE(ended) << "a start must end once stopped (stop after " << delayMs << " ms)";
        EXPECT_TRUE(result) << "a stopped start is not a failure";
        manager->Stop();  // a start that finished after the stop is ended here
        EXPECT_EQ(manager->GetBroadcastKind(), -1);
        EXPECT_TRUE(manager->IsStopped());
    }
    running = false;
    pusher.join();
    reader.join();
    EXPECT_GT(framesHandled.load(), 100);
    EXPECT_EQ(events_->CountStage(2), 0) << "no round ended in failure events";
    EXPECT_TRUE(manager->GetSpeakerStates().empty()) << "the last stop cleared the state";
}
