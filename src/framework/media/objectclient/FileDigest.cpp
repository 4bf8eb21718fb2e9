#include "framework/media/objectclient/FileDigest.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace CloudStorage {

const char* const kEmptyBodySha256 = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

namespace {

constexpr std::size_t kPieceBytes = 256 * 1024;

struct DigestContextFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, DigestContextFree>;

}  // namespace

std::string ToHex(const unsigned char* data, unsigned int length) {
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        hex.push_back(kHex[data[i] >> 4]);
        hex.push_back(kHex[data[i] & 0x0F]);
    }
    return hex;
}

std::string Sha256Hex(const std::string& data) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(data.data(), data.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        return std::string();
    }
    return ToHex(digest, length);
}

bool Sha256OfFile(std::FILE* file, std::string& hex, std::string& error) {
    if (std::fseek(file, 0, SEEK_SET) != 0) {
        error = std::string("cannot seek: ") + std::strerror(errno);
        return false;
    }
    DigestContextPtr context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        error = "cannot set up SHA-256";
        return false;
    }
    std::vector<unsigned char> piece(kPieceBytes);
    for (;;) {
        std::size_t got = std::fread(piece.data(), 1, piece.size(), file);
        if (got > 0 && EVP_DigestUpdate(context.get(), piece.data(), got) != 1) {
            error = "SHA-256 failed";
            return false;
        }
        if (got < piece.size()) {
            if (std::ferror(file) != 0) {
                error = std::string("cannot read: ") + std::strerror(errno);
                return false;
            }
            break;
        }
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context.get(), digest, &length) != 1) {
        error = "SHA-256 failed";
        return false;
    }
    if (std::fseek(file, 0, SEEK_SET) != 0) {
        error = std::string("cannot seek: ") + std::strerror(errno);
        return false;
    }
    hex = ToHex(digest, length);
    return true;
}

}  // namespace CloudStorage
