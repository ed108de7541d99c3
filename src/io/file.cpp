#include "io/file.h"

#include <algorithm>
#include <cstring>

namespace vex {

std::unique_ptr<GFileBase> GFile::NewInstance() const { return std::make_unique<GFile>(); }

int GFile::Open(const char* newPath) { return OpenWith(&GOsFile::OpenForReading, newPath); }

int GFile::Create(const char* newPath) { return OpenWith(&GOsFile::CreateForWriting, newPath); }

int GFile::OpenWith(GOpener opener, const char* newPath)
{
    // Copied before the old file is closed: the caller may be passing Path() back to open the same file again.
    GPath copy{};
    refusal = GRefusal::None;
    if (newPath == nullptr || *newPath == 0) {
        refusal = GRefusal::NoPath;
    } else if (const std::size_t length = std::strlen(newPath); length > kMaxPathLength) {
        refusal = GRefusal::PathTooLong;
    } else {
        std::copy_n(newPath, length, copy.begin());
    }
    CloseFile();
    if (refusal != GRefusal::None || !(file.*opener)(copy.data()))
        return 0;
    path = copy;
    return 1;
}

std::uint32_t GFile::Read(void* buffer, std::uint32_t count)
{
    if (!IsOpen() || buffer == nullptr)
        return 0;
    const std::int64_t got = OsRead(buffer, count);
    return got > 0 ? static_cast<std::uint32_t>(std::min<std::int64_t>(got, count)) : 0;
}

std::int64_t GFile::Seek(std::int64_t offset) { return IsOpen() ? OsSeek(offset) : -1; }

std::int64_t GFile::Tell() { return IsOpen() ? filePointer : 0; }

std::int64_t GFile::GetSize() { return IsOpen() ? std::max<std::int64_t>(OsSize(), 0) : 0; }

int GFile::Close()
{
    CloseFile();
    return 1;
}

GError GFile::OpenError() const
{
    static_assert(kMaxPathLength == 259);
    switch (refusal) {
    case GRefusal::NoPath:
        return {GErrorKind::Io, "no path was given"};
    case GRefusal::PathTooLong:
        return {GErrorKind::Limit, "the path is longer than 259 bytes"};
    case GRefusal::None:
        break;
    }
    return {GErrorKind::Io, "the file cannot be opened", 0, file.LastError()};
}

std::int64_t GFile::OsSeek(std::int64_t position)
{
    if (position < 0)
        return -1;
    filePointer = position;
    return filePointer;
}

std::int64_t GFile::OsRead(void* buffer, std::uint32_t count)
{
    const std::int64_t got = file.ReadAt(filePointer, buffer, count);
    if (got > 0)
        filePointer += got;
    return got;
}

std::int64_t GFile::OsSize() { return file.Size(); }

void GFile::CloseFile()
{
    file.Close();
    filePointer = 0;
    path[0] = 0;
}

}  // namespace vex
