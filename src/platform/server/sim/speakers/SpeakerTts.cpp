// CSpeakerSim's text-to-speech: synthesis, playout to the speakers, and stopping it.
#include "platform/server/sim/speakers/SpeakerSim.h"

#include "framework/base/FormatLog.h"
#include "platform/server/sim/speakers/SpeakerSimDetail.h"
#include "platform/server/sim/tts/TtsSynthesizer.h"

namespace Platform {

using namespace SpeakerSimDetail;

void CSpeakerSim::StartTts(const std::vector<int>& elementIds, const std::string& text,
                           const std::string& language) {
    std::string voice = CTtsSynthesizer::VoiceFor(language);
    for (const TtsLanguage& l : fixture_.ttsLanguages) {
        if (l.key == language && !l.voice.empty()) {
            voice = l.voice;
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    const uint64_t job = nextTtsJob_++;
    TtsJob run;
    for (int id : elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || !s->online) {
            continue;
        }
        BeginSessionLocked(*s, Session::kTts, std::string());
        s->ttsJob = job;
        run.elementIds.insert(id);
    }
    if (run.elementIds.empty()) {
        return;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speech %llu for %d speakers, voice %s[%s(%d)]",
            static_cast<unsigned long long>(job), static_cast<int>(run.elementIds.size()), voice.c_str());
    CTtsSynthesizer* tts = tts_.get();
    run.playout = AddPlayoutLocked(std::make_unique<CPlayout>(
        [tts, text, voice](const std::atomic<bool>& cancelled, std::vector<int16_t>& samples,
                           std::string& error) {
            return tts->Synthesize(text, voice, cancelled, samples, error);
        },
        [this, job](const int16_t* samples, std::size_t count) { OnTtsBlock(job, samples, count); },
        [this, job](CPlayout::Result result, const std::string& error) { OnTtsDone(job, result, error); }));
    ttsJobs_[job] = std::move(run);
}

void CSpeakerSim::OnTtsBlock(uint64_t job, const int16_t* samples, std::size_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = ttsJobs_.find(job);
    if (it == ttsJobs_.end()) {
        return;
    }
    for (int id : it->second.elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || s->session != Session::kTts || s->ttsJob != job || !IsLive(s->phase)) {
            continue;
        }
        s->lastTransport = "tts";
        s->lastSource = "espeak-ng";
        MarkPlayingLocked(*s);
        PlayLocked(*s, samples, count);
    }
}

void CSpeakerSim::OnTtsDone(uint64_t job, CPlayout::Result result, const std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = ttsJobs_.find(job);
    if (it == ttsJobs_.end()) {
        return;
    }
    std::vector<Speaker*> ended;
    std::vector<int> ids;
    for (int id : it->second.elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s != nullptr && s->session == Session::kTts && s->ttsJob == job && IsLive(s->phase)) {
            ended.push_back(s);
            ids.push_back(id);
        }
    }
    ttsJobs_.erase(it);
    if (result == CPlayout::Result::kCancelled) {
        return;  // the stop already ended its speakers
    }
    const bool ok = result == CPlayout::Result::kCompleted;
    if (!ok) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speech %llu failed: %s[%s(%d)]",
                static_cast<unsigned long long>(job), error.c_str());
    }
    for (Speaker* s : ended) {
        EndSessionLocked(*s, ok ? SpeakerPhase::kStopped : SpeakerPhase::kFailed);
    }
    PushLocked("", ended, ok ? kSpeakerStopped : kSpeakerFailed, kResourceIdle, kPromptNone,
               ok ? 0 : kErrorModulePlatform, ok ? 0 : kErrorInternal);
    registry_.StopTts(ids);
}

std::vector<int> CSpeakerSim::StopTts(const std::vector<int>& elementIds) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Speaker*> stopped;
    std::vector<int> ids;
    for (int id : elementIds) {
        Speaker* s = FindSpeaker(id);
        if (s == nullptr || s->session != Session::kTts || !IsLive(s->phase)) {
            continue;
        }
        auto job = ttsJobs_.find(s->ttsJob);
        if (job != ttsJobs_.end()) {
            job->second.elementIds.erase(id);
            if (job->second.elementIds.empty() && job->second.playout != nullptr) {
                job->second.playout->Cancel();
                ttsJobs_.erase(job);
            }
        }
        EndSessionLocked(*s, SpeakerPhase::kStopped);
        stopped.push_back(s);
        ids.push_back(id);
    }
    PushLocked("", stopped, kSpeakerStopped, kResourceIdle, kPromptNone);
    return ids;
}

}  // namespace Platform
