#include "framework/base/FormatLog.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <system_error>

#include "framework/base/FileSystem.h"

namespace Tal {
namespace Base {

namespace {

spdlog::level::level_enum ToSpdLevel(int level) {
    switch (level) {
        case kLogTrace:
            return spdlog::level::trace;
        case kLogDebug:
            return spdlog::level::debug;
        case kLogInfo:
            return spdlog::level::info;
        case kLogWarn:
            return spdlog::level::warn;
        case kLogError:
            return spdlog::level::err;
        default:
            return level > kLogError ? spdlog::level::critical : spdlog::level::trace;
    }
}

int DefaultStderrLevel() {
    const char* env = std::getenv("TAL_LOG_STDERR_LEVEL");
    if (env != nullptr && *env != '\0') {
        return std::atoi(env);
    }
    return kLogWarn;
}

// Holds the sinks; the logger is rebuilt under the mutex whenever the configuration changes.
class LogState {
public:
    static LogState& Get() {
        // Leaked on purpose: lines may still be logged from static destructors of other libraries.
        static LogState* state = new LogState();
        return *state;
    }

    bool Configure(const LogConfig& config) {
        std::lock_guard<std::mutex> lock(mutex_);
        bool ok = true;
        std::vector<spdlog::sink_ptr> sinks;
        auto err = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        err->set_level(ToSpdLevel(config.stderrLevel));
        sinks.push_back(err);
        filePath_.clear();
        if (!config.directory.empty()) {
            if (!FileSystem::MakeFullDir(config.directory)) {
                ok = false;
            } else {
                std::string path = config.directory;
                if (path.back() != '/') {
                    path += '/';
                }
                path += config.fileName;
                try {
                    auto file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                        path, config.maxFileBytes, config.maxFiles);
                    file->set_level(ToSpdLevel(config.fileLevel));
                    sinks.push_back(file);
                    filePath_ = path;
                } catch (const spdlog::spdlog_ex&) {
                    ok = false;
                }
            }
        }
        Rebuild(std::move(sinks));
        return ok;
    }

    void Reset() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (logger_) {
            logger_->flush();
        }
        filePath_.clear();
        auto err = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        err->set_level(ToSpdLevel(DefaultStderrLevel()));
        Rebuild({err});
    }

    std::string FilePath() {
        std::lock_guard<std::mutex> lock(mutex_);
        return filePath_;
    }

    void Flush() {
        std::shared_ptr<spdlog::logger> logger = Logger();
        logger->flush();
    }

    void Write(int level, const char* module, const std::string& text) {
        std::shared_ptr<spdlog::logger> logger = Logger();
        logger->log(ToSpdLevel(level), "[{}] {}", module != nullptr ? module : "", text);
        if (level >= kLogError) {
            logger->flush();
        }
        std::lock_guard<std::mutex> lock(hookMutex_);
        if (!hooks_.empty()) {
            LogLine line{level, module != nullptr ? module : "", text};
            for (auto& entry : hooks_) {
                entry.second(line);
            }
        }
    }

    int AddHook(LogHook hook) {
        std::lock_guard<std::mutex> lock(hookMutex_);
        int id = ++lastHookId_;
        hooks_.emplace_back(id, std::move(hook));
        return id;
    }

    void RemoveHook(int id) {
        std::lock_guard<std::mutex> lock(hookMutex_);
        hooks_.erase(std::remove_if(hooks_.begin(), hooks_.end(), [id](const auto& e) { return e.first == id; }),
                     hooks_.end());
    }

private:
    LogState() {
        auto err = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        err->set_level(ToSpdLevel(DefaultStderrLevel()));
        Rebuild({err});
    }

    std::shared_ptr<spdlog::logger> Logger() {
        std::lock_guard<std::mutex> lock(mutex_);
        return logger_;
    }

    // Caller holds mutex_.
    void Rebuild(std::vector<spdlog::sink_ptr> sinks) {
        auto logger = std::make_shared<spdlog::logger>("tal", sinks.begin(), sinks.end());
        logger->set_level(spdlog::level::trace);
        logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e] [%t] [%l] %v");
        logger_ = std::move(logger);
    }

    std::mutex mutex_;
    std::shared_ptr<spdlog::logger> logger_;
    std::string filePath_;

    std::mutex hookMutex_;
    std::vector<std::pair<int, LogHook>> hooks_;
    int lastHookId_ = 0;
};

}  // namespace

bool InitLog(const LogConfig& config) { return LogState::Get().Configure(config); }

void UninitLog() { LogState::Get().Reset(); }

std::string GetLogFilePath() { return LogState::Get().FilePath(); }

void FlushLog() { LogState::Get().Flush(); }

void VFormatLog(int level, const char* module, const char* format, va_list args) {
    if (format == nullptr) {
        return;
    }
    char stackBuffer[1024];
    va_list copy;
    va_copy(copy, args);
    int needed = std::vsnprintf(stackBuffer, sizeof(stackBuffer), format, copy);
    va_end(copy);
    if (needed < 0) {
        LogState::Get().Write(level, module, format);
        return;
    }
    if (static_cast<std::size_t>(needed) < sizeof(stackBuffer)) {
        LogState::Get().Write(level, module, std::string(stackBuffer, static_cast<std::size_t>(needed)));
        return;
    }
    std::string text(static_cast<std::size_t>(needed) + 1, '\0');
    std::vsnprintf(&text[0], text.size(), format, args);
    text.resize(static_cast<std::size_t>(needed));
    LogState::Get().Write(level, module, text);
}

void FormatLog(int level, const char* module, const char* format, ...) {
    va_list args;
    va_start(args, format);
    VFormatLog(level, module, format, args);
    va_end(args);
}

int AddLogHook(LogHook hook) { return LogState::Get().AddHook(std::move(hook)); }

void RemoveLogHook(int id) { LogState::Get().RemoveHook(id); }

CLogCapture::CLogCapture() {
    hookId_ = AddLogHook([this](const LogLine& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
    });
}

CLogCapture::~CLogCapture() { RemoveLogHook(hookId_); }

std::vector<LogLine> CLogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

std::size_t CLogCapture::Count(const std::string& fragment, int level) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const LogLine& line) {
        return (level <= 0 || line.level == level) && line.text.find(fragment) != std::string::npos;
    }));
}

void CLogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

std::string QualifiedFunctionName(const char* prettyFunction) {
    if (prettyFunction == nullptr) {
        return std::string();
    }
    const std::string pretty(prettyFunction);
    // The parameter list starts at the first '(' outside template brackets; "operator()" is skipped.
    int angle = 0;
    std::size_t paren = std::string::npos;
    for (std::size_t i = 0; i < pretty.size(); ++i) {
        char c = pretty[i];
        if (c == '<') {
            ++angle;
        } else if (c == '>') {
            if (angle > 0) {
                --angle;
            }
        } else if (c == '(' && angle == 0) {
            if (i >= 8 && pretty.compare(i - 8, 8, "operator") == 0 && i + 1 < pretty.size() &&
                pretty[i + 1] == ')') {
                ++i;
                continue;
            }
            paren = i;
            break;
        }
    }
    if (paren == std::string::npos) {
        return pretty;
    }
    // Walk back over the name, keeping template arguments together, to the space before it.
    std::size_t begin = paren;
    angle = 0;
    while (begin > 0) {
        char c = pretty[begin - 1];
        if (c == '>') {
            ++angle;
        } else if (c == '<') {
            if (angle > 0) {
                --angle;
            }
        } else if ((c == ' ' || c == '*' || c == '&') && angle == 0) {
            break;
        }
        --begin;
    }
    return pretty.substr(begin, paren - begin);
}

}  // namespace Base
}  // namespace Tal
