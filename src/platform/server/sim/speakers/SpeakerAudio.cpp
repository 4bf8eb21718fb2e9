// CSpeakerSim's audio path: talk audio from the transports reaches speakers and their recordings.
#include "platform/server/sim/speakers/SpeakerSim.h"

#include <chrono>

#include "framework/base/FormatLog.h"
#include "platform/server/sim/audio/WavRecorder.h"
#include "platform/server/sim/speakers/SpeakerSimDetail.h"

namespace Platform {

using namespace SpeakerSimDetail;

void CSpeakerSim::OnDeviceAudio(int deviceId, int channel, SpeakerTransport transport,
                                const std::string& source, const int16_t* samples, std::size_t count,
                                std::size_t encodedBytes) {
    const int elementChannel = channel > 1000 ? channel - 1000 : channel;
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = deviceElements_.find(deviceId);
    if (it == deviceElements_.end()) {
        return;
    }
    for (int id : it->second) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || (elementChannel != 0 && s->element->channel != elementChannel)) {
            continue;
        }
        if (s->session == Session::kGroup) {
            if (GroupRun* g = FindGroup(s->guid)) {
                DialLocked(*g);
            }
        }
        AcceptAudioLocked(*s, samples, count, encodedBytes, source,
                          transport == SpeakerTransport::kUdp ? "udp" : "sdk", true);
    }
}

void CSpeakerSim::AcceptAudioLocked(Speaker& s, const int16_t* samples, std::size_t count,
                                    std::size_t encodedBytes, const std::string& source,
                                    const char* transport, bool mayStartAdhoc) {
    const int64_t now = NowMs();
    s.lastSource = source;
    s.lastTransport = transport;
    if (mayStartAdhoc && !IsLive(s.phase) && s.online && s.connects && now - s.endedMs >= kLateAudioMs) {
        // Audio outside any broadcast: a speaker plays whatever reaches it.
        BeginSessionLocked(s, Session::kAdhoc, std::string());
        TAL_LOG(Tal::Base::kLogInfo, "Platform",
                "[%s]speaker %d plays audio from %s outside a broadcast[%s(%d)]", s.element->id,
                source.c_str());
    }
    s.bytesReceived += encodedBytes;
    const bool plays = s.online && s.connects && s.session != Session::kTts &&
                       (s.phase == SpeakerPhase::kConnecting || s.phase == SpeakerPhase::kPromptDone ||
                        s.phase == SpeakerPhase::kPlaying);
    if (!plays) {
        s.droppedBytes += encodedBytes;
        return;
    }
    if (s.firstAudioAtMs == 0) {
        s.firstAudioAtMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::system_clock::now().time_since_epoch())
                               .count();
        s.firstAudioSample = s.samplesPlayed;
    }
    MarkPlayingLocked(s);
    PlayLocked(s, samples, count);
}

void CSpeakerSim::PlayLocked(Speaker& s, const int16_t* samples, std::size_t count) {
    if (count == 0) {
        return;
    }
    if (s.wav && !s.wav->Write(samples, count)) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speaker %d cannot write %s, recording stops[%s(%d)]",
                s.element->id, s.wavPath.c_str());
        s.wav->Close();
        s.wav.reset();
    }
    s.samplesPlayed += count;
    s.totalSamples += count;
    s.lastAudioMs = NowMs();
    s.loudspeaker.Play(samples, count);
}

}  // namespace Platform
