#pragma once
// The pipelines of the streaming server's media, as gst-launch descriptions, and the codec of a talk's
// backchannel.

#include <string>

#include "platform/server/sim/audio/SpeakerDecoder.h"

namespace Platform {

/// The downstream of a talk address: nothing.
extern const char* const kNoDownstream;
/// The downstream of a listen address: what a device's speakers play, as PCMU.
extern const char* const kListenLaunch;

/// The backchannel of a talk media: the client's RTP of `codec`, depayloaded into an appsink.
std::string BackchannelLaunch(SpeakerCodec codec);

/// The backchannel codec of a fixture ("PCMU", "PCMA", "MPA"; empty: from the broadcast compression type
/// "G711_u", "G711_a", "MP3"). False for anything else.
bool BackchannelCodecOf(const std::string& name, const std::string& compressionType, SpeakerCodec& codec);

}  // namespace Platform
