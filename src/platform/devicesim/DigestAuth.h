#pragma once
// HTTP digest authentication (RFC 7616, MD5, qop "auth") for the server side: challenges and verification.

#include <cstddef>
#include <deque>
#include <mutex>
#include <set>
#include <string>

namespace DeviceSim {

class CDigestAuthenticator {
public:
    CDigestAuthenticator(std::string realm, std::string userName, std::string password);

    /// True when `authorization` (the header value) answers one of our nonces for this method and target.
    bool Verify(const std::string& method, const std::string& target, const std::string& authorization);
    /// A WWW-Authenticate header value with a fresh nonce.
    std::string Challenge();

private:
    static constexpr std::size_t kMaxNonces = 256;

    const std::string realm_;
    const std::string userName_;
    const std::string password_;
    std::mutex mutex_;
    std::set<std::string> nonces_;
    std::deque<std::string> nonceOrder_;
};

/// Lower-case hex MD5 of `text`.
std::string Md5Hex(const std::string& text);

}  // namespace DeviceSim
