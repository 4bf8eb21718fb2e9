#include "platform/server/sim/devices/DeviceGroups.h"

#include <utility>

#include "framework/base/FormatLog.h"
#include "platform/server/json/Json.h"
#include "platform/server/sim/audio/WavRecorder.h"

namespace Platform {

namespace {

constexpr char kOffline[] = "device offline";

}  // namespace

CDeviceGroups::CDeviceGroups(IPushSink& sink, IScheduler& scheduler, std::string speakerDir)
    : sink_(sink), scheduler_(scheduler), speakerDir_(std::move(speakerDir)) {}

CDeviceGroups::~CDeviceGroups() {
    Reset();
}

void CDeviceGroups::Start(const DeviceGroupSetup& setup) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto group = std::make_unique<Group>();
    group->setup = setup;
    for (const DeviceGroupSetup::Member& wanted : setup.members) {
        std::string oldGuid;
        if (Member* old = ActiveMemberLocked(wanted.deviceId, oldGuid)) {
            ReleaseLocked(oldGuid, *old, true);
        }
        auto m = std::make_unique<Member>();
        m->deviceId = wanted.deviceId;
        if (wanted.online) {
            OpenWavLocked(*m);
        } else {
            m->status = kDeviceTalkFailed;
            m->resourceStatus = kResourceOffline;
            m->errorInfo = kOffline;
        }
        owner_[wanted.deviceId] = setup.guid;
        group->members.push_back(std::move(m));
    }
    active_.push_back(std::move(group));
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device group %s: %d devices[%s(%d)]", setup.guid.c_str(),
            static_cast<int>(setup.members.size()));
    const std::string guid = setup.guid;
    scheduler_.After(kDialDelayMs, [this, guid] {
        std::lock_guard<std::mutex> lock(mutex_);
        if (Group* g = FindActiveLocked(guid)) {
            DialLocked(*g);
        }
    });
}

bool CDeviceGroups::Stop(const std::string& guid) {
    std::lock_guard<std::mutex> lock(mutex_);
    Group* group = FindActiveLocked(guid);
    if (group == nullptr) {
        return false;
    }
    DialLocked(*group);
    for (auto& m : group->members) {
        ReleaseLocked(guid, *m, true);
    }
    group->active = false;
    ended_.push_back(InfoOf(*group));
    if (ended_.size() > kEndedKept) {
        ended_.pop_front();
    }
    for (auto it = active_.begin(); it != active_.end(); ++it) {
        if (it->get() == group) {
            active_.erase(it);
            break;
        }
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device group %s stopped[%s(%d)]", guid.c_str());
    return true;
}

void CDeviceGroups::OnAudio(int deviceId, int channel, const int16_t* samples, std::size_t count,
                            std::size_t encodedBytes) {
    if (channel != kVoiceChannel && channel != kVoiceChannelAlias) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    std::string guid;
    Member* m = ActiveMemberLocked(deviceId, guid);
    if (m == nullptr) {
        return;
    }
    m->bytes += encodedBytes;
    if ((m->wav || OpenWavLocked(*m)) && count > 0) {
        m->wav->Write(samples, count);
    }
    if (!m->playingPushed) {
        m->playingPushed = true;
        ChangeLocked(guid, *m, kDeviceTalkPlaying, kResourceBroadcasting, "");
    }
}

void CDeviceGroups::OnLoginRefused(int deviceId) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string guid;
    if (Member* m = ActiveMemberLocked(deviceId, guid)) {
        ChangeLocked(guid, *m, kDeviceTalkFailed, kResourceIdle, "login refused");
    }
}

void CDeviceGroups::OnTalkRefused(int deviceId, int channel) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string guid;
    if (Member* m = ActiveMemberLocked(deviceId, guid)) {
        ChangeLocked(guid, *m, kDeviceTalkFailed, kResourceIdle,
                     "talk refused on channel " + std::to_string(channel));
    }
}

void CDeviceGroups::OnOnline(int deviceId, bool online) {
    if (online) {
        return;  // the device says it plays again when audio reaches it
    }
    std::lock_guard<std::mutex> lock(mutex_);
    std::string guid;
    if (Member* m = ActiveMemberLocked(deviceId, guid)) {
        ChangeLocked(guid, *m, kDeviceTalkFailed, kResourceOffline, kOffline);
    }
}

std::vector<DeviceGroupInfo> CDeviceGroups::Snapshot() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<DeviceGroupInfo> out;
    for (const auto& g : active_) {
        out.push_back(InfoOf(*g));
    }
    out.insert(out.end(), ended_.begin(), ended_.end());
    return out;
}

std::string CDeviceGroups::WavPathOf(int deviceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = wavPath_.find(deviceId);
    return it != wavPath_.end() ? it->second : std::string();
}

void CDeviceGroups::Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& g : active_) {
        for (auto& m : g->members) {
            ReleaseLocked(g->setup.guid, *m, false);
        }
    }
    active_.clear();
    ended_.clear();
    owner_.clear();
    wavPath_.clear();
}

CDeviceGroups::Group* CDeviceGroups::FindActiveLocked(const std::string& guid) {
    for (auto& g : active_) {
        if (g->setup.guid == guid) {
            return g.get();
        }
    }
    return nullptr;
}

CDeviceGroups::Member* CDeviceGroups::ActiveMemberLocked(int deviceId, std::string& guid) {
    auto owner = owner_.find(deviceId);
    if (owner == owner_.end()) {
        return nullptr;
    }
    Group* group = FindActiveLocked(owner->second);
    if (group == nullptr) {
        return nullptr;
    }
    DialLocked(*group);
    for (auto& m : group->members) {
        if (m->deviceId == deviceId && !m->released) {
            guid = group->setup.guid;
            return m.get();
        }
    }
    return nullptr;
}

void CDeviceGroups::DialLocked(Group& group) {
    if (group.dialed) {
        return;
    }
    group.dialed = true;
    for (const auto& m : group.members) {
        if (!m->released) {
            PushLocked(group.setup.guid, *m);
        }
    }
}

void CDeviceGroups::ChangeLocked(const std::string& guid, Member& m, int status, int resourceStatus,
                                 const std::string& errorInfo) {
    if (m.status == status && m.resourceStatus == resourceStatus && m.errorInfo == errorInfo) {
        return;
    }
    m.status = status;
    m.resourceStatus = resourceStatus;
    m.errorInfo = errorInfo;
    PushLocked(guid, m);
}

// /Msg/Data: {"NotifyType":1,"GroupId":"..","IndexCode":"201","ErrorInfo":"","ResourceStatus":1,"Status":1}
void CDeviceGroups::PushLocked(const std::string& guid, const Member& m) {
    Json::CWriter w;
    w.BeginObject().Int("NotifyType", kNotifyTypeDeviceBroadcast).String("GroupId", guid);
    w.String("IndexCode", std::to_string(m.deviceId)).String("ErrorInfo", m.errorInfo);
    w.Int("ResourceStatus", m.resourceStatus).Int("Status", m.status).EndObject();
    PushFrame frame;
    frame.dataJson = w.Text();
    sink_.Publish(frame);
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]device group %s: device %d status %d %s[%s(%d)]",
            guid.c_str(), m.deviceId, m.status, m.errorInfo.c_str());
}

void CDeviceGroups::ReleaseLocked(const std::string& guid, Member& m, bool push) {
    if (m.released) {
        return;
    }
    m.released = true;
    if (m.wav) {
        m.wav->Close();
        m.wav.reset();
    }
    auto owner = owner_.find(m.deviceId);
    if (owner != owner_.end() && owner->second == guid) {
        owner_.erase(owner);
    }
    if (push) {
        m.status = kDeviceTalkStopped;
        m.resourceStatus = kResourceIdle;
        m.errorInfo.clear();
        PushLocked(guid, m);
    }
}

bool CDeviceGroups::OpenWavLocked(Member& m) {
    const std::string path = speakerDir_ + "/device-" + std::to_string(m.deviceId) + ".wav";
    auto wav = std::make_unique<CWavRecorder>(path);
    if (!wav->Open()) {
        TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]device %d cannot record to %s[%s(%d)]", m.deviceId,
                path.c_str());
        return false;
    }
    m.wav = std::move(wav);
    m.wavPath = path;
    wavPath_[m.deviceId] = path;
    return true;
}

DeviceGroupInfo CDeviceGroups::InfoOf(const Group& group) {
    DeviceGroupInfo info;
    info.setup = group.setup;
    info.active = group.active;
    for (const auto& m : group.members) {
        DeviceMemberInfo mi;
        mi.deviceId = m->deviceId;
        mi.status = m->status;
        mi.resourceStatus = m->resourceStatus;
        mi.errorInfo = m->errorInfo;
        mi.bytesReceived = m->bytes;
        mi.wavPath = m->wavPath;
        info.members.push_back(mi);
    }
    return info;
}

}  // namespace Platform
