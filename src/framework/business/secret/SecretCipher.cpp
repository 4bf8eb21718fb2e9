#include "framework/business/secret/SecretCipher.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <memory>
#include <utility>

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"

namespace BusinessCommon {

namespace {

using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::kModuleFramework;

constexpr size_t kCbcIvBytes = 16;
constexpr size_t kLegacyTagBytes = 16;
constexpr size_t kGcmNonceBytes = 12;
constexpr size_t kGcmTagBytes = 16;
constexpr unsigned char kSensitiveVersion = 0x01;

struct CipherCtxDeleter {
    void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxDeleter>;

struct KdfDeleter {
    void operator()(EVP_KDF* kdf) const { EVP_KDF_free(kdf); }
};
struct KdfCtxDeleter {
    void operator()(EVP_KDF_CTX* ctx) const { EVP_KDF_CTX_free(ctx); }
};

const unsigned char* Bytes(const std::string& s) {
    return reinterpret_cast<const unsigned char*>(s.data());
}
unsigned char* Bytes(std::string& s) {
    return reinterpret_cast<unsigned char*>(&s[0]);
}

bool Fail(int code, const char* what) {
    Tal::Base::Error::SetLastError(ErrorCode(kModuleFramework, code));
    TAL_LOG(Tal::Base::kLogWarn, "BusinessCommon", "[%s]secret operation failed: %s, code %d[%s(%d)]", what,
            code);
    return false;
}

bool CryptoFail(const char* what) {
    return Fail(kCodeSecretCryptoError, what);
}

void Succeed() {
    Tal::Base::Error::SetLastError(ErrorCode());
}

bool IsBase64Char(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

std::string LegacyEncKey(const std::string& key) {
    return SecretPrimitives::Sha256("TalSecret.legacy.enc" + key).substr(0, 16);
}

std::string LegacyMacKey(const std::string& key) {
    return SecretPrimitives::Sha256("TalSecret.legacy.mac" + key);
}

bool SensitiveKey(const std::string& key, std::string& out) {
    return SecretPrimitives::HkdfSha256(key, "TalSecret.sensitive", "aes-256-gcm", 32, out);
}

// Sets `ctx` up for AES-256-GCM, sealing (encrypt 1) or opening (0), with the key and a nonce of its length.
bool InitGcm(EVP_CIPHER_CTX* ctx, int encrypt, const std::string& key, const std::string& nonce) {
    return ctx != nullptr &&
           EVP_CipherInit_ex(ctx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr, encrypt) == 1 &&
           EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(nonce.size()), nullptr) == 1 &&
           EVP_CipherInit_ex(ctx, nullptr, nullptr, Bytes(key), Bytes(nonce), encrypt) == 1;
}

// Authenticates the additional data (none when empty) in either direction.
bool AddGcmAad(EVP_CIPHER_CTX* ctx, const std::string& aad) {
    int aadBytes = 0;
    return aad.empty() ||
           EVP_CipherUpdate(ctx, nullptr, &aadBytes, Bytes(aad), static_cast<int>(aad.size())) == 1;
}

// Ends a decryption whose updates wrote `written` bytes of `buffer`: false (rejected, `what` named) when the
// padding or the tag does not check out; otherwise the plain text goes to `out`.
bool FinishDecrypt(EVP_CIPHER_CTX* ctx, std::string& buffer, int written, const char* what,
                   std::string& out) {
    int finalBytes = 0;
    if (EVP_DecryptFinal_ex(ctx, Bytes(buffer) + written, &finalBytes) != 1) {
        return Fail(kCodeSecretRejected, what);
    }
    buffer.resize(static_cast<size_t>(written + finalBytes));
    out = std::move(buffer);
    return true;
}

}  // namespace

namespace SecretPrimitives {

std::string Base64Encode(const std::string& data) {
    std::string out(4 * ((data.size() + 2) / 3) + 1, '\0');
    int n = EVP_EncodeBlock(Bytes(out), Bytes(data), static_cast<int>(data.size()));
    out.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return out;
}

bool Base64Decode(const std::string& text, std::string& data) {
    if (text.size() % 4 != 0) {
        return false;
    }
    size_t padding = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '=') {
            // Padding only in the last two places, and nothing but padding after it.
            if (i + 2 < text.size()) {
                return false;
            }
            ++padding;
        } else if (padding > 0 || !IsBase64Char(c)) {
            return false;
        }
    }
    std::string out(text.size() / 4 * 3 + 1, '\0');
    int n = EVP_DecodeBlock(Bytes(out), Bytes(text), static_cast<int>(text.size()));
    if (n < 0 || static_cast<size_t>(n) < padding) {
        return false;
    }
    out.resize(static_cast<size_t>(n) - padding);
    data = std::move(out);
    return true;
}

std::string Sha256(const std::string& data) {
    std::string digest(32, '\0');
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), Bytes(digest), &length, EVP_sha256(), nullptr) != 1) {
        return std::string();
    }
    digest.resize(length);
    return digest;
}

bool HmacSha256(const std::string& key, const std::string& data, std::string& mac) {
    std::string out(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), Bytes(data), data.size(), Bytes(out),
             &length) == nullptr) {
        return CryptoFail("HMAC-SHA-256");
    }
    out.resize(length);
    mac = std::move(out);
    return true;
}

bool HkdfSha256(const std::string& ikm, const std::string& salt, const std::string& info, size_t length,
                std::string& okm) {
    std::unique_ptr<EVP_KDF, KdfDeleter> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    if (!kdf) {
        return CryptoFail("HKDF fetch");
    }
    std::unique_ptr<EVP_KDF_CTX, KdfCtxDeleter> ctx(EVP_KDF_CTX_new(kdf.get()));
    if (!ctx) {
        return CryptoFail("HKDF context");
    }
    // OSSL_PARAM takes non-const pointers; the values are only read.
    char digest[] = "SHA256";
    std::string ikmCopy = ikm;
    std::string saltCopy = salt;
    std::string infoCopy = info;
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, &ikmCopy[0], ikmCopy.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, &saltCopy[0], saltCopy.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, &infoCopy[0], infoCopy.size()),
        OSSL_PARAM_construct_end(),
    };
    std::string out(length, '\0');
    if (length == 0 || EVP_KDF_derive(ctx.get(), Bytes(out), length, params) != 1) {
        return CryptoFail("HKDF derive");
    }
    okm = std::move(out);
    return true;
}

bool Aes128CbcEncrypt(const std::string& key, const std::string& iv, const std::string& plain,
                      std::string& out) {
    if (key.size() != 16 || iv.size() != kCbcIvBytes) {
        return Fail(kCodeSecretMalformed, "AES-128-CBC key or IV size");
    }
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    std::string buffer(plain.size() + 16, '\0');
    int n1 = 0;
    int n2 = 0;
    if (!ctx || EVP_EncryptInit_ex(ctx.get(), EVP_aes_128_cbc(), nullptr, Bytes(key), Bytes(iv)) != 1 ||
        EVP_EncryptUpdate(ctx.get(), Bytes(buffer), &n1, Bytes(plain), static_cast<int>(plain.size())) != 1 ||
        EVP_EncryptFinal_ex(ctx.get(), Bytes(buffer) + n1, &n2) != 1) {
        return CryptoFail("AES-128-CBC encrypt");
    }
    buffer.resize(static_cast<size_t>(n1 + n2));
    out = std::move(buffer);
    return true;
}

bool Aes128CbcDecrypt(const std::string& key, const std::string& iv, const std::string& cipher,
                      std::string& out) {
    if (key.size() != 16 || iv.size() != kCbcIvBytes || cipher.empty() || cipher.size() % 16 != 0) {
        return Fail(kCodeSecretMalformed, "AES-128-CBC input size");
    }
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    std::string buffer(cipher.size() + 16, '\0');
    int n1 = 0;
    if (!ctx || EVP_DecryptInit_ex(ctx.get(), EVP_aes_128_cbc(), nullptr, Bytes(key), Bytes(iv)) != 1 ||
        EVP_DecryptUpdate(ctx.get(), Bytes(buffer), &n1, Bytes(cipher), static_cast<int>(cipher.size())) !=
            1) {
        return CryptoFail("AES-128-CBC decrypt");
    }
    return FinishDecrypt(ctx.get(), buffer, n1, "AES-128-CBC padding", out);
}

bool Aes256GcmSeal(const std::string& key, const std::string& nonce, const std::string& aad,
                   const std::string& plain, std::string& out) {
    if (key.size() != 32 || nonce.size() != kGcmNonceBytes) {
        return Fail(kCodeSecretMalformed, "AES-256-GCM key or nonce size");
    }
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    std::string buffer(plain.size() + kGcmTagBytes, '\0');
    int n = 0;
    int finalBytes = 0;
    if (!InitGcm(ctx.get(), 1, key, nonce)) {
        return CryptoFail("AES-256-GCM init");
    }
    if (!AddGcmAad(ctx.get(), aad) ||
        (!plain.empty() && EVP_EncryptUpdate(ctx.get(), Bytes(buffer), &n, Bytes(plain),
                                             static_cast<int>(plain.size())) != 1) ||
        EVP_EncryptFinal_ex(ctx.get(), Bytes(buffer) + n, &finalBytes) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagBytes),
                            Bytes(buffer) + n + finalBytes) != 1) {
        return CryptoFail("AES-256-GCM seal");
    }
    buffer.resize(static_cast<size_t>(n + finalBytes) + kGcmTagBytes);
    out = std::move(buffer);
    return true;
}

bool Aes256GcmOpen(const std::string& key, const std::string& nonce, const std::string& aad,
                   const std::string& sealed, std::string& plain) {
    if (key.size() != 32 || nonce.size() != kGcmNonceBytes || sealed.size() < kGcmTagBytes) {
        return Fail(kCodeSecretMalformed, "AES-256-GCM input size");
    }
    const size_t cipherBytes = sealed.size() - kGcmTagBytes;
    std::string tag = sealed.substr(cipherBytes);
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    std::string buffer(cipherBytes + 16, '\0');
    int n = 0;
    if (!InitGcm(ctx.get(), 0, key, nonce) || !AddGcmAad(ctx.get(), aad) ||
        (cipherBytes > 0 && EVP_DecryptUpdate(ctx.get(), Bytes(buffer), &n, Bytes(sealed),
                                              static_cast<int>(cipherBytes)) != 1) ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagBytes), Bytes(tag)) !=
            1) {
        return CryptoFail("AES-256-GCM open");
    }
    return FinishDecrypt(ctx.get(), buffer, n, "AES-256-GCM tag", plain);
}

bool RandomBytes(size_t count, std::string& out) {
    std::string buffer(count, '\0');
    if (count > 0 && RAND_bytes(Bytes(buffer), static_cast<int>(count)) != 1) {
        return CryptoFail("random bytes");
    }
    out = std::move(buffer);
    return true;
}

std::string ToHex(const std::string& data) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    out.reserve(data.size() * 2);
    for (unsigned char c : data) {
        out.push_back(kDigits[c >> 4]);
        out.push_back(kDigits[c & 0x0f]);
    }
    return out;
}

bool FromHex(const std::string& hex, std::string& data) {
    auto value = [](char c) -> int {
        if (c >= '0' && c <= '9')
            return c - '0';
        if (c >= 'a' && c <= 'f')
            return c - 'a' + 10;
        if (c >= 'A' && c <= 'F')
            return c - 'A' + 10;
        return -1;
    };
    if (hex.size() % 2 != 0) {
        return false;
    }
    std::string out;
    out.reserve(hex.size() / 2);
    for (size_t i = 0; i < hex.size(); i += 2) {
        int hi = value(hex[i]);
        int lo = value(hex[i + 1]);
        if (hi < 0 || lo < 0) {
            return false;
        }
        out.push_back(static_cast<char>(hi * 16 + lo));
    }
    data = std::move(out);
    return true;
}

}  // namespace SecretPrimitives

CSecretCipher::CSecretCipher(std::string sessionKey) : key_(std::move(sessionKey)) {}

bool CSecretCipher::Encrypt(const std::string& plain, std::string& text) const {
    std::string iv;
    if (!SecretPrimitives::RandomBytes(kCbcIvBytes, iv)) {
        return false;
    }
    return EncryptWithIv(plain, iv, text);
}

bool CSecretCipher::EncryptWithIv(const std::string& plain, const std::string& iv, std::string& text) const {
    if (key_.empty()) {
        return Fail(kCodeSecretMalformed, "no session key");
    }
    std::string cipher;
    if (!SecretPrimitives::Aes128CbcEncrypt(LegacyEncKey(key_), iv, plain, cipher)) {
        return false;
    }
    std::string body = iv + cipher;
    std::string mac;
    if (!SecretPrimitives::HmacSha256(LegacyMacKey(key_), body, mac)) {
        return false;
    }
    text = SecretPrimitives::Base64Encode(body + mac.substr(0, kLegacyTagBytes));
    Succeed();
    return true;
}

bool CSecretCipher::Decrypt(const std::string& text, std::string& plain) const {
    if (key_.empty()) {
        return Fail(kCodeSecretMalformed, "no session key");
    }
    std::string raw;
    if (!SecretPrimitives::Base64Decode(text, raw) || raw.size() < kCbcIvBytes + 16 + kLegacyTagBytes ||
        (raw.size() - kCbcIvBytes - kLegacyTagBytes) % 16 != 0) {
        return Fail(kCodeSecretMalformed, "legacy secret text");
    }
    const std::string body = raw.substr(0, raw.size() - kLegacyTagBytes);
    const std::string tag = raw.substr(raw.size() - kLegacyTagBytes);
    std::string mac;
    if (!SecretPrimitives::HmacSha256(LegacyMacKey(key_), body, mac)) {
        return false;
    }
    // The tag is checked before any decryption: no padding oracle.
    if (CRYPTO_memcmp(mac.data(), tag.data(), kLegacyTagBytes) != 0) {
        return Fail(kCodeSecretRejected, "legacy secret tag");
    }
    std::string out;
    if (!SecretPrimitives::Aes128CbcDecrypt(LegacyEncKey(key_), body.substr(0, kCbcIvBytes),
                                            body.substr(kCbcIvBytes), out)) {
        return false;
    }
    plain = std::move(out);
    Succeed();
    return true;
}

bool CSecretCipher::SensitiveEncrypt(const std::string& plain, std::string& text) const {
    std::string nonce;
    if (!SecretPrimitives::RandomBytes(kGcmNonceBytes, nonce)) {
        return false;
    }
    return SensitiveEncryptWithNonce(plain, nonce, text);
}

bool CSecretCipher::SensitiveEncryptWithNonce(const std::string& plain, const std::string& nonce,
                                              std::string& text) const {
    if (key_.empty()) {
        return Fail(kCodeSecretMalformed, "no session key");
    }
    std::string key;
    if (!SensitiveKey(key_, key)) {
        return false;
    }
    const std::string version(1, static_cast<char>(kSensitiveVersion));
    std::string sealed;
    if (!SecretPrimitives::Aes256GcmSeal(key, nonce, version, plain, sealed)) {
        return false;
    }
    text = SecretPrimitives::Base64Encode(version + nonce + sealed);
    Succeed();
    return true;
}

bool CSecretCipher::SensitiveDecrypt(const std::string& text, std::string& plain) const {
    if (key_.empty()) {
        return Fail(kCodeSecretMalformed, "no session key");
    }
    std::string raw;
    if (!SecretPrimitives::Base64Decode(text, raw) || raw.size() < 1 + kGcmNonceBytes + kGcmTagBytes ||
        static_cast<unsigned char>(raw[0]) != kSensitiveVersion) {
        return Fail(kCodeSecretMalformed, "sensitive secret text");
    }
    std::string key;
    if (!SensitiveKey(key_, key)) {
        return false;
    }
    std::string out;
    if (!SecretPrimitives::Aes256GcmOpen(key, raw.substr(1, kGcmNonceBytes), raw.substr(0, 1),
                                         raw.substr(1 + kGcmNonceBytes), out)) {
        return false;
    }
    plain = std::move(out);
    Succeed();
    return true;
}

bool CSecretCipher::EncryptByType(int secureEncryptType, const std::string& plain, std::string& text) const {
    if (secureEncryptType == kSecretSchemeSensitive) {
        return SensitiveEncrypt(plain, text);
    }
    if (secureEncryptType == kSecretSchemeLegacy || secureEncryptType == -1) {
        return Encrypt(plain, text);
    }
    return Fail(kCodeSecretMalformed, "unknown SecureEncryptType");
}

bool CSecretCipher::DecryptByType(int secureEncryptType, const std::string& text, std::string& plain) const {
    if (secureEncryptType == kSecretSchemeSensitive) {
        return SensitiveDecrypt(text, plain);
    }
    if (secureEncryptType == kSecretSchemeLegacy || secureEncryptType == -1) {
        return Decrypt(text, plain);
    }
    return Fail(kCodeSecretMalformed, "unknown SecureEncryptType");
}

}  // namespace BusinessCommon
