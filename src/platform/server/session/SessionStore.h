#pragma once
// Login sessions: a bearer token that authenticates every request and the push link, and the session key
// that keys the secrets sent to that session.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Platform {

struct SessionInfo {
    std::string token;       ///< "Authorization: Bearer <token>"
    std::string sessionKey;  ///< key material of the secret schemes (base64 text)
    std::string userName;
    int userId = 0;
    int64_t createdMs = 0;
    int64_t lastSeenMs = 0;
};

class CSessionStore {
public:
    /// Opens a session; false when random bytes cannot be drawn.
    bool Open(const std::string& userName, int userId, SessionInfo& session);
    /// Finds a session by token and marks it seen. False for an unknown token.
    bool Touch(const std::string& token, SessionInfo& session);
    bool Find(const std::string& token, SessionInfo& session) const;
    /// Closes a session; false when the token is unknown.
    bool Close(const std::string& token);
    void Clear();
    std::vector<SessionInfo> All() const;

private:
    mutable std::mutex mutex_;
    std::map<std::string, SessionInfo> sessions_;
};

/// Milliseconds since the epoch.
int64_t NowMs();

}  // namespace Platform
