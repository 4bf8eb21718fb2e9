#include "platform/server/log/RequestLog.h"

#include "platform/server/json/Json.h"

namespace Platform {

std::string RequestLogEntryJson(const RequestLogEntry& e) {
    Json::CWriter w;
    w.BeginObject();
    w.Int("Sequence", e.sequence).Int("Time", e.timeMs).String("Method", e.method).String("Path", e.path);
    w.String("Query", e.query)
        .String("Body", e.body)
        .Bool("BodyTruncated", e.bodyTruncated)
        .Int("Status", e.status)
        .String("UserName", e.userName);
    w.String("Remote", e.remote).String("Fault", e.fault);
    w.EndObject();
    return w.Text();
}

bool CRequestLog::OpenFile(const std::string& path, std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    file_.open(path, std::ios::out | std::ios::app);
    if (!file_) {
        error = "cannot open request log " + path;
        return false;
    }
    return true;
}

void CRequestLog::Add(RequestLogEntry entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    entry.sequence = nextSequence_++;
    if (entry.body.size() > kMaxLoggedBody) {
        entry.body.resize(kMaxLoggedBody);
        entry.bodyTruncated = true;
    }
    if (file_.is_open()) {
        file_ << RequestLogEntryJson(entry) << '\n';
        file_.flush();
    }
    entries_.push_back(std::move(entry));
    while (entries_.size() > kMaxEntries) {
        entries_.pop_front();
    }
}

std::vector<RequestLogEntry> CRequestLog::Snapshot(const std::string& method, const std::string& path) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<RequestLogEntry> out;
    for (const RequestLogEntry& e : entries_) {
        if ((method.empty() || e.method == method) && (path.empty() || e.path == path)) {
            out.push_back(e);
        }
    }
    return out;
}

void CRequestLog::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    entries_.clear();
}

}  // namespace Platform
