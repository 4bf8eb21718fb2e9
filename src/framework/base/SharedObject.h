#pragma once
// Owner of one dlopen handle: a shared library loaded at run time, and its symbols.

#include <string>

#include "framework/base/NonCopyable.h"

namespace Tal {
namespace Base {

class CSharedObject : private CNonCopyable {
public:
    CSharedObject() = default;
    ~CSharedObject() { Close(); }

    /// Opens the file (RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE: the code stays mapped after dlclose, as
    /// objects made by the library may outlive the handle, held by static objects or by Qt). Replaces the
    /// handle held before; on failure that one stays and `error` is dlerror's reason.
    bool Open(const std::string& path, std::string& error);
    /// Drops the handle (the library's static objects are destroyed once nothing else holds it).
    void Close();
    bool IsOpen() const { return handle_ != nullptr; }
    /// The address of the symbol, null when the file does not export it or nothing is open.
    void* Symbol(const char* name) const;

private:
    void* handle_ = nullptr;
};

}  // namespace Base
}  // namespace Tal
