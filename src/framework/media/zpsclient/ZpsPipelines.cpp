// The session's GStreamer pipelines and the audio that flows through them: the receiving pipeline around
// rtspsrc with its downstream branch to the data callback, and the backchannel's sending pipeline whose RTP
// packets go into rtspsrc.

#include <gst/app/gstappsrc.h>

#include "framework/base/FormatLog.h"
#include "framework/media/zpsclient/GstFields.h"
#include "framework/media/zpsclient/PacketProbe.h"
#include "framework/media/zpsclient/ZpsSession.h"

namespace ZPSClient {

namespace {

constexpr const char* kLogModule = "ZPSClient";
/// Jitter buffer of the downstream track: enough for loopback and LAN, short enough for listening.
constexpr guint kDownstreamLatencyMs = 200;
/// One MP3 frame of 1152 samples at 48 kHz: a packet per frame keeps the latency of a frame.
constexpr gint64 kMpaMaxPtimeNs = 24 * GST_MSECOND;

GstElement* MakeElement(const char* factory) {
    GstElement* element = gst_element_factory_make(factory, nullptr);
    if (element == nullptr) {
        TAL_LOG(5, kLogModule, "[%s]GStreamer element %s is missing.[%s(%d)]", factory);
    }
    return element;
}

}  // namespace

bool CZpsSession::BuildReceivePipeline(const TalkConfig& config, bool backchannel) {
    ElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new("zps-talk"))));
    GstElement* src = MakeElement("rtspsrc");
    if (!pipeline || src == nullptr) {
        return false;
    }
    ElementPtr source(GST_ELEMENT(gst_object_ref_sink(src)));
    g_object_set(source.get(), "location", config.url.c_str(), "user-agent", config.userAgent.c_str(),
                 "latency", kDownstreamLatencyMs, "tcp-timeout",
                 static_cast<guint64>(config.timeoutSeconds) * G_USEC_PER_SEC, "teardown-timeout",
                 static_cast<guint64>(GST_SECOND), "do-rtsp-keep-alive", FALSE, nullptr);
    if (!config.user.empty()) {
        g_object_set(source.get(), "user-id", config.user.c_str(), "user-pw", config.password.c_str(),
                     nullptr);
    }
    gst_util_set_object_arg(G_OBJECT(source.get()), "backchannel", backchannel ? "onvif" : "none");
    gst_util_set_object_arg(G_OBJECT(source.get()), "protocols", config.useTcp ? "tcp" : "udp");
    g_signal_connect(source.get(), "on-sdp", G_CALLBACK(&CZpsSession::OnSdp), this);
    g_signal_connect(source.get(), "select-stream", G_CALLBACK(&CZpsSession::OnSelectStream), this);
    g_signal_connect(source.get(), "before-send", G_CALLBACK(&CZpsSession::OnBeforeSend), this);
    g_signal_connect(source.get(), "pad-added", G_CALLBACK(&CZpsSession::OnPadAdded), this);
    gst_bin_add(GST_BIN(pipeline.get()), source.get());

    std::lock_guard<std::mutex> lock(mutex_);
    pipeline_ = std::move(pipeline);
    rtspsrc_ = std::move(source);
    return true;
}

bool CZpsSession::BuildSendPipeline(const RtpAudioCodec& codec, GstCaps* rtpCaps, int clockRate,
                                    int channels) {
    ElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new("zps-backchannel"))));
    GstElement* src = MakeElement("appsrc");
    GstElement* parser = codec.parser != nullptr ? MakeElement(codec.parser) : nullptr;
    GstElement* payloader = MakeElement(codec.payloader);
    GstElement* sink = MakeElement("appsink");
    auto release = [&] {
        for (GstElement* element : {src, parser, payloader, sink}) {
            if (element != nullptr) {
                gst_object_unref(gst_object_ref_sink(element));
            }
        }
    };
    if (src == nullptr || payloader == nullptr || sink == nullptr ||
        (codec.parser != nullptr && parser == nullptr)) {
        release();
        return false;
    }

    CapsPtr encoded(gst_caps_from_string(EncodedCapsFor(codec, clockRate, channels).c_str()));
    int bufferBytes = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        bufferBytes = bufferBytes_;
    }
    g_object_set(src, "caps", encoded.get(), "format", GST_FORMAT_TIME, "is-live", FALSE, "block", FALSE,
                 "max-bytes", static_cast<guint64>(bufferBytes), nullptr);
    const GstStructure* rtp = gst_caps_get_structure(rtpCaps, 0);
    g_object_set(payloader, "pt", static_cast<guint>(StructureInt(rtp, "payload", 0)), nullptr);
    if (codec.codec == ZPS_CODEC_MP3) {
        g_object_set(payloader, "max-ptime", kMpaMaxPtimeNs, nullptr);
    }
    g_object_set(sink, "caps", rtpCaps, "sync", FALSE, "async", FALSE, "emit-signals", FALSE, nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &CZpsSession::OnBackchannelPacket;
    callbacks.eos = &CZpsSession::OnBackchannelEos;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);

    GstBin* bin = GST_BIN(pipeline.get());
    gst_bin_add_many(bin, src, payloader, sink, nullptr);
    bool linked = false;
    if (parser != nullptr) {
        gst_bin_add(bin, parser);
        linked = gst_element_link_many(src, parser, payloader, sink, nullptr);
    } else {
        linked = gst_element_link_many(src, payloader, sink, nullptr);
    }
    if (!linked) {
        TAL_LOG(5, kLogModule, "[%s]Backchannel pipeline for %s does not link.[%s(%d)]", codec.encodingName);
        return false;
    }
    ElementPtr appsrc = RefElement(src);
    if (gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        gst_element_set_state(pipeline.get(), GST_STATE_NULL);
        TAL_LOG(5, kLogModule, "[%s]Backchannel pipeline for %s does not start.[%s(%d)]", codec.encodingName);
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    sendPipeline_ = std::move(pipeline);
    appsrc_ = std::move(appsrc);
    return true;
}

void CZpsSession::OnPadAdded(GstElement*, GstPad* pad, gpointer self) {
    static_cast<CZpsSession*>(self)->LinkDownstream(pad);
}

void CZpsSession::LinkDownstream(GstPad* pad) {
    CapsPtr caps(gst_pad_get_current_caps(pad));
    if (!caps) {
        caps.reset(gst_pad_query_caps(pad, nullptr));
    }
    const GstStructure* structure = gst_caps_get_structure(caps.get(), 0);
    const RtpAudioCodec* codec = FindRtpAudioCodec(StructureString(structure, "encoding-name"));
    ElementPtr pipeline;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        pipeline = RefElement(pipeline_.get());
    }
    if (!pipeline) {
        return;
    }
    GstBin* bin = GST_BIN(pipeline.get());
    if (codec == nullptr) {
        TAL_LOG(4, kLogModule, "[%s]Downstream codec %s is not supported; its audio is dropped.[%s(%d)]",
                StructureString(structure, "encoding-name").c_str());
        GstElement* sink = MakeElement("fakesink");
        if (sink != nullptr) {
            gst_bin_add(bin, sink);
            gst_element_sync_state_with_parent(sink);
            PadPtr sinkPad(gst_element_get_static_pad(sink, "sink"));
            gst_pad_link(pad, sinkPad.get());
        }
        return;
    }

    GstElement* depay = MakeElement(codec->depayloader);
    GstElement* parser = codec->parser != nullptr ? MakeElement(codec->parser) : nullptr;
    GstElement* sink = MakeElement("appsink");
    if (depay == nullptr || sink == nullptr || (codec->parser != nullptr && parser == nullptr)) {
        for (GstElement* element : {depay, parser, sink}) {
            if (element != nullptr) {
                gst_object_unref(gst_object_ref_sink(element));
            }
        }
        Fail(ZPS_ERR_INTERNAL);
        return;
    }
    g_object_set(sink, "sync", FALSE, "emit-signals", FALSE, nullptr);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &CZpsSession::OnDownstreamSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);
    gst_bin_add_many(bin, depay, sink, nullptr);
    bool linked = false;
    if (parser != nullptr) {
        gst_bin_add(bin, parser);
        linked = gst_element_link_many(depay, parser, sink, nullptr);
    } else {
        linked = gst_element_link(depay, sink);
    }
    for (GstElement* element : {sink, parser, depay}) {
        if (element != nullptr) {
            gst_element_sync_state_with_parent(element);
        }
    }
    PadPtr depaySink(gst_element_get_static_pad(depay, "sink"));
    if (!linked || gst_pad_link(pad, depaySink.get()) != GST_PAD_LINK_OK) {
        TAL_LOG(5, kLogModule, "[%s]Downstream %s does not link.[%s(%d)]", codec->encodingName);
        Fail(ZPS_ERR_INTERNAL);
        return;
    }
}

GstFlowReturn CZpsSession::OnDownstreamSample(GstAppSink* sink, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    SamplePtr sample(gst_app_sink_pull_sample(sink));
    if (!sample) {
        return GST_FLOW_EOS;
    }
    ZPSClient_DataCallBack callback = nullptr;
    void* user = nullptr;
    {
        std::lock_guard<std::mutex> lock(session->mutex_);
        callback = session->callback_;
        user = session->callbackUser_;
        if (session->audioInfo_.codec == ZPS_CODEC_MP3 && session->audioInfo_.sampleRate == 0) {
            const GstStructure* parsed = gst_caps_get_structure(gst_sample_get_caps(sample.get()), 0);
            session->audioInfo_.sampleRate = static_cast<uint32_t>(StructureInt(parsed, "rate", 0));
            session->audioInfo_.channels = static_cast<uint32_t>(StructureInt(parsed, "channels", 1));
        }
    }
    GstBuffer* buffer = gst_sample_get_buffer(sample.get());
    GstMapInfo map;
    if (callback != nullptr && buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        callback(session->handle_, user, ZPS_DATA_AUDIO, map.data, static_cast<unsigned int>(map.size));
        gst_buffer_unmap(buffer, &map);
    }
    return GST_FLOW_OK;
}

GstFlowReturn CZpsSession::OnBackchannelPacket(GstAppSink* sink, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    SamplePtr sample(gst_app_sink_pull_sample(sink));
    if (!sample) {
        return GST_FLOW_EOS;
    }
    ElementPtr rtspsrc;
    guint stream = 0;
    {
        std::lock_guard<std::mutex> lock(session->mutex_);
        rtspsrc = RefElement(session->rtspsrc_.get());
        stream = static_cast<guint>(session->backchannelStream_);
    }
    if (!rtspsrc) {
        return GST_FLOW_FLUSHING;
    }
    const bool probed = CPacketProbe::On();
    long seq = -1;
    GstClockTime pts = GST_CLOCK_TIME_NONE;
    if (probed) {
        GstBuffer* packet = gst_sample_get_buffer(sample.get());
        seq = CPacketProbe::RtpSeq(packet);
        pts = packet != nullptr ? GST_BUFFER_PTS(packet) : GST_CLOCK_TIME_NONE;
        CPacketProbe::Mark("client-packet", seq, pts);
    }
    GstFlowReturn result = GST_FLOW_ERROR;
    // The action takes the sample over (push-backchannel-sample would free it twice in GStreamer 1.22).
    g_signal_emit_by_name(rtspsrc.get(), "push-backchannel-buffer", stream, sample.release(), &result);
    if (probed) {
        CPacketProbe::Mark("client-sent", seq, pts);
    }
    if (result != GST_FLOW_OK) {
        TAL_LOG(5, kLogModule, "[%s]Session %d: rtspsrc refused backchannel data: %s[%s(%d)]",
                session->handle_, gst_flow_get_name(result));
        session->Fail(ZPS_ERR_STREAM);
    }
    return result;
}

void CZpsSession::OnBackchannelEos(GstAppSink*, gpointer self) {
    auto* session = static_cast<CZpsSession*>(self);
    std::lock_guard<std::mutex> lock(session->mutex_);
    session->sendDrained_ = true;
    session->changed_.notify_all();
}

}  // namespace ZPSClient
