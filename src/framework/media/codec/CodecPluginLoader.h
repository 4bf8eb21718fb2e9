#pragma once
// Loads a codec plug-in (CodecPlugin.h) with dlopen and resolves its entry symbol.

#include <string>

#include "framework/base/SharedObject.h"
#include "framework/media/codec/CodecPlugin.h"

namespace Tal {
namespace MediaCodec {

/// A loaded codec plug-in: the handle and the factory its entry returned.
class CCodecPlugin {
public:
    /// Opens the plug-in and calls its entry; false with a one-line reason that names the file.
    bool Load(const std::string& path, std::string& error);
    /// The plug-in's factory, null until Load succeeded.
    const IAudioCodecPlugin* Codecs() const { return codecs_; }

private:
    Base::CSharedObject library_;
    const IAudioCodecPlugin* codecs_ = nullptr;
};

/// Directory of the loaded codec library (this file's library), without the trailing slash.
std::string CodecLibraryDir();
/// The AAC plug-in from the codec library's directory, loaded on the first call and kept for the life of
/// the process; null when it cannot be loaded (logged once, with the reason).
const IAudioCodecPlugin* AacPlugin();

}  // namespace MediaCodec
}  // namespace Tal
