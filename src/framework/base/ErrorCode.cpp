#include "framework/base/ErrorCode.h"

#include <ostream>

namespace Tal {
namespace Base {
namespace Error {

namespace {
thread_local ErrorCode t_lastError;
}

std::string ErrorCode::ToString() const {
    std::string text = "[" + std::to_string(subSystem_) + "][" + std::to_string(module_) + "][" +
                       std::to_string(code_) + "]";
    if (!cascading_.empty()) {
        text += " " + cascading_;
    }
    return text;
}

std::ostream& operator<<(std::ostream& out, const ErrorCode& error) { return out << error.ToString(); }

void SetLastError(const ErrorCode& error) { t_lastError = error; }

ErrorCode GetLastError() { return t_lastError; }

}  // namespace Error
}  // namespace Base
}  // namespace Tal
