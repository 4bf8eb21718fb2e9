#include "platform/server/sim/streaming/TalkPipeline.h"

#include <cstring>
#include <utility>

#include "platform/server/sim/streaming/GstRefs.h"
#include "platform/server/sim/streaming/PacketProbe.h"

namespace Platform {

namespace {

GstPadProbeReturn OnProbedPacket(GstPad*, GstPadProbeInfo* info, gpointer point) {
    GstBuffer* buffer = gst_pad_probe_info_get_buffer(info);
    CPacketProbe::Mark(static_cast<const char*>(point), CPacketProbe::RtpSeq(buffer),
                       buffer != nullptr ? GST_BUFFER_PTS(buffer) : GST_CLOCK_TIME_NONE);
    return GST_PAD_PROBE_OK;
}

// By default the RTP session holds a new source's packets until two in sequence have come (RFC 3550
// probation against stray UDP sources). On the interleaved connection, one source per session, that only
// delays the talk's start by one packet interval, and the speaker keeps that delay for the whole talk.
void OnTalkElementAdded(GstBin*, GstBin*, GstElement* element, gpointer) {
    GstElementFactory* factory = gst_element_get_factory(element);
    const char* name = factory != nullptr ? GST_OBJECT_NAME(factory) : "";
    if (std::strcmp(name, "rtpsession") == 0) {
        g_object_set(element, "probation", 0u, nullptr);
        return;
    }
    if (std::strcmp(name, "rtpjitterbuffer") != 0 || !CPacketProbe::On()) {
        return;
    }
    for (const auto& pad :
         {std::make_pair("sink", "server-in"), std::make_pair("src", "server-jitter-out")}) {
        GObjectPtr<GstPad> probed(gst_element_get_static_pad(element, pad.first));
        if (probed) {
            gst_pad_add_probe(probed.get(), GST_PAD_PROBE_TYPE_BUFFER, &OnProbedPacket,
                              const_cast<char*>(pad.second), nullptr);
        }
    }
}

}  // namespace

void TuneTalkPipeline(GstElement* mediaElement) {
    // The media's pipeline holds the element; rtpbin joins it when the media prepares.
    GObjectPtr<GstObject> pipeline(gst_element_get_parent(mediaElement));
    if (pipeline && GST_IS_BIN(pipeline.get())) {
        g_signal_connect(pipeline.get(), "deep-element-added", G_CALLBACK(&OnTalkElementAdded), nullptr);
    }
}

}  // namespace Platform
