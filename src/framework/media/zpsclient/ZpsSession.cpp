#include "framework/media/zpsclient/ZpsSession.h"

#include <gst/app/gstappsrc.h>
#include <gst/rtsp/gstrtspmessage.h>
#include <gst/sdp/gstsdpmessage.h>
#include <rapidjson/document.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "framework/base/FormatLog.h"
#include "framework/media/zpsclient/GstFields.h"
#include "framework/media/zpsclient/PacketProbe.h"
#include "framework/media/zpsclient/TcpNoDelay.h"

namespace ZPSClient {

namespace {

constexpr const char* kLogModule = "ZPSClient";
constexpr const char* kTokenHeader = "X-Token";
/// Wait for the queued backchannel audio to go out when stopping, beyond the RTSP time-out (which bounds a
/// write to a server that stopped reading, through the connection's user time-out).
constexpr auto kDrainMargin = std::chrono::seconds(2);
// How long a frame waits for room in the send buffer, as a blocking socket send would, before it is refused:
// a burst of frames larger than the buffer goes through as fast as the backchannel takes it.
constexpr auto kSendRoomWait = std::chrono::milliseconds(100);
constexpr auto kSendRoomPoll = std::chrono::milliseconds(2);
/// rtspsrc's own keep-alive bypasses the request hook and would go without the token, so the session sends
/// its own, by default every 10 s: well inside the shortest session time-outs servers announce (RTSP's
/// default is 60 s). The "keepalive" session parameter sets another interval.
constexpr int kDefaultKeepAliveSeconds = 10;

/// The backchannel caps rtspsrc offers are named application/x-unknown and carry SDP attributes; a payloader
/// only negotiates with plain application/x-rtp caps.
CapsPtr BackchannelRtpCaps(const GstStructure* offered) {
    GstStructure* rtp = gst_structure_new_empty("application/x-rtp");
    for (const char* field : {"media", "payload", "clock-rate", "encoding-name", "encoding-params"}) {
        const GValue* value = gst_structure_get_value(offered, field);
        if (value != nullptr) {
            gst_structure_set_value(rtp, field, value);
        }
    }
    return CapsPtr(gst_caps_new_full(rtp, nullptr));
}

int MapError(const GError* error, const std::string& debug, bool starting) {
    if (error->domain == GST_RESOURCE_ERROR) {
        switch (error->code) {
            case GST_RESOURCE_ERROR_NOT_AUTHORIZED:
                return ZPS_ERR_AUTH;
            case GST_RESOURCE_ERROR_NOT_FOUND:
                return ZPS_ERR_NOT_FOUND;
            case GST_RESOURCE_ERROR_OPEN_READ:
            case GST_RESOURCE_ERROR_OPEN_WRITE:
            case GST_RESOURCE_ERROR_OPEN_READ_WRITE:
                return ZPS_ERR_CONNECT;
            default:
                break;
        }
    }
    if (debug.find("Timeout") != std::string::npos || debug.find("timeout") != std::string::npos) {
        return ZPS_ERR_TIMEOUT;
    }
    if (debug.find("(401)") != std::string::npos || debug.find("(403)") != std::string::npos) {
        return ZPS_ERR_AUTH;
    }
    return starting ? ZPS_ERR_CONNECT : ZPS_ERR_STREAM;
}

}  // namespace

CZpsSession::CZpsSession(int handle) : handle_(handle) {}

CZpsSession::~CZpsSession() {
    Stop();
}

int CZpsSession::SetRtspTimeout(int seconds) {
    if (seconds < 1 || seconds > 300) {
        return ZPS_ERR_INVALID_PARAM;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    timeoutSeconds_ = seconds;
    return ZPS_ERR_OK;
}

int CZpsSession::SetParams(const std::string& json) {
    rapidjson::Document document;
    document.Parse(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        return ZPS_ERR_INVALID_PARAM;
    }
    std::string token;
    bool useTcp = true;
    int keepAlive = kDefaultKeepAliveSeconds;
    if (document.HasMember("token")) {
        if (!document["token"].IsString()) {
            return ZPS_ERR_INVALID_PARAM;
        }
        token = document["token"].GetString();
    }
    if (document.HasMember("transport")) {
        const auto& transport = document["transport"];
        if (!transport.IsString()) {
            return ZPS_ERR_INVALID_PARAM;
        }
        const std::string value = transport.GetString();
        if (value != "tcp" && value != "udp") {
            return ZPS_ERR_INVALID_PARAM;
        }
        useTcp = value == "tcp";
    }
    if (document.HasMember("keepalive")) {
        const auto& seconds = document["keepalive"];
        if (!seconds.IsInt() || seconds.GetInt() < 1 || seconds.GetInt() > 300) {
            return ZPS_ERR_INVALID_PARAM;
        }
        keepAlive = seconds.GetInt();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    token_ = token;
    useTcp_ = useTcp;
    keepAliveSeconds_ = keepAlive;
    return ZPS_ERR_OK;
}

int CZpsSession::SetDataCallback(ZPSClient_DataCallBack callback, void* user) {
    std::lock_guard<std::mutex> lock(mutex_);
    callback_ = callback;
    callbackUser_ = user;
    return ZPS_ERR_OK;
}

int CZpsSession::Start(const std::string& url, const std::string& userAgent, int bufferBytes,
                       const std::string& user, const std::string& password) {
    if (url.rfind("rtsp://", 0) != 0 && url.rfind("rtsps://", 0) != 0) {
        TAL_LOG(5, kLogModule, "[%s]Not an rtsp address: %s[%s(%d)]", url.c_str());
        return ZPS_ERR_INVALID_PARAM;
    }
    std::lock_guard<std::mutex> operation(operationMutex_);
    TalkConfig config;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (phase_ != Phase::Idle) {
            return ZPS_ERR_STATE;
        }
        phase_ = Phase::Starting;
        abort_ = false;
        bufferBytes_ = bufferBytes > 0 ? bufferBytes : 36864;
        config.url = url;
        config.userAgent = userAgent;
        config.user = user;
        config.password = password;
        config.token = token_;
        config.useTcp = useTcp_;
        config.bufferBytes = bufferBytes_;
        config.timeoutSeconds = timeoutSeconds_;
        config.keepAliveSeconds = keepAliveSeconds_;
    }

    int error = ZPS_ERR_OK;
    Attempt attempt = RunAttempt(config, true, error);
    if (attempt == Attempt::RetryWithoutBackchannel) {
        // A server without a backchannel answers the backchannel requirement with 551: listen only.
        TAL_LOG(3, kLogModule, "[%s]Server has no backchannel, opening without it: %s[%s(%d)]", url.c_str());
        Teardown();
        attempt = RunAttempt(config, false, error);
    }
    if (attempt != Attempt::Ok) {
        Teardown();
        std::lock_guard<std::mutex> lock(mutex_);
        phase_ = Phase::Idle;
        return error;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    phase_ = Phase::Playing;
    return ZPS_ERR_OK;
}

CZpsSession::Attempt CZpsSession::RunAttempt(const TalkConfig& config, bool backchannel, int& error) {
    ResetAttemptState();
    if (!BuildReceivePipeline(config, backchannel)) {
        error = ZPS_ERR_INTERNAL;
        return Attempt::Failed;
    }
    BusPtr bus(gst_element_get_bus(pipeline_.get()));
    busStop_ = false;
    const auto keepAliveInterval = std::chrono::seconds(config.keepAliveSeconds);
    busThread_ = std::thread(
        [this, raw = bus.release(), keepAliveInterval] { BusLoop(BusPtr(raw), keepAliveInterval); });

    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        Fail(ZPS_ERR_CONNECT);
    }

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(config.timeoutSeconds);
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_until(lock, deadline, [&] { return playCompleted_ || error_ != ZPS_ERR_OK || abort_; });
    if (abort_) {
        error = ZPS_ERR_STATE;
        return Attempt::Failed;
    }
    if (!playCompleted_ || error_ != ZPS_ERR_OK) {
        error = error_ != ZPS_ERR_OK ? error_ : ZPS_ERR_TIMEOUT;
        if (backchannel && error_ == ZPS_ERR_NO_BACKCHANNEL) {
            return Attempt::RetryWithoutBackchannel;
        }
        TAL_LOG(5, kLogModule, "[%s]Voice talk did not start: %s, error %d[%s(%d)]", config.url.c_str(),
                error);
        return Attempt::Failed;
    }

    if (backchannelStream_ >= 0 && backchannelCaps_) {
        const GstStructure* rtp = gst_caps_get_structure(backchannelCaps_.get(), 0);
        const RtpAudioCodec* codec = FindRtpAudioCodec(StructureString(rtp, "encoding-name"));
        if (codec == nullptr) {
            TAL_LOG(4, kLogModule, "[%s]Backchannel codec %s is not supported; talk is not possible.[%s(%d)]",
                    StructureString(rtp, "encoding-name").c_str());
        } else {
            const int clockRate = StructureInt(rtp, "clock-rate", 8000);
            const int channels = ChannelsOf(rtp);
            CapsPtr caps(gst_caps_ref(backchannelCaps_.get()));
            lock.unlock();
            const bool built = BuildSendPipeline(*codec, caps.get(), clockRate, channels);
            lock.lock();
            if (!built) {
                error = ZPS_ERR_INTERNAL;
                return Attempt::Failed;
            }
            sendCodec_ = codec;
        }
    }
    lock.unlock();
    if (config.useTcp) {
        ConfigureServerConnections(config.url, static_cast<unsigned>(config.timeoutSeconds) * 1000u);
    }
    return Attempt::Ok;
}

void CZpsSession::ResetAttemptState() {
    std::lock_guard<std::mutex> lock(mutex_);
    playCompleted_ = false;
    error_ = ZPS_ERR_OK;
    sendDrained_ = false;
    backchannelStream_ = -1;
    backchannelCaps_.reset();
    hasDownstream_ = false;
    audioInfoKnown_ = false;
    audioInfo_ = ZPSClient_AudioInfo{};
    sendCodec_ = nullptr;
    sentBytes_ = 0;
}

void CZpsSession::BusLoop(BusPtr bus, std::chrono::seconds keepAliveInterval) {
    auto nextKeepAlive = std::chrono::steady_clock::time_point::max();
    while (!busStop_) {
        MessagePtr message(gst_bus_timed_pop(bus.get(), 50 * GST_MSECOND));
        if (message) {
            HandleMessage(message.get(), false);
        }
        const auto now = std::chrono::steady_clock::now();
        if (nextKeepAlive == std::chrono::steady_clock::time_point::max()) {
            std::lock_guard<std::mutex> lock(mutex_);
            if (playCompleted_) {
                nextKeepAlive = now + keepAliveInterval;
            }
        } else if (now >= nextKeepAlive) {
            SendKeepAlive();
            nextKeepAlive = now + keepAliveInterval;
        }
        BusPtr sendBus;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (sendPipeline_) {
                sendBus.reset(gst_element_get_bus(sendPipeline_.get()));
            }
        }
        while (sendBus) {
            MessagePtr sendMessage(gst_bus_pop(sendBus.get()));
            if (!sendMessage) {
                break;
            }
            HandleMessage(sendMessage.get(), true);
        }
    }
}

int CZpsSession::Send(const unsigned char* data, int size) {
    if (data == nullptr || size <= 0) {
        return ZPS_ERR_INVALID_PARAM;
    }
    ElementPtr appsrc;
    GstClockTime pts = GST_CLOCK_TIME_NONE;
    GstClockTime duration = GST_CLOCK_TIME_NONE;
    const auto roomDeadline = std::chrono::steady_clock::now() + kSendRoomWait;
    for (;;) {
        std::unique_lock<std::mutex> lock(mutex_);
        if (phase_ != Phase::Playing) {
            return ZPS_ERR_STATE;
        }
        if (error_ != ZPS_ERR_OK) {
            return error_;
        }
        if (backchannelStream_ < 0) {
            return ZPS_ERR_NO_BACKCHANNEL;
        }
        if (sendCodec_ == nullptr || !appsrc_) {
            return ZPS_ERR_CODEC;
        }
        const guint64 queued = gst_app_src_get_current_level_bytes(GST_APP_SRC(appsrc_.get()));
        if (queued + static_cast<guint64>(size) <= static_cast<guint64>(bufferBytes_)) {
            if (sendCodec_->bytesPerSecond != 0) {
                pts = gst_util_uint64_scale(sentBytes_, GST_SECOND, sendCodec_->bytesPerSecond);
                duration =
                    gst_util_uint64_scale(static_cast<guint64>(size), GST_SECOND, sendCodec_->bytesPerSecond);
            }
            sentBytes_ += static_cast<uint64_t>(size);
            appsrc = RefElement(appsrc_.get());
            break;
        }
        if (std::chrono::steady_clock::now() >= roomDeadline) {
            return ZPS_ERR_BUFFER_FULL;
        }
        lock.unlock();
        std::this_thread::sleep_for(kSendRoomPoll);
    }
    GstBuffer* buffer = gst_buffer_new_memdup(data, static_cast<gsize>(size));
    GST_BUFFER_PTS(buffer) = pts;
    GST_BUFFER_DURATION(buffer) = duration;
    if (CPacketProbe::On()) {
        CPacketProbe::Mark("client-frame", -1, pts);
    }
    if (gst_app_src_push_buffer(GST_APP_SRC(appsrc.get()), buffer) != GST_FLOW_OK) {
        return ZPS_ERR_STREAM;
    }
    return ZPS_ERR_OK;
}

int CZpsSession::GetAudioInfo(ZPSClient_AudioInfo* info) {
    if (info == nullptr) {
        return ZPS_ERR_INVALID_PARAM;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (phase_ != Phase::Playing) {
        return ZPS_ERR_STATE;
    }
    if (!hasDownstream_) {
        return ZPS_ERR_NO_AUDIO_INFO;
    }
    if (!audioInfoKnown_) {
        return ZPS_ERR_CODEC;
    }
    *info = audioInfo_;
    return ZPS_ERR_OK;
}

int CZpsSession::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (phase_ == Phase::Starting) {
            abort_ = true;
            changed_.notify_all();
        }
    }
    std::lock_guard<std::mutex> operation(operationMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (phase_ != Phase::Playing) {
            return ZPS_ERR_OK;  // idle already: stopping twice is harmless
        }
        phase_ = Phase::Stopping;
    }
    Teardown();
    std::lock_guard<std::mutex> lock(mutex_);
    phase_ = Phase::Idle;
    return ZPS_ERR_OK;
}

void CZpsSession::Teardown() {
    ElementPtr sendPipeline;
    ElementPtr appsrc;
    std::chrono::seconds drainTimeout{0};
    {
        std::lock_guard<std::mutex> lock(mutex_);
        appsrc = std::move(appsrc_);
        drainTimeout = std::chrono::seconds(timeoutSeconds_) + kDrainMargin;
    }
    if (appsrc) {
        // Let every queued frame reach rtspsrc before the stream is torn down, or the tail is lost. The
        // pushing thread must also be out of rtspsrc before rtspsrc closes its connection.
        gst_app_src_end_of_stream(GST_APP_SRC(appsrc.get()));
        std::unique_lock<std::mutex> lock(mutex_);
        if (!changed_.wait_for(lock, drainTimeout, [&] { return sendDrained_ || error_ != ZPS_ERR_OK; })) {
            TAL_LOG(4, kLogModule, "[%s]Backchannel did not drain within %d s.[%s(%d)]",
                    static_cast<int>(drainTimeout.count()));
        }
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sendPipeline = std::move(sendPipeline_);
    }
    if (sendPipeline) {
        gst_element_set_state(sendPipeline.get(), GST_STATE_NULL);
    }
    ElementPtr pipeline;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pipeline = RefElement(pipeline_.get());
    }
    if (pipeline) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    }
    busStop_ = true;
    if (busThread_.joinable()) {
        busThread_.join();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    rtspsrc_.reset();
    pipeline_.reset();
    backchannelCaps_.reset();
    sendCodec_ = nullptr;
}

void CZpsSession::Fail(int error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (error_ == ZPS_ERR_OK) {
        error_ = error;
    }
    changed_.notify_all();
}

void CZpsSession::HandleMessage(GstMessage* message, bool fromSendPipeline) {
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: {
            GError* error = nullptr;
            gchar* debug = nullptr;
            gst_message_parse_error(message, &error, &debug);
            const std::string debugText = debug != nullptr ? debug : "";
            bool starting = false;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                starting = phase_ == Phase::Starting && !playCompleted_;
            }
            int code = MapError(error, debugText, starting);
            // A server without a backchannel refuses the backchannel requirement (551); rtspsrc reports that
            // as a settings error while opening.
            if (!fromSendPipeline && starting && error->domain == GST_RESOURCE_ERROR &&
                error->code == GST_RESOURCE_ERROR_SETTINGS) {
                code = ZPS_ERR_NO_BACKCHANNEL;
            }
            TAL_LOG(starting ? 4 : 5, kLogModule, "[%s]Session %d %s error: %s (%s), mapped to %d[%s(%d)]",
                    handle_, fromSendPipeline ? "backchannel" : "stream", error->message, debugText.c_str(),
                    code);
            g_error_free(error);
            g_free(debug);
            Fail(code);
            break;
        }
        case GST_MESSAGE_WARNING: {
            GError* warning = nullptr;
            gchar* debug = nullptr;
            gst_message_parse_warning(message, &warning, &debug);
            TAL_LOG(4, kLogModule, "[%s]Session %d warning: %s (%s)[%s(%d)]", handle_, warning->message,
                    debug != nullptr ? debug : "");
            bool playing = false;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                playing = playCompleted_;
            }
            // When the server closes an interleaved connection rtspsrc only warns, marks itself disconnected
            // and from then on drops backchannel data without an error: the session is over.
            const bool connectionLost =
                warning->domain == GST_RESOURCE_ERROR &&
                (warning->code == GST_RESOURCE_ERROR_READ || warning->code == GST_RESOURCE_ERROR_WRITE);
            g_error_free(warning);
            g_free(debug);
            if (!fromSendPipeline && playing && connectionLost) {
                Fail(ZPS_ERR_STREAM);
            }
            break;
        }
        case GST_MESSAGE_PROGRESS: {
            GstProgressType type;
            gchar* code = nullptr;
            gchar* text = nullptr;
            gst_message_parse_progress(message, &type, &code, &text);
            // rtspsrc completes the "request" progress with "Sent PLAY request" once the server answered
            // PLAY; backchannel data pushed before that is dropped silently.
            if (type == GST_PROGRESS_TYPE_COMPLETE && code != nullptr && std::strcmp(code, "request") == 0 &&
                text != nullptr && std::strstr(text, "PLAY") != nullptr) {
                std::lock_guard<std::mutex> lock(mutex_);
                playCompleted_ = true;
                changed_.notify_all();
            }
            g_free(code);
            g_free(text);
            break;
        }
        case GST_MESSAGE_EOS:
            if (!fromSendPipeline) {
                TAL_LOG(4, kLogModule, "[%s]Session %d: the server ended the stream.[%s(%d)]", handle_);
                Fail(ZPS_ERR_STREAM);
            }
            break;
        default:
            break;
    }
}

void CZpsSession::OnSdp(GstElement* src, GstSDPMessage* sdp, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    bool downstream = false;
    for (guint i = 0; i < gst_sdp_message_medias_len(sdp); ++i) {
        const GstSDPMedia* media = gst_sdp_message_get_media(sdp, i);
        const gchar* kind = gst_sdp_media_get_media(media);
        if (kind != nullptr && std::strcmp(kind, "audio") == 0 &&
            gst_sdp_media_get_attribute_val(media, "sendonly") == nullptr) {
            downstream = true;
        }
    }
    bool useTcp = true;
    {
        std::lock_guard<std::mutex> lock(session->mutex_);
        useTcp = session->useTcp_;
    }
    if (!downstream && !useTcp) {
        // Over UDP rtspsrc tears a session down after its UDP time-out when nothing arrives; a talk-only
        // stream never receives anything.
        g_object_set(src, "timeout", static_cast<guint64>(0), nullptr);
    }
}

gboolean CZpsSession::OnSelectStream(GstElement*, guint num, GstCaps* caps, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    const GstStructure* structure = gst_caps_get_structure(caps, 0);
    if (StructureString(structure, "media") != "audio") {
        return FALSE;
    }
    std::lock_guard<std::mutex> lock(session->mutex_);
    if (gst_structure_has_field(structure, "a-sendonly")) {
        session->backchannelStream_ = static_cast<int>(num);
        session->backchannelCaps_ = BackchannelRtpCaps(structure);
    } else if (!session->hasDownstream_) {
        // The SDP tells the format before any packet arrives.
        session->hasDownstream_ = true;
        session->DescribeDownstream(structure);
    }
    return TRUE;
}

void CZpsSession::DescribeDownstream(const GstStructure* rtp) {
    const RtpAudioCodec* codec = FindRtpAudioCodec(StructureString(rtp, "encoding-name"));
    audioInfo_ = ZPSClient_AudioInfo{};
    audioInfoKnown_ = codec != nullptr;
    if (codec == nullptr) {
        return;
    }
    const int channels = ChannelsOf(rtp);
    audioInfo_.codec = codec->codec;
    audioInfo_.channels = static_cast<uint32_t>(channels);
    audioInfo_.bitsPerSample = 16;
    if (codec->codec == ZPS_CODEC_MP3) {
        // The RTP clock of MPEG audio is 90 kHz; the sample rate comes with the first parsed frame.
        audioInfo_.sampleRate = 0;
        audioInfo_.bitRate = 0;
    } else {
        audioInfo_.sampleRate = codec->fixedRate != 0
                                    ? codec->fixedRate
                                    : static_cast<uint32_t>(StructureInt(rtp, "clock-rate", 0));
        audioInfo_.bitRate = codec->bytesPerSecond * 8 * static_cast<uint32_t>(channels);
    }
}

void CZpsSession::SendKeepAlive() {
    ElementPtr source;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!rtspsrc_ || error_ != ZPS_ERR_OK) {
            return;
        }
        source.reset(GST_ELEMENT(gst_object_ref(rtspsrc_.get())));
    }
    gchar* noParameters[] = {nullptr};
    GstPromise* promise = gst_promise_new();
    gboolean queued = FALSE;
    g_signal_emit_by_name(source.get(), "get-parameters", noParameters, nullptr, promise, &queued);
    gst_promise_unref(promise);  // the answer is not needed: a session the server ended shows on the bus
    if (!queued) {
        TAL_LOG(4, kLogModule, "[%s]RTSP keep-alive could not be queued[%s(%d)]");
    }
}

gboolean CZpsSession::OnBeforeSend(GstElement*, GstRTSPMessage* message, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    std::string token;
    {
        std::lock_guard<std::mutex> lock(session->mutex_);
        token = session->token_;
    }
    if (!token.empty()) {
        // Carried in a header: a token in the URL query breaks the SETUP addresses some clients derive from
        // it.
        gst_rtsp_message_add_header_by_name(message, kTokenHeader, token.c_str());
    }
    return TRUE;
}

}  // namespace ZPSClient
