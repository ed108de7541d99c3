// One open file of the operating system: positional 64-bit reads, no cache, no shared file pointer.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vex {

// A narrow path is in the ANSI code page (UTF-8 on Linux). A path that the code page cannot express travels as UTF-8
// behind a byte-order mark (see text.h), which Open understands.
class GOsFile {
public:
    GOsFile() = default;
    ~GOsFile() { Close(); }
    GOsFile(GOsFile&& other) noexcept;
    GOsFile& operator=(GOsFile&& other) noexcept;
    GOsFile(const GOsFile&) = delete;
    GOsFile& operator=(const GOsFile&) = delete;

    // Opens for reading so that others may go on writing, renaming and deleting; anything but a file (or, on Linux, a
    // block device) is refused, without waiting for the other end of a pipe.
    bool OpenForReading(const char* path);
    // Creates, or truncates an existing file, for writing.
    bool CreateForWriting(const char* path);
    void Close();
    bool IsOpen() const { return handle != kClosed; }

    // Bytes read at the absolute position, fewer at the end of the file; -1 on error. Retries interrupted reads.
    std::int64_t ReadAt(std::int64_t position, void* buffer, std::uint32_t count)
    {
        return ReadAt(position, buffer, count, {});
    }
    // The same, and as much of what follows into `ahead` as the same call of the system brings, which may be nothing:
    // more than `count` is returned then.
    std::int64_t ReadAt(std::int64_t position, void* buffer, std::uint32_t count, std::span<std::uint8_t> ahead);
    // Bytes written, or -1.
    std::int64_t WriteAt(std::int64_t position, const void* buffer, std::uint32_t count);
    // Current size in bytes as the system knows it now; -1 on error.
    std::int64_t Size() const;

    // The operating system's number for why the last open, or a write after it, failed; 0 when none did.
    std::uint32_t LastError() const { return lastError; }

private:
    static constexpr std::intptr_t kClosed = -1;
    std::intptr_t handle = kClosed;  // file descriptor or HANDLE
    std::uint32_t lastError = 0;
};

// What the system says about an error number, in UTF-8, without a trailing line end.
std::string DescribeOsError(std::uint32_t error);

// A directory for temporary files, with a trailing separator, in the narrow-path form above.
std::string TemporaryDirectory();

}  // namespace vex
