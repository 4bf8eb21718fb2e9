// Live-talk latency against the reference platform's simulated speakers, one speaker per transport:
//   start latency     from AsyncStartSpeakVoice to the first audio packet played at each speaker;
//   mouth-to-speaker  from the moment the sentence starts into the virtual microphone to the moment it
//                     starts at the speaker (placed on the wall clock by the speaker's first-audio time and
//                     the sentence's position in its WAV, found by cross-correlation).
// Prints the median and the worst of each over the runs.
//
//   bcast-bench-broadcast [--runs N]      (default 20)

#include <QApplication>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "ModuleAgainstPlatform.h"
#include "PlatformProcess.h"
#include "RestClient.h"
#include "TestProcess.h"
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

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

struct SpeakerState {
    int sessions = 0;
    int64_t firstAudioAt = 0;
    int64_t firstAudioSample = 0;
    std::string phase;
    std::string wavPath;
};

std::map<int, SpeakerState> Speakers(const PlatformTest::CPlatformProcess& platform) {
    PlatformTest::CRestClient control(platform.RestUrl());
    CRapidJsonProto all;
    all.set_str(control.Send("GET", "/_control/speakers", "").body);
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

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const std::size_t n = v.size();
    return n == 0 ? 0 : (n % 2 == 1 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2);
}

double Worst(const std::vector<double>& v) {
    return v.empty() ? 0 : *std::max_element(v.begin(), v.end());
}

int Fail(const std::string& why) {
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    int runs = 20;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
            runs = std::max(1, std::atoi(argv[++i]));
        }
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    BcastTest::CModuleRig rig("bench-broadcast");
    std::string error;
    if (!rig.Start(error)) {
        return Fail(error);
    }
    BcastTest::CPulseAudioPeer& pulse = rig.Pulse();
    PlatformTest::CPlatformProcess& platform = rig.Platform();
    const BcastTest::CTempDir& work = rig.Work();
    const std::string sentencePath = work.File("sentence.wav");
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
    std::printf("%d runs of a live talk to %zu speakers (prompt tone on, as in the demo site)\n", runs,
                std::size(kTargets));
    for (int run = 0; run < runs; ++run) {
        const auto before = Speakers(platform);
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
        for (const Target& t : kTargets) {
            startLatency[t.elementId].push_back(static_cast<double>(now[t.elementId].firstAudioAt - asked));
        }
        BcastTest::Settle(300);
        BcastTest::CBackgroundProcess player;
        const int64_t spoken = NowMs();
        if (!pulse.StartPlaying(sentencePath, &player) || !player.Wait(20000)) {
            return Fail("paplay failed");
        }
        BcastTest::Settle(800);
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
                double energy = 0;
                for (int16_t v : recording.samples) {
                    energy += static_cast<double>(v) * v;
                }
                std::printf(
                    "  run %d speaker %d: the sentence was not found (correlation %.2f, %.1f s recorded, "
                    "rms %.0f, phase %s), run skipped\n",
                    run, t.elementId, match.correlation, match.recordingSeconds,
                    std::sqrt(energy / std::max<std::size_t>(1, recording.samples.size())), s.phase.c_str());
                continue;
            }
            const double heardAt = static_cast<double>(s.firstAudioAt) + match.delayMs -
                                   static_cast<double>(s.firstAudioSample) / 8.0;
            mouthDelay[t.elementId].push_back(heardAt - static_cast<double>(spoken));
        }
        std::printf("  run %2d done\n", run + 1);
        std::fflush(stdout);
    }

    std::printf("\n%-8s %-18s %26s %26s\n", "element", "transport", "start latency ms (med/worst)",
                "mouth-to-speaker ms (med/worst)");
    for (const Target& t : kTargets) {
        std::printf("%-8d %-18s %14.0f / %-9.0f %16.0f / %-9.0f\n", t.elementId, t.transport,
                    Median(startLatency[t.elementId]), Worst(startLatency[t.elementId]),
                    Median(mouthDelay[t.elementId]), Worst(mouthDelay[t.elementId]));
    }
    std::printf(
        "start latency includes the platform's address answer, the prompt tone (about 2 s) on the\n"
        "streaming group before the device senders start, and each sender's connection set-up;\n"
        "mouth-to-speaker includes paplay's own start-up.\n");
    return 0;
}
