#pragma once
// Owners of GStreamer references.

#include <gst/gst.h>

#include <memory>

namespace ZPSClient {

/// Drops the reference a pointer owns; unique_ptr never calls it with null.
struct GstUnref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
};

using ElementPtr = std::unique_ptr<GstElement, GstUnref>;
using BusPtr = std::unique_ptr<GstBus, GstUnref>;
using PadPtr = std::unique_ptr<GstPad, GstUnref>;
using CapsPtr = std::unique_ptr<GstCaps, GstUnref>;
using MessagePtr = std::unique_ptr<GstMessage, GstUnref>;
using SamplePtr = std::unique_ptr<GstSample, GstUnref>;

/// A new reference to `element` (which may be null).
inline ElementPtr RefElement(GstElement* element) {
    return ElementPtr(element != nullptr ? GST_ELEMENT(gst_object_ref(element)) : nullptr);
}

}  // namespace ZPSClient
