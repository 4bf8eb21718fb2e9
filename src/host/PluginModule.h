#pragma once
// Loads the broadcast module from its file and resolves its exported entry points by name.

#include <string>
#include <vector>

#include "BroadCastPlugin/BroadCastPluginExports.h"
#include "framework/base/NonCopyable.h"
#include "framework/base/SharedObject.h"

namespace BcastHost {

/// The module's entry points, resolved by name.
struct PluginEntryPoints {
#define BCAST_HOST_MEMBER(name, ret, params) BcastPluginFn_##name name = nullptr;
    BCAST_PLUGIN_EXPORTS(BCAST_HOST_MEMBER)
#undef BCAST_HOST_MEMBER
};

class CPluginModule : private Tal::Base::CNonCopyable {
public:
    CPluginModule() = default;
    ~CPluginModule();

    /// Opens the module and resolves every entry point. On failure `error` is a one-line reason naming the
    /// file or the missing exports, and nothing stays loaded.
    bool Load(const std::string& path, std::string& error);
    /// Closes the module (its static objects are destroyed).
    void Unload();
    bool IsLoaded() const { return library_.IsOpen(); }
    const PluginEntryPoints& Entry() const { return entry_; }
    /// The names the host resolves, in table order.
    static std::vector<std::string> ExportNames();

private:
    Tal::Base::CSharedObject library_;
    PluginEntryPoints entry_;
};

/// The module next to the host: <dir of the executable>/../lib/libBroadCastPlugin.so (the build tree), else
/// the installed one in the private library directory relative to the executable, or $BCAST_MODULE.
std::string DefaultModulePath();

}  // namespace BcastHost
