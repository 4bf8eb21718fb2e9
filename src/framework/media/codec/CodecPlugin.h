#pragma once
// Codecs whose libraries are large live in plug-ins: shared libraries beside this one that are loaded on
// first use, so that a process which never codes AAC never maps libavcodec and what it pulls in. A plug-in
// exports one C symbol, kCodecPluginEntry, that hands out its codec factory.

#include <memory>

#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace MediaCodec {

/// What a codec plug-in makes; the objects it returns must not outlive the loaded plug-in.
class IAudioCodecPlugin {
public:
    virtual std::unique_ptr<IAudioEncoder> CreateEncoder() const = 0;
    virtual std::unique_ptr<IAudioDecoder> CreateDecoder() const = 0;

protected:
    ~IAudioCodecPlugin() = default;
};

/// The plug-in's entry: its factory, which lives as long as the plug-in is loaded.
using CodecPluginEntry = const IAudioCodecPlugin* (*)();
constexpr const char* kCodecPluginEntry = "TalAudioCodecPlugin";
/// File of the AAC plug-in, in the directory of the codec library.
constexpr const char* kAacPluginFile = "libtal_codec_aac.so";

}  // namespace MediaCodec
}  // namespace Tal
