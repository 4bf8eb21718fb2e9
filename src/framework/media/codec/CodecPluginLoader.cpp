#include "framework/media/codec/CodecPluginLoader.h"

#include <dlfcn.h>

#include "framework/base/FormatLog.h"

namespace Tal {
namespace MediaCodec {

bool CCodecPlugin::Load(const std::string& path, std::string& error) {
    codecs_ = nullptr;
    std::string reason;
    if (!library_.Open(path, reason)) {
        error = "cannot load codec plug-in " + path + ": " + reason;
        return false;
    }
    const auto entry = reinterpret_cast<CodecPluginEntry>(library_.Symbol(kCodecPluginEntry));
    if (entry == nullptr) {
        error = "codec plug-in " + path + " lacks " + kCodecPluginEntry;
        return false;
    }
    codecs_ = entry();
    if (codecs_ == nullptr) {
        error = "codec plug-in " + path + " made no codecs";
        return false;
    }
    return true;
}

std::string CodecLibraryDir() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&CodecLibraryDir), &info) == 0 || info.dli_fname == nullptr) {
        return ".";
    }
    const std::string file = info.dli_fname;
    const std::size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : file.substr(0, slash);
}

const IAudioCodecPlugin* AacPlugin() {
    // Loaded once, on the first call from any thread; a failure is logged once and stays.
    static CCodecPlugin plugin;
    static const bool loaded = [] {
        std::string error;
        if (plugin.Load(CodecLibraryDir() + "/" + kAacPluginFile, error)) {
            return true;
        }
        Base::FormatLog(Base::kLogError, "MediaCodec", "AAC unavailable: %s", error.c_str());
        return false;
    }();
    return loaded ? plugin.Codecs() : nullptr;
}

}  // namespace MediaCodec
}  // namespace Tal
