#include "platform/temp_files.h"

#include "platform/types.h"

#include "platform/text.h"

namespace vex {
namespace {

// How often a file that another process deletes before it is locked is replaced by a new one.
constexpr int kAttempts = 100;

std::string WithSeparator(const std::string& directory)
{
    const bool separated = directory.empty() || directory.back() == '\\' || directory.back() == '/';
    return separated ? directory : directory + '\\';
}

bool EqualWithoutCase(WStringView a, WStringView b)
{
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
           CSTR_EQUAL;
}

bool IsRegular(DWORD attributes)
{
    return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE)) == 0;
}

}  // namespace

bool GLockedTempFile::Create(std::string_view prefix, const std::string& directory)
{
    Release();
    path.clear();
    const WString folder = WideFromNarrowPath(directory);
    const WString begin = WideFromAnsi(prefix);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        WCHAR name[MAX_PATH + 1] = {};
        if (GetTempFileNameW(folder.c_str(), begin.c_str(), 0, name) == 0) {
            lastError = GetLastError();
            return false;
        }
        // The lock is the missing FILE_SHARE_DELETE.
        const HANDLE opened = CreateFileW(name, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (opened != INVALID_HANDLE_VALUE) {
            handle = reinterpret_cast<std::intptr_t>(opened);
            path = NarrowPathFromWide(name);
            lastError = 0;
            return true;
        }
        lastError = GetLastError();
    }
    return false;
}

void GLockedTempFile::Release()
{
    if (IsLocked())
        CloseHandle(reinterpret_cast<HANDLE>(std::exchange(handle, kClosed)));
}

std::vector<std::string> ListFiles(std::string_view prefix, std::string_view suffix, const std::string& directory)
{
    std::vector<std::string> files;
    const WString begin = WideFromAnsi(prefix);
    const WString end = WideFromAnsi(suffix);
    const WString folder = WideFromNarrowPath(WithSeparator(directory));
    WIN32_FIND_DATAW entry{};
    const HANDLE search = FindFirstFileW((folder + begin + L"*" + end).c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return files;
    do {
        // A pattern also matches short names ("MP4SOM~1.TMP") and longer extensions.
        const WStringView name = entry.cFileName;
        if (IsRegular(entry.dwFileAttributes) && name.size() >= begin.size() + end.size() &&
            EqualWithoutCase(name.substr(0, begin.size()), begin) &&
            EqualWithoutCase(name.substr(name.size() - end.size()), end))
            files.push_back(NarrowPathFromWide(folder + entry.cFileName));
    } while (FindNextFileW(search, &entry));
    FindClose(search);
    return files;
}

bool DeleteIfUnused(const std::string& path)
{
    // No share mode at all: the open fails while anybody else has the file open. A link is opened itself.
    const HANDLE opened = CreateFileW(WideFromNarrowPath(path).c_str(), DELETE | FILE_READ_ATTRIBUTES | GENERIC_WRITE,
                                      0, nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (opened == INVALID_HANDLE_VALUE)
        return false;
    BY_HANDLE_FILE_INFORMATION information{};
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    const bool deleted = GetFileType(opened) == FILE_TYPE_DISK && GetFileInformationByHandle(opened, &information) &&
                         IsRegular(information.dwFileAttributes) &&
                         SetFileInformationByHandle(opened, FileDispositionInfo, &disposition, sizeof(disposition));
    CloseHandle(opened);
    return deleted;
}

}  // namespace vex
