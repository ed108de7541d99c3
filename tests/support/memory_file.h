// A byte source over memory, shared by all its instances, which a test may let grow while it is read.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "io/file_base.h"
#include "platform/threads.h"

namespace vex::test {

// The bytes. Any thread.
class GMemoryDisk {
public:
    explicit GMemoryDisk(std::vector<std::uint8_t> content) : bytes(std::move(content)) {}

    void Append(std::span<const std::uint8_t> more)
    {
        const std::lock_guard held(lock);
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
    std::int64_t Size() const
    {
        const std::lock_guard held(lock);
        return static_cast<std::int64_t>(bytes.size());
    }
    std::uint32_t Read(std::int64_t position, void* buffer, std::uint32_t count) const
    {
        const std::lock_guard held(lock);
        const auto size = static_cast<std::int64_t>(bytes.size());
        const std::int64_t there = std::clamp<std::int64_t>(size - position, 0, count);
        if (there > 0)
            std::memcpy(buffer, bytes.data() + position, static_cast<std::size_t>(there));
        return static_cast<std::uint32_t>(there);
    }

private:
    mutable GNativeMutex lock;
    std::vector<std::uint8_t> bytes;
};

// Clamps and refreshes as GCacheFile does. The path is not looked at.
class GMemoryFile final : public GFileBase {
public:
    explicit GMemoryFile(std::shared_ptr<GMemoryDisk> content) : disk(std::move(content)) {}

    std::unique_ptr<GFileBase> NewInstance() const override { return std::make_unique<GMemoryFile>(disk); }
    int Open(const char*) override
    {
        open = true;
        position = 0;
        return 1;
    }
    std::uint32_t Read(void* buffer, std::uint32_t count) override
    {
        if (!open || !buffer)
            return 0;
        const std::uint32_t got = disk->Read(position, buffer, count);
        position += got;
        return got;
    }
    bool ReadsAnywhere() const override { return true; }
    std::uint32_t ReadAt(std::int64_t offset, void* buffer, std::uint32_t count) override
    {
        return open ? disk->Read(offset, buffer, count) : 0;
    }
    std::int64_t Seek(std::int64_t offset) override
    {
        position = std::clamp<std::int64_t>(offset, 0, GetSize());
        return position;
    }
    std::int64_t Tell() override { return position; }
    std::int64_t GetSize() override { return open ? disk->Size() : 0; }
    int Close() override
    {
        open = false;
        position = 0;
        return 1;
    }

private:
    std::shared_ptr<GMemoryDisk> disk;
    bool open = false;
    std::int64_t position = 0;
};

}  // namespace vex::test
