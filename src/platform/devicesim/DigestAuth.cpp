#include "platform/devicesim/DigestAuth.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cctype>
#include <map>

namespace DeviceSim {

namespace {

std::string Hex(const unsigned char* data, std::size_t size) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(kDigits[data[i] >> 4]);
        text.push_back(kDigits[data[i] & 0x0F]);
    }
    return text;
}

/// `Digest username="a", realm="b", nc=00000001, ...` -> {username: a, realm: b, nc: 00000001, ...}.
std::map<std::string, std::string> ParseDigest(const std::string& header) {
    std::map<std::string, std::string> fields;
    std::size_t pos = header.find(' ');
    if (pos == std::string::npos || header.compare(0, pos, "Digest") != 0) {
        return fields;
    }
    while (pos < header.size()) {
        while (pos < header.size() && (header[pos] == ' ' || header[pos] == ',')) {
            ++pos;
        }
        const std::size_t equals = header.find('=', pos);
        if (equals == std::string::npos) {
            break;
        }
        std::string key = header.substr(pos, equals - pos);
        for (auto& c : key) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        std::string value;
        pos = equals + 1;
        if (pos < header.size() && header[pos] == '"') {
            ++pos;
            while (pos < header.size() && header[pos] != '"') {
                if (header[pos] == '\\' && pos + 1 < header.size()) {
                    ++pos;
                }
                value.push_back(header[pos++]);
            }
            ++pos;
        } else {
            const std::size_t end = header.find(',', pos);
            value = header.substr(pos, end == std::string::npos ? std::string::npos : end - pos);
            pos = end == std::string::npos ? header.size() : end;
        }
        fields[key] = value;
    }
    return fields;
}

}  // namespace

std::string Md5Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr);
    return Hex(digest, length);
}

CDigestAuthenticator::CDigestAuthenticator(std::string realm, std::string userName, std::string password)
    : realm_(std::move(realm)), userName_(std::move(userName)), password_(std::move(password)) {}

std::string CDigestAuthenticator::Challenge() {
    unsigned char random[16];
    RAND_bytes(random, sizeof(random));
    const std::string nonce = Hex(random, sizeof(random));
    {
        std::lock_guard<std::mutex> lock(mutex_);
        nonces_.insert(nonce);
        nonceOrder_.push_back(nonce);
        if (nonceOrder_.size() > kMaxNonces) {
            nonces_.erase(nonceOrder_.front());
            nonceOrder_.pop_front();
        }
    }
    return "Digest realm=\"" + realm_ + "\", qop=\"auth\", algorithm=MD5, nonce=\"" + nonce + "\"";
}

bool CDigestAuthenticator::Verify(const std::string& method, const std::string& target,
                                  const std::string& authorization) {
    auto fields = ParseDigest(authorization);
    if (fields["username"] != userName_ || fields["realm"] != realm_ || fields["uri"] != target) {
        return false;
    }
    const std::string& nonce = fields["nonce"];
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (nonces_.count(nonce) == 0) {
            return false;
        }
    }
    const std::string ha1 = Md5Hex(userName_ + ":" + realm_ + ":" + password_);
    const std::string ha2 = Md5Hex(method + ":" + target);
    std::string expected;
    if (fields["qop"] == "auth") {
        expected = Md5Hex(ha1 + ":" + nonce + ":" + fields["nc"] + ":" + fields["cnonce"] + ":auth:" + ha2);
    } else if (fields["qop"].empty()) {
        expected = Md5Hex(ha1 + ":" + nonce + ":" + ha2);
    } else {
        return false;
    }
    return expected == fields["response"];
}

}  // namespace DeviceSim
