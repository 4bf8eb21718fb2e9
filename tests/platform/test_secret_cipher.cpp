// The two secret schemes shared by the platform and the client: published vectors for the primitives,
// fixed vectors of the whole schemes computed by an independent implementation (secret_vectors.py),
// and the refusal of tampered texts, wrong keys and malformed input.

#include <gtest/gtest.h>

#include <string>

#include "framework/base/ErrorCode.h"
#include "framework/business/secret/SecretCipher.h"

using namespace BusinessCommon;
using Tal::Base::Error::GetLastError;

namespace {

const char kSessionKey[] = "q83vEjRWeJq83vEjRWeJq83vEjRWeJq83vEjRWeJq80=";
const char kPlain[] = "Dev#Pass-2026";

std::string Hex(const std::string& hex) {
    std::string out;
    EXPECT_TRUE(SecretPrimitives::FromHex(hex, out)) << hex;
    return out;
}

std::string Range(int first, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        out.push_back(static_cast<char>(first + i));
    }
    return out;
}

}  // namespace

TEST(SecretPrimitives, Base64MatchesRfc4648AndRejectsNonCanonicalText) {
    EXPECT_EQ(SecretPrimitives::Base64Encode(""), "");
    EXPECT_EQ(SecretPrimitives::Base64Encode("f"), "Zg==");
    EXPECT_EQ(SecretPrimitives::Base64Encode("fo"), "Zm8=");
    EXPECT_EQ(SecretPrimitives::Base64Encode("foo"), "Zm9v");
    EXPECT_EQ(SecretPrimitives::Base64Encode("foobar"), "Zm9vYmFy");
    std::string out;
    ASSERT_TRUE(SecretPrimitives::Base64Decode("Zm8=", out));
    EXPECT_EQ(out, "fo");
    ASSERT_TRUE(SecretPrimitives::Base64Decode("Zg==", out));
    EXPECT_EQ(out, "f");
    ASSERT_TRUE(SecretPrimitives::Base64Decode("", out));
    EXPECT_EQ(out, "");
    const std::string binary = Range(0, 256);
    ASSERT_TRUE(SecretPrimitives::Base64Decode(SecretPrimitives::Base64Encode(binary), out));
    EXPECT_EQ(out, binary);
    EXPECT_FALSE(SecretPrimitives::Base64Decode("Zm8", out)) << "length not a multiple of 4";
    EXPECT_FALSE(SecretPrimitives::Base64Decode("Z=8=", out)) << "padding inside";
    EXPECT_FALSE(SecretPrimitives::Base64Decode("Zm9v\n", out)) << "line break";
    EXPECT_FALSE(SecretPrimitives::Base64Decode("Zm9*", out)) << "outside the alphabet";
    EXPECT_FALSE(SecretPrimitives::Base64Decode("Z===", out)) << "three padding characters";
}

TEST(SecretPrimitives, HmacHkdfAesMatchPublishedVectors) {
    std::string mac;
    // RFC 4231, test case 2.
    ASSERT_TRUE(SecretPrimitives::HmacSha256("Jefe", "what do ya want for nothing?", mac));
    EXPECT_EQ(SecretPrimitives::ToHex(mac),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");

    // RFC 5869, test case 1.
    std::string okm;
    ASSERT_TRUE(
        SecretPrimitives::HkdfSha256(std::string(22, '\x0b'), Range(0, 13), Range(0xf0, 10), 42, okm));
    EXPECT_EQ(SecretPrimitives::ToHex(okm),
              "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865");

    // NIST SP 800-38A F.2.1 (CBC-AES128): the first block; PKCS#7 adds a padding block after it.
    std::string cipher;
    ASSERT_TRUE(SecretPrimitives::Aes128CbcEncrypt(Hex("2b7e151628aed2a6abf7158809cf4f3c"), Range(0, 16),
                                                   Hex("6bc1bee22e409f96e93d7e117393172a"), cipher));
    ASSERT_EQ(cipher.size(), 32u);
    EXPECT_EQ(SecretPrimitives::ToHex(cipher.substr(0, 16)), "7649abac8119b246cee98e9b12e9197d");
    std::string plain;
    ASSERT_TRUE(SecretPrimitives::Aes128CbcDecrypt(Hex("2b7e151628aed2a6abf7158809cf4f3c"), Range(0, 16),
                                                   cipher, plain));
    EXPECT_EQ(SecretPrimitives::ToHex(plain), "6bc1bee22e409f96e93d7e117393172a");

    // McGrew and Viega, "The Galois/Counter Mode of Operation", test cases 13 and 14: AES-256, zero key
    // and nonce.
    const std::string zeroKey(32, '\0');
    const std::string zeroNonce(12, '\0');
    std::string sealed;
    ASSERT_TRUE(SecretPrimitives::Aes256GcmSeal(zeroKey, zeroNonce, "", "", sealed));
    EXPECT_EQ(SecretPrimitives::ToHex(sealed), "530f8afbc74536b9a963b4f1c4cb738b");
    ASSERT_TRUE(SecretPrimitives::Aes256GcmSeal(zeroKey, zeroNonce, "", std::string(16, '\0'), sealed));
    EXPECT_EQ(SecretPrimitives::ToHex(sealed),
              "cea7403d4d606b6e074ec5d3baf39d18d0d1c8a799996bf0265b98b5d48ab919");
    ASSERT_TRUE(SecretPrimitives::Aes256GcmOpen(zeroKey, zeroNonce, "", sealed, plain));
    EXPECT_EQ(plain, std::string(16, '\0'));
}

TEST(SecretCipher, BothSchemesMatchTheIndependentImplementation) {
    CSecretCipher cipher(kSessionKey);
    std::string text;
    ASSERT_TRUE(cipher.EncryptWithIv(kPlain, Range(0, 16), text));
    EXPECT_EQ(text, "AAECAwQFBgcICQoLDA0OD+iqHjnikUWf87SJb7jwlYSnX1JDbAvqGDZ1SH9qWKKb");
    ASSERT_TRUE(cipher.EncryptWithIv("", Range(0, 16), text));
    EXPECT_EQ(text, "AAECAwQFBgcICQoLDA0OD8lerNy58JPK4SMN8z1X/GqGyJym8RyyCZGtnjWoVRsD");
    ASSERT_TRUE(cipher.SensitiveEncryptWithNonce(kPlain, Range(0xa0, 12), text));
    EXPECT_EQ(text, "AaChoqOkpaanqKmqqygiJbVnHPb6F61RHPd91gCgeJwd/apb6XVFidCK");
    ASSERT_TRUE(cipher.SensitiveEncryptWithNonce("", Range(0xa0, 12), text));
    EXPECT_EQ(text, "AaChoqOkpaanqKmqq1QITnv3yn/FsNhasxIWHXI=");

    std::string plain;
    ASSERT_TRUE(cipher.Decrypt("AAECAwQFBgcICQoLDA0OD+iqHjnikUWf87SJb7jwlYSnX1JDbAvqGDZ1SH9qWKKb", plain));
    EXPECT_EQ(plain, kPlain);
    ASSERT_TRUE(cipher.SensitiveDecrypt("AaChoqOkpaanqKmqqygiJbVnHPb6F61RHPd91gCgeJwd/apb6XVFidCK", plain));
    EXPECT_EQ(plain, kPlain);
    ASSERT_TRUE(cipher.SensitiveDecrypt("AaChoqOkpaanqKmqq1QITnv3yn/FsNhasxIWHXI=", plain));
    EXPECT_EQ(plain, "");
    EXPECT_TRUE(GetLastError().IsSucceed());
}

TEST(SecretCipher, RandomIvsDifferAndRoundTripThroughTheTypeSelector) {
    CSecretCipher cipher(kSessionKey);
    const char raw[] = "p\xc3\xa4ss w\0rd\x01\xff";
    const std::string secret(raw, sizeof(raw) - 1);
    for (int type : {-1, 0, 1}) {
        std::string a;
        std::string b;
        ASSERT_TRUE(cipher.EncryptByType(type, secret, a)) << type;
        ASSERT_TRUE(cipher.EncryptByType(type, secret, b)) << type;
        EXPECT_NE(a, b) << "each text carries a fresh IV or nonce, type " << type;
        std::string plain;
        ASSERT_TRUE(cipher.DecryptByType(type, a, plain)) << type;
        EXPECT_EQ(plain, secret);
    }
    std::string legacy;
    ASSERT_TRUE(cipher.Encrypt(secret, legacy));
    std::string plain;
    EXPECT_FALSE(cipher.SensitiveDecrypt(legacy, plain)) << "a legacy text is no sensitive text";
    std::string sensitive;
    ASSERT_TRUE(cipher.SensitiveEncrypt(secret, sensitive));
    EXPECT_FALSE(cipher.Decrypt(sensitive, plain)) << "a sensitive text is no legacy text";

    std::string text;
    EXPECT_FALSE(cipher.EncryptByType(2, secret, text));
    EXPECT_EQ(GetLastError().GetSubErrorCode(), kCodeSecretMalformed);
    EXPECT_FALSE(cipher.DecryptByType(2, legacy, plain));
}

TEST(SecretCipher, EveryFlippedByteAndAWrongKeyAreRejected) {
    CSecretCipher cipher(kSessionKey);
    CSecretCipher other("another session key");
    std::string legacy;
    std::string sensitive;
    ASSERT_TRUE(cipher.Encrypt(kPlain, legacy));
    ASSERT_TRUE(cipher.SensitiveEncrypt(kPlain, sensitive));

    struct Case {
        const char* name;
        std::string text;
        bool (CSecretCipher::*decrypt)(const std::string&, std::string&) const;
    };
    for (const Case& c : {Case{"legacy", legacy, &CSecretCipher::Decrypt},
                          Case{"sensitive", sensitive, &CSecretCipher::SensitiveDecrypt}}) {
        std::string raw;
        ASSERT_TRUE(SecretPrimitives::Base64Decode(c.text, raw));
        for (size_t i = 0; i < raw.size(); ++i) {
            std::string tampered = raw;
            tampered[i] = static_cast<char>(tampered[i] ^ 0x01);
            std::string plain = "untouched";
            EXPECT_FALSE((cipher.*c.decrypt)(SecretPrimitives::Base64Encode(tampered), plain))
                << c.name << " byte " << i;
            EXPECT_EQ(plain, "untouched") << "a refused text leaves the output alone";
            int code = GetLastError().GetSubErrorCode();
            EXPECT_TRUE(code == kCodeSecretRejected || code == kCodeSecretMalformed) << code;
        }
        std::string plain;
        EXPECT_FALSE((other.*c.decrypt)(c.text, plain)) << c.name << " under a wrong key";
        EXPECT_EQ(GetLastError().GetMainErrorCode(), Tal::Base::Error::kModuleFramework);
        EXPECT_EQ(GetLastError().GetSubErrorCode(), kCodeSecretRejected);
        EXPECT_FALSE((cipher.*c.decrypt)(c.text.substr(0, c.text.size() - 4), plain))
            << c.name << " truncated";
        EXPECT_FALSE((cipher.*c.decrypt)("", plain)) << c.name << " empty";
        EXPECT_FALSE((cipher.*c.decrypt)("not base64!", plain)) << c.name;
        EXPECT_EQ(GetLastError().GetSubErrorCode(), kCodeSecretMalformed);
        ASSERT_TRUE((cipher.*c.decrypt)(c.text, plain)) << c.name << " untampered";
        EXPECT_EQ(plain, kPlain);
    }
}

TEST(SecretCipher, AnEmptySessionKeyEncryptsNothing) {
    CSecretCipher cipher("");
    std::string text;
    EXPECT_FALSE(cipher.Encrypt(kPlain, text));
    EXPECT_FALSE(cipher.SensitiveEncrypt(kPlain, text));
    EXPECT_EQ(GetLastError().GetSubErrorCode(), kCodeSecretMalformed);
    std::string plain;
    EXPECT_FALSE(cipher.Decrypt("AAECAwQFBgcICQoLDA0OD+iqHjnikUWf87SJb7jwlYSnX1JDbAvqGDZ1SH9qWKKb", plain));
    EXPECT_TRUE(text.empty());
}
