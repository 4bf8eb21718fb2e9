#pragma once
// Logging the client in to the platform and out again: the REST session, the user's login information
// and the push link, set up and torn down together.

#include <cstdint>
#include <string>

namespace BusinessCommon {

struct PlatformLoginRequest {
    std::string address;  ///< host name or IP of the platform
    int port = 0;
    bool https = false;
    std::string caFile;  ///< PEM authorities for https and wss; empty: the system's
    std::string user;
    std::string password;
    std::string language;  ///< login language ("en_US"); empty: the business-common language
    /// Log in again by itself when the platform no longer knows the session (the push link hears 4401, as
    /// after a platform restart), with these credentials, kept in memory until logout.
    bool renewSession = true;
};

/// What the platform said about the session, for callers that show it.
struct PlatformLoginResult {
    std::string pushUrl;
    int userId = -1;
    std::string siteName;
    int secureEncryptType = -1;
    int64_t serverTimeMs = 0;
};

/// Logs in (POST .../Session/Login), replacing a login in place. On success the network manager carries
/// the session (address, CA file, token), CUserCommonManager holds the login information (address, port,
/// user, token, session key, language) and the framework's push link is started to the answer's PushUrl.
/// On failure nothing of a session is left, `error` holds one line (refused credentials, unreachable
/// platform, malformed answer...), the thread's last error the code, and a log line is written.
/// Not from the push link's thread (observers, listeners): refused there.
bool LoginToPlatform(const PlatformLoginRequest& request, std::string& error,
                     PlatformLoginResult* result = nullptr);

/// Renewals of the session since the process started (see PlatformLoginRequest::renewSession).
int SessionRenewalCount();

/// Stops the push link, tells the platform (best effort, at most a few seconds) and clears the session,
/// the login information and the stream access type cache. True when the platform acknowledged the logout
/// or there was no session. Refused (false) on the push link's thread.
bool LogoutFromPlatform();

}  // namespace BusinessCommon
