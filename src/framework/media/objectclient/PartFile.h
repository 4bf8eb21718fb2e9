#pragma once
// A download's file that appears complete or not at all: the data goes to "<path>.part", which replaces
// <path> on Commit and is removed otherwise.

#include <cstdio>
#include <memory>
#include <string>

namespace CloudStorage {

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileClose>;

class CPartFile {
public:
    explicit CPartFile(const std::string& path);
    ~CPartFile() { Discard(); }
    CPartFile(const CPartFile&) = delete;
    CPartFile& operator=(const CPartFile&) = delete;

    /// Creates (or truncates) the .part file.
    bool Open(std::string& error);
    std::FILE* Get() const { return file_.get(); }
    const std::string& PartPath() const { return partPath_; }

    /// Flushes the data to disk and renames the .part file over the final path.
    bool Commit(std::string& error);
    /// Closes and removes the .part file; the final path is left as it was.
    void Discard();

private:
    std::string path_;
    std::string partPath_;
    FilePtr file_;
    bool pending_ = false;  // a .part file exists that is ours to remove
};

}  // namespace CloudStorage
