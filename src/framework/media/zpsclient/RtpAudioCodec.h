#pragma once
// The audio codecs the streaming client carries over RTP, by SDP encoding name.

#include <cstdint>
#include <string>

namespace ZPSClient {

struct RtpAudioCodec {
    const char* encodingName;  ///< upper case, as in SDP
    uint32_t codec;            ///< ZPSClientCodec
    const char* payloader;     ///< GStreamer element packing frames for the backchannel
    const char* depayloader;   ///< GStreamer element unpacking downstream packets
    const char* parser;        ///< framing parser after unpacking / before packing, or null
    uint32_t fixedRate;        ///< sample rate regardless of the RTP clock rate (G.722), or 0
    uint32_t bytesPerSecond;   ///< encoded bytes per second for time stamps, 0 when frames carry their own
};

/// The codec with this encoding name (case-insensitive), or null when it is not supported.
const RtpAudioCodec* FindRtpAudioCodec(const std::string& encodingName);

/// Caps of the encoded frames the application hands to the backchannel.
std::string EncodedCapsFor(const RtpAudioCodec& codec, int clockRate, int channels);

}  // namespace ZPSClient
