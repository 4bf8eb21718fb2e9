#include "platform/server/sim/streaming/StreamingServer.h"

#include <gio/gio.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>
// These three headers of gst-rtsp-server 1.22 lack C linkage declarations of their own.
extern "C" {
#include <gst/rtsp-server/rtsp-onvif-media-factory.h>
#include <gst/rtsp-server/rtsp-onvif-media.h>
#include <gst/rtsp-server/rtsp-onvif-server.h>
}

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "framework/base/FormatLog.h"
#include "framework/business/secret/SecretCipher.h"
#include "platform/server/sim/speakers/SpeakerSim.h"
#include "platform/server/sim/streaming/GstRefs.h"
#include "platform/server/sim/streaming/PacketProbe.h"
#include "platform/server/sim/streaming/TalkPipeline.h"

namespace Platform {

namespace {

constexpr const char* kTokenHeader = "X-Token";
constexpr const char* kRole = "speaker-client";
constexpr std::size_t kRecentRequests = 64;
constexpr std::size_t kMaxTalkMounts = 256;
constexpr std::size_t kMaxListenTokens = 256;
/// How long a stop waits for the sessions' media to go away.
constexpr auto kMediaDrain = std::chrono::seconds(5);

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string RandomToken() {
    std::string raw;
    if (!BusinessCommon::SecretPrimitives::RandomBytes(16, raw)) {
        return std::string();
    }
    return BusinessCommon::SecretPrimitives::ToHex(raw);
}

bool IsUnder(const std::string& path, const std::string& mount) {
    return path.compare(0, mount.size(), mount) == 0 &&
           (path.size() == mount.size() || path[mount.size()] == '/');
}

}  // namespace

struct CStreamingServer::Impl : std::enable_shared_from_this<CStreamingServer::Impl> {
    explicit Impl(CSpeakerSim& s) : speakers(s) {}

    struct TalkMount {
        std::string guid;
        std::string token;
    };

    /// What a talk media of one client session carries; lives as long as the media (object data).
    struct TalkMedia {
        std::shared_ptr<Impl> impl;
        std::string guid;
        std::string source;
        std::unique_ptr<CSpeakerDecoder> decoder;
        bool played = false;
        bool ended = false;
    };

    /// A listen media: the monitor that feeds its source.
    struct ListenMedia {
        std::shared_ptr<Impl> impl;
        int deviceId = 0;
        int monitorId = 0;
    };

    CSpeakerSim& speakers;
    StreamingServerConfig config;
    GMainContextPtr context;
    GMainLoopPtr loop;
    GObjectPtr<GstRTSPServer> server;
    GObjectPtr<GstRTSPMountPoints> mounts;
    GObjectPtr<GstRTSPAuth> auth;
    guint sourceId = 0;
    std::thread thread;
    int port = 0;

    /// Held while a GStreamer thread calls into the speakers; Stop takes it to cut them off.
    std::mutex callMutex;
    bool stopped = false;

    mutable std::mutex mutex;  ///< guards everything below
    std::condition_variable mediaGone;
    int liveMedia = 0;
    std::map<std::string, TalkMount> talkMounts;  ///< by path
    std::deque<std::string> talkOrder;
    std::map<std::string, int> listenTokens;  ///< token -> device
    std::deque<std::string> listenTokenOrder;
    bool refusing = false;
    int refuseStatus = 503;
    int talkStreams = 0;
    int listenStreams = 0;
    uint64_t requests = 0;
    uint64_t refused = 0;
    uint64_t decodeErrors = 0;
    std::deque<StreamingRequest> recent;

    std::string Prefix() const { return "/" + config.pathPrefix; }
    std::string ListenPrefix() const { return Prefix() + "/listen"; }

    void Record(const StreamingRequest& request) {
        ++requests;
        if (request.refusedWith != 0) {
            ++refused;
        }
        recent.push_back(request);
        while (recent.size() > kRecentRequests) {
            recent.pop_front();
        }
    }

    /// Token and refusal check of one request; the status to answer with (GST_RTSP_STS_OK: go on).
    GstRTSPStatusCode Check(GstRTSPContext* ctx) {
        StreamingRequest r;
        r.timeMs = NowMs();
        r.method = gst_rtsp_method_as_text(ctx->method);
        r.path = ctx->uri != nullptr && ctx->uri->abspath != nullptr ? ctx->uri->abspath : "*";
        r.source = RemoteOf(ctx->conn);
        gchar* header = nullptr;
        std::string token;
        if (ctx->request != nullptr &&
            gst_rtsp_message_get_header_by_name(ctx->request, kTokenHeader, &header, 0) == GST_RTSP_OK &&
            header != nullptr) {
            token = header;
        }
        std::lock_guard<std::mutex> lock(mutex);
        if (refusing) {
            r.refusedWith = refuseStatus;
            r.reason = "the server refuses sessions";
        } else if (config.tokenEnabled && r.path != "*") {
            if (IsUnder(r.path, ListenPrefix())) {
                const std::string tail =
                    r.path.substr(ListenPrefix().size() + (r.path.size() > ListenPrefix().size() ? 1 : 0));
                const std::string device = tail.substr(0, tail.find('/'));
                auto it = listenTokens.find(token);
                if (it == listenTokens.end() || std::to_string(it->second) != device) {
                    r.refusedWith = GST_RTSP_STS_UNAUTHORIZED;
                    r.reason = token.empty() ? "no X-Token" : "the token is not for this device";
                }
            } else {
                for (const auto& mount : talkMounts) {
                    if (IsUnder(r.path, mount.first)) {
                        if (token != mount.second.token) {
                            r.refusedWith = GST_RTSP_STS_UNAUTHORIZED;
                            r.reason = token.empty() ? "no X-Token" : "the token is not this group's";
                        }
                        break;
                    }
                }
            }
        }
        Record(r);
        if (r.refusedWith != 0) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform",
                    "[%s]streaming server refuses %s %s from %s with %d: %s[%s(%d)]", r.method.c_str(),
                    r.path.c_str(), r.source.c_str(), r.refusedWith, r.reason.c_str());
            return static_cast<GstRTSPStatusCode>(r.refusedWith);
        }
        return GST_RTSP_STS_OK;
    }

    void MediaCreated() {
        std::lock_guard<std::mutex> lock(mutex);
        ++liveMedia;
    }

    void MediaFinalized() {
        std::lock_guard<std::mutex> lock(mutex);
        --liveMedia;
        mediaGone.notify_all();
    }

    // --- GStreamer callbacks (streaming threads and the main loop's thread) ---

    static GstRTSPStatusCode OnPreRequest(GstRTSPClient*, GstRTSPContext* ctx, gpointer self) {
        return static_cast<Impl*>(self)->Check(ctx);
    }

    static void OnPlayed(GstRTSPClient*, GstRTSPContext* ctx, gpointer self) {
        Impl* impl = static_cast<Impl*>(self);
        GstRTSPMedia* media = ctx->media;
        if (media == nullptr && ctx->sessmedia != nullptr) {
            media = gst_rtsp_session_media_get_media(ctx->sessmedia);
        }
        if (media == nullptr) {
            return;
        }
        auto* talk = static_cast<TalkMedia*>(g_object_get_data(G_OBJECT(media), "bcast-talk"));
        if (talk != nullptr && !talk->played) {
            talk->played = true;
            {
                std::lock_guard<std::mutex> lock(impl->mutex);
                ++impl->talkStreams;
            }
            std::lock_guard<std::mutex> call(impl->callMutex);
            if (!impl->stopped) {
                impl->speakers.OnGroupStreamJoined(talk->guid, talk->source);
            }
        }
    }

    static void OnClientConnected(GstRTSPServer*, GstRTSPClient* client, gpointer self) {
        // Not OPTIONS: it gives no access to a stream, and gst-rtsp-server 1.22 frees its stack response
        // when a pre-options handler refuses (a crash). Every request that reaches a stream is checked.
        for (const char* signal : {"pre-describe-request", "pre-setup-request", "pre-play-request",
                                   "pre-pause-request", "pre-announce-request", "pre-record-request",
                                   "pre-get-parameter-request", "pre-set-parameter-request"}) {
            g_signal_connect(client, signal, G_CALLBACK(&Impl::OnPreRequest), self);
        }
        g_signal_connect(client, "play-request", G_CALLBACK(&Impl::OnPlayed), self);
    }

    static GstFlowReturn OnBackchannelSample(GstAppSink* sink, gpointer data) {
        auto* talk = static_cast<TalkMedia*>(data);
        GstSamplePtr sample(gst_app_sink_pull_sample(sink));
        if (!sample) {
            return GST_FLOW_EOS;
        }
        GstBuffer* buffer = gst_sample_get_buffer(sample.get());
        const GstClockTime pts = buffer != nullptr ? GST_BUFFER_PTS(buffer) : GST_CLOCK_TIME_NONE;
        GstMapInfo map;
        if (buffer == nullptr || !gst_buffer_map(buffer, &map, GST_MAP_READ)) {
            return GST_FLOW_OK;
        }
        std::vector<int16_t> pcm;
        std::string error;
        const bool ok = talk->decoder->Decode(map.data, map.size, pcm, error);
        const std::size_t bytes = map.size;
        gst_buffer_unmap(buffer, &map);
        Impl* impl = talk->impl.get();
        if (!ok) {
            std::lock_guard<std::mutex> lock(impl->mutex);
            if (impl->decodeErrors++ == 0) {
                TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]talk of group %s: %s[%s(%d)]",
                        talk->guid.c_str(), error.c_str());
            }
        }
        std::lock_guard<std::mutex> call(impl->callMutex);
        if (!impl->stopped) {
            impl->speakers.OnGroupAudio(talk->guid, talk->source, pcm.data(), pcm.size(), bytes);
        }
        if (CPacketProbe::On()) {
            CPacketProbe::Mark("server-speaker", -1, pts);
        }
        return GST_FLOW_OK;
    }

    static void OnTalkUnprepared(GstRTSPMedia*, gpointer data) {
        auto* talk = static_cast<TalkMedia*>(data);
        Impl* impl = talk->impl.get();
        if (!talk->played || talk->ended) {
            return;
        }
        talk->ended = true;
        {
            std::lock_guard<std::mutex> lock(impl->mutex);
            --impl->talkStreams;
        }
        std::lock_guard<std::mutex> call(impl->callMutex);
        if (!impl->stopped) {
            impl->speakers.OnGroupStreamEnded(talk->guid);
        }
    }

    static void FreeTalk(gpointer data) {
        std::unique_ptr<TalkMedia> talk(static_cast<TalkMedia*>(data));  // the media's object data
        std::shared_ptr<Impl> impl = talk->impl;
        talk.reset();
        impl->MediaFinalized();
    }

    static void OnListenUnprepared(GstRTSPMedia*, gpointer data) {
        auto* listen = static_cast<ListenMedia*>(data);
        Impl* impl = listen->impl.get();
        if (listen->monitorId == 0) {
            return;
        }
        {
            std::lock_guard<std::mutex> lock(impl->mutex);
            --impl->listenStreams;
        }
        std::lock_guard<std::mutex> call(impl->callMutex);
        if (!impl->stopped) {
            impl->speakers.RemoveMonitor(listen->monitorId);
        }
        listen->monitorId = 0;
    }

    static void FreeListen(gpointer data) {
        std::unique_ptr<ListenMedia> listen(static_cast<ListenMedia*>(data));  // the media's object data
        OnListenUnprepared(nullptr, listen.get());
        std::shared_ptr<Impl> impl = listen->impl;
        listen.reset();
        impl->MediaFinalized();
    }

    static void OnMediaConfigure(GstRTSPMediaFactory* factory, GstRTSPMedia* media, gpointer self) {
        auto* holder = static_cast<std::shared_ptr<Impl>*>(self);
        std::shared_ptr<Impl> impl = *holder;
        GstRTSPContext* ctx = gst_rtsp_context_get_current();
        const std::string source = ctx != nullptr ? RemoteOf(ctx->conn) : std::string();
        GObjectPtr<GstElement> element(gst_rtsp_media_get_element(media));
        const char* guid = static_cast<const char*>(g_object_get_data(G_OBJECT(factory), "bcast-guid"));
        if (guid != nullptr) {
            GObjectPtr<GstElement> sink(gst_bin_get_by_name(GST_BIN(element.get()), "backchannel_sink"));
            if (!sink) {
                TAL_LOG(Tal::Base::kLogError, "Platform",
                        "[%s]talk media of %s has no backchannel sink[%s(%d)]", guid);
                return;
            }
            auto owned = std::make_unique<TalkMedia>();
            TalkMedia* talk = owned.get();
            talk->impl = impl;
            talk->guid = guid;
            talk->source = source;
            talk->decoder = std::make_unique<CSpeakerDecoder>(impl->config.backchannelCodec);
            impl->MediaCreated();
            // The media owns it from here; FreeTalk runs when the media is finalized.
            g_object_set_data_full(G_OBJECT(media), "bcast-talk", owned.release(), &Impl::FreeTalk);
            GstAppSinkCallbacks callbacks{};
            callbacks.new_sample = &Impl::OnBackchannelSample;
            gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, talk, nullptr);
            g_signal_connect(media, "unprepared", G_CALLBACK(&Impl::OnTalkUnprepared), talk);
            TuneTalkPipeline(element.get());
            TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]talk stream for group %s from %s[%s(%d)]", guid,
                    source.c_str());
            return;
        }
        const gpointer device = g_object_get_data(G_OBJECT(factory), "bcast-device");
        if (device == nullptr) {
            return;
        }
        GObjectPtr<GstElement> src(gst_bin_get_by_name(GST_BIN(element.get()), "listen_src"));
        if (!src) {
            TAL_LOG(Tal::Base::kLogError, "Platform", "[%s]listen media has no source[%s(%d)]");
            return;
        }
        auto owned = std::make_unique<ListenMedia>();
        ListenMedia* listen = owned.get();
        listen->impl = impl;
        listen->deviceId = GPOINTER_TO_INT(device);
        impl->MediaCreated();
        // The monitor owns a reference to the source; pushing into a source of a media that is going
        // away is harmless (it refuses the buffer).
        std::shared_ptr<GstElement> appsrc(GST_ELEMENT(gst_object_ref(src.get())),
                                           [](GstElement* e) { gst_object_unref(e); });
        {
            std::lock_guard<std::mutex> call(impl->callMutex);
            if (!impl->stopped) {
                listen->monitorId = impl->speakers.AddMonitor(
                    listen->deviceId, [appsrc](const int16_t* samples, std::size_t count) {
                        GstState state = GST_STATE_NULL;
                        // Only a playing stream takes audio: what is pushed before PLAY would play late.
                        if (gst_element_get_state(appsrc.get(), &state, nullptr, 0) ==
                                GST_STATE_CHANGE_FAILURE ||
                            state != GST_STATE_PLAYING) {
                            return;
                        }
                        GstBuffer* buffer = gst_buffer_new_memdup(samples, count * sizeof(int16_t));
                        gst_app_src_push_buffer(GST_APP_SRC(appsrc.get()), buffer);
                    });
            }
        }
        if (listen->monitorId != 0) {
            std::lock_guard<std::mutex> lock(impl->mutex);
            ++impl->listenStreams;
        }
        // The media owns it from here; FreeListen runs when the media is finalized.
        g_object_set_data_full(G_OBJECT(media), "bcast-listen", owned.release(), &Impl::FreeListen);
        g_signal_connect(media, "unprepared", G_CALLBACK(&Impl::OnListenUnprepared), listen);
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]listen stream of device %d for %s[%s(%d)]",
                listen->deviceId, source.c_str());
    }

    static void FreeHolder(gpointer data, GClosure*) {
        std::unique_ptr<std::shared_ptr<Impl>> holder(static_cast<std::shared_ptr<Impl>*>(data));
    }

    GstRTSPMediaFactory* NewFactory(bool talk) {
        GstRTSPMediaFactory* factory = gst_rtsp_onvif_media_factory_new();
        if (talk) {
            gst_rtsp_media_factory_set_launch(factory, kNoDownstream);
            gst_rtsp_onvif_media_factory_set_backchannel_launch(
                GST_RTSP_ONVIF_MEDIA_FACTORY(factory), BackchannelLaunch(config.backchannelCodec).c_str());
        } else {
            gst_rtsp_media_factory_set_launch(factory, kListenLaunch);
        }
        gst_rtsp_media_factory_set_media_gtype(factory, GST_TYPE_RTSP_ONVIF_MEDIA);
        gst_rtsp_media_factory_set_shared(factory, FALSE);
        gst_rtsp_media_factory_set_latency(factory, config.jitterBufferMs);
        gst_rtsp_media_factory_add_role(factory, kRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS, G_TYPE_BOOLEAN,
                                        TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT, G_TYPE_BOOLEAN, TRUE,
                                        nullptr);
        // The factory's signal keeps the server state alive while it exists; FreeHolder lets go.
        auto holder = std::make_unique<std::shared_ptr<Impl>>(shared_from_this());
        g_signal_connect_data(factory, "media-configure", G_CALLBACK(&Impl::OnMediaConfigure),
                              holder.release(), &Impl::FreeHolder, static_cast<GConnectFlags>(0));
        return factory;
    }

    static GstRTSPFilterResult RemoveClient(GstRTSPServer*, GstRTSPClient*, gpointer) {
        return GST_RTSP_FILTER_REMOVE;
    }

    static GstRTSPFilterResult RemoveSession(GstRTSPSessionPool*, GstRTSPSession*, gpointer) {
        return GST_RTSP_FILTER_REMOVE;
    }

    /// Runs `fn` on the main loop's thread and waits for it.
    void RunOnLoop(const std::function<void()>& fn) {
        struct Call {
            const std::function<void()>* fn;
            std::mutex mutex;
            std::condition_variable done;
            bool finished = false;
        } call;
        call.fn = &fn;
        g_main_context_invoke(
            context.get(),
            [](gpointer data) -> gboolean {
                auto* c = static_cast<Call*>(data);
                (*c->fn)();
                std::lock_guard<std::mutex> lock(c->mutex);
                c->finished = true;
                c->done.notify_all();
                return G_SOURCE_REMOVE;
            },
            &call);
        std::unique_lock<std::mutex> lock(call.mutex);
        call.done.wait(lock, [&call] { return call.finished; });
    }
};

CStreamingServer::CStreamingServer(CSpeakerSim& speakers) : impl_(std::make_shared<Impl>(speakers)) {}

CStreamingServer::~CStreamingServer() {
    Stop();
}

bool CStreamingServer::Start(const StreamingServerConfig& config, std::string& error) {
    GError* initError = nullptr;
    if (!gst_init_check(nullptr, nullptr, &initError)) {
        error = std::string("GStreamer does not start: ") + (initError != nullptr ? initError->message : "?");
        g_clear_error(&initError);
        return false;
    }
    for (const char* plugin :
         {"appsrc", "appsink", "mulawenc", "rtppcmupay", "rtppcmudepay", "rtppcmadepay", "rtpmpadepay"}) {
        GObjectPtr<GstElementFactory> factory(gst_element_factory_find(plugin));
        if (!factory) {
            error = std::string("the GStreamer element ") + plugin +
                    " is missing (gstreamer1.0-plugins-good/base)";
            return false;
        }
    }
    Impl& impl = *impl_;
    impl.config = config;
    impl.context.reset(g_main_context_new());
    impl.loop.reset(g_main_loop_new(impl.context.get(), FALSE));
    impl.server.reset(gst_rtsp_onvif_server_new());
    gst_rtsp_server_set_address(impl.server.get(), config.bindAddress.c_str());
    gst_rtsp_server_set_service(impl.server.get(), std::to_string(config.port).c_str());

    impl.auth.reset(gst_rtsp_auth_new());
    gst_rtsp_auth_set_supported_methods(
        impl.auth.get(), static_cast<GstRTSPAuthMethod>(GST_RTSP_AUTH_BASIC | GST_RTSP_AUTH_DIGEST));
    GstRTSPToken* token =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, kRole, nullptr);
    GCharPtr basic(gst_rtsp_auth_make_basic(config.userName.c_str(), config.password.c_str()));
    gst_rtsp_auth_add_basic(impl.auth.get(), basic.get(), token);
    gst_rtsp_auth_add_digest(impl.auth.get(), config.userName.c_str(), config.password.c_str(), token);
    gst_rtsp_token_unref(token);
    gst_rtsp_server_set_auth(impl.server.get(), impl.auth.get());

    impl.mounts.reset(gst_rtsp_server_get_mount_points(impl.server.get()));
    for (int device : config.listenDevices) {
        GstRTSPMediaFactory* factory = impl.NewFactory(false);
        g_object_set_data(G_OBJECT(factory), "bcast-device", GINT_TO_POINTER(device));
        gst_rtsp_mount_points_add_factory(impl.mounts.get(), ListenPath(device).c_str(), factory);
    }
    g_signal_connect(impl.server.get(), "client-connected", G_CALLBACK(&Impl::OnClientConnected),
                     impl_.get());

    impl.sourceId = gst_rtsp_server_attach(impl.server.get(), impl.context.get());
    if (impl.sourceId == 0) {
        error =
            "the streaming server cannot listen on " + config.bindAddress + ":" + std::to_string(config.port);
        impl.mounts.reset();
        impl.server.reset();
        impl.auth.reset();
        impl.loop.reset();
        impl.context.reset();
        return false;
    }
    impl.port = gst_rtsp_server_get_bound_port(impl.server.get());
    GMainContext* context = impl.context.get();
    GMainLoop* loop = impl.loop.get();
    impl.thread = std::thread([context, loop] {
        g_main_context_push_thread_default(context);
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(context);
    });
    TAL_LOG(Tal::Base::kLogInfo, "Platform",
            "[%s]streaming server on rtsp://%s:%d/%s, backchannel %s[%s(%d)]", config.bindAddress.c_str(),
            impl.port, config.pathPrefix.c_str(), CodecName(config.backchannelCodec));
    return true;
}

void CStreamingServer::Stop() {
    Impl& impl = *impl_;
    if (!impl.thread.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> call(impl.callMutex);
        impl.stopped = true;
    }
    impl.RunOnLoop([&impl] {
        if (GSource* source = g_main_context_find_source_by_id(impl.context.get(), impl.sourceId)) {
            g_source_destroy(source);
        }
        GList* clients = gst_rtsp_server_client_filter(impl.server.get(), &Impl::RemoveClient, nullptr);
        g_list_free_full(clients, g_object_unref);
        GObjectPtr<GstRTSPSessionPool> pool(gst_rtsp_server_get_session_pool(impl.server.get()));
        GList* sessions = gst_rtsp_session_pool_filter(pool.get(), &Impl::RemoveSession, nullptr);
        g_list_free_full(sessions, g_object_unref);
    });
    {
        std::unique_lock<std::mutex> lock(impl.mutex);
        if (!impl.mediaGone.wait_for(lock, kMediaDrain, [&impl] { return impl.liveMedia <= 0; })) {
            TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]%d streaming media still open at stop[%s(%d)]",
                    impl.liveMedia);
        }
    }
    g_main_loop_quit(impl.loop.get());
    impl.thread.join();
    // The factories hold references to the server's state through their signal data: drop them first.
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        for (const auto& mount : impl.talkMounts) {
            gst_rtsp_mount_points_remove_factory(impl.mounts.get(), mount.first.c_str());
        }
        impl.talkMounts.clear();
        impl.talkOrder.clear();
    }
    for (int device : impl.config.listenDevices) {
        gst_rtsp_mount_points_remove_factory(impl.mounts.get(), ListenPath(device).c_str());
    }
    impl.mounts.reset();
    impl.server.reset();
    impl.auth.reset();
    impl.loop.reset();
    impl.context.reset();
    gst_rtsp_thread_pool_cleanup();
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]streaming server stopped[%s(%d)]");
}

int CStreamingServer::Port() const {
    return impl_->port;
}

std::string CStreamingServer::TalkPath(const std::string& guid) const {
    return impl_->Prefix() + "/" + guid;
}

std::string CStreamingServer::ListenPath(int deviceId) const {
    return impl_->ListenPrefix() + "/" + std::to_string(deviceId);
}

void CStreamingServer::AddTalkMount(const std::string& guid, const std::string& token) {
    Impl& impl = *impl_;
    if (!impl.mounts) {
        return;
    }
    const std::string path = TalkPath(guid);
    GstRTSPMediaFactory* factory = impl.NewFactory(true);
    g_object_set_data_full(G_OBJECT(factory), "bcast-guid", g_strdup(guid.c_str()), g_free);
    std::vector<std::string> expired;
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        impl.talkMounts[path] = Impl::TalkMount{guid, token};
        impl.talkOrder.push_back(path);
        while (impl.talkOrder.size() > kMaxTalkMounts) {
            expired.push_back(impl.talkOrder.front());
            impl.talkMounts.erase(impl.talkOrder.front());
            impl.talkOrder.pop_front();
        }
    }
    gst_rtsp_mount_points_add_factory(impl.mounts.get(), path.c_str(), factory);
    for (const std::string& old : expired) {
        gst_rtsp_mount_points_remove_factory(impl.mounts.get(), old.c_str());
    }
}

std::string CStreamingServer::IssueListenToken(int deviceId) {
    Impl& impl = *impl_;
    if (!impl.config.tokenEnabled) {
        return std::string();
    }
    const std::string token = RandomToken();
    if (token.empty()) {
        return token;
    }
    std::lock_guard<std::mutex> lock(impl.mutex);
    impl.listenTokens[token] = deviceId;
    impl.listenTokenOrder.push_back(token);
    while (impl.listenTokenOrder.size() > kMaxListenTokens) {
        impl.listenTokens.erase(impl.listenTokenOrder.front());
        impl.listenTokenOrder.pop_front();
    }
    return token;
}

void CStreamingServer::SetRefusal(bool refuse, int status) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->refusing = refuse;
    impl_->refuseStatus = status;
}

StreamingStats CStreamingServer::Stats() const {
    const Impl& impl = *impl_;
    std::lock_guard<std::mutex> lock(impl.mutex);
    StreamingStats s;
    s.port = impl.port;
    s.refusing = impl.refusing;
    s.refuseStatus = impl.refuseStatus;
    s.talkMounts = static_cast<int>(impl.talkMounts.size());
    s.listenMounts = static_cast<int>(impl.config.listenDevices.size());
    s.talkStreams = impl.talkStreams;
    s.listenStreams = impl.listenStreams;
    s.requests = impl.requests;
    s.refused = impl.refused;
    s.decodeErrors = impl.decodeErrors;
    s.recent.assign(impl.recent.begin(), impl.recent.end());
    return s;
}

bool CStreamingServer::DropSessions() {
    Impl& impl = *impl_;
    {
        std::lock_guard<std::mutex> call(impl.callMutex);
        if (!impl.thread.joinable() || impl.stopped) {
            return false;
        }
    }
    impl.RunOnLoop([&impl] {
        GList* clients = gst_rtsp_server_client_filter(impl.server.get(), &Impl::RemoveClient, nullptr);
        g_list_free_full(clients, g_object_unref);
        GObjectPtr<GstRTSPSessionPool> pool(gst_rtsp_server_get_session_pool(impl.server.get()));
        GList* sessions = gst_rtsp_session_pool_filter(pool.get(), &Impl::RemoveSession, nullptr);
        g_list_free_full(sessions, g_object_unref);
    });
    TAL_LOG(Tal::Base::kLogInfo, "Platform",
            "[%s]streaming sessions dropped by the control interface[%s(%d)]");
    return true;
}

void CStreamingServer::Reset() {
    Impl& impl = *impl_;
    std::vector<std::string> paths;
    {
        std::lock_guard<std::mutex> lock(impl.mutex);
        for (const auto& mount : impl.talkMounts) {
            paths.push_back(mount.first);
        }
        impl.talkMounts.clear();
        impl.talkOrder.clear();
        impl.listenTokens.clear();
        impl.listenTokenOrder.clear();
        impl.refusing = false;
        impl.refuseStatus = 503;
        impl.recent.clear();
    }
    if (impl.mounts) {
        for (const std::string& path : paths) {
            gst_rtsp_mount_points_remove_factory(impl.mounts.get(), path.c_str());
        }
    }
}

}  // namespace Platform
