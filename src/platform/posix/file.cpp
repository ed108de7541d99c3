#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/text_detail.h"

namespace vex {

static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

namespace {

int OpenRetrying(const char* path, int flags)
{
    int descriptor = -1;
    do {
        descriptor = ::open(detail::WithoutMark(path), flags | O_CLOEXEC, 0666);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// 0, or why bytes at a position cannot be read from what was opened.
int WhyNotPositional(int descriptor)
{
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode) ? 0 : ESPIPE;
}

}  // namespace

GOsFile::GOsFile(GOsFile&& other) noexcept
    : handle(std::exchange(other.handle, kClosed)), lastError(std::exchange(other.lastError, 0u))
{
}

GOsFile& GOsFile::operator=(GOsFile&& other) noexcept
{
    std::swap(handle, other.handle);
    std::swap(lastError, other.lastError);
    return *this;
}

bool GOsFile::OpenForReading(const char* path)
{
    Close();
    lastError = EINVAL;
    if (!path)
        return false;
    // Without O_NONBLOCK a named pipe would hold the caller until somebody writes to it.
    const int descriptor = OpenRetrying(path, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        lastError = static_cast<std::uint32_t>(errno);
        return false;
    }
    if (const int reason = WhyNotPositional(descriptor)) {
        lastError = static_cast<std::uint32_t>(reason);
        ::close(descriptor);
        return false;
    }
    ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    handle = descriptor;
    lastError = 0;
    return true;
}

bool GOsFile::CreateForWriting(const char* path)
{
    Close();
    lastError = EINVAL;
    if (!path)
        return false;
    const int descriptor = OpenRetrying(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY);
    if (descriptor < 0) {
        lastError = static_cast<std::uint32_t>(errno);
        return false;
    }
    handle = descriptor;
    lastError = 0;
    return true;
}

void GOsFile::Close()
{
    if (IsOpen())
        ::close(static_cast<int>(std::exchange(handle, kClosed)));
}

std::int64_t GOsFile::ReadAt(std::int64_t position, void* buffer, std::uint32_t count, std::span<std::uint8_t> ahead)
{
    if (!IsOpen() || position < 0)
        return -1;
    std::int64_t done = 0;
    while (done < count) {
        const std::array<iovec, 2> parts = {
            {{static_cast<char*>(buffer) + done, static_cast<std::size_t>(count - done)},
             {ahead.data(), ahead.size()}}};
        const ssize_t got = ::preadv(static_cast<int>(handle), parts.data(), ahead.empty() ? 1 : 2, position + done);
        if (got == 0)
            break;
        if (got > 0)
            done += got;
        else if (errno != EINTR)
            return -1;
    }
    return done;
}

std::int64_t GOsFile::WriteAt(std::int64_t position, const void* buffer, std::uint32_t count)
{
    if (!IsOpen() || position < 0)
        return -1;
    std::uint32_t done = 0;
    while (done < count) {
        const ssize_t put =
            ::pwrite(static_cast<int>(handle), static_cast<const char*>(buffer) + done, count - done, position + done);
        if (put > 0)
            done += static_cast<std::uint32_t>(put);
        else if (put == 0 || errno != EINTR) {
            lastError = static_cast<std::uint32_t>(put == 0 ? ENOSPC : errno);
            return -1;
        }
    }
    return done;
}

std::int64_t GOsFile::Size() const
{
    struct stat status {};
    if (!IsOpen() || ::fstat(static_cast<int>(handle), &status) != 0)
        return -1;
    // A device has no size of its own; its file pointer serves nobody else.
    return S_ISBLK(status.st_mode) ? ::lseek(static_cast<int>(handle), 0, SEEK_END) : status.st_size;
}

std::string DescribeOsError(std::uint32_t error)
{
    if (error == ESPIPE)  // "Illegal seek" tells nobody what is wrong with a pipe
        return "a pipe or a device, not a file";
    char buffer[128] = {};
    return ::strerror_r(static_cast<int>(error), buffer, sizeof(buffer));
}

std::string TemporaryDirectory()
{
    const char* named = std::getenv("TMPDIR");
    std::string directory = named && *named ? named : "/tmp";
    if (directory.back() != '/')
        directory.push_back('/');
    return directory;
}

}  // namespace vex
