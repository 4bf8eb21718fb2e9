#include "platform/server/storage/MediaCache.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "platform/server/storage/MediaRender.h"

namespace Platform {

namespace fs = std::filesystem;

namespace {

// Bumped whenever rendering changes what a recipe sounds like or how it is encoded.
constexpr char kRendererVersion[] = "bcast-media-1";

std::string Sha256Hex(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        return std::string();
    }
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < length; ++i) {
        hex += kHex[digest[i] >> 4];
        hex += kHex[digest[i] & 15];
    }
    return hex;
}

const char* KindName(MediaRecipe::Kind kind) {
    switch (kind) {
        case MediaRecipe::Kind::kSpeech:
            return "speech";
        case MediaRecipe::Kind::kChime:
            return "chime";
        case MediaRecipe::Kind::kTone:
            return "tone";
        case MediaRecipe::Kind::kNone:
            break;
    }
    return "none";
}

}  // namespace

CMediaCache::CMediaCache(std::string directory) : directory_(std::move(directory)) {}

std::string CMediaCache::Describe(const MediaRecipe& recipe, const std::string& format) {
    const AudioLayout layout = LayoutFor(recipe, format);
    std::ostringstream text;
    text.precision(17);
    text << kRendererVersion << '\n'
         << format << ' ' << layout.sampleRate << ' ' << layout.channels << ' ' << layout.bitRate << '\n'
         << KindName(recipe.kind) << '\n';
    switch (recipe.kind) {
        case MediaRecipe::Kind::kSpeech:
            text << recipe.voice << '\n' << recipe.speech;
            break;
        case MediaRecipe::Kind::kChime:
            text << recipe.seconds;
            break;
        case MediaRecipe::Kind::kTone:
            text << recipe.hz << ' ' << recipe.seconds;
            break;
        case MediaRecipe::Kind::kNone:
            break;
    }
    return text.str();
}

std::string CMediaCache::KeyOf(const MediaRecipe& recipe, const std::string& format) {
    return Sha256Hex(Describe(recipe, format));
}

bool CMediaCache::Get(const MediaRecipe& recipe, const std::string& format, std::string& path, bool& hit,
                      std::string& error) {
    const std::string key = KeyOf(recipe, format);
    if (key.empty()) {
        error = "cannot hash the recipe";
        return false;
    }
    std::error_code ec;
    fs::create_directories(directory_, ec);
    if (ec) {
        error = "cannot create the media cache " + directory_ + ": " + ec.message();
        return false;
    }
    path = (fs::path(directory_) / (key + "." + format)).string();
    if (fs::is_regular_file(path, ec) && fs::file_size(path, ec) > 0 && !ec) {
        hit = true;
        return true;
    }
    hit = false;
    static std::atomic<int> counter{0};
    const std::string part =
        path + ".part-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
    if (!RenderMedia(recipe, format, part, directory_, error)) {
        std::remove(part.c_str());
        return false;
    }
    if (std::rename(part.c_str(), path.c_str()) != 0) {
        std::remove(part.c_str());
        error = "cannot keep " + path;
        return false;
    }
    return true;
}

}  // namespace Platform
