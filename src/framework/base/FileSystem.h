#pragma once
// File functions on plain handles (-1 means failure) and path helpers.

#include <cstdint>
#include <string>

namespace Tal {
namespace Base {
namespace FileSystem {

enum OpenMode {
    kOpenRead = 1,       ///< existing file, read only
    kOpenWrite = 2,      ///< create or truncate, write only
    kOpenReadWrite = 3,  ///< create when missing, keep contents
    kOpenAppend = 4,     ///< create when missing, writes go to the end
};

enum SeekOrigin { kSeekBegin = 0, kSeekCurrent = 1, kSeekEnd = 2 };

struct FileInfo {
    int64_t size = 0;
    int64_t modifiedTime = 0;  ///< seconds since the epoch
};

/// Opens a file; returns a handle or -1. The buffer size is a hint kept for callers that pass one.
int OpenFile(const std::string& path, int mode, int bufferSize = 4096);
/// Reads up to `size` bytes; `bytesRead` gets what was read (0 at end of file). False on an I/O error.
bool ReadFile(int handle, void* buffer, uint32_t size, uint32_t* bytesRead);
/// Writes all `size` bytes; false when fewer could be written.
bool WriteFile(int handle, const void* data, uint32_t size, uint32_t* bytesWritten = nullptr);
bool FileSeek(int handle, int64_t offset, int origin, int64_t* newPosition = nullptr);
bool FileStat(int handle, FileInfo* info);
void CloseFile(int handle);

bool FileExists(const std::string& path);
bool DirectoryExists(const std::string& path);
/// Creates the directory with all its parents; true when it exists afterwards.
bool MakeFullDir(const std::string& path);
/// Deletes a file; a missing file is no error.
bool DeleteFileW(const std::string& path);
/// Size in bytes, -1 when the file cannot be examined.
int64_t GetFileSize(const std::string& path);
/// Joins a directory and a name with exactly one slash between them.
std::string JoinPath(const std::string& directory, const std::string& name);

}  // namespace FileSystem
}  // namespace Base
}  // namespace Tal
