#pragma once
// Framework logger: printf-style lines with a level and a module tag, written to a rotating file in the
// client data directory and to stderr above a configured level.

#include <cstdarg>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"

namespace Tal {
namespace Base {

/// Levels used by the system: 3 information, 4 warning, 5 error (1 trace, 2 debug, 6 fatal also accepted).
enum LogLevel { kLogTrace = 1, kLogDebug = 2, kLogInfo = 3, kLogWarn = 4, kLogError = 5, kLogFatal = 6 };

struct LogConfig {
    std::string directory;  ///< where the rotating file lives; empty: no file
    std::string fileName = "client.log";
    int fileLevel = kLogInfo;    ///< lines at or above this level go to the file
    int stderrLevel = kLogWarn;  ///< lines at or above this level go to stderr
    std::size_t maxFileBytes = 10 * 1024 * 1024;
    std::size_t maxFiles = 5;
};

/// (Re)configures the sinks. Returns false when the log directory cannot be created or opened;
/// stderr logging goes on in that case.
bool InitLog(const LogConfig& config);
/// Flushes and closes the file sink; later lines go to stderr only.
void UninitLog();
/// Path of the current log file, empty when there is none.
std::string GetLogFilePath();
void FlushLog();

void FormatLog(int level, const char* module, const char* format, ...) __attribute__((format(printf, 3, 4)));
void VFormatLog(int level, const char* module, const char* format, va_list args);

/// One line as handed to hooks: the formatted text without time stamp or level decoration.
struct LogLine {
    int level = 0;
    std::string module;
    std::string text;
};

/// Receives every line after formatting, on the logging thread. Hooks must not log themselves.
using LogHook = std::function<void(const LogLine&)>;
int AddLogHook(LogHook hook);
void RemoveLogHook(int id);

/// Captures log lines for the lifetime of the object (used by tests to assert the system's own texts).
class CLogCapture : private Base::CNonCopyable {
public:
    CLogCapture();
    ~CLogCapture();

    std::vector<LogLine> Lines() const;
    /// Number of captured lines whose text contains `fragment` (and, when level > 0, has that level).
    std::size_t Count(const std::string& fragment, int level = 0) const;
    bool Contains(const std::string& fragment, int level = 0) const { return Count(fragment, level) > 0; }
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
    int hookId_ = -1;
};

/// "bool NS::CClass::Method(int)" -> "NS::CClass::Method"; lambdas keep their enclosing function's name.
std::string QualifiedFunctionName(const char* prettyFunction);

/// The path without the repository root prefix; the whole path when it is not longer than the prefix.
constexpr const char* SourceRelative(const char* path, std::size_t prefixLength) {
    if (path[0] != '/') {
        // A compiler cache may hand the compiler a path relative to the build directory
        // ("../../tests/x.cpp"); the build directories live in the source tree, so the rest is the path.
        while ((path[0] == '.' && path[1] == '/') || (path[0] == '.' && path[1] == '.' && path[2] == '/')) {
            path += path[1] == '/' ? 2 : 3;
        }
        return path;
    }
    std::size_t length = 0;
    while (path[length] != '\0') {
        ++length;
    }
    return length > prefixLength ? path + prefixLength : path;
}

}  // namespace Base
}  // namespace Tal

#ifndef TAL_SOURCE_PREFIX_LEN
#define TAL_SOURCE_PREFIX_LEN 0
#endif
/// Source path relative to the repository root.
#define TAL_SOURCE_FILE (::Tal::Base::SourceRelative(__FILE__, TAL_SOURCE_PREFIX_LEN))

/// Logs a line whose format begins with "[%s]" (the qualified function name) and ends with "[%s(%d)]"
/// (source path and line); the caller's own arguments go between.
#define TAL_LOG(level, module, format, ...)                                                                \
    ::Tal::Base::FormatLog((level), (module), format,                                                      \
                           ::Tal::Base::QualifiedFunctionName(__PRETTY_FUNCTION__).c_str(), ##__VA_ARGS__, \
                           TAL_SOURCE_FILE, __LINE__)
