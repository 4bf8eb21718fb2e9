#pragma once
// Test fixture for the simulated site: a real platform (free ports, private speaker directory), a logged-in
// REST client, a subscribed push link, and readers for the speakers' statuses and recordings.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "AudioCheck.h"
#include "PlatformFixture.h"
#include "PushClient.h"
#include "SpeakerPeers.h"

namespace PlatformTest {

/// One speaker status of a push, as the client reads it.
struct StatusItem {
    std::string guid;
    int elementId = 0;
    int status = -1;
    int resourceStatus = -1;
    int errorModule = 0;
    int errorCode = 0;
    int promptBeginEnd = -1;  ///< -1 when the key is absent
};

/// A broadcast group as the address call hands it out.
struct GroupAddress {
    std::string guid;
    std::string url;    ///< without the "[sms:1]" prefix
    std::string token;  ///< decrypted
    struct Device {
        int deviceId = -1;
        std::string ip;
        int port = 0;
        std::string user;
        std::string password;  ///< decrypted
    };
    std::map<int, Device> resources;  ///< by element id
};

class SpeakerFixture : public PlatformFixture {
protected:
    void SetUp() override {
        PlatformFixture::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        ASSERT_TRUE(push_.Open(pushUrl_, client_->Token())) << push_.LastError();
        ASSERT_TRUE(push_.Subscribe({3}, {310001}));
    }

    std::string Decrypt(int type, const std::string& text) {
        return PlatformTest::Decrypt(sessionKey_, type, text);
    }

    /// Asks the addresses of `ids` (one request entry); the entries of the answer, in order.
    std::vector<GroupAddress> RequestGroups(const std::string& ids, int prompt = 0, int audioSource = 1) {
        const std::string body = R"({"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":")" + ids +
                                 R"(","AudioSource":)" + std::to_string(audioSource) +
                                 R"(,"AdaptiveNetWork":0,"IsPromptToneSupportedInFront":)" +
                                 std::to_string(prompt) + "}]}";
        RestReply reply = Get(Plugin("/RealTimeBroadcast/CommonUrlList"), body);
        std::vector<GroupAddress> groups;
        EXPECT_EQ(reply.ErrorCode(), 0) << reply.Describe();
        const rapidjson::Value* list = reply.Node("/ResponseStatus/Data/CommonUrlList/CommonUrl");
        if (list == nullptr || !list->IsArray()) {
            ADD_FAILURE() << "no address list: " << reply.body;
            return groups;
        }
        for (const rapidjson::Value& entry : list->GetArray()) {
            GroupAddress g;
            g.guid = entry["ResourceGuid"].GetString();
            const std::string url = entry["Url"].GetString();
            g.url = url.substr(url.find(']') + 1);
            const int type = entry["SecureEncryptType"].GetInt();
            if (entry.HasMember("SMSToken") && entry["SMSToken"]["Enable"].GetInt() == 1) {
                g.token = Decrypt(type, entry["SMSToken"]["Token"].GetString());
            }
            for (const rapidjson::Value& r : entry["ResourceList"].GetArray()) {
                GroupAddress::Device d;
                const rapidjson::Value& info = r["DevcieInfo"];
                d.deviceId = info["DeviceID"].GetInt();
                if (info.HasMember("DeviceIP")) {
                    d.ip = info["DeviceIP"].GetString();
                    d.port = info["DevicePort"].GetInt();
                    d.user = info["DeviceUserName"].GetString();
                    d.password = Decrypt(type, info["DevicePassword"].GetString());
                }
                g.resources[r["ID"].GetInt()] = d;
            }
            groups.push_back(g);
        }
        return groups;
    }

    /// Asks the one group of `ids` and opens a streaming talk to it; false (the failure recorded) when the
    /// platform hands out another number of groups or the streaming server refuses the talk.
    bool StartStreamingTalk(const std::string& ids, int prompt, CZpsSession& talk, GroupAddress& group) {
        std::vector<GroupAddress> groups = RequestGroups(ids, prompt);
        if (groups.size() != 1u) {
            ADD_FAILURE() << groups.size() << " groups for " << ids;
            return false;
        }
        group = groups[0];
        int error = 0;
        if (!talk.Start(group.url, group.token, "username", "password", error)) {
            ADD_FAILURE() << "the streaming server refused the talk: " << error;
            return false;
        }
        return true;
    }

    /// Every speaker status pushed so far, in arrival order.
    std::vector<StatusItem> Items() {
        std::vector<StatusItem> items;
        for (const std::string& text : push_.Messages()) {
            rapidjson::Document doc;
            doc.Parse(text.c_str());
            const rapidjson::Value* list = rapidjson::Pointer("/Msg/Data/Event/BroadcastStatusList").Get(doc);
            if (list == nullptr || !list->IsArray()) {
                continue;
            }
            for (const rapidjson::Value& s : list->GetArray()) {
                StatusItem item;
                item.guid = s["BoardcastGroupGUID"].GetString();
                item.elementId = s["ResourceID"].GetInt();
                item.status = s["Status"].GetInt();
                item.resourceStatus = s["ResourceStatus"].GetInt();
                item.errorModule = s["ErrorModule"].GetInt();
                item.errorCode = s["ErrorCode"].GetInt();
                item.promptBeginEnd =
                    s.HasMember("PromptToneBeginEnd") ? s["PromptToneBeginEnd"].GetInt() : -1;
                items.push_back(item);
            }
        }
        return items;
    }

    /// The statuses pushed for one element (of one group when `guid` is given), in order.
    std::vector<int> StatusesOf(int elementId, const std::string& guid = "<any>") {
        std::vector<int> out;
        for (const StatusItem& item : Items()) {
            if (item.elementId == elementId && (guid == "<any>" || item.guid == guid)) {
                out.push_back(item.status);
            }
        }
        return out;
    }

    /// Waits until `elementId` was pushed `status` (in group `guid` when given); the item, or one with
    /// status -1 after `timeoutMs`.
    StatusItem WaitStatus(int elementId, int status, int timeoutMs = 10000,
                          const std::string& guid = "<any>") {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (true) {
            for (const StatusItem& item : Items()) {
                if (item.elementId == elementId && item.status == status &&
                    (guid == "<any>" || item.guid == guid)) {
                    return item;
                }
            }
            if (std::chrono::steady_clock::now() > deadline) {
                return StatusItem{};
            }
            push_.Pump(20);
        }
    }

    /// The control interface's record of one speaker.
    RestReply SpeakerState(int elementId, std::string& prefix) {
        RestReply reply = Control("GET", "/speakers");
        const rapidjson::Value* list = reply.Node("/ResponseStatus/Data/Speakers");
        prefix = "<none>";
        for (rapidjson::SizeType i = 0; list != nullptr && i < list->Size(); ++i) {
            if ((*list)[i]["ElementID"].GetInt() == elementId) {
                prefix = "/ResponseStatus/Data/Speakers/" + std::to_string(i) + "/";
            }
        }
        return reply;
    }

    std::string WavPath(int elementId) const {
        return platform_.SpeakerDir() + "/" + std::to_string(elementId) + ".wav";
    }

    /// The speaker's recording decoded by sox (an independent reader of the WAV header).
    std::vector<int16_t> Recording(int elementId) {
        std::string error;
        std::vector<int16_t> samples = BcastTest::DecodeWithSox(WavPath(elementId), 8000, {}, &error);
        EXPECT_TRUE(error.empty()) << WavPath(elementId) << ": " << error;
        return samples;
    }

    /// The recording holds `seconds` of a `hz` sine, give or take `slack` seconds.
    static void ExpectTone(const std::vector<int16_t>& recording, double hz, double seconds, double slack,
                           const std::string& what) {
        const std::vector<int16_t> sound = BcastTest::TrimSilence(recording);
        EXPECT_NEAR(static_cast<double>(sound.size()) / 8000.0, seconds, slack) << what;
        const std::vector<int16_t> middle = BcastTest::Middle(sound, 8000);
        EXPECT_NEAR(BcastTest::DominantFrequency(middle, 8000), hz, 5.0) << what;
        EXPECT_GT(BcastTest::SineSnrDb(middle, 8000, hz), 25.0) << what;
    }

    /// Keeps the push link's event loop turning while a sender blocks this thread.
    void Pump(int ms) { push_.Pump(ms); }

    CPushClient push_;
};

}  // namespace PlatformTest
