#include "framework/base/ErrorCode.h"

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

void SetLastError(const ErrorCode& error) { t_lastError = error; }

ErrorCode GetLastError() { return t_lastError; }

}  // namespace Error
}  // namespace Base
}  // namespace Tal
