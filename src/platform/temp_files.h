// Files in a directory that many processes share, usually TemporaryDirectory(): unique names, a lock on what is in use,
// listing and deletion.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/file.h"

namespace vex {

// A file with a unique name and the lock that keeps DeleteIfUnused away from it. The lock belongs to the object, not to
// the process, and ends with it, also when the process dies. The file stays. One thread at a time.
class GLockedTempFile {
public:
    GLockedTempFile() = default;
    ~GLockedTempFile() { Release(); }
    GLockedTempFile(GLockedTempFile&& other) noexcept { Swap(other); }
    GLockedTempFile& operator=(GLockedTempFile&& other) noexcept
    {
        Swap(other);
        return *this;
    }
    GLockedTempFile(const GLockedTempFile&) = delete;
    GLockedTempFile& operator=(const GLockedTempFile&) = delete;

    // Creates an empty file, named like those of GetTempFileName: at most the first three characters of `prefix`, up to
    // four hexadecimal digits, ".tmp". Only this user can read it on Linux (mode 0600). Releases the file held before.
    // False, with the reason in LastError, when the directory takes no file.
    bool Create(std::string_view prefix, const std::string& directory = TemporaryDirectory());
    // Gives up the lock. The file may then be deleted by anybody's DeleteIfUnused.
    void Release();

    bool IsLocked() const { return handle != kClosed; }
    // The narrow path (see file.h) of the file created last, also after Release; empty before Create succeeded.
    const std::string& Path() const { return path; }
    // The operating system's number for why Create failed.
    std::uint32_t LastError() const { return lastError; }

private:
    void Swap(GLockedTempFile& other) noexcept
    {
        std::swap(handle, other.handle);
        std::swap(path, other.path);
        std::swap(lastError, other.lastError);
    }

    static constexpr std::intptr_t kClosed = -1;
    std::intptr_t handle = kClosed;  // file descriptor or HANDLE
    std::string path;
    std::uint32_t lastError = 0;
};

// The narrow paths of the regular files in `directory` whose names begin with `prefix` and end with `suffix`, without
// case on Windows. Links are left out. Empty when the directory cannot be read.
std::vector<std::string> ListFiles(std::string_view prefix, std::string_view suffix,
                                   const std::string& directory = TemporaryDirectory());

// Deletes a regular file unless a GLockedTempFile of any process holds it; on Windows also unless anybody has it open.
// Links, and files that this user may not both write and delete, are left alone. True when the file was deleted.
bool DeleteIfUnused(const std::string& path);

}  // namespace vex
