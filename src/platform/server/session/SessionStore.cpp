#include "platform/server/session/SessionStore.h"

#include <chrono>

#include "framework/business/secret/SecretCipher.h"
#include "platform/server/MapValues.h"

namespace Platform {

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool CSessionStore::Open(const std::string& userName, int userId, SessionInfo& session) {
    std::string tokenBytes;
    std::string keyBytes;
    if (!BusinessCommon::SecretPrimitives::RandomBytes(24, tokenBytes) ||
        !BusinessCommon::SecretPrimitives::RandomBytes(32, keyBytes)) {
        return false;
    }
    SessionInfo s;
    s.token = BusinessCommon::SecretPrimitives::ToHex(tokenBytes);
    s.sessionKey = BusinessCommon::SecretPrimitives::Base64Encode(keyBytes);
    s.userName = userName;
    s.userId = userId;
    s.createdMs = s.lastSeenMs = NowMs();
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_[s.token] = s;
    session = s;
    return true;
}

bool CSessionStore::Touch(const std::string& token, SessionInfo& session) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = sessions_.find(token);
    if (it == sessions_.end()) {
        return false;
    }
    it->second.lastSeenMs = NowMs();
    session = it->second;
    return true;
}

bool CSessionStore::Find(const std::string& token, SessionInfo& session) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = sessions_.find(token);
    if (it == sessions_.end()) {
        return false;
    }
    session = it->second;
    return true;
}

bool CSessionStore::Close(const std::string& token) {
    std::lock_guard<std::mutex> lock(mutex_);
    return sessions_.erase(token) > 0;
}

void CSessionStore::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    sessions_.clear();
}

std::vector<SessionInfo> CSessionStore::All() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return MapValues(sessions_);
}

}  // namespace Platform
