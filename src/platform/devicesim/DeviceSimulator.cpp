#include "platform/devicesim/DeviceSimulator.h"

#include <httplib.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/devicesim/ChannelRecorder.h"
#include "platform/devicesim/DigestAuth.h"

namespace DeviceSim {

namespace {

constexpr const char* kG711 = "G.711ulaw";
constexpr const char* kMp3 = "MP3";
constexpr int kBroadcastChannelBase = 1000;
constexpr unsigned kConfigBroadcastRealtime = 1059;

/// {"ResponseStatus":{"statusCode":1,"statusString":"OK","subStatusCode":"ok"}}
std::string StatusJson(int statusCode, const std::string& statusString, const std::string& subStatusCode) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("ResponseStatus");
    writer.StartObject();
    writer.Key("statusCode");
    writer.Int(statusCode);
    writer.Key("statusString");
    writer.String(statusString.c_str());
    writer.Key("subStatusCode");
    writer.String(subStatusCode.c_str());
    writer.EndObject();
    writer.EndObject();
    return buffer.GetString();
}

void Answer(httplib::Response& response, int httpStatus, int statusCode, const std::string& statusString,
            const std::string& subStatusCode) {
    response.status = httpStatus;
    response.set_content(StatusJson(statusCode, statusString, subStatusCode), "application/json");
}

/// Parses the request's body into `document`: a JSON object whose member `key` `hasType` accepts. Otherwise
/// answers 400 badJsonContent and returns false.
bool ParseBody(const httplib::Request& request, const char* key, bool (rapidjson::Value::*hasType)() const,
               rapidjson::Document& document, httplib::Response& response) {
    document.Parse(request.body.c_str(), request.body.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember(key) ||
        !(document[key].*hasType)()) {
        Answer(response, 400, 6, "Invalid Content", "badJsonContent");
        return false;
    }
    return true;
}

}  // namespace

struct CDeviceSimulator::Impl {
    DeviceSimConfig config;
    std::unique_ptr<CDigestAuthenticator> auth;
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    int port = -1;
    std::atomic<bool> stopping{false};

    struct Talk {
        int channel = 0;
        std::string audioType;
        CChannelRecorder* recorder = nullptr;
    };

    mutable std::mutex mutex;  ///< guards everything below
    mutable std::condition_variable changed;
    DeviceSimStats stats;
    std::map<std::string, Talk> talks;
    std::map<std::string, std::unique_ptr<CChannelRecorder>> recorders;  ///< by file path
    int nextTalk = 1;

    static std::string PeerOf(const httplib::Request& request) {
        return request.remote_addr + ":" + std::to_string(request.remote_port);
    }

    bool Authorize(const httplib::Request& request, httplib::Response& response) {
        const std::string authorization = request.get_header_value("Authorization");
        if (!authorization.empty() && auth->Verify(request.method, request.target, authorization)) {
            return true;
        }
        if (!authorization.empty()) {
            std::lock_guard<std::mutex> lock(mutex);
            ++stats.authFailures;
        }
        response.set_header("WWW-Authenticate", auth->Challenge());
        Answer(response, 401, 4, "Unauthorized", "badAuthorization");
        return false;
    }

    bool ChannelExists(int channel) const {
        return (channel >= 1 && channel <= config.channelCount) ||
               (channel > kBroadcastChannelBase && channel <= kBroadcastChannelBase + config.channelCount);
    }

    /// The recorder of a channel for the configured audio type; null when nothing is recorded. Needs `mutex`.
    CChannelRecorder* RecorderFor(int channel) {
        if (config.recordDirectory.empty()) {
            return nullptr;
        }
        const std::string extension = stats.audioType == kMp3 ? ".mp3" : ".wav";
        const std::string path = config.recordDirectory + "/channel_" + std::to_string(channel) + extension;
        auto& recorder = recorders[path];
        if (!recorder) {
            recorder = std::make_unique<CChannelRecorder>(path);
            if (!recorder->Open()) {
                recorders.erase(path);
                return nullptr;
            }
        }
        stats.channels[channel].recordingPath = path;
        return recorder.get();
    }

    void HandleDeviceInfo(const httplib::Request& request, httplib::Response& response) {
        if (!Authorize(request, response)) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex);
        if (config.refuseLogin) {
            Answer(response, 403, 4, "Login refused", "loginRefused");
            lock.unlock();
            if (config.talkSink) {
                config.talkSink->OnLoginRefused(PeerOf(request));
            }
            return;
        }
        ++stats.logins;
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        writer.StartObject();
        writer.Key("DeviceInfo");
        writer.StartObject();
        writer.Key("deviceName");
        writer.String(config.deviceName.c_str());
        writer.Key("serialNumber");
        writer.String(config.serialNumber.c_str());
        writer.Key("model");
        writer.String(config.model.c_str());
        writer.Key("firmwareVersion");
        writer.String("1.0.0");
        writer.Key("channelCount");
        writer.Int(config.channelCount);
        writer.Key("voiceChannelCount");
        writer.Int(config.channelCount);
        writer.EndObject();
        writer.EndObject();
        response.set_content(buffer.GetString(), "application/json");
    }

    void HandleRealtimeConfig(const httplib::Request& request, httplib::Response& response) {
        if (!Authorize(request, response)) {
            return;
        }
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.stdConfigRequests;
        stats.lastConfigRequestLine = request.method + " " + request.target;
        stats.lastConfigBody = request.body;
        if (!config.stdConfigSupported) {
            Answer(response, 404, 4, "Invalid Operation", "notSupport");
            return;
        }
        rapidjson::Document document;
        if (!ParseBody(request, "BroadcastRealtime", &rapidjson::Value::IsObject, document, response)) {
            return;
        }
        const auto& realtime = document["BroadcastRealtime"];
        const std::string audioType = realtime.HasMember("audioType") && realtime["audioType"].IsString()
                                          ? realtime["audioType"].GetString()
                                          : "";
        if (audioType != kG711 && audioType != kMp3) {
            Answer(response, 400, 6, "Invalid Content", "badAudioType");
            return;
        }
        stats.audioType = audioType;
        Answer(response, 200, 1, "OK", "ok");
    }

    void HandleBinaryConfig(const httplib::Request& request, httplib::Response& response) {
        if (!Authorize(request, response)) {
            return;
        }
        std::lock_guard<std::mutex> lock(mutex);
        ++stats.binaryConfigRequests;
        stats.lastBinaryConfig.assign(request.body.begin(), request.body.end());
        if (std::stoul(request.matches[1].str()) != kConfigBroadcastRealtime) {
            Answer(response, 404, 4, "Invalid Operation", "notSupport");
            return;
        }
        if (request.body.empty() || (request.body[0] != 1 && request.body[0] != 15)) {
            Answer(response, 400, 6, "Invalid Content", "badAudioType");
            return;
        }
        stats.audioType = request.body[0] == 15 ? kMp3 : kG711;
        Answer(response, 200, 1, "OK", "ok");
    }

    void HandleOpenTalk(const httplib::Request& request, httplib::Response& response) {
        if (!Authorize(request, response)) {
            return;
        }
        rapidjson::Document document;
        if (!ParseBody(request, "channel", &rapidjson::Value::IsInt, document, response)) {
            return;
        }
        const int channel = document["channel"].GetInt();
        std::unique_lock<std::mutex> lock(mutex);
        if (config.refusedChannels.count(channel) != 0) {
            ++stats.talksRefused;
            Answer(response, 403, 4, "Channel refused", "channelRefused");
            lock.unlock();
            if (config.talkSink) {
                config.talkSink->OnTalkRefused(channel, PeerOf(request));
            }
            return;
        }
        if (!ChannelExists(channel)) {
            ++stats.talksRefused;
            Answer(response, 404, 4, "Invalid channel", "invalidChannel");
            return;
        }
        for (const auto& talk : talks) {
            if (talk.second.channel == channel) {
                Answer(response, 409, 4, "Device busy", "deviceBusy");
                return;
            }
        }
        const std::string talkId = "talk" + std::to_string(nextTalk++);
        Talk talk;
        talk.channel = channel;
        talk.audioType = stats.audioType;
        talk.recorder = RecorderFor(channel);
        talks[talkId] = talk;
        ++stats.talksOpened;
        ++stats.talksActive;
        auto& channelStats = stats.channels[channel];
        ++channelStats.talks;
        channelStats.audioType = stats.audioType;
        response.set_content(
            "{\"VoiceTalk\":{\"talkID\":\"" + talkId + "\",\"channel\":" + std::to_string(channel) + "}}",
            "application/json");
        lock.unlock();
        if (config.talkSink) {
            config.talkSink->OnTalkOpened(talkId, channel, PeerOf(request));
        }
    }

    void HandleTalkAudio(const httplib::Request& request, httplib::Response& response,
                         const httplib::ContentReader& reader) {
        if (!Authorize(request, response)) {
            return;
        }
        const std::string talkId = request.matches[1].str();
        Talk talk;
        {
            std::lock_guard<std::mutex> lock(mutex);
            auto it = talks.find(talkId);
            if (it == talks.end()) {
                Answer(response, 404, 4, "Invalid talk", "invalidTalkID");
                return;
            }
            talk = it->second;
        }
        uint64_t received = 0;
        reader([&](const char* data, size_t length) {
            if (stopping) {
                return false;  // drop the connection: the device is going down
            }
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (talk.recorder != nullptr) {
                    talk.recorder->Write(data, length);
                }
                stats.channels[talk.channel].bytes += length;
                received += length;
                changed.notify_all();
            }
            if (config.talkSink) {
                config.talkSink->OnTalkAudio(talkId, talk.channel, talk.audioType, data, length);
            }
            return true;
        });
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (talk.recorder != nullptr) {
                talk.recorder->Flush();
            }
        }
        response.set_content("{\"VoiceTalk\":{\"talkID\":\"" + talkId +
                                 "\",\"bytesReceived\":" + std::to_string(received) + "}}",
                             "application/json");
    }

    void HandleCloseTalk(const httplib::Request& request, httplib::Response& response) {
        if (!Authorize(request, response)) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex);
        auto it = talks.find(request.matches[1].str());
        if (it == talks.end()) {
            Answer(response, 404, 4, "Invalid talk", "invalidTalkID");
            return;
        }
        if (it->second.recorder != nullptr) {
            it->second.recorder->Flush();
        }
        const std::string talkId = it->first;
        const int channel = it->second.channel;
        talks.erase(it);
        --stats.talksActive;
        changed.notify_all();
        Answer(response, 200, 1, "OK", "ok");
        lock.unlock();
        if (config.talkSink) {
            config.talkSink->OnTalkClosed(talkId, channel);
        }
    }

    /// A new server with every route, bound to `wantedPort` (0: any) and serving on its own thread.
    bool Serve(int wantedPort) {
        auto fresh = std::make_unique<httplib::Server>();
        fresh->set_keep_alive_timeout(1);
        // Answers are small: without no-delay each waits on the client's delayed acknowledgement (~40 ms).
        fresh->set_tcp_nodelay(true);
        fresh->Get("/DXAPI/System/deviceInfo",
                   [this](const httplib::Request& q, httplib::Response& r) { HandleDeviceInfo(q, r); });
        fresh->Put("/DXAPI/VideoIntercom/broadcast/realtime",
                   [this](const httplib::Request& q, httplib::Response& r) { HandleRealtimeConfig(q, r); });
        fresh->Put(R"(/DXAPI/System/deviceConfig/(\d+))",
                   [this](const httplib::Request& q, httplib::Response& r) { HandleBinaryConfig(q, r); });
        fresh->Post("/DXAPI/VideoIntercom/voiceTalk/open",
                    [this](const httplib::Request& q, httplib::Response& r) { HandleOpenTalk(q, r); });
        fresh->Put(R"(/DXAPI/VideoIntercom/voiceTalk/([^/]+)/audio)",
                   [this](const httplib::Request& q, httplib::Response& r, const httplib::ContentReader& c) {
                       HandleTalkAudio(q, r, c);
                   });
        fresh->Delete(R"(/DXAPI/VideoIntercom/voiceTalk/([^/]+))",
                      [this](const httplib::Request& q, httplib::Response& r) { HandleCloseTalk(q, r); });
        int bound = -1;
        if (wantedPort == 0) {
            bound = fresh->bind_to_any_port(config.host);
        } else {
            bound = fresh->bind_to_port(config.host, wantedPort) ? wantedPort : -1;
        }
        if (bound <= 0) {
            if (port <= 0) {
                port = -1;
            }
            return false;
        }
        port = bound;
        stopping = false;
        server = std::move(fresh);
        httplib::Server* serving = server.get();
        thread = std::thread([serving] { serving->listen_after_bind(); });
        return true;
    }

    /// Stops the server; talk uploads in progress are cut off.
    void Halt() {
        if (!thread.joinable()) {
            return;
        }
        stopping = true;
        server->stop();
        thread.join();
    }

    /// Ends every open talk, as a device that goes down does; the sink hears of each.
    void EndTalks() {
        std::map<std::string, Talk> ended;
        {
            std::lock_guard<std::mutex> lock(mutex);
            ended.swap(talks);
            for (auto& talk : ended) {
                if (talk.second.recorder != nullptr) {
                    talk.second.recorder->Flush();
                }
            }
            stats.talksActive = 0;
            changed.notify_all();
        }
        if (config.talkSink) {
            for (const auto& talk : ended) {
                config.talkSink->OnTalkClosed(talk.first, talk.second.channel);
            }
        }
    }
};

CDeviceSimulator::CDeviceSimulator() : impl_(std::make_unique<Impl>()) {}

CDeviceSimulator::~CDeviceSimulator() {
    Stop();
}

bool CDeviceSimulator::Start(const DeviceSimConfig& config) {
    Impl& impl = *impl_;
    impl.config = config;
    impl.stats.audioType = kG711;
    impl.auth = std::make_unique<CDigestAuthenticator>(config.realm, config.userName, config.password);
    return impl.Serve(config.port);
}

void CDeviceSimulator::Stop() {
    Impl& impl = *impl_;
    impl.Halt();
    std::lock_guard<std::mutex> lock(impl.mutex);
    for (auto& recorder : impl.recorders) {
        recorder.second->Flush();
    }
}

bool CDeviceSimulator::SetListening(bool listening) {
    Impl& impl = *impl_;
    if (listening == impl.thread.joinable()) {
        return true;
    }
    if (listening) {
        return impl.port > 0 && impl.Serve(impl.port);
    }
    impl.Halt();
    impl.EndTalks();
    return true;
}

int CDeviceSimulator::Port() const {
    return impl_->port;
}

DeviceSimStats CDeviceSimulator::Stats() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->stats;
}

void CDeviceSimulator::SetRefuseLogin(bool refuse) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->config.refuseLogin = refuse;
}

void CDeviceSimulator::SetChannelRefused(int channel, bool refused) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    if (refused) {
        impl_->config.refusedChannels.insert(channel);
    } else {
        impl_->config.refusedChannels.erase(channel);
    }
}

bool CDeviceSimulator::WaitForBytes(int channel, uint64_t bytes, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout, [&] {
        auto it = impl_->stats.channels.find(channel);
        return it != impl_->stats.channels.end() && it->second.bytes >= bytes;
    });
}

}  // namespace DeviceSim
