// A local file without a cache: every operation is one call to the operating system.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "io/file_base.h"
#include "platform/file.h"
#include "platform/text.h"

namespace vex {

// Opened so that others may go on writing, renaming and deleting the file.
class GFile : public GFileBase {
public:
    // Bytes, without the terminating zero; UTF-16 units of a path behind kUtf8PathMark, which is how Windows counts.
    static constexpr std::size_t kMaxPathLength = 259;
    // With the mark; a unit takes at most three bytes of UTF-8.
    static constexpr std::size_t kMaxPathBytes = kUtf8PathMark.size() + 3 * kMaxPathLength;

    std::unique_ptr<GFileBase> NewInstance() const override;
    int Open(const char* newPath) override;
    // 0 on failure, in which case nothing is known of the buffer's contents.
    std::uint32_t Read(void* buffer, std::uint32_t count) override;
    // -1 when the position is negative or nothing is open; positions beyond the end are reached.
    std::int64_t Seek(std::int64_t offset) override;
    std::int64_t Tell() override;
    std::int64_t GetSize() override;
    int Close() override;
    bool ReadsAnywhere() const override { return true; }
    std::uint32_t ReadAt(std::int64_t offset, void* buffer, std::uint32_t count) override;
    int Create(const char* newPath) override;

    bool IsOpen() const { return file.IsOpen(); }
    // The path last opened, empty when closed.
    const char* Path() const { return path.data(); }

    // With the operating system's number, unless the path was refused before the system was asked.
    GError OpenError() const override;

protected:
    // All that reaches the operating system once a file is open. A test overrides them to count or to fail.
    virtual std::int64_t OsSeek(std::int64_t position);  // the position reached, or -1
    // At the file pointer; bytes read, or -1. More than `count` when some of what follows came along into `ahead`.
    virtual std::int64_t OsRead(void* buffer, std::uint32_t count, std::span<std::uint8_t> ahead);
    virtual std::int64_t OsSize();  // bytes, or -1

private:
    using GPath = std::array<char, kMaxPathBytes + 1>;
    using GOpener = bool (GOsFile::*)(const char*);

    int OpenWith(GOpener opener, const char* newPath);
    void CloseFile();

    GOsFile file;
    std::int64_t filePointer = 0;  // GOsFile has none of its own
    GPath path{};
    std::optional<GError> refused;  // why the last path was not passed to the system
};

}  // namespace vex
