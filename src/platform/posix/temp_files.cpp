#include "platform/temp_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>

#include "platform/text_detail.h"

namespace vex {
namespace {

// Names that differ in their four digits; 0 is not used, as on Windows.
constexpr std::uint32_t kNames = 0xFFFF;

struct GCloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// Where to begin looking for a free name. Processes that start together must not try the same names in step.
std::uint32_t AnyNumber()
{
    std::uint32_t number = 0;
    if (::getrandom(&number, sizeof(number), GRND_NONBLOCK) != sizeof(number))
        number = static_cast<std::uint32_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    return number % kNames;
}

bool LockNow(int descriptor)
{
    int result = 0;
    do {
        result = ::flock(descriptor, LOCK_EX | LOCK_NB);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

// Whether the open regular file is still what the path names. Whoever locks a file has to ask afterwards: until then
// another process may have deleted it, and a third may have created another of the same name.
bool IsAt(int descriptor, const char* path)
{
    struct stat opened {};
    struct stat named {};
    return ::fstat(descriptor, &opened) == 0 && S_ISREG(opened.st_mode) && ::lstat(path, &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

std::string WithSeparator(const std::string& directory)
{
    return directory.empty() || directory.back() == '/' ? directory : directory + '/';
}

}  // namespace

bool GLockedTempFile::Create(std::string_view prefix, const std::string& directory)
{
    Release();
    path.clear();
    const std::string begin = WithSeparator(directory).append(prefix.substr(0, 3));
    const std::uint32_t first = AnyNumber();
    for (std::uint32_t tried = 0; tried < kNames; ++tried) {
        char number[5] = {};
        std::snprintf(number, sizeof(number), "%04X", (first + tried) % kNames + 1);
        const std::string name = begin + number + ".tmp";
        const int descriptor = ::open(detail::WithoutMark(name.c_str()),
                                      O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0600);
        if (descriptor < 0) {
            lastError = static_cast<std::uint32_t>(errno);
            if (lastError == EEXIST || lastError == EINTR)
                continue;
            return false;
        }
        const bool locked = LockNow(descriptor);
        lastError = static_cast<std::uint32_t>(locked ? EEXIST : errno);
        if (locked && IsAt(descriptor, detail::WithoutMark(name.c_str()))) {
            handle = descriptor;
            path = name;
            lastError = 0;
            return true;
        }
        ::close(descriptor);
        if (!locked && lastError != EWOULDBLOCK) {  // a file system without locks
            ::unlink(detail::WithoutMark(name.c_str()));
            return false;
        }
        // Another process found the file before it was locked, and deletes it.
    }
    return false;
}

void GLockedTempFile::Release()
{
    if (IsLocked())
        ::close(static_cast<int>(std::exchange(handle, kClosed)));
}

std::vector<std::string> ListFiles(std::string_view prefix, std::string_view suffix, const std::string& directory)
{
    std::vector<std::string> files;
    const std::unique_ptr<DIR, GCloseDirectory> open(::opendir(detail::WithoutMark(directory.c_str())));
    if (!open)
        return files;
    while (const dirent* entry = ::readdir(open.get())) {
        const std::string_view name = entry->d_name;
        struct stat status {};
        if (name.size() >= prefix.size() + suffix.size() && name.starts_with(prefix) && name.ends_with(suffix) &&
            ::fstatat(::dirfd(open.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode))
            files.push_back(WithSeparator(directory).append(name));
    }
    return files;
}

bool DeleteIfUnused(const std::string& path)
{
    const char* name = detail::WithoutMark(path.c_str());
    // O_NONBLOCK: a pipe of that name must not be waited for.
    const int descriptor = ::open(name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0)
        return false;
    // Nobody else deletes the file while it is locked here, so the path names it until unlink.
    const bool deleted = LockNow(descriptor) && IsAt(descriptor, name) && ::unlink(name) == 0;
    ::close(descriptor);
    return deleted;
}

}  // namespace vex
