#pragma once
// The speaker manager in this process, logged in to a real platform over loopback, with a private
// PulseAudio server whose virtual microphone is the sound card. Shared by the broadcast test suites.

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BroadcastTest {

/// Everything the manager reported, in order.
class CEventLog {
public:
    void Add(const std::vector<BroadCastPlugin::IPSpeakerNotifyParam>& batch);
    std::vector<std::vector<BroadCastPlugin::IPSpeakerNotifyParam>> Batches() const;
    std::vector<BroadCastPlugin::IPSpeakerNotifyParam> All() const;
    /// Whole-broadcast events (type 0) with this stage.
    int CountStage(int broadcastStatus) const;
    /// Speaker status events (type 1) of one element with this status; of one broadcast group only when
    /// `groupGuid` is given.
    int CountSpeakerStatus(int elementId, int status, const std::string& groupGuid = std::string()) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::vector<BroadCastPlugin::IPSpeakerNotifyParam>> batches_;
};

class CManagerTest : public ::testing::Test {
protected:
    /// Starts PulseAudio and the platform (extra platform arguments allowed), logs in, wires pushes to the
    /// manager and initialises it.
    static void StartPeers(const std::vector<std::string>& platformArgs = {});
    static void StopPeers();
    static void SetUpTestSuite() { StartPeers(); }
    static void TearDownTestSuite() { StopPeers(); }
    void SetUp() override;
    void TearDown() override;

    static PlatformTest::RestReply Control(const std::string& method, const std::string& path,
                                           const std::string& body = "");
    /// Bodies of the requests the platform saw for a path, oldest first.
    static std::vector<NetworkCommunication::CRapidJsonProto> Requests(const std::string& path);
    static std::string Plugin(const std::string& tail) { return "/DXAPI/Galewing/BroadcastPlugin/V1" + tail; }
    /// The simulated speaker's entry of /_control/speakers as a document rooted at the entry; empty when
    /// the element is unknown.
    static NetworkCommunication::CRapidJsonProto Speaker(int elementId);
    /// The simulated device's entry of /_control/devices, likewise.
    static NetworkCommunication::CRapidJsonProto Device(int deviceId);
    /// The entry of a /_control list whose `idKey` is `id`, as a document rooted at the entry.
    static NetworkCommunication::CRapidJsonProto ControlEntry(const std::string& path,
                                                              const std::string& list,
                                                              const std::string& idKey, int id);
    /// Threads of this process now.
    static int ThreadCount();

    static BcastTest::CPulseAudioPeer* pulse_;
    static PlatformTest::CPlatformProcess* platform_;
    static CEventLog* events_;
    static std::string captureDir_;
};

}  // namespace BroadcastTest
