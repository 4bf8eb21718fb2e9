#pragma once
// The speaker manager in this process, logged in to a real platform over loopback, with a private
// PulseAudio server whose virtual microphone is the sound card. Shared by the broadcast test suites.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/IPSpeakerManager/IPSpeakerManager.h"
#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "TestProcess.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "tool/audio/AudioCompare.h"

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

/// A start of the manager on a thread of its own, the way the controller's worker runs it.
class CStartCall {
public:
    explicit CStartCall(std::function<bool()> start);
    /// Joins the thread: a call that never returns hangs the test here rather than crashing it.
    ~CStartCall();
    CStartCall(const CStartCall&) = delete;
    CStartCall& operator=(const CStartCall&) = delete;

    /// Waits up to `timeoutMs` (events keep flowing); true when the call returned.
    bool Finish(int timeoutMs = 30000);
    bool Done() const { return done_.load(); }
    /// What the call returned; valid once Finish is true.
    bool Result() const { return result_; }

private:
    std::atomic<bool> done_{false};
    bool result_ = false;
    std::thread thread_;
};

class CManagerTest : public ::testing::Test {
protected:
    /// Starts PulseAudio and the platform with `fixture` (default: the demo site) and extra arguments, logs
    /// in, wires pushes to the manager and initialises it.
    static void StartPeers(const std::vector<std::string>& platformArgs = {},
                           const std::string& fixture = {});
    static void StopPeers();
    /// The processes alone: PulseAudio (this process's audio goes to it) and the platform with `fixture`
    /// (default: the demo site) and extra arguments; stopped in reverse, the platform expected to exit
    /// cleanly.
    static void StartProcesses(const std::vector<std::string>& platformArgs = {},
                               const std::string& fixture = {});
    static void StopProcesses();
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

    // What the simulated speakers did, from the platform's control interface.
    static int SamplesPlayed(int elementId) { return Speaker(elementId).get_int_v("/SamplesPlayed", -1); }
    static double TotalSeconds(int elementId) {
        return Speaker(elementId).get_double_v("/TotalSecondsPlayed", -1);
    }
    static std::string Phase(int elementId) { return Speaker(elementId).get_v("/Phase"); }
    /// How well the speaker's recording matches `reference` (8000 Hz); a failure when it cannot be read.
    static BcastTool::AudioMatch MatchOf(int elementId, const BcastTool::PcmAudio& reference);
    /// The broadcast group the manager holds the speaker in, "<none>" when none.
    static std::string GroupOf(int elementId);
    /// Statuses the client reported to the platform for its device groups, in order.
    static std::vector<int> ServerStatuses();
    /// Operation-log types the platform received, in order.
    static std::vector<int> OperationLogTypes();
    /// Installs a platform fault (`rest`: the fault's other keys as JSON members); returns its id.
    static int AddFault(const std::string& method, const std::string& path, const std::string& rest);
    /// The device groups were told "started" and then "stopped", never "failed".
    static void ExpectStartedThenStopped();
    /// Speaks `text` with espeak-ng into the WAV `path` and gives it at 8000 Hz as `reference`.
    static void MakeSpeech(const std::string& path, const std::string& text, BcastTool::PcmAudio& reference);

    static BcastTest::CPulseAudioPeer* pulse_;
    static PlatformTest::CPlatformProcess* platform_;
    static CEventLog* events_;
    static std::string captureDir_;
};

/// A suite whose microphone speaks one sentence: the peers, and the sentence spoken with espeak-ng into a WAV
/// file for the virtual microphone and at 8000 Hz as the reference the recordings are compared with.
class CSentenceTest : public CManagerTest {
protected:
    /// Starts the peers with `fixture` (default: the demo site) and speaks `text` into the sentence's files.
    static void StartWithSentence(const std::string& text, const std::string& dirName,
                                  const std::string& fixture = {});
    static void StopWithSentence();
    static std::string SentenceWav() { return speech_->File("sentence.wav"); }

    static BcastTest::CTempDir* speech_;
    static BcastTool::PcmAudio* sentence_;
};

}  // namespace BroadcastTest
