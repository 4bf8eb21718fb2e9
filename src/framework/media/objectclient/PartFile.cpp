#include "framework/media/objectclient/PartFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace CloudStorage {

CPartFile::CPartFile(const std::string& path) : path_(path), partPath_(path + ".part") {}

bool CPartFile::Open(std::string& error) {
    Discard();
    file_.reset(std::fopen(partPath_.c_str(), "wb"));
    if (!file_) {
        error = "cannot create " + partPath_ + ": " + std::strerror(errno);
        return false;
    }
    pending_ = true;
    return true;
}

bool CPartFile::Commit(std::string& error) {
    if (!file_) {
        error = "no file to complete";
        return false;
    }
    // A rename that survives a crash must not point at data still in the page cache.
    if (std::fflush(file_.get()) != 0 || ::fsync(::fileno(file_.get())) != 0) {
        error = "cannot write " + partPath_ + ": " + std::strerror(errno);
        return false;
    }
    if (std::fclose(file_.release()) != 0) {
        error = "cannot write " + partPath_ + ": " + std::strerror(errno);
        return false;
    }
    if (std::rename(partPath_.c_str(), path_.c_str()) != 0) {
        error = "cannot rename " + partPath_ + " to " + path_ + ": " + std::strerror(errno);
        return false;
    }
    pending_ = false;
    return true;
}

void CPartFile::Discard() {
    file_.reset();
    if (pending_) {
        std::remove(partPath_.c_str());
        pending_ = false;
    }
}

}  // namespace CloudStorage
