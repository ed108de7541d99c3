#include "platform/file.h"

#include "platform/types.h"

#include <string_view>
#include <utility>

#include "platform/text.h"

namespace vex {
namespace {

HANDLE AsHandle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

// The family before NT refuses a share mode that has FILE_SHARE_DELETE.
DWORD ShareMode()
{
    constexpr DWORD kReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
    return GetVersion() < 0x80000000u ? kReadWrite | FILE_SHARE_DELETE : kReadWrite;
}

HANDLE OpenHandle(const char* path, DWORD access, DWORD disposition)
{
    const std::string_view name(path);
    if (!name.starts_with(kUtf8PathMark))
        return CreateFileA(path, access, ShareMode(), nullptr, disposition, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    return CreateFileW(WideFromNarrowPath(name).c_str(), access, ShareMode(), nullptr, disposition,
                       FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
}

OVERLAPPED At(std::int64_t position)
{
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(position & 0xFFFFFFFF);
    at.OffsetHigh = static_cast<DWORD>(position >> 32);
    return at;
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
    lastError = ERROR_INVALID_PARAMETER;
    if (!path)
        return false;
    const HANDLE opened = OpenHandle(path, GENERIC_READ, OPEN_EXISTING);
    if (opened == INVALID_HANDLE_VALUE) {
        lastError = GetLastError();
        return false;
    }
    // Consoles and pipes can be opened by name as well, and have no positions.
    if (GetFileType(opened) != FILE_TYPE_DISK) {
        CloseHandle(opened);
        lastError = ERROR_SEEK_ON_DEVICE;
        return false;
    }
    handle = reinterpret_cast<std::intptr_t>(opened);
    lastError = 0;
    return true;
}

bool GOsFile::CreateForWriting(const char* path)
{
    Close();
    lastError = ERROR_INVALID_PARAMETER;
    if (!path)
        return false;
    const HANDLE opened = OpenHandle(path, GENERIC_WRITE, CREATE_ALWAYS);
    if (opened == INVALID_HANDLE_VALUE) {
        lastError = GetLastError();
        return false;
    }
    handle = reinterpret_cast<std::intptr_t>(opened);
    lastError = 0;
    return true;
}

void GOsFile::Close()
{
    if (IsOpen())
        CloseHandle(AsHandle(std::exchange(handle, kClosed)));
}

// Scattered reads want pages and a handle without a cache: nothing is read ahead.
std::int64_t GOsFile::ReadAt(std::int64_t position, void* buffer, std::uint32_t count, std::span<std::uint8_t>)
{
    if (!IsOpen() || position < 0)
        return -1;
    std::uint32_t done = 0;
    while (done < count) {
        OVERLAPPED at = At(position + done);
        DWORD got = 0;
        if (!ReadFile(AsHandle(handle), static_cast<char*>(buffer) + done, count - done, &got, &at)) {
            if (GetLastError() == ERROR_HANDLE_EOF)
                break;
            return -1;
        }
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

std::int64_t GOsFile::WriteAt(std::int64_t position, const void* buffer, std::uint32_t count)
{
    if (!IsOpen() || position < 0)
        return -1;
    std::uint32_t done = 0;
    while (done < count) {
        OVERLAPPED at = At(position + done);
        DWORD put = 0;
        if (!WriteFile(AsHandle(handle), static_cast<const char*>(buffer) + done, count - done, &put, &at) ||
            put == 0) {
            lastError = GetLastError();
            return -1;
        }
        done += put;
    }
    return done;
}

std::int64_t GOsFile::Size() const
{
    LARGE_INTEGER size{};
    return IsOpen() && GetFileSizeEx(AsHandle(handle), &size) ? size.QuadPart : -1;
}

std::string DescribeOsError(std::uint32_t error)
{
    WCHAR* text = nullptr;
    // Network errors have their words in the library that they come from.
    const HMODULE network = error >= 12000 && error < 13000 ? GetModuleHandleA("wininet.dll") : nullptr;
    const DWORD from = FORMAT_MESSAGE_FROM_SYSTEM | (network ? FORMAT_MESSAGE_FROM_HMODULE : 0);
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | from, network,
                                        error, 0, reinterpret_cast<WCHAR*>(&text), 0, nullptr);
    if (length == 0)
        return "error " + std::to_string(error);
    WStringView message(text, length);
    while (!message.empty() &&
           (message.back() == L'\r' || message.back() == L'\n' || message.back() == L' ' || message.back() == L'.'))
        message.remove_suffix(1);
    std::string described = Utf8FromWide(message);
    LocalFree(text);
    return described;
}

std::string TemporaryDirectory()
{
    WCHAR path[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, path);
    if (length == 0 || length > MAX_PATH)
        return ".\\";
    return NarrowPathFromWide({path, length});
}

}  // namespace vex
