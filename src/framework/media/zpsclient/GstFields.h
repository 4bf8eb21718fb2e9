#pragma once
// Typed reads of the fields of GStreamer caps structures.

#include <gst/gst.h>

#include <cstdlib>
#include <string>

namespace ZPSClient {

/// A string field, or "" when it is missing.
inline std::string StructureString(const GstStructure* structure, const char* field) {
    const gchar* value = gst_structure_get_string(structure, field);
    return value != nullptr ? value : "";
}

/// An integer field, or `fallback` when it is missing.
inline int StructureInt(const GstStructure* structure, const char* field, int fallback) {
    gint value = 0;
    return gst_structure_get_int(structure, field, &value) ? value : fallback;
}

/// The channels of RTP caps ("encoding-params"), 1 when missing or invalid.
inline int ChannelsOf(const GstStructure* structure) {
    const std::string params = StructureString(structure, "encoding-params");
    const int channels = params.empty() ? 1 : std::atoi(params.c_str());
    return channels > 0 ? channels : 1;
}

}  // namespace ZPSClient
