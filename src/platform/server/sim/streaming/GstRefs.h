#pragma once
// Owners of GLib and GStreamer references used by the streaming server, and the address of an RTSP client.

#include <gio/gio.h>
#include <glib-object.h>
#include <gst/gst.h>
#include <gst/rtsp/gstrtspconnection.h>

#include <memory>
#include <string>

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

/// "address:port" of the peer of an RTSP connection; empty when unknown.
inline std::string RemoteOf(GstRTSPConnection* conn) {
    if (conn == nullptr) {
        return std::string();
    }
    GSocket* socket = gst_rtsp_connection_get_read_socket(conn);
    if (socket != nullptr) {
        GObjectPtr<GSocketAddress> address(g_socket_get_remote_address(socket, nullptr));
        if (address && G_IS_INET_SOCKET_ADDRESS(address.get())) {
            GInetSocketAddress* inet = G_INET_SOCKET_ADDRESS(address.get());
            GCharPtr ip(g_inet_address_to_string(g_inet_socket_address_get_address(inet)));
            return std::string(ip.get()) + ":" + std::to_string(g_inet_socket_address_get_port(inet));
        }
    }
    const gchar* ip = gst_rtsp_connection_get_ip(conn);
    return ip != nullptr ? ip : "";
}

}  // namespace Platform
