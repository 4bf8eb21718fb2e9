#pragma once
// The logged-in user's session as the business services see it: where the client logged in, its network
// domain and client type, and the decryption of secrets the platform sends.

#include <mutex>
#include <string>

namespace BusinessCommon {

/// What the platform lets the logged-in user broadcast. A platform that does not manage rights sends none:
/// then both hold.
struct BroadcastRights {
    bool broadcast = true;      ///< files and texts ("BroadcastHasAuthority")
    bool realBroadcast = true;  ///< live talk from the microphone ("RealBroadcastHasAuthority")
};

struct LoginInfo {
    std::string address;  ///< the platform address the client logged in to
    int port = 0;
    std::string userName;
    std::string token;       ///< the session token of the REST and push requests
    std::string sessionKey;  ///< key material of the secret schemes
    std::string loginLanguage = "en_US";
    BroadcastRights broadcastRights;
};

class CUserCommonManager {
public:
    static CUserCommonManager* Instance();

    void SetLoginInfo(const LoginInfo& info);
    void ClearLoginInfo();
    bool IsLogin() const;
    LoginInfo GetLogin() const;
    /// The address, port and user of the current login; false when nobody is logged in.
    bool GetLoginInfo(std::string& address, int& port, std::string& user) const;
    /// The broadcast rights of the current login; both hold when nobody is logged in (nothing is known).
    BroadcastRights GetBroadcastRights() const;

    /// "LAN" or "WAN": the network the client reaches the platform from.
    bool GetClientDomain(std::string& domain) const;
    void SetClientDomain(const std::string& domain);
    /// 0 the operator client; 1 a client kind that keeps no recordings.
    int GetClientType() const;
    void SetClientType(int type);

    /// Decrypts a secret of the older scheme with the session key. `flag` is kept for callers of the
    /// original interface and does not change the result. False, with the thread's last error set, when the
    /// text does not authenticate under the session key or nobody is logged in.
    bool Decryption(std::string& plain, const std::string& text, bool flag) const;
    /// The same for the newer, authenticated scheme.
    bool SensitiveInforDecryption(std::string& plain, const std::string& text, bool flag) const;

private:
    mutable std::mutex mutex_;
    LoginInfo login_;
    bool loggedIn_ = false;
    std::string domain_ = "LAN";
    int clientType_ = 0;
};

}  // namespace BusinessCommon
