#pragma once
// The simulated speakers of the site: one per broadcast element. A speaker joins a broadcast when the
// platform hands out its group's addresses, plays what reaches it (talk audio from any transport, the
// prompt-tone chime, text-to-speech) into <speaker dir>/<element id>.wav, and reports how it is doing
// through the push link. Statuses follow what really happens to the speaker:
//
//   addresses handed out -> 0 connecting (2 failed, module 30 code 7, for an offline terminal)
//   prompt tone          -> 102 preparing, 103 when the chime starts to play, 100 when it played out
//                           (101 when it is stopped before its end)
//   first talk audio     -> 1 playing (streaming-server groups: when the client's stream plays; a speaker
//                           that cannot connect fails 5 s after that, 2 module 30 code 9)
//   stop                 -> 3 stopped (client report, end of the stream, prompt-tone stop, TTS end)
//
// A loudspeaker clock empties what each speaker played at the pace it plays, so that a listener hears
// a speaker's audio in real time, or the speaker's own idle tone when it plays nothing.
//
// Thread-safe: REST workers, the streaming server's threads, device connections, the UDP receiver and
// playout threads all call in; one mutex guards the state, and pushes are published under it (publishing
// only queues a frame) so that every speaker's statuses go out in the order they happened.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/push/PushFrame.h"
#include "platform/server/sim/speakers/Loudspeaker.h"
#include "platform/server/sim/speakers/Playout.h"
#include "platform/server/state/BroadcastRegistry.h"

namespace Platform {

class CWavRecorder;
class CTtsSynthesizer;

/// How audio reaches a speaker, as the fixture says: streaming server, device interface, RTP over UDP.
enum class SpeakerTransport { kStreaming, kDevice, kUdp };

enum class SpeakerPhase { kIdle, kConnecting, kPrompt, kPromptDone, kPlaying, kStopped, kFailed };

/// What the control interface shows of a speaker.
struct SpeakerInfo {
    int elementId = 0;
    int deviceId = 0;
    std::string name;
    std::string transport;  ///< "sms", "sdk" or "udp"
    bool online = true;
    bool connects = true;
    std::string phase;
    int status = -1;  ///< last pushed "Status", -1 before any
    int resourceStatus = 3;
    std::string groupGuid;
    uint64_t bytesReceived = 0;  ///< encoded bytes that reached the speaker in its current session
    uint64_t droppedBytes = 0;   ///< of those, not played (offline, prompt tone playing, stopped...)
    uint64_t samplesPlayed = 0;  ///< in the current session (8000 per second)
    uint64_t totalSamplesPlayed = 0;
    /// Wall-clock time (ms since the epoch) at which the session's first sender audio was played, 0 before;
    /// with `firstAudioSample` it places the recording on the wall clock for latency measurements.
    int64_t firstAudioAtMs = 0;
    uint64_t firstAudioSample = 0;  ///< index in the session's recording of that first sender sample
    int sessions = 0;
    std::string wavPath;  ///< empty when the speaker recorded nothing yet
    std::string lastSource;
    std::string lastTransport;  ///< "rtsp", "sdk", "udp", "prompt", "tts"
    double idleToneHz = 0;
};

class CSpeakerSim : private Tal::Base::CNonCopyable {
public:
    /// Milliseconds between handing out addresses and the speakers' first status: the client needs the
    /// answer before it can match pushes to its broadcast.
    static constexpr int kDialDelayMs = 200;
    /// A speaker that plays audio outside any broadcast (a sender that never asked the platform) ends
    /// that play after this long without audio.
    static constexpr int kAdhocIdleMs = 1000;
    /// Audio arriving this soon after a stop is the tail of the stopped talk, not a new one.
    static constexpr int kLateAudioMs = 2000;
    /// A streaming-server speaker that has not connected this long after its group's stream started to play
    /// is given up (2, module 30 code 9): nobody waits for it for ever.
    static constexpr int kStreamConnectTimeoutMs = 5000;

    using MonitorFn = CListeners::MonitorFn;

    CSpeakerSim(const Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink, IScheduler& scheduler,
                std::string speakerDir);
    ~CSpeakerSim();

    /// Creates the speaker directory and starts the loudspeaker clock. False with a reason.
    bool Start(std::string& error);
    /// Ends playouts and the clock and closes every recording. Transports must be stopped first.
    void Stop();
    const std::string& SpeakerDir() const { return speakerDir_; }

    // Broadcasts, as clients ask for them (REST threads).
    void OnGroupCreated(const BroadcastGroup& group);
    void OnPromptToneStart(const std::vector<std::string>& guids);
    /// Cuts the prompt tone short (101) and stops the groups' speakers (3).
    void OnPromptToneStop(const std::vector<std::string>& guids);
    /// A client's UpdateBroadcastStatus: 1 is noted (speakers report playing themselves), 2 fails the
    /// speakers with the client's error, 3 stops them. Empty `elementIds`: the whole group.
    void OnBroadcastStatus(const std::string& guid, const std::vector<int>& elementIds, int status,
                           int errorModule, int errorCode);
    /// Speaks `text` on the speakers (after synthesis), pushing 1 when it starts and 3 when it ends.
    void StartTts(const std::vector<int>& elementIds, const std::string& text, const std::string& language);
    /// Returns the elements whose speech was stopped.
    std::vector<int> StopTts(const std::vector<int>& elementIds);

    // Audio, decoded to 8000 Hz mono, from the transports' threads.
    /// The client's stream of a streaming-server group plays: its speakers are reached.
    void OnGroupStreamJoined(const std::string& guid, const std::string& source);
    void OnGroupAudio(const std::string& guid, const std::string& source, const int16_t* samples,
                      std::size_t count, std::size_t encodedBytes);
    /// A stream of the group ended (teardown, connection lost); the last one stops the speakers.
    void OnGroupStreamEnded(const std::string& guid);
    /// Audio for a device: `channel` 0 reaches every element of the device, else the element on that
    /// channel (broadcast aliases 1001.. name channels 1..).
    void OnDeviceAudio(int deviceId, int channel, SpeakerTransport transport, const std::string& source,
                       const int16_t* samples, std::size_t count, std::size_t encodedBytes);

    // Listening.
    /// `fn` receives what the device's speakers play, 20 ms at a time in real time (the idle tone when
    /// they play nothing), on the loudspeaker clock's thread. Returns an id for RemoveMonitor.
    int AddMonitor(int deviceId, MonitorFn fn);
    void RemoveMonitor(int monitorId);
    /// The idle tone of a device: the fixture's "IdleToneHz", else 440 Hz + 10 Hz x its index.
    double IdleToneHz(int deviceId) const;

    // State and control.
    bool IsOnline(int elementId) const;
    /// False for an unknown element. Going offline fails the speaker's running broadcast (2).
    bool SetOnline(int elementId, bool online);
    /// A speaker that does not connect stays "connecting" and plays nothing. False for an unknown element.
    bool SetConnects(int elementId, bool connects);
    std::vector<SpeakerInfo> Snapshot() const;
    /// Ends every play without pushes and restores the fixture's online states.
    void Reset();

private:
    enum class Session { kNone, kGroup, kTts, kAdhoc };

    struct Speaker {
        const Element* element = nullptr;
        const Device* device = nullptr;
        SpeakerTransport transport = SpeakerTransport::kStreaming;
        bool online = true;
        bool connects = true;
        SpeakerPhase phase = SpeakerPhase::kIdle;
        Session session = Session::kNone;
        std::string guid;
        uint64_t ttsJob = 0;
        std::unique_ptr<CWavRecorder> wav;
        std::string wavPath;
        uint64_t bytesReceived = 0;
        uint64_t droppedBytes = 0;
        uint64_t samplesPlayed = 0;
        uint64_t totalSamples = 0;
        int sessions = 0;
        int status = -1;
        int resourceStatus = kResourceIdle;
        std::string lastSource;
        std::string lastTransport;
        int64_t lastAudioMs = 0;
        int64_t endedMs = 0;
        int64_t firstAudioAtMs = 0;  ///< wall clock, see SpeakerInfo
        uint64_t firstAudioSample = 0;
        CLoudspeaker loudspeaker;
    };

    struct GroupRun {
        std::string guid;
        GroupTransport transport = GroupTransport::kSms;
        std::vector<int> elementIds;
        bool promptInFront = false;
        bool dialed = false;
        bool joined = false;  ///< a client stream of the group plays (streaming server)
        int streams = 0;
        uint64_t promptSequence = 0;
        CPlayout* prompt = nullptr;  ///< owned by playouts_
        bool promptAnnounced = false;
    };

    struct TtsJob {
        std::set<int> elementIds;
        CPlayout* playout = nullptr;  ///< owned by playouts_
    };

    static bool IsLive(SpeakerPhase phase);
    static const char* PhaseName(SpeakerPhase phase);
    /// The group's speakers in their prompt tone; the first call of a prompt pushes its beginning.
    std::vector<Speaker*> AnnouncePromptLocked(GroupRun& g);
    static int64_t NowMs();

    Speaker* FindSpeaker(int elementId);
    const Speaker* FindSpeaker(int elementId) const;
    GroupRun* FindGroup(const std::string& guid);
    std::vector<Speaker*> GroupSpeakersLocked(const GroupRun& group, const std::vector<int>& onlyIds = {});

    void PushLocked(const std::string& guid, const std::vector<Speaker*>& speakers, int status,
                    int resourceStatus, int promptBeginEnd, int errorModule = 0, int errorCode = 0);
    void BeginSessionLocked(Speaker& s, Session session, const std::string& guid);
    void EndSessionLocked(Speaker& s, SpeakerPhase phase);
    /// Pushes the group's first statuses once; true when that started the group's prompt tone.
    bool DialLocked(GroupRun& group);
    void DialLater(const std::string& guid);
    void StartPromptLocked(GroupRun& group);
    void OnPromptBlock(const std::string& guid, uint64_t sequence, const int16_t* samples, std::size_t count);
    void OnPromptDone(const std::string& guid, uint64_t sequence, CPlayout::Result result);
    /// Ends the prompt tone of a group: 101 for the speakers still in it.
    void InterruptPromptLocked(GroupRun& group);
    /// Ends the group's live speakers (or those of `onlyIds`) with `status`, interrupting their prompt.
    void EndGroupLocked(GroupRun& group, const std::vector<int>& onlyIds, SpeakerPhase phase, int status,
                        int resourceStatus, int errorModule, int errorCode);
    void MarkPlayingLocked(Speaker& s);
    /// Fails the speakers (element id, session) of a streaming-server group that still did not connect.
    void GiveUpConnecting(const std::string& guid, const std::vector<std::pair<int, int>>& speakers);
    void AcceptAudioLocked(Speaker& s, const int16_t* samples, std::size_t count, std::size_t encodedBytes,
                           const std::string& source, const char* transport, bool mayStartAdhoc);
    void PlayLocked(Speaker& s, const int16_t* samples, std::size_t count);
    void OnTtsBlock(uint64_t job, const int16_t* samples, std::size_t count);
    void OnTtsDone(uint64_t job, CPlayout::Result result, const std::string& error);
    CPlayout* AddPlayoutLocked(std::unique_ptr<CPlayout> playout);
    /// Ends the plays outside any broadcast whose audio stopped.
    void EndIdleAdhocLocked(int64_t nowMs);
    /// Takes the playouts that ended out of the list, to be joined outside the lock.
    std::vector<std::unique_ptr<CPlayout>> TakeFinishedPlayoutsLocked();
    void ClockLoop();
    void Tick(int64_t nowMs);

    const Fixture& fixture_;
    CBroadcastRegistry& registry_;
    IPushSink& sink_;
    IScheduler& scheduler_;
    const std::string speakerDir_;
    std::unique_ptr<CTtsSynthesizer> tts_;

    mutable std::mutex mutex_;
    std::map<int, Speaker> speakers_;                 ///< by element id
    std::map<int, std::vector<int>> deviceElements_;  ///< device id -> element ids
    std::map<std::string, GroupRun> groups_;
    std::deque<std::string> groupOrder_;
    std::map<uint64_t, TtsJob> ttsJobs_;
    uint64_t nextTtsJob_ = 1;
    std::vector<std::unique_ptr<CPlayout>> playouts_;
    CListeners listeners_;

    std::condition_variable clockWake_;
    bool clockStop_ = false;
    std::thread clock_;
    bool started_ = false;
};

}  // namespace Platform
