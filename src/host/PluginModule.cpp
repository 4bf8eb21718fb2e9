#include "host/PluginModule.h"

#include <unistd.h>

#include <cstdlib>

namespace BcastHost {

CPluginModule::~CPluginModule() {
    Unload();
}

std::vector<std::string> CPluginModule::ExportNames() {
    std::vector<std::string> names;
#define BCAST_HOST_NAME(name, ret, params) names.push_back(#name);
    BCAST_PLUGIN_EXPORTS(BCAST_HOST_NAME)
#undef BCAST_HOST_NAME
    return names;
}

bool CPluginModule::Load(const std::string& path, std::string& error) {
    Unload();
    // Never unmapped: Qt keeps pointers into the module (its metatype converters) for the life of the
    // process. Unload still drops the handle; the module's statics are destroyed at exit.
    std::string reason;
    if (!library_.Open(path, reason)) {
        error = "cannot load module " + path + ": " + reason;
        return false;
    }
    PluginEntryPoints entry;
    std::string missing;
#define BCAST_HOST_RESOLVE(name, ret, params)                                    \
    entry.name = reinterpret_cast<BcastPluginFn_##name>(library_.Symbol(#name)); \
    if (entry.name == nullptr) {                                                 \
        missing += (missing.empty() ? "" : ", ") + std::string(#name);           \
    }
    BCAST_PLUGIN_EXPORTS(BCAST_HOST_RESOLVE)
#undef BCAST_HOST_RESOLVE
    if (!missing.empty()) {
        library_.Close();
        error = "module " + path + " lacks exports: " + missing;
        return false;
    }
    entry_ = entry;
    return true;
}

void CPluginModule::Unload() {
    library_.Close();
    entry_ = PluginEntryPoints();
}

std::string DefaultModulePath() {
    if (const char* env = std::getenv("BCAST_MODULE")) {
        if (*env != '\0') {
            return env;
        }
    }
    char buffer[4096];
    ssize_t n = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    std::string exe = n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
    std::string dir = exe.substr(0, exe.rfind('/'));
    const std::string buildTree = dir + "/../lib/libBroadCastPlugin.so";
#ifdef BCAST_MODULE_DIR_FROM_BIN
    // Installed, the module lies in the private library directory, relative to the program's directory.
    const std::string installed = dir + "/" BCAST_MODULE_DIR_FROM_BIN "/libBroadCastPlugin.so";
    if (access(buildTree.c_str(), F_OK) != 0 && access(installed.c_str(), F_OK) == 0) {
        return installed;
    }
#endif
    return buildTree;
}

}  // namespace BcastHost
