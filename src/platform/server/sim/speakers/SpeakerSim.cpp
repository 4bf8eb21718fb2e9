// CSpeakerSim's core: the speakers, their sessions and pushes, control, snapshots and the loudspeaker clock.
#include "platform/server/sim/speakers/SpeakerSim.h"

#include <algorithm>
#include <chrono>

#include "framework/base/EnumNames.h"
#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "platform/server/sim/audio/WavRecorder.h"
#include "platform/server/sim/speakers/SpeakerSimDetail.h"
#include "platform/server/sim/tts/TtsSynthesizer.h"

namespace Platform {

using namespace SpeakerSimDetail;

namespace {

const char* TransportName(SpeakerTransport t) {
    static constexpr Tal::Base::EnumName<SpeakerTransport> kNames[] = {{SpeakerTransport::kStreaming, "sms"},
                                                                       {SpeakerTransport::kDevice, "sdk"},
                                                                       {SpeakerTransport::kUdp, "udp"}};
    return Tal::Base::NameOf(t, kNames, "?");
}

}  // namespace

CSpeakerSim::CSpeakerSim(const Fixture& fixture, CBroadcastRegistry& registry, IPushSink& sink,
                         IScheduler& scheduler, std::string speakerDir)
    : fixture_(fixture),
      registry_(registry),
      sink_(sink),
      scheduler_(scheduler),
      speakerDir_(std::move(speakerDir)),
      tts_(std::make_unique<CTtsSynthesizer>(speakerDir_)) {
    for (const Element& e : fixture_.elements) {
        Speaker s;
        s.element = &e;
        s.device = fixture_.FindDevice(e.deviceId);
        if (e.stream == StreamKind::kSms) {
            s.transport = SpeakerTransport::kStreaming;
        } else if (s.device != nullptr && s.device->accessProtocol == kAccessProtocolRtpOverUdp) {
            s.transport = SpeakerTransport::kUdp;
        } else {
            s.transport = SpeakerTransport::kDevice;
        }
        s.online = e.terminalStatus != 0;
        speakers_.emplace(e.id, std::move(s));
        deviceElements_[e.deviceId].push_back(e.id);
    }
}

CSpeakerSim::~CSpeakerSim() {
    Stop();
}

bool CSpeakerSim::Start(std::string& error) {
    if (!Tal::Base::FileSystem::DirectoryExists(speakerDir_) &&
        !Tal::Base::FileSystem::MakeFullDir(speakerDir_)) {
        error = "cannot create the speaker directory " + speakerDir_;
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    clockStop_ = false;
    clock_ = std::thread([this] { ClockLoop(); });
    started_ = true;
    return true;
}

void CSpeakerSim::Stop() {
    std::vector<std::unique_ptr<CPlayout>> playouts;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!started_) {
            return;
        }
        started_ = false;
        clockStop_ = true;
        for (auto& p : playouts_) {
            p->Cancel();
        }
        playouts = std::move(playouts_);
        playouts_.clear();
    }
    clockWake_.notify_all();
    if (clock_.joinable()) {
        clock_.join();
    }
    // Joined without the lock: their last callbacks take it.
    playouts.clear();
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& entry : speakers_) {
        if (entry.second.wav) {
            entry.second.wav->Close();
            entry.second.wav.reset();
        }
    }
    groups_.clear();
    ttsJobs_.clear();
}

bool CSpeakerSim::IsLive(SpeakerPhase phase) {
    return phase == SpeakerPhase::kConnecting || phase == SpeakerPhase::kPrompt ||
           phase == SpeakerPhase::kPromptDone || phase == SpeakerPhase::kPlaying;
}

const char* CSpeakerSim::PhaseName(SpeakerPhase phase) {
    static constexpr Tal::Base::EnumName<SpeakerPhase> kNames[] = {
        {SpeakerPhase::kIdle, "idle"},       {SpeakerPhase::kConnecting, "connecting"},
        {SpeakerPhase::kPrompt, "prompt"},   {SpeakerPhase::kPromptDone, "prompt-finished"},
        {SpeakerPhase::kPlaying, "playing"}, {SpeakerPhase::kStopped, "stopped"},
        {SpeakerPhase::kFailed, "failed"}};
    return Tal::Base::NameOf(phase, kNames, "?");
}

int64_t CSpeakerSim::NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

CSpeakerSim::Speaker* CSpeakerSim::FindSpeaker(int elementId) {
    auto it = speakers_.find(elementId);
    return it == speakers_.end() ? nullptr : &it->second;
}

const CSpeakerSim::Speaker* CSpeakerSim::FindSpeaker(int elementId) const {
    auto it = speakers_.find(elementId);
    return it == speakers_.end() ? nullptr : &it->second;
}

CSpeakerSim::GroupRun* CSpeakerSim::FindGroup(const std::string& guid) {
    auto it = groups_.find(guid);
    return it == groups_.end() ? nullptr : &it->second;
}

std::vector<CSpeakerSim::Speaker*> CSpeakerSim::GroupSpeakersLocked(const GroupRun& group,
                                                                    const std::vector<int>& onlyIds) {
    std::vector<Speaker*> out;
    for (int id : group.elementIds) {
        if (!onlyIds.empty() && std::find(onlyIds.begin(), onlyIds.end(), id) == onlyIds.end()) {
            continue;
        }
        Speaker* s = FindSpeaker(id);
        // A speaker that another broadcast took over no longer belongs to this one.
        if (s != nullptr && s->session == Session::kGroup && s->guid == group.guid) {
            out.push_back(s);
        }
    }
    return out;
}

// Push: {"BoardcastGroupGUID":"..","ResourceID":1001,"ErrorCode":0,"ErrorModule":0,"ResourceType":1027,
//   "ResourceStatus":1,"Status":1[,"PromptToneBeginEnd":0]}, one frame per call.
void CSpeakerSim::PushLocked(const std::string& guid, const std::vector<Speaker*>& speakers, int status,
                             int resourceStatus, int promptBeginEnd, int errorModule, int errorCode) {
    if (speakers.empty()) {
        return;
    }
    std::vector<SpeakerStatus> list;
    for (Speaker* s : speakers) {
        SpeakerStatus item;
        item.groupGuid = guid;
        item.resourceId = s->element->id;
        item.status = status;
        item.resourceStatus = resourceStatus;
        item.promptToneBeginEnd = promptBeginEnd;
        item.errorModule = errorModule;
        item.errorCode = errorCode;
        list.push_back(item);
        s->status = status;
        s->resourceStatus = resourceStatus;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speakers of %s: status %d for %d (first %d)[%s(%d)]",
            guid.empty() ? "-" : guid.c_str(), status, static_cast<int>(list.size()),
            list.front().resourceId);
    sink_.Publish(BroadcastStatusFrame(list));
}

void CSpeakerSim::BeginSessionLocked(Speaker& s, Session session, const std::string& guid) {
    if (IsLive(s.phase)) {
        // The new broadcast takes the speaker over; the old one hears that its speaker stopped.
        PushLocked(s.guid, {&s}, kSpeakerStopped, kResourceIdle, kPromptNone);
        EndSessionLocked(s, SpeakerPhase::kStopped);
    }
    s.session = session;
    s.guid = guid;
    s.ttsJob = 0;
    s.phase = SpeakerPhase::kConnecting;
    s.samplesPlayed = 0;
    s.bytesReceived = 0;
    s.droppedBytes = 0;
    s.firstAudioAtMs = 0;
    s.firstAudioSample = 0;
    ++s.sessions;
    s.wavPath.clear();
    if (!s.online) {
        return;  // an offline speaker records nothing
    }
    const std::string path =
        Tal::Base::FileSystem::JoinPath(speakerDir_, std::to_string(s.element->id) + ".wav");
    s.wav = std::make_unique<CWavRecorder>(path);
    if (!s.wav->Open()) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]speaker %d cannot record to %s[%s(%d)]", s.element->id,
                path.c_str());
        s.wav.reset();
        return;
    }
    s.wavPath = path;
}

void CSpeakerSim::EndSessionLocked(Speaker& s, SpeakerPhase phase) {
    if (s.wav) {
        s.wav->Close();
        s.wav.reset();
    }
    s.phase = phase;
    s.endedMs = NowMs();
}

CPlayout* CSpeakerSim::AddPlayoutLocked(std::unique_ptr<CPlayout> playout) {
    CPlayout* raw = playout.get();
    playouts_.push_back(std::move(playout));
    raw->Start();
    return raw;
}

int CSpeakerSim::AddMonitor(int deviceId, MonitorFn fn) {
    std::lock_guard<std::mutex> lock(mutex_);
    return listeners_.Add(deviceId, std::move(fn));
}

void CSpeakerSim::RemoveMonitor(int monitorId) {
    std::lock_guard<std::mutex> lock(mutex_);
    listeners_.Remove(monitorId);
}

double CSpeakerSim::IdleToneHz(int deviceId) const {
    for (std::size_t i = 0; i < fixture_.devices.size(); ++i) {
        const Device& d = fixture_.devices[i];
        if (d.id == deviceId) {
            return d.idleToneHz > 0 ? d.idleToneHz : 440.0 + 10.0 * static_cast<double>(i);
        }
    }
    return 0;
}

bool CSpeakerSim::IsOnline(int elementId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Speaker* s = FindSpeaker(elementId);
    return s != nullptr && s->online;
}

bool CSpeakerSim::SetOnline(int elementId, bool online) {
    std::lock_guard<std::mutex> lock(mutex_);
    Speaker* s = FindSpeaker(elementId);
    if (s == nullptr) {
        return false;
    }
    if (s->online == online) {
        return true;
    }
    s->online = online;
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]speaker %d is now %s[%s(%d)]", elementId,
            online ? "online" : "offline");
    if (!online && IsLive(s->phase)) {
        const std::string guid = s->guid;
        EndSessionLocked(*s, SpeakerPhase::kFailed);
        PushLocked(guid, {s}, kSpeakerFailed, kResourceOffline, kPromptNone, kErrorModulePlatform,
                   kErrorTerminalOffline);
    }
    return true;
}

bool CSpeakerSim::SetConnects(int elementId, bool connects) {
    std::lock_guard<std::mutex> lock(mutex_);
    Speaker* s = FindSpeaker(elementId);
    if (s == nullptr) {
        return false;
    }
    s->connects = connects;
    return true;
}

std::vector<SpeakerInfo> CSpeakerSim::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<SpeakerInfo> out;
    for (const auto& entry : speakers_) {
        const Speaker& s = entry.second;
        SpeakerInfo info;
        info.elementId = s.element->id;
        info.deviceId = s.element->deviceId;
        info.name = s.element->name;
        info.transport = TransportName(s.transport);
        info.online = s.online;
        info.connects = s.connects;
        info.phase = PhaseName(s.phase);
        info.status = s.status;
        info.resourceStatus = s.resourceStatus;
        info.groupGuid = s.guid;
        info.bytesReceived = s.bytesReceived;
        info.droppedBytes = s.droppedBytes;
        info.samplesPlayed = s.samplesPlayed;
        info.totalSamplesPlayed = s.totalSamples;
        info.firstAudioAtMs = s.firstAudioAtMs;
        info.firstAudioSample = s.firstAudioSample;
        info.sessions = s.sessions;
        info.wavPath = s.wavPath;
        info.lastSource = s.lastSource;
        info.lastTransport = s.lastTransport;
        info.idleToneHz = IdleToneHz(s.element->deviceId);
        out.push_back(info);
    }
    return out;
}

void CSpeakerSim::Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& p : playouts_) {
        p->Cancel();
    }
    for (auto& entry : speakers_) {
        Speaker& s = entry.second;
        if (s.wav) {
            s.wav->Close();
            s.wav.reset();
        }
        s.phase = SpeakerPhase::kIdle;
        s.session = Session::kNone;
        s.guid.clear();
        s.ttsJob = 0;
        s.online = s.element->terminalStatus != 0;
        s.connects = true;
        s.status = -1;
        s.resourceStatus = kResourceIdle;
        s.loudspeaker.Clear();
    }
    groups_.clear();
    groupOrder_.clear();
    ttsJobs_.clear();
}

void CSpeakerSim::ClockLoop() {
    const auto tick = std::chrono::milliseconds(kTickMs);
    auto due = std::chrono::steady_clock::now() + tick;
    std::unique_lock<std::mutex> lock(mutex_);
    while (!clockStop_) {
        clockWake_.wait_until(lock, due, [this] { return clockStop_; });
        if (clockStop_) {
            break;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now - due > std::chrono::milliseconds(200)) {
            due = now;  // far behind (a stalled machine): resynchronise rather than rush
        }
        due += tick;
        lock.unlock();
        Tick(NowMs());
        lock.lock();
    }
}

void CSpeakerSim::Tick(int64_t nowMs) {
    std::vector<CListeners::Delivery> deliveries;
    std::vector<std::unique_ptr<CPlayout>> finished;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        // Every loudspeaker plays one block; a device's listeners hear the sum of its speakers.
        for (auto& entry : speakers_) {
            Speaker& s = entry.second;
            const std::vector<int16_t> block = s.loudspeaker.NextBlock(nowMs, s.lastAudioMs);
            const int device = s.element->deviceId;
            if (listeners_.Listened(device)) {
                listeners_.Mix(
                    device, block,
                    !block.empty() || nowMs - s.lastAudioMs < kActiveHoldMs || !s.loudspeaker.Empty());
            }
        }
        deliveries = listeners_.TakeBlocks([this](int device) { return IdleToneHz(device); });
        EndIdleAdhocLocked(nowMs);
        finished = TakeFinishedPlayoutsLocked();
    }
    for (auto& d : deliveries) {
        d.first(d.second.data(), d.second.size());
    }
    // `finished` joins its threads here, outside the lock.
}

void CSpeakerSim::EndIdleAdhocLocked(int64_t nowMs) {
    for (auto& entry : speakers_) {
        Speaker& s = entry.second;
        if (s.session == Session::kAdhoc && IsLive(s.phase) && nowMs - s.lastAudioMs > kAdhocIdleMs) {
            EndSessionLocked(s, SpeakerPhase::kStopped);
            PushLocked("", {&s}, kSpeakerStopped, kResourceIdle, kPromptNone);
        }
    }
}

std::vector<std::unique_ptr<CPlayout>> CSpeakerSim::TakeFinishedPlayoutsLocked() {
    std::vector<std::unique_ptr<CPlayout>> finished;
    for (auto it = playouts_.begin(); it != playouts_.end();) {
        if ((*it)->Finished()) {
            finished.push_back(std::move(*it));
            it = playouts_.erase(it);
        } else {
            ++it;
        }
    }
    return finished;
}

}  // namespace Platform
