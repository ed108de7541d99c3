#include "platform/posix/registry_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/file.h"
#include "platform/posix/os_error.h"

namespace vex {
namespace {

constexpr const char* kFileName = "/registry.txt";
constexpr const char* kNewFileName = "/registry.txt.new";
constexpr const char* kLockFileName = "/registry.lock";

// Far beyond what any number of modules registers; more is not ours.
constexpr std::int64_t kMaxFileSize = 16 << 20;  // bytes

HRESULT HResultOf(const std::error_code& error) { return HResultFromErrno(error.value()); }

}  // namespace

std::optional<std::string> RegistryDirectory()
{
    const auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value ? value : "");
    };
    if (std::string named = variable("VEX_REGISTRY_DIR"); !named.empty())
        return named;
    if (const std::string data = variable("XDG_DATA_HOME"); data.starts_with('/'))
        return data + "/vex";
    if (const std::string home = variable("HOME"); !home.empty())
        return home + "/.local/share/vex";
    return std::nullopt;
}

HRESULT ReadRegistry(const std::string& directory, GRegistryTable& table)
{
    GOsFile file;
    if (!file.OpenForReading((directory + kFileName).c_str())) {
        const int error = static_cast<int>(file.LastError());
        return error == ENOENT ? S_OK : HResultFromErrno(error);
    }
    const std::int64_t size = file.Size();
    if (size < 0 || size > kMaxFileSize)
        return HResultFromOsError(kErrorBadDb);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (file.ReadAt(0, text.data(), static_cast<std::uint32_t>(size)) != size)
        return HResultFromOsError(kErrorGenFailure);
    return table.Parse(text) ? S_OK : HResultFromOsError(kErrorBadDb);
}

GRegistryEdit::GRegistryEdit()
{
    const std::optional<std::string> found = RegistryDirectory();
    if (!found) {
        status = HResultFromOsError(kErrorPathNotFound);
        return;
    }
    directory = *found;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        status = HResultOf(error);
        return;
    }
    lockDescriptor = ::open((directory + kLockFileName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    int locked = lockDescriptor < 0 ? -1 : 0;
    while (lockDescriptor >= 0 && (locked = ::flock(lockDescriptor, LOCK_EX)) != 0 && errno == EINTR) {}
    status = locked == 0 ? ReadRegistry(directory, table) : HResultFromErrno(errno);
}

GRegistryEdit::~GRegistryEdit()
{
    if (lockDescriptor >= 0)
        ::close(lockDescriptor);
}

HRESULT GRegistryEdit::Commit()
{
    if (FAILED(status))
        return status;
    const std::string text = table.Format();
    if (text.size() > static_cast<std::size_t>(kMaxFileSize))
        return HResultFromOsError(kErrorDiskFull);
    const std::string path = directory + kFileName;
    const std::string newPath = directory + kNewFileName;
    GOsFile file;
    if (!file.CreateForWriting(newPath.c_str()))
        return HResultFromErrno(static_cast<int>(file.LastError()));
    const auto size = static_cast<std::uint32_t>(text.size());
    const bool written = file.WriteAt(0, text.data(), size) == size;
    const int writeError = errno;
    file.Close();
    if (written && std::rename(newPath.c_str(), path.c_str()) == 0)
        return S_OK;
    const HRESULT failure = HResultFromErrno(written ? errno : writeError);
    std::remove(newPath.c_str());
    return failure;
}

}  // namespace vex
