// A local file read through one small cache: what a container opens for a path.
#pragma once

#include <cstdint>
#include <memory>

#include "io/file.h"

namespace vex {

// Has a position of its own and asks for the size again whenever a read or seek reaches the last known end, so a
// file that another program is still writing can be read to its current end. Small reads cost one system call per
// cache; what is larger than the cache goes straight into the caller's buffer, but for its last piece.
class GCacheFile : public GFile {
public:
    static constexpr std::int64_t kDefaultCacheCapacity = 2048;

    // Bytes. Without a cache (0, negative, or more than memory can hold) every read goes straight to the system.
    explicit GCacheFile(std::int64_t capacity = kDefaultCacheCapacity);
    ~GCacheFile() override;

    // Closed, and always of the default capacity.
    std::unique_ptr<GFileBase> NewInstance() const override;
    int Open(const char* newPath) override;
    // `count`, fewer at the end of the file, or 0 on failure: then what had been delivered stays in the buffer, and
    // Tell tells how much that was. A null buffer is a failure.
    std::uint32_t Read(void* buffer, std::uint32_t count) override;
    std::uint32_t ReadBulk(void* buffer, std::uint32_t count) override;
    // Clamped to the file, from 0 to its size.
    std::int64_t Seek(std::int64_t offset) override;
    std::int64_t Tell() override { return position; }
    std::int64_t GetSize() override;
    int Close() override;

private:
    void Forget();
    std::int64_t Available(std::uint32_t count);
    bool ReadBuffered(std::uint8_t* destination, std::int64_t count);
    bool FillCache(std::int64_t count);
    bool ReadAndCacheAhead(std::uint8_t* destination, std::int64_t count);
    bool ReadAtPosition(void* destination, std::int64_t count);
    std::int64_t CopyFromCache(std::uint8_t* destination, std::int64_t count);

    // All in bytes.
    std::int64_t position = 0;
    std::int64_t knownSize = 0;
    std::int64_t cacheCapacity = 0;         // constant; 0 without a cache
    std::unique_ptr<std::uint8_t[]> cache;  // constant; null without one
    std::int64_t cacheStart = 0;            // file position of the first cached byte
    std::int64_t cacheLength = 0;           // 0: nothing cached
};

}  // namespace vex
