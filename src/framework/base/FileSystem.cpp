#include "framework/base/FileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace Tal {
namespace Base {
namespace FileSystem {

int OpenFile(const std::string& path, int mode, int /*bufferSize*/) {
    if (path.empty()) {
        return -1;
    }
    int flags = O_CLOEXEC;
    switch (mode) {
        case kOpenRead:
            flags |= O_RDONLY;
            break;
        case kOpenWrite:
            flags |= O_WRONLY | O_CREAT | O_TRUNC;
            break;
        case kOpenReadWrite:
            flags |= O_RDWR | O_CREAT;
            break;
        case kOpenAppend:
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            break;
        default:
            return -1;
    }
    int fd;
    do {
        fd = ::open(path.c_str(), flags, 0644);
    } while (fd < 0 && errno == EINTR);
    return fd < 0 ? -1 : fd;
}

bool ReadFile(int handle, void* buffer, uint32_t size, uint32_t* bytesRead) {
    if (bytesRead != nullptr) {
        *bytesRead = 0;
    }
    if (handle < 0 || (buffer == nullptr && size > 0)) {
        return false;
    }
    uint32_t total = 0;
    auto* out = static_cast<char*>(buffer);
    while (total < size) {
        ssize_t n = ::read(handle, out + total, size - total);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            if (bytesRead != nullptr) {
                *bytesRead = total;
            }
            return false;
        }
        if (n == 0) {
            break;
        }
        total += static_cast<uint32_t>(n);
    }
    if (bytesRead != nullptr) {
        *bytesRead = total;
    }
    return true;
}

bool WriteFile(int handle, const void* data, uint32_t size, uint32_t* bytesWritten) {
    if (bytesWritten != nullptr) {
        *bytesWritten = 0;
    }
    if (handle < 0 || (data == nullptr && size > 0)) {
        return false;
    }
    uint32_t total = 0;
    const auto* in = static_cast<const char*>(data);
    while (total < size) {
        ssize_t n = ::write(handle, in + total, size - total);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        total += static_cast<uint32_t>(n);
    }
    if (bytesWritten != nullptr) {
        *bytesWritten = total;
    }
    return total == size;
}

bool FileSeek(int handle, int64_t offset, int origin, int64_t* newPosition) {
    int whence = origin == kSeekCurrent ? SEEK_CUR : origin == kSeekEnd ? SEEK_END : SEEK_SET;
    off_t pos = ::lseek(handle, static_cast<off_t>(offset), whence);
    if (pos < 0) {
        return false;
    }
    if (newPosition != nullptr) {
        *newPosition = static_cast<int64_t>(pos);
    }
    return true;
}

bool FileStat(int handle, FileInfo* info) {
    struct stat st {};
    if (handle < 0 || info == nullptr || ::fstat(handle, &st) != 0) {
        return false;
    }
    info->size = static_cast<int64_t>(st.st_size);
    info->modifiedTime = static_cast<int64_t>(st.st_mtime);
    return true;
}

void CloseFile(int handle) {
    if (handle >= 0) {
        ::close(handle);
    }
}

bool FileExists(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool DirectoryExists(const std::string& path) {
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool MakeFullDir(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    std::string partial;
    partial.reserve(path.size());
    for (std::size_t i = 0; i < path.size(); ++i) {
        partial.push_back(path[i]);
        bool atEnd = i + 1 == path.size();
        if ((path[i] == '/' || atEnd) && partial != "/") {
            if (::mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) {
                return false;
            }
        }
    }
    return DirectoryExists(path);
}

bool DeleteFileW(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

int64_t GetFileSize(const std::string& path) {
    struct stat st {};
    if (path.empty() || ::stat(path.c_str(), &st) != 0) {
        return -1;
    }
    return static_cast<int64_t>(st.st_size);
}

std::string JoinPath(const std::string& directory, const std::string& name) {
    if (directory.empty()) {
        return name;
    }
    if (directory.back() == '/') {
        return directory + name;
    }
    return directory + "/" + name;
}

}  // namespace FileSystem
}  // namespace Base
}  // namespace Tal
