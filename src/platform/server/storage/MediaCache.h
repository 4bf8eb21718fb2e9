#pragma once
// Rendered media files, kept between runs: a recipe and a format are made once, then found again by a
// SHA-256 of their description (and of the renderer's version), so that the platform starts quickly
// however often it is started. Files appear complete or not at all (written aside, then renamed), so
// platforms that share the directory never read a half-written file.

#include <string>

#include "platform/server/fixture/Fixture.h"

namespace Platform {

class CMediaCache {
public:
    explicit CMediaCache(std::string directory);

    /// The file of this recipe in `format`: from the cache (`hit` true), or made now and kept. False with a
    /// reason when it cannot be made.
    bool Get(const MediaRecipe& recipe, const std::string& format, std::string& path, bool& hit,
             std::string& error);

    /// What identifies a rendered file: the renderer's version, the format and every value of the recipe.
    static std::string Describe(const MediaRecipe& recipe, const std::string& format);
    /// Hex SHA-256 of Describe.
    static std::string KeyOf(const MediaRecipe& recipe, const std::string& format);

    const std::string& Directory() const { return directory_; }

private:
    std::string directory_;
};

}  // namespace Platform
