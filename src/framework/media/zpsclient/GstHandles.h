#pragma once
// Owners of GStreamer references.

#include <gst/gst.h>

#include <memory>

namespace ZPSClient {

struct GstObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) {
            gst_object_unref(object);
        }
    }
};
struct GstCapsUnref {
    void operator()(GstCaps* caps) const {
        if (caps != nullptr) {
            gst_caps_unref(caps);
        }
    }
};
struct GstMessageUnref {
    void operator()(GstMessage* message) const {
        if (message != nullptr) {
            gst_message_unref(message);
        }
    }
};
struct GstSampleUnref {
    void operator()(GstSample* sample) const {
        if (sample != nullptr) {
            gst_sample_unref(sample);
        }
    }
};

using ElementPtr = std::unique_ptr<GstElement, GstObjectUnref>;
using BusPtr = std::unique_ptr<GstBus, GstObjectUnref>;
using PadPtr = std::unique_ptr<GstPad, GstObjectUnref>;
using CapsPtr = std::unique_ptr<GstCaps, GstCapsUnref>;
using MessagePtr = std::unique_ptr<GstMessage, GstMessageUnref>;
using SamplePtr = std::unique_ptr<GstSample, GstSampleUnref>;

/// A new reference to `element` (which may be null).
inline ElementPtr RefElement(GstElement* element) {
    return ElementPtr(element != nullptr ? GST_ELEMENT(gst_object_ref(element)) : nullptr);
}

}  // namespace ZPSClient
