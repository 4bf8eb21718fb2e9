#pragma once
// Owners for the pipeline's file handles and for output files that are kept only when complete.

#include <string>

#include "framework/base/FileSystem.h"

namespace BroadCastPlugin {

/// A framework file handle closed on destruction; -1 when the open failed.
class CScopedFile {
public:
    CScopedFile(const std::string& path, int mode) : handle_(Tal::Base::FileSystem::OpenFile(path, mode)) {}
    ~CScopedFile() { Close(); }
    CScopedFile(const CScopedFile&) = delete;
    CScopedFile& operator=(const CScopedFile&) = delete;

    bool IsOpen() const { return handle_ >= 0; }
    int Get() const { return handle_; }
    void Close() {
        Tal::Base::FileSystem::CloseFile(handle_);
        handle_ = -1;
    }

private:
    int handle_;
};

/// Removes an output file on destruction unless Keep() was called: a step that fails or is stopped
/// leaves no half-written file that a later step could take for a good one.
class COutputFileGuard {
public:
    explicit COutputFileGuard(std::string path) : path_(std::move(path)) {}
    ~COutputFileGuard() {
        if (!keep_) {
            Tal::Base::FileSystem::DeleteFileW(path_);
        }
    }
    COutputFileGuard(const COutputFileGuard&) = delete;
    COutputFileGuard& operator=(const COutputFileGuard&) = delete;

    void Keep() { keep_ = true; }

private:
    std::string path_;
    bool keep_ = false;
};

}  // namespace BroadCastPlugin
