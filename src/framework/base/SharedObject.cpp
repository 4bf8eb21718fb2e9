#include "framework/base/SharedObject.h"

#include <dlfcn.h>

namespace Tal {
namespace Base {

bool CSharedObject::Open(const std::string& path, std::string& error) {
    dlerror();
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (handle == nullptr) {
        const char* reason = dlerror();
        error = reason != nullptr ? reason : "unknown reason";
        return false;
    }
    Close();
    handle_ = handle;
    return true;
}

void CSharedObject::Close() {
    if (handle_ != nullptr) {
        dlclose(handle_);
        handle_ = nullptr;
    }
}

void* CSharedObject::Symbol(const char* name) const {
    return handle_ != nullptr ? dlsym(handle_, name) : nullptr;
}

}  // namespace Base
}  // namespace Tal
