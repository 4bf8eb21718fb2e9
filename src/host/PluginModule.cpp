#include "host/PluginModule.h"

#include <dlfcn.h>
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
    dlerror();
    // Never unmapped: Qt keeps pointers into the module (its metatype converters) for the life of the
    // process. dlclose still drops the handle; the module's statics are destroyed at exit.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        const char* reason = dlerror();
        error = "cannot load module " + path + ": " + (reason != nullptr ? reason : "unknown reason");
        return false;
    }
    PluginEntryPoints entry;
    std::string missing;
#define BCAST_HOST_RESOLVE(name, ret, params)                                  \
    entry.name = reinterpret_cast<BcastPluginFn_##name>(dlsym(handle, #name)); \
    if (entry.name == nullptr) {                                               \
        missing += (missing.empty() ? "" : ", ") + std::string(#name);         \
    }
    BCAST_PLUGIN_EXPORTS(BCAST_HOST_RESOLVE)
#undef BCAST_HOST_RESOLVE
    if (!missing.empty()) {
        dlclose(handle);
        error = "module " + path + " lacks exports: " + missing;
        return false;
    }
    handle_ = handle;
    entry_ = entry;
    return true;
}

void CPluginModule::Unload() {
    if (handle_ != nullptr) {
        dlclose(handle_);
        handle_ = nullptr;
        entry_ = PluginEntryPoints();
    }
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
