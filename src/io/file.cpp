#include "io/file.h"

#include <algorithm>
#include <cstring>

namespace vex {
namespace {

static_assert(GFile::kMaxPathLength == 259, "said in the errors");

std::size_t Utf16Units(std::string_view utf8)
{
    std::size_t units = 0;
    for (const char character : utf8) {
        const auto byte = static_cast<unsigned char>(character);
        units += (byte & 0xC0) != 0x80 ? 1 : 0;
        units += byte >= 0xF0 ? 1 : 0;
    }
    return units;
}

std::optional<GError> WhyRefused(std::string_view path)
{
    if (path.empty())
        return GError{GErrorKind::Io, "no path was given"};
    const bool marked = path.starts_with(kUtf8PathMark);
    if (!marked && path.size() > GFile::kMaxPathLength)
        return GError{GErrorKind::Limit, "the path is longer than 259 bytes"};
    // The bytes are limited too: in a text that is not UTF-8, one counted character may have any number of bytes. The
    // mark counts as one more character.
    if (marked && (path.size() > GFile::kMaxPathBytes || Utf16Units(path) - 1 > GFile::kMaxPathLength))
        return GError{GErrorKind::Limit, "the path is longer than 259 characters"};
    return std::nullopt;
}

}  // namespace

std::unique_ptr<GFileBase> GFile::NewInstance() const { return std::make_unique<GFile>(); }

int GFile::Open(const char* newPath) { return OpenWith(&GOsFile::OpenForReading, newPath); }

int GFile::Create(const char* newPath) { return OpenWith(&GOsFile::CreateForWriting, newPath); }

int GFile::OpenWith(GOpener opener, const char* newPath)
{
    // Copied before the old file is closed: the caller may be passing Path() back to open the same file again.
    GPath copy{};
    refused = WhyRefused(newPath ? newPath : "");
    if (!refused)
        std::copy_n(newPath, std::strlen(newPath), copy.begin());
    CloseFile();
    if (refused || !(file.*opener)(copy.data()))
        return 0;
    path = copy;
    return 1;
}

std::uint32_t GFile::Read(void* buffer, std::uint32_t count)
{
    if (!IsOpen() || buffer == nullptr)
        return 0;
    const std::int64_t got = OsRead(buffer, count, {});
    return got > 0 ? static_cast<std::uint32_t>(std::min<std::int64_t>(got, count)) : 0;
}

std::uint32_t GFile::ReadAt(std::int64_t offset, void* buffer, std::uint32_t count)
{
    const std::int64_t got = file.ReadAt(offset, buffer, count);
    return got > 0 ? static_cast<std::uint32_t>(got) : 0;
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
    return refused ? *refused : GError{GErrorKind::Io, "the file cannot be opened", 0, file.LastError()};
}

std::int64_t GFile::OsSeek(std::int64_t position)
{
    if (position < 0)
        return -1;
    filePointer = position;
    return filePointer;
}

std::int64_t GFile::OsRead(void* buffer, std::uint32_t count, std::span<std::uint8_t> ahead)
{
    const std::int64_t got = file.ReadAt(filePointer, buffer, count, ahead);
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
