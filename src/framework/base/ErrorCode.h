#pragma once
// Result record of callbacks and of the thread's last error.

#include <iosfwd>
#include <string>

namespace Tal {
namespace Base {
namespace Error {

/// Subsystem codes: where the error was found.
enum SubSystem { kSubSystemNone = 0, kSubSystemServer = 1, kSubSystemClient = 2 };

/// An error as (subsystem, module, code) plus optional cascading text from the server.
/// Module and code are also called the main and sub error code; both 0 means success.
class ErrorCode {
public:
    ErrorCode() = default;
    /// Module and code found by the client (subsystem 2).
    ErrorCode(int module, int code) : subSystem_(kSubSystemClient), module_(module), code_(code) {}
    ErrorCode(int subSystem, int module, int code) : subSystem_(subSystem), module_(module), code_(code) {}

    int GetSubSystemErrorCode() const { return subSystem_; }
    void SetSubSystemErrorCode(int subSystem) { subSystem_ = subSystem; }
    int GetMainErrorCode() const { return module_; }
    void SetMainErrorCode(int module) { module_ = module; }
    int GetSubErrorCode() const { return code_; }
    void SetSubErrorCode(int code) { code_ = code; }
    const std::string& GetCasadingErrorInfo() const { return cascading_; }
    void SetCasadingErrorInfo(const std::string& info) { cascading_ = info; }

    /// True when module and code are both 0.
    bool IsSucceed() const { return module_ == 0 && code_ == 0; }
    /// "[subsystem][module][code]" plus the cascading text when there is one.
    std::string ToString() const;

    bool operator==(const ErrorCode& other) const {
        return subSystem_ == other.subSystem_ && module_ == other.module_ && code_ == other.code_ &&
               cascading_ == other.cascading_;
    }
    bool operator!=(const ErrorCode& other) const { return !(*this == other); }

private:
    int subSystem_ = kSubSystemNone;
    int module_ = 0;
    int code_ = 0;
    std::string cascading_;
};

/// Prints ToString(), for logs and test failure messages.
std::ostream& operator<<(std::ostream& out, const ErrorCode& error);

/// Module number of errors raised by the client framework itself.
constexpr int kModuleFramework = 10;
/// Framework code: the operation is not available in this build of the framework.
constexpr int kCodeNotAvailable = 1;
/// Framework code: the operation was called with invalid input.
constexpr int kCodeInvalidInput = 2;
/// Framework code: the platform's answer is empty, malformed or lacks what the call needs.
constexpr int kCodeBadServerAnswer = 3;
/// Framework code: the platform knows none of the requested resources.
constexpr int kCodeResourceNotFound = 4;
/// Another operation of the same kind is running.
constexpr int kCodeBusy = 5;
/// None of the targets of an operation could be reached.
constexpr int kCodeNoTargetReached = 6;
/// The operation was stopped before it finished.
constexpr int kCodeCancelled = 7;

/// The calling thread's last error.
void SetLastError(const ErrorCode& error);
ErrorCode GetLastError();

}  // namespace Error
}  // namespace Base
}  // namespace Tal
