#pragma once
// Every REST request the platform answered (control requests excepted), in arrival order, for tests and
// integrators; optionally also appended to a file as JSON lines.

#include <cstdint>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace Platform {

struct RequestLogEntry {
    int64_t sequence = 0;
    int64_t timeMs = 0;  ///< arrival, milliseconds since the epoch
    std::string method;
    std::string path;
    std::string query;
    std::string body;  ///< at most kMaxLoggedBody bytes
    bool bodyTruncated = false;
    int status = 0;        ///< HTTP status of the answer
    std::string userName;  ///< empty when no session was presented or it was refused
    std::string remote;
    std::string fault;  ///< the injected fault's kind, empty when the request was answered normally
};

class CRequestLog {
public:
    /// Oldest entries are dropped beyond this count.
    static constexpr size_t kMaxEntries = 20000;
    /// Longer bodies are kept cut to this many bytes.
    static constexpr size_t kMaxLoggedBody = 256 * 1024;

    /// Also writes every entry to `path` (appending). False when the file cannot be opened.
    bool OpenFile(const std::string& path, std::string& error);
    void Add(RequestLogEntry entry);
    /// Entries whose method (when not empty) and path (when not empty) match exactly.
    std::vector<RequestLogEntry> Snapshot(const std::string& method, const std::string& path) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::deque<RequestLogEntry> entries_;
    int64_t nextSequence_ = 1;
    std::ofstream file_;
};

/// The entry as a JSON object text.
std::string RequestLogEntryJson(const RequestLogEntry& entry);

}  // namespace Platform
