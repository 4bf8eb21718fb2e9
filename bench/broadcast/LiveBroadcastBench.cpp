// Live-talk figures against the reference platform's simulated speakers:
//   start latency     from AsyncStartSpeakVoice to the first audio packet played at each speaker, one speaker
//                     per transport, with the site's prompt tone on (the demo site) and off;
//   breakdown         where the start time goes: every REST call and RTSP request as the platform received
//                     it, the module's own log lines (time-stamped as they are written) and each speaker's
//                     first audio, as offsets from the start call (median and p90 over the talks);
//   mouth-to-speaker  from the moment the sentence starts into the virtual microphone to the moment it
//                     starts at the speaker (placed on the wall clock by the speaker's first-audio time and
//                     the sentence's position in its WAV, found by cross-correlation), median and p99;
//   streaming path    each backchannel packet of the streaming transport from the frame the module hands to
//                     the streaming client library to the speaker's recording, stage by stage (marks of the
//                     library and the simulated server, on only for this bench: BCAST_STREAM_PROBE);
//   memory            peak resident memory of this process (the module's host) during a live talk to 1,000
//                     UDP speakers;
//   REST              time per request of the module's REST client over http and https.
// Each part runs in a child process of its own (its own platform, its own site, its own peak memory); the
// parent writes the sites and prints one table.
//
//   bcast-bench-broadcast [--runs N] [--speakers N] [--sms-jitter-ms N]
//                     (defaults 20 talks, 1000 speakers; the streaming server's jitter buffer in the site
//                     without prompt tone: the demo site's 200 ms unless given)
//   bcast-bench-broadcast --part latency --fixture F --runs N [--dump]
//   bcast-bench-broadcast --part memory --fixture F --speakers N
//   bcast-bench-broadcast --part rest
//   bcast-bench-broadcast --part sites --fixture DIR [--speakers N] [--sms-jitter-ms N]

#include <QApplication>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "ModuleAgainstPlatform.h"
#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "SiteText.h"
#include "TestFiles.h"
#include "TestProcess.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PlatformLogin.h"
#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "support/QtWait.h"
#include "tool/audio/AudioCompare.h"

using NetworkCommunication::CRapidJsonProto;

namespace {

struct Target {
    int elementId;
    const char* transport;
};
const Target kTargets[] = {{1001, "streaming server"}, {1003, "device interface"}, {1006, "RTP over UDP"}};
// Elements and devices of the generated large site.
constexpr int kManyFirstElement = 5001;
constexpr int kManyFirstDevice = 60001;

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double Percentile(std::vector<double> v, double p) {
    if (v.empty()) {
        return 0;
    }
    std::sort(v.begin(), v.end());
    if (p == 50 && v.size() % 2 == 0) {
        return (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
    }
    // Nearest rank.
    const std::size_t rank = static_cast<std::size_t>(std::ceil(p / 100.0 * static_cast<double>(v.size())));
    return v[std::min(v.size(), std::max<std::size_t>(1, rank)) - 1];
}

int Fail(const std::string& why) {
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    return 1;
}

// "VmHWM" or "VmRSS" of this process, in MiB.
double StatusMiB(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind(key, 0) == 0) {
            return std::atof(line.c_str() + std::strlen(key) + 1) / 1024.0;
        }
    }
    return 0;
}

// The module against a platform process with the given site (no object store: a recording's upload fails
// after the talk, which the figures do not include), the audio back end up as the plugin keeps it.
bool StartRig(BcastTest::CModuleRig& rig, const std::string& fixture, std::string& error) {
    BcastTest::RigOptions options;
    options.platformArgs = {"--fixture", fixture, "--object-store", "off"};
    options.audioBackEndUp = true;
    return rig.Start(options, error);
}

struct SpeakerState {
    int sessions = 0;
    int64_t firstAudioAt = 0;
    int64_t firstAudioSample = 0;
    std::string phase;
    std::string wavPath;
};

CRapidJsonProto Control(const PlatformTest::CPlatformProcess& platform, const std::string& path) {
    PlatformTest::CRestClient control(platform.RestUrl());
    CRapidJsonProto answer;
    answer.set_str(control.Send("GET", "/_control/" + path, "").body);
    return answer;
}

std::map<int, SpeakerState> Speakers(const PlatformTest::CPlatformProcess& platform) {
    const CRapidJsonProto all = Control(platform, "speakers");
    std::map<int, SpeakerState> out;
    for (int i = 1; i <= all.get_cnt("/ResponseStatus/Data/Speakers"); ++i) {
        const std::string p = "/ResponseStatus/Data/Speakers[" + std::to_string(i) + "]";
        SpeakerState s;
        s.sessions = all.get_int_v(p + "/Sessions", 0);
        s.firstAudioAt = static_cast<int64_t>(all.get_double_v(p + "/FirstAudioAt", 0));
        s.firstAudioSample = static_cast<int64_t>(all.get_double_v(p + "/FirstAudioSample", 0));
        s.phase = all.get_v(p + "/Phase");
        s.wavPath = all.get_v(p + "/WavPath");
        out[all.get_int_v(p + "/ElementID", 0)] = s;
    }
    return out;
}

// The module's log lines with the wall-clock time at which they were written; with `only`, just the lines
// that hold that text (so that a talk to many speakers does not grow this process's memory).
class CLogClock {
public:
    explicit CLogClock(std::string only = std::string()) : only_(std::move(only)) {
        hook_ = Tal::Base::AddLogHook([this](const Tal::Base::LogLine& line) {
            if (!only_.empty() && line.text.find(only_) == std::string::npos) {
                return;
            }
            const int64_t now = NowMs();
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back({now, line.module + " " + line.text});
        });
    }
    ~CLogClock() { Tal::Base::RemoveLogHook(hook_); }
    CLogClock(const CLogClock&) = delete;
    CLogClock& operator=(const CLogClock&) = delete;

    std::vector<std::pair<int64_t, std::string>> Take() {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::move(lines_);
    }

private:
    const std::string only_;
    int hook_ = 0;
    std::mutex mutex_;
    std::vector<std::pair<int64_t, std::string>> lines_;
};

// Module log lines that mark a start step, by a piece of their text.
const std::pair<const char*, const char*> kLogMarks[] = {
    {"Start ipspeaker voice speak. broadcast", "module: StartSpeakVoice begins"},
    {"Get broadcast element id", "module: broadcast addresses known"},
    {"Start audio com capture succ", "module: capture started"},
    {"Start ZPSClient_CreateSession", "module: streaming session: create"},
    {"Start ZPSClient_StartVoiceTalk", "module: streaming session: RTSP talk starts"},
    {"Succ ZPSClient_StartVoiceTalk", "module: streaming session: RTSP talk up"},
    {"Start transfer to sdk", "module: device interface: start"},
    {"Logged in to", "module: device interface: logged in"},
    {"DEVNET_StdConfig return", "module: device interface: encoding configured"},
    {"Start transfer to oem", "module: UDP senders start"},
    {"Operation log 265001 written", "module: operation log written"},
    {"Start ipspeaker voice speak finish", "module: StartSpeakVoice returns"},
};

// The path without the common prefix of the platform's REST paths.
std::string ShortPath(const std::string& path) {
    const std::string prefix = "/DXAPI/Galewing/Platform/V1";
    std::string shortened = path.rfind(prefix, 0) == 0 ? path.substr(prefix.size()) : path;
    if (shortened.size() > 44) {
        shortened = shortened.substr(0, 41) + "...";
    }
    return shortened;
}

// One talk's events as (label, ms after the start call); a label seen again in the talk gets " #n".
using Timeline = std::vector<std::pair<std::string, double>>;

void AddEvent(Timeline& timeline, std::map<std::string, int>& seen, const std::string& label, double offset) {
    const int n = ++seen[label];
    timeline.push_back({n == 1 ? label : label + " #" + std::to_string(n), offset});
}

// A second capture of the virtual microphone, opened like the module's (first sound card, G.711 at 8 kHz):
// the wall-clock time of the first captured block that carries sound is when the module's capture has the
// sentence too. Separates "into the microphone and out of the capture" from "capture to speaker".
class CCaptureProbe {
public:
    CCaptureProbe() {
        AUDIOCOM_SOUNDCARD_INFO card{};
        // Each call returns 1 on success.
        if (AUDIOCOM_GetOneSoundCardInfo(0, &card) != 1 ||
            AUDIOCOM_CreateCaptureHandle(&handle_, card.deviceName) != 1) {
            handle_ = -1;
            return;
        }
        AUDIOCOM_STREAM_PARAM param{};
        param.channels = 1;
        param.bitsPerSample = 16;
        param.sampleRate = 8000;
        param.bitRate = 64000;
        param.codec = 2;
        if (AUDIOCOM_RegisterCaptureDataCallBackEx(handle_, &CCaptureProbe::OnPcm, this) != 1 ||
            AUDIOCOM_RegisterOutputDataCallBackEx(handle_, &param, &CCaptureProbe::OnEncoded, this) != 1 ||
            AUDIOCOM_StartCapture(handle_) != 1) {
            AUDIOCOM_ReleaseCaptureHandle(handle_);
            handle_ = -1;
        }
    }
    ~CCaptureProbe() {
        if (handle_ >= 0) {
            AUDIOCOM_StopCapture(handle_);
            AUDIOCOM_ReleaseCaptureHandle(handle_);
        }
    }
    CCaptureProbe(const CCaptureProbe&) = delete;
    CCaptureProbe& operator=(const CCaptureProbe&) = delete;

    bool IsOpen() const { return handle_ >= 0; }
    // When the first block with sound arrived (0: none yet).
    int64_t SoundAt() {
        std::lock_guard<std::mutex> lock(mutex_);
        return soundAt_;
    }

private:
    static void OnPcm(int32_t, const uint8_t* data, uint32_t size, void* user) {
        auto* self = static_cast<CCaptureProbe*>(user);
        const auto* samples = reinterpret_cast<const int16_t*>(data);
        double energy = 0;
        for (uint32_t i = 0; i < size / 2; ++i) {
            energy += static_cast<double>(samples[i]) * samples[i];
        }
        std::lock_guard<std::mutex> lock(self->mutex_);
        if (self->soundAt_ == 0 && size >= 2 && std::sqrt(energy / (size / 2)) > kSoundRms) {
            self->soundAt_ = NowMs();
        }
    }
    static void OnEncoded(int32_t, const uint8_t*, uint32_t, void*) {}

    static constexpr double kSoundRms = 300;
    int32_t handle_ = -1;
    std::mutex mutex_;
    int64_t soundAt_ = 0;
};

// The streaming path packet by packet: the streaming client library and the streaming server mark each
// backchannel frame and packet where it passes (wall clock, us) when BCAST_STREAM_PROBE names a directory;
// each process appends to a file of its own there. Joined by time stamp (frame to packet, jitter buffer to
// speaker) and by RTP sequence number (client to server).
class CStreamPath {
public:
    static constexpr int kStageCount = 6;
    // Stage names, in the order the packet passes; the last is their sum.
    static constexpr const char* kStages[kStageCount] = {
        "library: frame in -> packet out of the payloader", "library: packet into rtspsrc, written to TCP",
        "loopback, server's RTSP receive -> jitter buffer", "server: jitter buffer",
        "server: depayload, decode, speaker's WAV written", "frame into the library -> speaker, in all",
    };

    // One packet: the wall-clock time (us) at each point, 0 where unknown; `first` for a talk's first frame.
    struct Packet {
        long seq = -1;
        int64_t at[kStageCount] = {};  // frame in, packet out, sent, at the server, out of the jitter buffer,
                                       // at the speaker
        bool first = false;
        bool Complete() const {
            return std::all_of(std::begin(at), std::end(at), [](int64_t t) { return t != 0; });
        }
        // Duration of stage i in ms.
        double Stage(int i) const {
            return static_cast<double>(i == kStageCount - 1 ? at[kStageCount - 1] - at[0]
                                                            : at[i + 1] - at[i]) /
                   1000.0;
        }
    };

    explicit CStreamPath(std::string dir) : dir_(std::move(dir)) {}

    // Every packet whose frame was handed to the library at or after `fromUs` (wall clock).
    std::vector<Packet> Packets(int64_t fromUs) const {
        std::vector<Mark> client, server;
        ReadMarks(client, server);
        std::vector<Packet> out;
        // The time stamps start at 0 in each talk: the frames and packets of the current talk.
        std::map<int64_t, int64_t> frames;    // pts -> wall
        std::map<long, std::size_t> talkSeq;  // seq -> index in out
        for (const Mark& m : client) {
            if (m.point == "client-frame") {
                if (m.pts == 0) {
                    frames.clear();
                    talkSeq.clear();
                }
                frames[m.pts] = m.wall;
            } else if (m.point == "client-packet") {
                const auto frame = frames.find(m.pts);
                if (frame == frames.end() || frame->second < fromUs) {
                    continue;
                }
                Packet p;
                p.seq = m.seq;
                p.at[0] = frame->second;
                p.at[1] = m.wall;
                p.first = m.pts == 0;
                talkSeq[m.seq] = out.size();
                out.push_back(p);
            } else if (m.point == "client-sent") {
                const auto at = talkSeq.find(m.seq);
                if (at != talkSeq.end()) {
                    out[at->second].at[2] = m.wall;
                }
            }
        }
        // A server arrival belongs to the packet of that sequence number sent last before it.
        std::multimap<long, std::size_t> bySeq;
        for (std::size_t i = 0; i < out.size(); ++i) {
            bySeq.insert({out[i].seq, i});
        }
        std::map<long, std::size_t> arrived;        // seq -> packet, the latest arrival
        std::map<int64_t, std::size_t> leftJitter;  // server pts -> packet
        for (const Mark& m : server) {
            if (m.point == "server-in") {
                std::size_t best = out.size();
                const auto range = bySeq.equal_range(m.seq);
                for (auto it = range.first; it != range.second; ++it) {
                    const Packet& p = out[it->second];
                    if (p.at[2] != 0 && p.at[2] <= m.wall && p.at[3] == 0 &&
                        (best == out.size() || p.at[2] > out[best].at[2])) {
                        best = it->second;
                    }
                }
                if (best < out.size()) {
                    out[best].at[3] = m.wall;
                    arrived[m.seq] = best;
                }
            } else if (m.point == "server-jitter-out") {
                const auto at = arrived.find(m.seq);
                if (at != arrived.end() && out[at->second].at[4] == 0) {
                    out[at->second].at[4] = m.wall;
                    leftJitter[m.pts] = at->second;
                }
            } else if (m.point == "server-speaker") {
                const auto at = leftJitter.find(m.pts);
                if (at != leftJitter.end() && out[at->second].at[5] == 0) {
                    out[at->second].at[5] = m.wall;
                }
            }
        }
        return out;
    }

private:
    struct Mark {
        std::string point;
        long seq = -1;
        int64_t pts = -1;
        int64_t wall = 0;
    };

    void ReadMarks(std::vector<Mark>& client, std::vector<Mark>& server) const {
        std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(dir_.c_str()), &closedir);
        if (!dir) {
            return;
        }
        while (const dirent* entry = readdir(dir.get())) {
            const std::string name = entry->d_name;
            if (name.size() < 4 || name.compare(name.size() - 4, 4, ".txt") != 0) {
                continue;
            }
            std::ifstream in(dir_ + "/" + name);
            Mark m;
            while (in >> m.point >> m.seq >> m.pts >> m.wall) {
                (m.point.rfind("client-", 0) == 0 ? client : server).push_back(m);
            }
        }
    }

    std::string dir_;
};
constexpr const char* CStreamPath::kStages[];

// Milliseconds from the file's start to its first 20 ms block with sound (same threshold as the probe).
double SoundOnsetMs(const BcastTool::PcmAudio& audio) {
    const std::size_t block = 160;
    for (std::size_t at = 0; at + block <= audio.samples.size(); at += block) {
        double energy = 0;
        for (std::size_t i = at; i < at + block; ++i) {
            energy += static_cast<double>(audio.samples[i]) * audio.samples[i];
        }
        if (std::sqrt(energy / block) > 300) {
            return static_cast<double>(at + block) / 8.0;
        }
    }
    return 0;
}

int LatencyPart(const std::string& fixture, int runs, bool dump) {
    // Before the rig starts, so that its platform process marks the streaming server's packets too.
    BcastTest::CTempDir probeDir("bench-broadcast-probe");
    setenv("BCAST_STREAM_PROBE", probeDir.Path().c_str(), 1);
    const CStreamPath streamPath(probeDir.Path());
    BcastTest::CModuleRig rig("bench-broadcast");
    CLogClock logClock;
    std::string error;
    if (!StartRig(rig, fixture, error)) {
        return Fail(error);
    }
    BcastTest::CPulseAudioPeer& pulse = rig.Pulse();
    PlatformTest::CPlatformProcess& platform = rig.Platform();
    const std::string sentencePath = rig.Work().File("sentence.wav");
    if (BcastTest::RunProcess(
            {"espeak-ng", "-v", "en", "-w", sentencePath, "Testing the broadcast, one two three."}, 60000)
            .exitCode != 0) {
        return Fail("espeak-ng failed");
    }
    BcastTool::PcmAudio raw, sentence;
    if (!BcastTool::ReadWavMono(sentencePath, raw, error) || !BcastTool::ToRate(raw, 8000, sentence)) {
        return Fail("cannot read the sentence: " + error);
    }
    auto* controller = BroadCastPlugin::CBroadcastController::Instance();

    std::map<int, std::vector<double>> startLatency, mouthDelay;
    std::map<std::string, std::vector<double>> steps;
    std::vector<double> captured;
    const double onsetMs = SoundOnsetMs(sentence);
    for (int run = 0; run < runs; ++run) {
        const auto before = Speakers(platform);
        logClock.Take();
        BroadCastPlugin::IPSpeakBroadcastParam param;
        for (const Target& t : kTargets) {
            param.elementIDs.push_back(t.elementId);
        }
        const int64_t asked = NowMs();
        if (!controller->AsyncStartSpeakVoice(param, nullptr)) {
            return Fail("AsyncStartSpeakVoice refused");
        }
        std::map<int, SpeakerState> now;
        const bool reached = BcastTest::WaitFor(
            [&] {
                now = Speakers(platform);
                for (const Target& t : kTargets) {
                    const SpeakerState& s = now[t.elementId];
                    if (s.sessions <= before.at(t.elementId).sessions || s.firstAudioAt == 0) {
                        return false;
                    }
                }
                return true;
            },
            20000);
        if (!reached) {
            controller->AsyncStopBroadcast(nullptr);
            return Fail("run " + std::to_string(run) + ": a speaker never got audio");
        }
        int64_t last = 0;
        for (const Target& t : kTargets) {
            startLatency[t.elementId].push_back(static_cast<double>(now[t.elementId].firstAudioAt - asked));
            last = std::max(last, now[t.elementId].firstAudioAt);
        }

        // Where the time went: what the platform and its streaming server received, what the module logged.
        Timeline timeline;
        std::map<std::string, int> seen;
        const CRapidJsonProto requests = Control(platform, "requests");
        for (int i = 1; i <= requests.get_cnt("/ResponseStatus/Data/Requests"); ++i) {
            const std::string p = "/ResponseStatus/Data/Requests[" + std::to_string(i) + "]";
            const int64_t at = requests.get_int64_v(p + "/Time", 0);
            if (at >= asked && at <= last) {
                AddEvent(
                    timeline, seen,
                    "REST " + requests.get_v(p + "/Method") + " " + ShortPath(requests.get_v(p + "/Path")),
                    static_cast<double>(at - asked));
            }
        }
        const CRapidJsonProto rtsp = Control(platform, "streaming");
        for (int i = 1; i <= rtsp.get_cnt("/ResponseStatus/Data/Recent"); ++i) {
            const std::string p = "/ResponseStatus/Data/Recent[" + std::to_string(i) + "]";
            const int64_t at = rtsp.get_int64_v(p + "/Time", 0);
            if (at >= asked && at <= last) {
                AddEvent(timeline, seen, "RTSP " + rtsp.get_v(p + "/Method"),
                         static_cast<double>(at - asked));
            }
        }
        for (const auto& line : logClock.Take()) {
            if (line.first > last) {
                continue;
            }
            if (dump && run == 0) {
                std::printf("B   log %+5lld ms  %.150s\n", static_cast<long long>(line.first - asked),
                            line.second.c_str());
            }
            for (const auto& mark : kLogMarks) {
                if (line.second.find(mark.first) != std::string::npos) {
                    AddEvent(timeline, seen, mark.second, static_cast<double>(line.first - asked));
                }
            }
        }
        for (const Target& t : kTargets) {
            AddEvent(timeline, seen, std::string("first audio: ") + t.transport,
                     static_cast<double>(now[t.elementId].firstAudioAt - asked));
        }
        // The streaming transport's first packet where it passed.
        for (const CStreamPath::Packet& p : streamPath.Packets(asked * 1000)) {
            if (!p.first) {
                continue;
            }
            const char* const points[] = {"streaming: first frame into the library",
                                          "streaming: first packet out of the payloader",
                                          "streaming: first packet written to TCP",
                                          "streaming: first packet at the server's jitter buffer",
                                          "streaming: first packet out of the jitter buffer",
                                          "streaming: first packet written by the speaker"};
            for (int i = 0; i < CStreamPath::kStageCount; ++i) {
                if (p.at[i] != 0) {
                    AddEvent(timeline, seen, points[i], static_cast<double>(p.at[i] / 1000 - asked));
                }
            }
            break;
        }
        for (const auto& event : timeline) {
            steps[event.first].push_back(event.second);
        }

        BcastTest::Settle(300);
        CCaptureProbe probe;
        BcastTest::CBackgroundProcess player;
        const int64_t spoken = NowMs();
        if (!pulse.StartPlaying(sentencePath, &player) || !player.Wait(20000)) {
            return Fail("paplay failed");
        }
        BcastTest::Settle(800);
        if (!probe.IsOpen() || probe.SoundAt() == 0) {
            std::fprintf(stderr, "bench: talk %d: the second capture %s\n", run + 1,
                         probe.IsOpen() ? "heard no sound" : "did not open");
        } else {
            // The block that held the onset ended up to one block after it.
            captured.push_back(static_cast<double>(probe.SoundAt() - spoken) - onsetMs);
        }
        controller->AsyncStopBroadcast(nullptr);
        BcastTest::WaitFor(
            [&] {
                now = Speakers(platform);
                for (const Target& t : kTargets) {
                    if (now[t.elementId].phase != "stopped") {
                        return false;
                    }
                }
                return true;
            },
            10000);
        BcastTest::WaitFor([&] { return controller->GetMainTaskCount() == 0; }, 10000);
        for (const Target& t : kTargets) {
            const SpeakerState& s = now[t.elementId];
            BcastTool::PcmAudio recording;
            if (!BcastTool::ReadWavMono(s.wavPath, recording, error)) {
                return Fail(error);
            }
            const BcastTool::AudioMatch match = BcastTool::CompareAudio(sentence, recording, 10.0);
            if (match.correlation < 0.5) {
                std::fprintf(stderr,
                             "bench: run %d speaker %d: the sentence was not found (correlation %.2f)\n", run,
                             t.elementId, match.correlation);
                continue;
            }
            const double heardAt = static_cast<double>(s.firstAudioAt) + match.delayMs -
                                   static_cast<double>(s.firstAudioSample) / 8.0;
            mouthDelay[t.elementId].push_back(heardAt - static_cast<double>(spoken));
        }
        std::fprintf(stderr, "bench: talk %d of %d done\n", run + 1, runs);
    }

    for (const Target& t : kTargets) {
        std::printf("R %d start_median=%.0f start_p90=%.0f mouth_median=%.0f mouth_p99=%.0f mouth_n=%zu\n",
                    t.elementId, Percentile(startLatency[t.elementId], 50),
                    Percentile(startLatency[t.elementId], 90), Percentile(mouthDelay[t.elementId], 50),
                    Percentile(mouthDelay[t.elementId], 99), mouthDelay[t.elementId].size());
    }
    std::printf("R capture capture_median=%.0f capture_p99=%.0f capture_n=%zu\n", Percentile(captured, 50),
                Percentile(captured, 99), captured.size());
    // The streaming path's stages over every packet of every talk, and over the talks' first packets.
    std::vector<double> all[CStreamPath::kStageCount], first[CStreamPath::kStageCount];
    std::size_t arrived = 0, dropped = 0;
    for (const CStreamPath::Packet& p : streamPath.Packets(0)) {
        if (p.at[3] != 0) {
            ++arrived;
            // The jitter buffer gave it up as late (it had counted it lost): the speaker never played it.
            dropped += p.at[4] == 0 ? 1 : 0;
        }
        if (!p.Complete()) {
            continue;
        }
        for (int i = 0; i < CStreamPath::kStageCount; ++i) {
            all[i].push_back(p.Stage(i));
            if (p.first) {
                first[i].push_back(p.Stage(i));
            }
        }
    }
    for (int i = 0; i < CStreamPath::kStageCount; ++i) {
        std::printf("S   %-50s %7.1f %7.1f %7.1f %7.1f %6zu\n", CStreamPath::kStages[i],
                    Percentile(all[i], 50), Percentile(all[i], 99), Percentile(first[i], 50),
                    Percentile(first[i], 99), all[i].size());
    }
    std::printf(
        "S   (%zu of the %zu packets that reached the jitter buffer never left it: dropped as late)\n",
        dropped, arrived);
    std::vector<std::pair<double, std::string>> order;
    for (const auto& step : steps) {
        order.push_back({Percentile(step.second, 50), step.first});
    }
    std::sort(order.begin(), order.end());
    double previous = 0;
    for (const auto& step : order) {
        const std::vector<double>& values = steps[step.second];
        std::printf("B   %-52s %7.0f %7.0f %7.0f %5zu\n", step.second.c_str(), step.first,
                    step.first - previous, Percentile(values, 90), values.size());
        previous = step.first;
    }
    return 0;
}

// Resident memory of this process by mapping: anonymous memory (heap, thread stacks, arenas) and each file
// (the libraries' pages in memory), largest first, in MiB.
std::vector<std::pair<double, std::string>> ResidentByMapping() {
    std::ifstream in("/proc/self/smaps");
    std::map<std::string, double> kib;
    std::string line;
    std::string current;
    while (std::getline(in, line)) {
        if (line.empty()) {
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(line[0])) && line.find('-') != std::string::npos &&
            line.find(':') > line.find('-')) {
            // "start-end perms offset dev inode   path"
            std::istringstream fields(line);
            std::string range, perms, offset, dev, inode, path;
            fields >> range >> perms >> offset >> dev >> inode;
            std::getline(fields, path);
            path.erase(0, path.find_first_not_of(' '));
            current = path.empty() ? "[anonymous]" : path;
            if (current.rfind("/", 0) == 0) {
                current = current.substr(current.rfind('/') + 1);
            }
        } else if (line.rfind("Rss:", 0) == 0) {
            kib[current] += std::atof(line.c_str() + 4);
        }
    }
    std::vector<std::pair<double, std::string>> out;
    for (const auto& entry : kib) {
        out.push_back({entry.second / 1024.0, entry.first});
    }
    std::sort(out.rbegin(), out.rend());
    return out;
}

int MemoryPart(const std::string& fixture, int speakers) {
    const char* const kStartReturns = "Start ipspeaker voice speak finish";
    BcastTest::CModuleRig rig("bench-broadcast-memory");
    CLogClock logClock(kStartReturns);
    std::string error;
    if (!StartRig(rig, fixture, error)) {
        return Fail(error);
    }
    PlatformTest::CPlatformProcess& platform = rig.Platform();
    const std::string tonePath = rig.Work().File("tone.wav");
    if (BcastTest::RunProcess({"sox", "-n", "-r", "8000", "-c", "1", "-b", "16", tonePath, "synth", "3",
                               "sine", "440", "vol", "0.5"},
                              30000)
            .exitCode != 0) {
        return Fail("sox failed");
    }
    auto* controller = BroadCastPlugin::CBroadcastController::Instance();
    const double idleRss = StatusMiB("VmRSS");
    BroadCastPlugin::IPSpeakBroadcastParam param;
    for (int i = 0; i < speakers; ++i) {
        param.elementIDs.push_back(kManyFirstElement + i);
    }
    const int64_t asked = NowMs();
    if (!controller->AsyncStartSpeakVoice(param, nullptr)) {
        return Fail("AsyncStartSpeakVoice refused");
    }
    int reached = 0;
    BcastTest::WaitFor(
        [&] {
            reached = 0;
            for (const auto& speaker : Speakers(platform)) {
                reached += speaker.second.firstAudioAt >= asked ? 1 : 0;
            }
            return reached == speakers;
        },
        60000);
    const int64_t allReached = NowMs();
    // How long the start call took and how many REST calls it made.
    int64_t returned = 0;
    for (const auto& line : logClock.Take()) {
        if (returned == 0 && line.second.find(kStartReturns) != std::string::npos) {
            returned = line.first;
        }
    }
    BcastTest::CBackgroundProcess player;
    if (!rig.Pulse().StartPlaying(tonePath, &player) || !player.Wait(20000)) {
        return Fail("paplay failed");
    }
    BcastTest::Settle(500);
    const double talkRss = StatusMiB("VmRSS");
    const double peakRss = StatusMiB("VmHWM");
    const auto mappings = ResidentByMapping();
    controller->AsyncStopBroadcast(nullptr);
    BcastTest::WaitFor([&] { return controller->GetMainTaskCount() == 0; }, 20000);
    // After the memory figures: the request log of the talk is a large answer.
    int restCalls = 0;
    const CRapidJsonProto requests = Control(platform, "requests");
    for (int i = 1; i <= requests.get_cnt("/ResponseStatus/Data/Requests"); ++i) {
        const int64_t at =
            requests.get_int64_v("/ResponseStatus/Data/Requests[" + std::to_string(i) + "]/Time", 0);
        restCalls += at >= asked && at <= returned ? 1 : 0;
    }
    std::printf(
        "R memory speakers=%d reached=%d all_reached_ms=%lld start_call_ms=%lld rest_calls=%d idle_rss=%.1f "
        "talk_rss=%.1f peak_rss=%.1f\n",
        speakers, reached, static_cast<long long>(allReached - asked),
        static_cast<long long>(returned - asked), restCalls, idleRss, talkRss, peakRss);
    double shown = 0;
    for (std::size_t i = 0; i < mappings.size() && i < 12; ++i) {
        std::printf("B   %-40s %7.1f\n", mappings[i].second.c_str(), mappings[i].first);
        shown += mappings[i].first;
    }
    double all = 0;
    for (const auto& mapping : mappings) {
        all += mapping.first;
    }
    std::printf("B   %-40s %7.1f\n", "the other mappings", all - shown);
    double anonymous = 0;
    int files = 0;
    for (const auto& mapping : mappings) {
        if (mapping.second.rfind("[", 0) == 0) {
            anonymous += mapping.first;
        } else {
            ++files;
        }
    }
    std::printf("B   %-40s %7.1f\n", "all anonymous (heap, stacks, arenas)", anonymous);
    std::printf("B   %-40s %7.1f\n", ("all of " + std::to_string(files) + " files (libraries)").c_str(),
                all - anonymous);
    return 0;
}

// Sequential requests through the module's REST client to a platform over http and over https (a
// certificate made with openssl for 127.0.0.1): milliseconds per request, where connection and TLS set-up
// show when a request does not reuse its predecessor's connection.
int RestPart(int requests) {
    BcastTest::CTempDir work("bench-broadcast-rest");
    const std::string cert = work.File("cert.pem");
    const std::string key = work.File("key.pem");
    if (BcastTest::RunProcess(
            {"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", cert,
             "-days", "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"},
            60000)
            .exitCode != 0) {
        return Fail("openssl could not make a certificate");
    }
    for (const bool tls : {false, true}) {
        PlatformTest::CPlatformProcess platform;
        std::vector<std::string> args = {"--no-peers", "--object-store", "off"};
        if (tls) {
            args.insert(args.end(), {"--tls-cert", cert, "--tls-key", key});
        }
        if (!platform.Start(args)) {
            return Fail("platform: " + platform.Error());
        }
        NetworkCommunication::ServerSession server;
        server.scheme = tls ? "https" : "http";
        server.host = "127.0.0.1";
        server.port = std::stoi(platform.RestUrl().substr(platform.RestUrl().rfind(':') + 1));
        server.caFile = tls ? cert : std::string();
        NetworkCommunication::CClientSendInfo send;
        send.SetVal_Method("GET");
        send.SetVal_URL("/_control/faults");
        int ok = 0;
        const auto began = std::chrono::steady_clock::now();
        for (int i = 0; i < requests; ++i) {
            NetworkCommunication::CClientRecvInfo recv;
            ok += NetworkCommunication::CNetCommManager::Instance()->SendToServer(server, send, 5000, recv)
                      ? 1
                      : 0;
        }
        const double ms =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
        if (ok != requests) {
            return Fail(std::to_string(requests - ok) + " requests failed over " + server.scheme);
        }
        std::printf("R rest_%s per_request_ms=%.3f requests=%d\n", server.scheme.c_str(), ms / requests,
                    requests);
    }
    return 0;
}

bool WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

// The demo site without its prompt tone, and the same with `count` further UDP speakers.
bool WriteSites(const std::string& promptOff, const std::string& many, int count, int smsJitterMs) {
    CRapidJsonProto site;
    if (!site.set_str(PlatformTest::ReadFile(PlatformTest::DemoFixture()))) {
        return false;
    }
    site.set_bool_v("/BaseConfig/IsPromptToneActivated", false);
    if (smsJitterMs >= 0) {
        site.set_v("/StreamingServer/JitterBufferMs", smsJitterMs);
    }
    if (!WriteText(promptOff, site.get_str())) {
        return false;
    }
    std::vector<PlatformTest::UdpSpeakerEntry> speakers;
    for (int i = 0; i < count; ++i) {
        speakers.push_back({kManyFirstDevice + i, kManyFirstElement + i, "Pole " + std::to_string(i + 1)});
    }
    std::string text = site.get_str();
    if (!PlatformTest::AddUdpSpeakers(text, speakers)) {
        return false;
    }
    return WriteText(many, text);
}

// Runs one part in a child process; its "R " and "B " lines, without the marks.
bool RunPart(const std::vector<std::string>& args, std::vector<std::string>& results,
             std::vector<std::string>& breakdown, std::vector<std::string>* streamPath = nullptr) {
    std::vector<std::string> argv = {"/proc/self/exe"};
    argv.insert(argv.end(), args.begin(), args.end());
    const BcastTest::ProcessResult result = BcastTest::RunProcess(argv, 3600 * 1000);
    std::istringstream lines(result.output);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("R ", 0) == 0) {
            results.push_back(line.substr(2));
        } else if (line.rfind("B ", 0) == 0) {
            breakdown.push_back(line.substr(2));
        } else if (streamPath != nullptr && line.rfind("S ", 0) == 0) {
            streamPath->push_back(line.substr(2));
        }
    }
    if (result.exitCode != 0) {
        std::fprintf(stderr, "bench: part %s failed (exit %d):\n%s\n", args[1].c_str(), result.exitCode,
                     result.output.c_str());
        return false;
    }
    return true;
}

// The value of `key=` in a result line, 0 when absent.
double Field(const std::string& line, const std::string& key) {
    const std::size_t at = line.find(" " + key + "=");
    return at == std::string::npos ? 0 : std::atof(line.c_str() + at + key.size() + 2);
}

// The result line of an element ("1001 start_median=...").
std::string ResultOf(const std::vector<std::string>& results, const std::string& id) {
    for (const std::string& line : results) {
        if (line.rfind(id + " ", 0) == 0) {
            return line;
        }
    }
    return std::string();
}

int Parent(int runs, int speakers, int smsJitterMs) {
    BcastTest::CTempDir work("bench-broadcast-sites");
    const std::string promptOff = work.File("prompt-off.json");
    const std::string many = work.File("many-udp.json");
    if (!WriteSites(promptOff, many, speakers, smsJitterMs)) {
        return Fail("cannot write the sites");
    }
    std::vector<std::string> on, off, memory, rest, onSteps, offSteps, memorySteps, restSteps;
    std::fprintf(stderr, "bench: %d talks with the prompt tone on...\n", runs);
    if (!RunPart(
            {"--part", "latency", "--fixture", PlatformTest::DemoFixture(), "--runs", std::to_string(runs)},
            on, onSteps)) {
        return 1;
    }
    std::fprintf(stderr, "bench: %d talks with the prompt tone off...\n", runs);
    std::vector<std::string> offPath;
    if (!RunPart({"--part", "latency", "--fixture", promptOff, "--runs", std::to_string(runs)}, off, offSteps,
                 &offPath)) {
        return 1;
    }
    std::fprintf(stderr, "bench: REST requests over http and https...\n");
    if (!RunPart({"--part", "rest"}, rest, restSteps)) {
        return 1;
    }
    std::fprintf(stderr, "bench: a talk to %d UDP speakers...\n", speakers);
    if (!RunPart({"--part", "memory", "--fixture", many, "--speakers", std::to_string(speakers)}, memory,
                 memorySteps)) {
        return 1;
    }

    std::printf("\nLive talk, %d talks per site, one speaker per transport (ms)\n", runs);
    std::printf("%-18s | %-25s | %-25s | %-25s\n", "", "start, prompt tone on", "start, prompt tone off",
                "mouth-to-speaker (off)");
    std::printf("%-18s | %12s %12s | %12s %12s | %12s %12s\n", "transport", "median", "p90", "median", "p90",
                "median", "p99");
    for (const Target& t : kTargets) {
        const std::string a = ResultOf(on, std::to_string(t.elementId));
        const std::string b = ResultOf(off, std::to_string(t.elementId));
        std::printf("%-18s | %12.0f %12.0f | %12.0f %12.0f | %12.0f %12.0f\n", t.transport,
                    Field(a, "start_median"), Field(a, "start_p90"), Field(b, "start_median"),
                    Field(b, "start_p90"), Field(b, "mouth_median"), Field(b, "mouth_p99"));
    }
    const std::string c = ResultOf(off, "capture");
    std::printf("%-18s | %25s | %25s | %12.0f %12.0f\n", "into the capture", "", "",
                Field(c, "capture_median"), Field(c, "capture_p99"));
    std::printf(
        "(mouth-to-speaker starts when paplay is started, so it includes paplay's own start-up; \"into the\n"
        "capture\" is paplay, PulseAudio and the capture buffer up to the first block with sound, at a\n"
        "second capture opened like the module's: the rest of each transport's figure is capture to "
        "speaker)\n");
    std::printf(
        "\nREST client, 200 requests one after the other: %.3f ms per request over http, %.3f over https\n",
        Field(ResultOf(rest, "rest_http"), "per_request_ms"),
        Field(ResultOf(rest, "rest_https"), "per_request_ms"));
    std::printf(
        "\nStreaming transport, prompt tone off: each backchannel packet from the frame the module hands to "
        "the\n"
        "streaming client library to the speaker's recording (ms; \"first\": the first packet of each talk,\n"
        "whose delay the whole talk keeps, as the speaker plays what follows at its pace)\n");
    std::printf("%-52s %7s %7s %7s %7s %6s\n", "stage", "median", "p99", "first", "first99", "packets");
    for (const std::string& line : offPath) {
        std::printf("%s\n", line.c_str());
    }
    std::printf("\nStart breakdown, prompt tone off: offset from AsyncStartSpeakVoice (ms)\n");
    std::printf("%-52s %7s %7s %7s %5s\n", "event", "median", "step", "p90", "talks");
    for (const std::string& line : offSteps) {
        std::printf("%s\n", line.c_str());
    }
    if (!memory.empty()) {
        const std::string& m = memory.front();
        std::printf(
            "\nLive talk to %.0f UDP speakers (%.0f reached their first audio, the last %.0f ms after "
            "the start call;\nthe start call took %.0f ms and made %.0f REST calls)\n",
            Field(m, "speakers"), Field(m, "reached"), Field(m, "all_reached_ms"), Field(m, "start_call_ms"),
            Field(m, "rest_calls"));
        std::printf("host resident memory (MiB): logged in %.1f, during the talk %.1f, peak %.1f\n",
                    Field(m, "idle_rss"), Field(m, "talk_rss"), Field(m, "peak_rss"));
        std::printf("resident during the talk by mapping (MiB):\n");
        for (const std::string& line : memorySteps) {
            std::printf("%s\n", line.c_str());
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 20;
    int speakers = 1000;
    int smsJitterMs = -1;
    bool dump = false;
    std::string part;
    std::string fixture;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--runs" && i + 1 < argc) {
            runs = std::max(1, std::atoi(argv[++i]));
        } else if (arg == "--speakers" && i + 1 < argc) {
            speakers = std::max(1, std::atoi(argv[++i]));
        } else if (arg == "--part" && i + 1 < argc) {
            part = argv[++i];
        } else if (arg == "--fixture" && i + 1 < argc) {
            fixture = argv[++i];
        } else if (arg == "--sms-jitter-ms" && i + 1 < argc) {
            smsJitterMs = std::max(0, std::atoi(argv[++i]));
        } else if (arg == "--dump") {
            dump = true;
        }
    }
    if (part == "sites") {  // writes the generated sites into --fixture DIR, for running a part by hand
        return WriteSites(fixture + "/prompt-off.json", fixture + "/many-udp.json", speakers, smsJitterMs)
                   ? 0
                   : 1;
    }
    if (part.empty()) {
        return Parent(runs, speakers, smsJitterMs);
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (part == "latency") {
        return LatencyPart(fixture, runs, dump);
    }
    if (part == "memory") {
        return MemoryPart(fixture, speakers);
    }
    if (part == "rest") {
        return RestPart(200);
    }
    return Fail("unknown part " + part);
}
