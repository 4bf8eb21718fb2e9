#pragma once
// The status texts the device broadcast manager delivers to its callback, in order, for tests to read.

#include <mutex>
#include <string>
#include <vector>

#include "framework/netcomm/RapidJsonProto.h"

namespace BroadcastTest {

class CDeviceStatusLog {
public:
    /// The manager's callback; `self` is the log.
    static void Collect(const std::string& text, void* self) {
        static_cast<CDeviceStatusLog*>(self)->Add(text);
    }
    void Add(const std::string& text) {
        std::lock_guard<std::mutex> lock(mutex_);
        texts_.push_back(text);
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        texts_.clear();
    }
    std::vector<NetworkCommunication::CRapidJsonProto> Docs() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<NetworkCommunication::CRapidJsonProto> docs;
        for (const std::string& text : texts_) {
            docs.emplace_back();
            docs.back().set_str(text);
        }
        return docs;
    }
    /// The texts of one device, in order.
    std::vector<NetworkCommunication::CRapidJsonProto> Of(int deviceId) const {
        std::vector<NetworkCommunication::CRapidJsonProto> docs;
        for (const auto& doc : Docs()) {
            if (doc.get_v("/IndexCode", "") == std::to_string(deviceId)) {
                docs.push_back(doc);
            }
        }
        return docs;
    }
    /// The "Status" values delivered for one device, in order.
    std::vector<int> StatusesOf(int deviceId) const {
        std::vector<int> statuses;
        for (const auto& doc : Of(deviceId)) {
            statuses.push_back(doc.get_int_v("/Status", -1));
        }
        return statuses;
    }
    /// The last status text of a device; empty when none came.
    NetworkCommunication::CRapidJsonProto LastOf(int deviceId) const {
        const auto docs = Of(deviceId);
        return docs.empty() ? NetworkCommunication::CRapidJsonProto() : docs.back();
    }
    std::string Dump() const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::string all;
        for (const std::string& text : texts_) {
            all += text + "\n";
        }
        return all;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> texts_;
};

}  // namespace BroadcastTest
