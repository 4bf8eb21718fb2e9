#pragma once
// Owners of GLib and GStreamer references used by the streaming server.

#include <glib-object.h>
#include <gst/gst.h>

#include <memory>

namespace Platform {

struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) {
            g_object_unref(object);
        }
    }
};
struct GMainContextUnref {
    void operator()(GMainContext* context) const {
        if (context != nullptr) {
            g_main_context_unref(context);
        }
    }
};
struct GMainLoopUnref {
    void operator()(GMainLoop* loop) const {
        if (loop != nullptr) {
            g_main_loop_unref(loop);
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
struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};

template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;
using GMainContextPtr = std::unique_ptr<GMainContext, GMainContextUnref>;
using GMainLoopPtr = std::unique_ptr<GMainLoop, GMainLoopUnref>;
using GstSamplePtr = std::unique_ptr<GstSample, GstSampleUnref>;
using GCharPtr = std::unique_ptr<gchar, GFree>;

}  // namespace Platform
