#pragma once
// The two schemes by which the platform protects the secrets it sends (device passwords, streaming tokens,
// storage keys), keyed by the session key that the login hands out. The server's "SecureEncryptType" picks
// the scheme: 0 (or -1) the older one, 1 the newer one.
//
// Key material: the "SessionKey" text of the login response, byte for byte.
//
// Older scheme (text = base64(IV || C || T)):
//   encKey = SHA-256("TalSecret.legacy.enc" || K)[0..16), macKey = SHA-256("TalSecret.legacy.mac" || K)
//   C = AES-128-CBC with PKCS#7 padding under encKey and a random 16-byte IV
//   T = HMAC-SHA-256(macKey, IV || C)[0..16)   (encrypt-then-MAC, so tampering is detected)
// Newer scheme (text = base64(0x01 || N || C || T)):
//   key = HKDF-SHA-256(IKM = K, salt = "TalSecret.sensitive", info = "aes-256-gcm", 32 bytes)
//   C, T = AES-256-GCM under key, random 12-byte nonce N, additional data the version byte 0x01, 16-byte tag

#include <string>

namespace BusinessCommon {

/// Values of the server's "SecureEncryptType".
enum SecretScheme { kSecretSchemeLegacy = 0, kSecretSchemeSensitive = 1 };

/// Codes (module Tal::Base::Error::kModuleFramework) left by failed operations.
constexpr int kCodeSecretMalformed = 21;    ///< not base64, too short, unknown version, or no key
constexpr int kCodeSecretRejected = 22;     ///< does not authenticate under this key (tampered or wrong key)
constexpr int kCodeSecretCryptoError = 23;  ///< the crypto library failed

/// Encrypts and decrypts secrets under one session key. Stateless apart from the key; thread-safe.
/// Every failing call returns false, leaves the reason in the thread's last error and logs one line.
class CSecretCipher {
public:
    explicit CSecretCipher(std::string sessionKey);

    /// Older scheme.
    bool Encrypt(const std::string& plain, std::string& text) const;
    bool Decrypt(const std::string& text, std::string& plain) const;
    /// Newer, authenticated scheme.
    bool SensitiveEncrypt(const std::string& plain, std::string& text) const;
    bool SensitiveDecrypt(const std::string& text, std::string& plain) const;

    /// By "SecureEncryptType": 1 the newer scheme, 0 and -1 the older one; other values fail.
    bool EncryptByType(int secureEncryptType, const std::string& plain, std::string& text) const;
    bool DecryptByType(int secureEncryptType, const std::string& text, std::string& plain) const;

    /// Fixed-IV and fixed-nonce forms for reproducible vectors; the IV must be 16 and the nonce 12 bytes.
    bool EncryptWithIv(const std::string& plain, const std::string& iv, std::string& text) const;
    bool SensitiveEncryptWithNonce(const std::string& plain, const std::string& nonce,
                                   std::string& text) const;

private:
    std::string key_;
};

namespace SecretPrimitives {

/// Standard base64 with padding, no line breaks.
std::string Base64Encode(const std::string& data);
/// Strict decoding: false on characters outside the alphabet, wrong padding or a length not a multiple of 4.
bool Base64Decode(const std::string& text, std::string& data);
std::string Sha256(const std::string& data);
bool HmacSha256(const std::string& key, const std::string& data, std::string& mac);
bool HkdfSha256(const std::string& ikm, const std::string& salt, const std::string& info, size_t length,
                std::string& okm);
/// AES-128-CBC with PKCS#7 padding.
bool Aes128CbcEncrypt(const std::string& key, const std::string& iv, const std::string& plain,
                      std::string& out);
bool Aes128CbcDecrypt(const std::string& key, const std::string& iv, const std::string& cipher,
                      std::string& out);
/// AES-256-GCM; `out` of the seal is the cipher text followed by the 16-byte tag.
bool Aes256GcmSeal(const std::string& key, const std::string& nonce, const std::string& aad,
                   const std::string& plain, std::string& out);
bool Aes256GcmOpen(const std::string& key, const std::string& nonce, const std::string& aad,
                   const std::string& sealed, std::string& plain);
/// Cryptographically random bytes; false when the generator fails.
bool RandomBytes(size_t count, std::string& out);
/// Lower-case hex of bytes and back (false on odd length or non-hex characters).
std::string ToHex(const std::string& data);
bool FromHex(const std::string& hex, std::string& data);

}  // namespace SecretPrimitives

}  // namespace BusinessCommon
