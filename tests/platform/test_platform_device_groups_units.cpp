// Device broadcast groups in one process: which devices take one (fixture), and the order of the statuses
// each device pushes, with the scheduler run by hand so that "200 ms after the answer" is a step of the
// test; what a device records into device-<id>.wav.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AudioCheck.h"
#include "ManualScheduler.h"
#include "TestProcess.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/devices/DeviceGroups.h"

using namespace Platform;

namespace {

std::string DevicesSite(const std::string& devices, const std::string& elements) {
    return R"({"Users":[{"ID":1,"Name":"u","Password":"p"}],"Devices":[)" + devices + R"(],"Elements":[)" +
           elements + "]}";
}

TEST(DeviceBroadcastFixture, ALoudspeakerOrDirectElementsOnTheDeviceInterfaceTakeADeviceBroadcast) {
    Fixture f;
    std::string error;
    ASSERT_TRUE(ParseFixture(
        DevicesSite(
            R"({"ID":1,"Name":"cam","DeviceType":2001,"AccessProtocol":1,"Loudspeaker":true},)"
            R"({"ID":2,"Name":"sdk","DeviceType":2020,"AccessProtocol":1},)"
            R"({"ID":3,"Name":"sms","DeviceType":2020,"AccessProtocol":1},)"
            R"({"ID":4,"Name":"udp","DeviceType":2020,"AccessProtocol":23})",
            R"({"ID":10,"Name":"a","DeviceID":2,"Stream":"sdk"},)"
            R"({"ID":11,"Name":"b","DeviceID":3,"Stream":"sms"},{"ID":12,"Name":"c","DeviceID":4,"Stream":"sdk"})"),
        f, error))
        << error;
    EXPECT_TRUE(f.FindDevice(1)->loudspeaker);
    EXPECT_FALSE(f.FindDevice(2)->loudspeaker) << "false unless the fixture says so";
    std::vector<int> taking;
    for (const Device& d : f.devices) {
        if (TakesDeviceBroadcast(f, d)) {
            taking.push_back(d.id);
        }
    }
    EXPECT_EQ(taking, (std::vector<int>{1, 2}));

    Fixture bad;
    EXPECT_FALSE(ParseFixture(
        DevicesSite(R"({"ID":4,"Name":"udp","DeviceType":2020,"AccessProtocol":23,"Loudspeaker":true})", ""),
        bad, error));
    EXPECT_NE(error.find("\"Loudspeaker\""), std::string::npos) << error;
    EXPECT_FALSE(ParseFixture(
        DevicesSite(R"({"ID":1,"Name":"cam","DeviceType":2001,"AccessProtocol":1,"Loudspeaker":"yes"})", ""),
        bad, error));
}

// Collects the flat device statuses of the pushes.
class CDeviceSink : public IPushSink {
public:
    struct Item {
        std::string guid;
        int deviceId = 0;
        int status = -1;
        int resourceStatus = -1;
        std::string errorInfo;
    };

    void Publish(const PushFrame& frame) override {
        rapidjson::Document doc;
        std::string error;
        ASSERT_TRUE(Json::Parse(frame.dataJson, doc, error)) << error;
        EXPECT_EQ(frame.messageType, kMessageTypeBroadcast);
        EXPECT_EQ(frame.eventType, kEventTypeBroadcastStatus);
        EXPECT_EQ(doc["NotifyType"].GetInt(), 1);
        Item item;
        item.guid = doc["GroupId"].GetString();
        item.deviceId = std::stoi(doc["IndexCode"].GetString());
        item.status = doc["Status"].GetInt();
        item.resourceStatus = doc["ResourceStatus"].GetInt();
        item.errorInfo = doc["ErrorInfo"].GetString();
        std::lock_guard<std::mutex> lock(mutex_);
        items_.push_back(item);
    }

    std::vector<Item> Items() {
        std::lock_guard<std::mutex> lock(mutex_);
        return items_;
    }
    /// "device:status" of every push of a group, in order.
    std::vector<std::string> Trace(const std::string& guid) {
        std::vector<std::string> out;
        for (const Item& i : Items()) {
            if (i.guid == guid) {
                out.push_back(std::to_string(i.deviceId) + ":" + std::to_string(i.status));
            }
        }
        return out;
    }

private:
    std::mutex mutex_;
    std::vector<Item> items_;
};

class DeviceGroupsTest : public ::testing::Test {
protected:
    void SetUp() override { groups_ = std::make_unique<CDeviceGroups>(sink_, scheduler_, dir_.Path()); }
    void TearDown() override {
        groups_.reset();
        for (int delay : scheduler_.Delays()) {
            EXPECT_EQ(delay, CDeviceGroups::kDialDelayMs) << "the first statuses wait for the answer";
        }
    }

    static DeviceGroupSetup Setup(const std::string& guid, std::vector<DeviceGroupSetup::Member> members) {
        DeviceGroupSetup setup;
        setup.guid = guid;
        for (const auto& m : members) {
            setup.requestedIds.push_back(m.deviceId);
        }
        setup.members = std::move(members);
        return setup;
    }

    void Audio(int deviceId, int channel, std::size_t samples) {
        const std::vector<int16_t> pcm(samples, 1000);
        groups_->OnAudio(deviceId, channel, pcm.data(), pcm.size(), samples);
    }

    std::string Wav(int deviceId) const { return dir_.File("device-" + std::to_string(deviceId) + ".wav"); }

    CDeviceSink sink_;
    PlatformTest::CManualScheduler scheduler_;
    BcastTest::CTempDir dir_{"bcast-devgroups"};
    std::unique_ptr<CDeviceGroups> groups_;
};

TEST_F(DeviceGroupsTest, FirstStatusesWaitForTheAnswerUnlessSomethingHappensFirst) {
    groups_->Start(Setup("g1", {{201, true}, {202, false}}));
    EXPECT_TRUE(sink_.Items().empty()) << "nothing before the client has the answer";
    groups_->OnLoginRefused(201);
    EXPECT_EQ(sink_.Trace("g1"), (std::vector<std::string>{"201:1", "202:3", "201:3"}))
        << "the first statuses go out before what happened";
    const std::vector<CDeviceSink::Item> items = sink_.Items();
    EXPECT_EQ(items[1].resourceStatus, kResourceOffline);
    EXPECT_EQ(items[1].errorInfo, "device offline");
    EXPECT_EQ(items[2].resourceStatus, kResourceIdle);
    EXPECT_EQ(items[2].errorInfo, "login refused");
    groups_->OnLoginRefused(201);
    scheduler_.RunPending();
    EXPECT_EQ(sink_.Items().size(), 3u) << "no second dial, no repeated status";
    groups_->OnTalkRefused(201, 1001);
    EXPECT_EQ(sink_.Items().back().errorInfo, "talk refused on channel 1001");
    groups_->OnLoginRefused(999);
    EXPECT_EQ(sink_.Items().size(), 4u) << "a device in no group pushes nothing";
}

TEST_F(DeviceGroupsTest, AudioOnVoiceChannelOnePlaysOnceIsRecordedAndTheStopEndsEveryDevice) {
    groups_->Start(Setup("g1", {{201, true}, {202, false}}));
    scheduler_.RunPending();
    Audio(201, 2, 160);
    EXPECT_EQ(sink_.Trace("g1"), (std::vector<std::string>{"201:1", "202:3"})) << "channel 2 is no group's";
    Audio(201, 1001, 160);
    Audio(201, 1, 160);
    EXPECT_EQ(sink_.Trace("g1"), (std::vector<std::string>{"201:1", "202:3", "201:2"}));
    std::string error;
    EXPECT_EQ(BcastTest::DecodeWithSox(Wav(201), 8000, {}, &error).size(), 320u)
        << "a complete WAV while the group runs " << error;
    EXPECT_TRUE(BcastTest::ReadBytes(Wav(202)).empty()) << "an offline device records nothing";

    std::vector<DeviceGroupInfo> view = groups_->Snapshot();
    ASSERT_EQ(view.size(), 1u);
    EXPECT_TRUE(view[0].active);
    EXPECT_EQ(view[0].members[0].bytesReceived, 320u);
    EXPECT_EQ(view[0].members[0].wavPath, Wav(201));
    EXPECT_EQ(groups_->WavPathOf(201), Wav(201));

    EXPECT_TRUE(groups_->Stop("g1"));
    EXPECT_FALSE(groups_->Stop("g1"));
    EXPECT_FALSE(groups_->Stop("unknown"));
    EXPECT_EQ(sink_.Trace("g1"), (std::vector<std::string>{"201:1", "202:3", "201:2", "201:0", "202:0"}));
    EXPECT_EQ(sink_.Items().back().resourceStatus, kResourceIdle);
    Audio(201, 1, 160);
    EXPECT_EQ(sink_.Items().size(), 5u);
    EXPECT_EQ(BcastTest::DecodeWithSox(Wav(201), 8000, {}, &error).size(), 320u) << "closed at the stop";
    view = groups_->Snapshot();
    ASSERT_EQ(view.size(), 1u);
    EXPECT_FALSE(view[0].active);
}

TEST_F(DeviceGroupsTest, ANewerGroupTakesTheDeviceOverOfflineFailsItAndResetIsSilent) {
    groups_->Start(Setup("old", {{201, true}, {202, true}}));
    groups_->Start(Setup("new", {{202, true}}));
    EXPECT_EQ(sink_.Trace("old"), (std::vector<std::string>{"201:1", "202:1", "202:0"}));
    scheduler_.RunPending();
    Audio(202, 1, 80);
    EXPECT_EQ(sink_.Trace("new"), (std::vector<std::string>{"202:1", "202:2"}));
    EXPECT_EQ(sink_.Trace("old").size(), 3u) << "the older group hears nothing of 202 any more";
    groups_->OnOnline(202, false);
    EXPECT_EQ(sink_.Items().back().errorInfo, "device offline");
    EXPECT_EQ(sink_.Items().back().resourceStatus, kResourceOffline);
    EXPECT_TRUE(groups_->Stop("old"));
    EXPECT_EQ(sink_.Trace("old"), (std::vector<std::string>{"201:1", "202:1", "202:0", "201:0"}))
        << "no second stop for the device taken over";

    const std::size_t before = sink_.Items().size();
    groups_->Reset();
    EXPECT_EQ(sink_.Items().size(), before) << "the reset pushes nothing";
    EXPECT_TRUE(groups_->Snapshot().empty());
    EXPECT_FALSE(groups_->Stop("new"));

    for (int i = 0; i < 20; ++i) {
        groups_->Start(Setup("g" + std::to_string(i), {{201, true}}));
        groups_->Stop("g" + std::to_string(i));
    }
    const std::vector<DeviceGroupInfo> kept = groups_->Snapshot();
    ASSERT_EQ(kept.size(), CDeviceGroups::kEndedKept);
    EXPECT_EQ(kept.front().setup.guid, "g4") << "the oldest ended groups are forgotten";
}

}  // namespace
