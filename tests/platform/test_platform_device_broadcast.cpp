// Device broadcasts through the real program: the platform hands out the login data of devices reached
// through the device network interface, the test talks to them as the client does (DEVNET_* of the
// framework), and checks the pushes of each device, its recording device-<id>.wav (decoded by sox) and
// the failures: unknown and unsuitable devices, a device switched off, refused logins and talks, a newer
// group taking a device over, bad requests and an injected fault.

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "support/SpeakerFixture.h"
#include "support/SpeakerPeers.h"

using namespace PlatformTest;

namespace {

constexpr double kToneHz = 1000.0;
constexpr double kTalkSeconds = 2.0;
constexpr std::size_t kPieceBytes = 160;  // 20 ms of G.711 µ-law

/// One device status of a device broadcast push.
struct DeviceItem {
    std::string guid;
    int deviceId = 0;
    int status = -1;
    int resourceStatus = -1;
    std::string errorInfo;
};

/// A device of the Start answer, password decrypted.
struct StartedDevice {
    int port = 0;
    std::string ip;
    std::string user;
    std::string password;
    bool online = false;
};

bool LooksLikeGuid(const std::string& text) {
    if (text.size() != 36) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash != (text[i] == '-') || (!dash && !std::isxdigit(static_cast<unsigned char>(text[i])))) {
            return false;
        }
    }
    return true;
}

}  // namespace

class DeviceBroadcastTest : public SpeakerFixture {
protected:
    RestReply Start(const std::string& ids) {
        return Post(PlatformV1("/DeviceBroadcast/Start"),
                    R"({"DeviceIDs":[)" + ids + R"(],"Type":0,"Record":0,"FilePath":""})");
    }
    RestReply Stop(const std::string& guid) {
        return Post(PlatformV1("/DeviceBroadcast/Stop"), R"({"GroupId":")" + guid + R"("})");
    }

    /// The answer's DeviceList by device id.
    std::map<int, StartedDevice> Devices(const RestReply& reply) {
        std::map<int, StartedDevice> out;
        const rapidjson::Value* list = reply.Node("/ResponseStatus/Data/DeviceList");
        if (list == nullptr || !list->IsArray()) {
            ADD_FAILURE() << "no DeviceList: " << reply.body;
            return out;
        }
        const int type = reply.Int("/ResponseStatus/Data/SecureEncryptType");
        for (const rapidjson::Value& d : list->GetArray()) {
            StartedDevice s;
            s.ip = d["IP"].GetString();
            s.port = d["Port"].GetInt();
            s.user = d["UserName"].GetString();
            s.password = Decrypt(type, d["Password"].GetString());
            s.online = d["Online"].GetBool();
            out[d["DeviceID"].GetInt()] = s;
        }
        return out;
    }

    /// Every device broadcast status pushed so far, in arrival order; the frames must be broadcast
    /// status frames so that subscribed clients get them.
    std::vector<DeviceItem> DeviceItems() {
        std::vector<DeviceItem> items;
        for (const std::string& text : push_.Messages()) {
            rapidjson::Document doc;
            doc.Parse(text.c_str());
            if (doc.HasParseError() || FrameInt(doc, "/Msg/Data/NotifyType") != 1) {
                continue;
            }
            EXPECT_EQ(FrameInt(doc, "/MessageType"), 3) << text;
            EXPECT_EQ(FrameInt(doc, "/EventType"), 310001) << text;
            DeviceItem item;
            item.guid = FrameStr(doc, "/Msg/Data/GroupId");
            item.deviceId = std::atoi(FrameStr(doc, "/Msg/Data/IndexCode").c_str());
            item.status = FrameInt(doc, "/Msg/Data/Status");
            item.resourceStatus = FrameInt(doc, "/Msg/Data/ResourceStatus");
            item.errorInfo = FrameStr(doc, "/Msg/Data/ErrorInfo");
            items.push_back(item);
        }
        return items;
    }

    std::vector<int> DeviceStatuses(int deviceId, const std::string& guid) {
        std::vector<int> out;
        for (const DeviceItem& item : DeviceItems()) {
            if (item.deviceId == deviceId && item.guid == guid) {
                out.push_back(item.status);
            }
        }
        return out;
    }

    /// Waits for `deviceId` to be pushed `status` in group `guid`; status -1 after `timeoutMs`.
    DeviceItem WaitDevice(int deviceId, int status, const std::string& guid, int timeoutMs = 5000) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (true) {
            for (const DeviceItem& item : DeviceItems()) {
                if (item.deviceId == deviceId && item.status == status && item.guid == guid) {
                    return item;
                }
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return DeviceItem{};
            }
            push_.Pump(20);
        }
    }

    /// The control view's entry of a device in group `guid`, as a pointer prefix ("<none>" when absent).
    std::string GroupDevice(const RestReply& view, const std::string& guid, int deviceId) {
        const rapidjson::Value* groups = view.Node("/ResponseStatus/Data/Groups");
        for (rapidjson::SizeType g = 0; groups != nullptr && g < groups->Size(); ++g) {
            const rapidjson::Value& group = (*groups)[g];
            if (group["GroupId"].GetString() != guid) {
                continue;
            }
            const rapidjson::Value& devices = group["Devices"];
            for (rapidjson::SizeType d = 0; d < devices.Size(); ++d) {
                if (devices[d]["DeviceID"].GetInt() == deviceId) {
                    return "/ResponseStatus/Data/Groups/" + std::to_string(g) + "/Devices/" +
                           std::to_string(d) + "/";
                }
            }
        }
        return "<none>";
    }

    /// The control interface's record of a simulated device, as a pointer prefix.
    std::string FarmDevice(const RestReply& devices, int deviceId) {
        const rapidjson::Value* list = devices.Node("/ResponseStatus/Data/Devices");
        for (rapidjson::SizeType i = 0; list != nullptr && i < list->Size(); ++i) {
            if ((*list)[i]["DeviceID"].GetInt() == deviceId) {
                return "/ResponseStatus/Data/Devices/" + std::to_string(i) + "/";
            }
        }
        return "<none>";
    }

    std::string DeviceWav(int deviceId) const {
        return platform_.SpeakerDir() + "/device-" + std::to_string(deviceId) + ".wav";
    }

    std::vector<int16_t> DeviceRecording(int deviceId) {
        std::string error;
        std::vector<int16_t> samples = BcastTest::DecodeWithSox(DeviceWav(deviceId), 8000, {}, &error);
        EXPECT_TRUE(error.empty()) << DeviceWav(deviceId) << ": " << error;
        return samples;
    }
};

TEST_F(DeviceBroadcastTest, TalkReachesTwoDevicesThatReportAndRecordItUntilTheStop) {
    RestReply started = Start("201,202,4242,301,101");
    ASSERT_EQ(started.ErrorCode(), 0) << started.Describe();
    const std::string guid = started.Str("/ResponseStatus/Data/GroupId");
    EXPECT_TRUE(LooksLikeGuid(guid)) << guid;
    EXPECT_EQ(started.Int("/ResponseStatus/Data/SecureEncryptType"), 1);
    EXPECT_EQ(started.Str("/ResponseStatus/Data/DeviceList/0/Name"), "Gate encoder");
    EXPECT_EQ(started.Int("/ResponseStatus/Data/DeviceList/0/DeviceType"), 2001);
    EXPECT_EQ(started.Int("/ResponseStatus/Data/DeviceList/0/AccessProtocol"), 1);
    EXPECT_EQ(started.Int("/ResponseStatus/Data/DeviceList/1/Channel"), 1);
    EXPECT_EQ(started.Int("/ResponseStatus/Data/DeviceList/1/EncodeType"), 1);
    std::map<int, StartedDevice> devices = Devices(started);
    ASSERT_EQ(devices.size(), 2u) << started.body;
    EXPECT_EQ(devices[201].password, "Gate#Encoder1");
    EXPECT_EQ(devices[202].password, "Entrance#Cam1");
    RestReply farm = Control("GET", "/devices");
    for (int id : {201, 202}) {
        EXPECT_TRUE(devices[id].online) << id;
        EXPECT_EQ(devices[id].port, farm.Int((FarmDevice(farm, id) + "Port").c_str())) << id;
    }
    std::map<int, int> failed;
    const rapidjson::Value* failedList = started.Node("/ResponseStatus/Data/FailedList");
    ASSERT_NE(failedList, nullptr);
    for (const rapidjson::Value& f : failedList->GetArray()) {
        EXPECT_EQ(f["ErrorModule"].GetInt(), 30);
        failed[f["DeviceID"].GetInt()] = f["ErrorCode"].GetInt();
    }
    EXPECT_EQ(failed, (std::map<int, int>{{101, 4}, {301, 4}, {4242, 3}}))
        << "unknown (3); a UDP speaker and a streaming-server speaker take no device broadcast (4)";
    EXPECT_EQ(started.Str("/ResponseStatus/Data/FailedList/0/ErrorInfo"), "unknown device");

    for (int id : {201, 202}) {
        const DeviceItem connecting = WaitDevice(id, 1, guid);
        EXPECT_EQ(connecting.resourceStatus, 1) << id;
        EXPECT_EQ(connecting.errorInfo, "") << id;
    }

    CDevnetTalk toGate;
    CDevnetTalk toCamera;
    uint32_t error = 0;
    ASSERT_TRUE(
        toGate.Login(devices[201].ip, devices[201].port, devices[201].user, devices[201].password, error))
        << "login error " << error;
    ASSERT_TRUE(toGate.Open(1, error)) << "talk error " << error;
    ASSERT_TRUE(
        toCamera.Login(devices[202].ip, devices[202].port, devices[202].user, devices[202].password, error))
        << "login error " << error;
    ASSERT_TRUE(toCamera.Open(1001, error)) << "the alias of voice channel 1: " << error;
    const std::vector<uint8_t> tone = G711Tone(kToneHz, kTalkSeconds);
    EXPECT_EQ(
        SendPaced(tone, kPieceBytes,
                  [&](const uint8_t* d, std::size_t n) { return toGate.Send(d, n) && toCamera.Send(d, n); }),
        100);
    toGate.Close();
    toCamera.Close();
    for (int id : {201, 202}) {
        EXPECT_EQ(WaitDevice(id, 2, guid).resourceStatus, 1) << id;
    }

    RestReply view = Control("GET", "/device-broadcasts");
    std::string at = GroupDevice(view, guid, 201);
    ASSERT_NE(at, "<none>") << view.body;
    EXPECT_TRUE(view.Node("/ResponseStatus/Data/Groups/0/Active")->GetBool());
    EXPECT_EQ(view.Int((at + "Status").c_str()), 2);
    EXPECT_EQ(view.Int((at + "BytesReceived").c_str()), 16000);
    EXPECT_EQ(view.Str((at + "WavPath").c_str()), DeviceWav(201));
    EXPECT_EQ(view.Int((GroupDevice(view, guid, 202) + "BytesReceived").c_str()), 16000);
    EXPECT_EQ(GroupDevice(view, guid, 4242), "<none>");

    RestReply stopped = Stop(guid);
    ASSERT_EQ(stopped.ErrorCode(), 0) << stopped.Describe();
    for (int id : {201, 202}) {
        EXPECT_EQ(WaitDevice(id, 0, guid).resourceStatus, 3) << id;
        EXPECT_EQ(DeviceStatuses(id, guid), (std::vector<int>{1, 2, 0})) << id;
    }
    EXPECT_EQ(Stop(guid).ErrorCode(), 3) << "a stopped group is gone";

    ExpectTone(DeviceRecording(201), kToneHz, kTalkSeconds, 0.1, "device-201.wav");
    ExpectTone(DeviceRecording(202), kToneHz, kTalkSeconds, 0.1, "device-202.wav (talk on the alias)");
    ExpectTone(Recording(1004), kToneHz, kTalkSeconds, 0.1,
               "element 1004 on the encoder's channel 1 still plays");
    view = Control("GET", "/device-broadcasts");
    EXPECT_FALSE(view.Node("/ResponseStatus/Data/Groups/0/Active")->GetBool()) << "kept after its end";
    EXPECT_EQ(view.Int((GroupDevice(view, guid, 202) + "Status").c_str()), 0);
    farm = Control("GET", "/devices");
    EXPECT_EQ(farm.Str((FarmDevice(farm, 202) + "WavPath").c_str()), DeviceWav(202));
    EXPECT_EQ(farm.Str((FarmDevice(farm, 103) + "WavPath").c_str()), "") << "103 was in no device broadcast";
}

TEST_F(DeviceBroadcastTest, OfflineRefusingAndTakenOverDevicesFailOrStopInTheirGroup) {
    ASSERT_EQ(Control("POST", "/device/202", R"({"Online":false})").ErrorCode(), 0);
    RestReply farm = Control("GET", "/devices");
    EXPECT_FALSE(farm.Node((FarmDevice(farm, 202) + "Online").c_str())->GetBool());
    const int cameraPort = farm.Int((FarmDevice(farm, 202) + "Port").c_str());
    uint32_t error = 0;
    {
        CDevnetTalk talk;
        EXPECT_FALSE(talk.Login("127.0.0.1", cameraPort, "admin", "Entrance#Cam1", error));
        EXPECT_EQ(error, 7u) << "DEVNET_NETWORK_FAIL_CONNECT: a switched-off device refuses connections";
    }

    RestReply started = Start("201,202");
    ASSERT_EQ(started.ErrorCode(), 0) << started.Describe();
    const std::string first = started.Str("/ResponseStatus/Data/GroupId");
    std::map<int, StartedDevice> devices = Devices(started);
    EXPECT_TRUE(devices[201].online);
    EXPECT_FALSE(devices[202].online) << "an offline device is handed out, marked";
    EXPECT_EQ(WaitDevice(201, 1, first).resourceStatus, 1);
    const DeviceItem offline = WaitDevice(202, 3, first);
    EXPECT_EQ(offline.resourceStatus, 4);
    EXPECT_EQ(offline.errorInfo, "device offline");

    ASSERT_EQ(Control("POST", "/device/201", R"({"RefuseLogin":true})").ErrorCode(), 0);
    {
        CDevnetTalk talk;
        EXPECT_FALSE(
            talk.Login(devices[201].ip, devices[201].port, devices[201].user, devices[201].password, error));
    }
    const DeviceItem refused = WaitDevice(201, 3, first);
    EXPECT_EQ(refused.errorInfo, "login refused");
    EXPECT_EQ(refused.resourceStatus, 3);

    ASSERT_EQ(Control("POST", "/device/201", R"({"RefuseLogin":false,"RefusedChannels":[1]})").ErrorCode(),
              0);
    ASSERT_EQ(Control("POST", "/device/202", R"({"Online":true})").ErrorCode(), 0);
    {
        CDevnetTalk talk;
        ASSERT_TRUE(
            talk.Login(devices[201].ip, devices[201].port, devices[201].user, devices[201].password, error))
            << error;
        EXPECT_FALSE(talk.Open(1, error));
        CDevnetTalk camera;
        EXPECT_TRUE(camera.Login(devices[202].ip, devices[202].port, "admin", "Entrance#Cam1", error))
            << "online again on the same port: " << error;
    }
    std::vector<std::string> reasons;
    for (const DeviceItem& item : DeviceItems()) {
        if (item.deviceId == 201 && item.guid == first && item.status == 3) {
            reasons.push_back(item.errorInfo);
        }
    }
    if (reasons.size() < 2) {
        push_.Pump(300);
        reasons.clear();
        for (const DeviceItem& item : DeviceItems()) {
            if (item.deviceId == 201 && item.guid == first && item.status == 3) {
                reasons.push_back(item.errorInfo);
            }
        }
    }
    EXPECT_EQ(reasons, (std::vector<std::string>{"login refused", "talk refused on channel 1"}));

    // A newer group takes 201 over: the first group's entry stops, the rest of it goes on.
    RestReply second = Start("201");
    ASSERT_EQ(second.ErrorCode(), 0) << second.Describe();
    const std::string newer = second.Str("/ResponseStatus/Data/GroupId");
    EXPECT_EQ(WaitDevice(201, 0, first).resourceStatus, 3);
    EXPECT_EQ(WaitDevice(201, 1, newer).status, 1);
    ASSERT_EQ(Stop(first).ErrorCode(), 0);
    EXPECT_EQ(WaitDevice(202, 0, first).status, 0);
    EXPECT_EQ(DeviceStatuses(201, first), (std::vector<int>{1, 3, 3, 0})) << "no second stop for 201";

    ASSERT_EQ(Control("POST", "/device/201", R"({"Online":false})").ErrorCode(), 0);
    const DeviceItem gone = WaitDevice(201, 3, newer);
    EXPECT_EQ(gone.errorInfo, "device offline");
    EXPECT_EQ(gone.resourceStatus, 4);

    // The reset ends the group without pushes and switches every device on again.
    ASSERT_EQ(Control("POST", "/reset").ErrorCode(), 0);
    push_.Pump(400);
    EXPECT_EQ(DeviceStatuses(201, newer), (std::vector<int>{1, 3}));
    EXPECT_EQ(Control("GET", "/device-broadcasts").Node("/ResponseStatus/Data/Groups")->Size(), 0u);
    farm = Control("GET", "/devices");
    EXPECT_TRUE(farm.Node((FarmDevice(farm, 201) + "Online").c_str())->GetBool());
    EXPECT_EQ(Stop(newer).ErrorCode(), 3);
    CDevnetTalk again;
    EXPECT_TRUE(
        again.Login(devices[201].ip, devices[201].port, devices[201].user, devices[201].password, error))
        << error;
}

TEST_F(DeviceBroadcastTest, MalformedRequestsUnknownGroupsAndInjectedFaultsStartNothing) {
    EXPECT_EQ(Post(PlatformV1("/DeviceBroadcast/Start"), R"({"DeviceIDs":[]})").ErrorCode(), 2);
    EXPECT_EQ(Post(PlatformV1("/DeviceBroadcast/Start"), R"({"Type":0})").ErrorCode(), 2);
    EXPECT_EQ(Post(PlatformV1("/DeviceBroadcast/Start"), R"({"DeviceIDs":["201"]})").ErrorCode(), 2);
    EXPECT_EQ(Stop("00000000-0000-4000-8000-000000000000").ErrorCode(), 3);
    EXPECT_EQ(Post(PlatformV1("/DeviceBroadcast/Stop"), "{}").ErrorCode(), 2);

    RestReply none = Start("4242");
    EXPECT_EQ(none.ErrorCode(), 0) << "no usable device still makes a group; the client decides";
    EXPECT_EQ(none.Node("/ResponseStatus/Data/DeviceList")->Size(), 0u);

    CRestClient anonymous(platform_.RestUrl());
    EXPECT_EQ(
        anonymous.Send("POST", PlatformV1("/DeviceBroadcast/Start"), R"({"DeviceIDs":[201]})").ErrorCode(),
        1);

    RestReply fault =
        Control("POST", "/fault",
                R"({"Method":"POST","Path":"/DXAPI/Galewing/Platform/V1/DeviceBroadcast/Start",)"
                R"("Kind":"error","ErrorModule":30,"ErrorCode":6,"Count":1})");
    ASSERT_EQ(fault.ErrorCode(), 0) << fault.Describe();
    const std::size_t groupsBefore =
        Control("GET", "/device-broadcasts").Node("/ResponseStatus/Data/Groups")->Size();
    EXPECT_EQ(Start("201").ErrorCode(), 6);
    EXPECT_EQ(Control("GET", "/device-broadcasts").Node("/ResponseStatus/Data/Groups")->Size(), groupsBefore)
        << "a refused request starts no group";
    RestReply after = Start("201");
    EXPECT_EQ(after.ErrorCode(), 0) << "the fault was used up: " << after.Describe();
    EXPECT_EQ(WaitDevice(201, 1, after.Str("/ResponseStatus/Data/GroupId")).status, 1);
}
