#pragma once
// What the streaming server sets on a talk's backchannel elements as rtpbin creates them.

#include <gst/gst.h>

namespace Platform {

/// Watches the pipeline that holds a talk media's element: its RTP session accepts the client's source at
/// the first packet, and with the bench's probe on, each packet is marked as it enters and leaves the
/// jitter buffer.
void TuneTalkPipeline(GstElement* mediaElement);

}  // namespace Platform
