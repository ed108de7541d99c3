#include "io/cache_file.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

namespace vex {
namespace {

// One read of the system fills the cache, and takes a 32-bit count.
constexpr std::int64_t kMaxCacheCapacity = std::numeric_limits<std::int32_t>::max();

}  // namespace

GCacheFile::GCacheFile(std::int64_t capacity) : cacheCapacity(std::clamp<std::int64_t>(capacity, 0, kMaxCacheCapacity))
{
    if (cacheCapacity > 0)
        cache.reset(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(cacheCapacity)]);
    if (!cache)
        cacheCapacity = 0;
}

GCacheFile::~GCacheFile() { GCacheFile::Close(); }

std::unique_ptr<GFileBase> GCacheFile::NewInstance() const { return std::make_unique<GCacheFile>(); }

int GCacheFile::Open(const char* newPath)
{
    Forget();  // what is cached of one file must not be taken for the next one's
    const int opened = GFile::Open(newPath);
    GetSize();
    return opened;
}

std::int64_t GCacheFile::GetSize()
{
    knownSize = GFile::GetSize();
    return knownSize;
}

int GCacheFile::Close()
{
    Forget();
    return GFile::Close();
}

void GCacheFile::Forget()
{
    position = 0;
    knownSize = 0;
    cacheStart = 0;
    cacheLength = 0;
}

std::int64_t GCacheFile::Seek(std::int64_t offset)
{
    if (offset >= knownSize)
        GetSize();
    position = std::clamp<std::int64_t>(offset, 0, knownSize);
    return position;
}

// How much of `count` the file has to give, as it is now.
std::int64_t GCacheFile::Available(std::uint32_t count)
{
    if (count >= knownSize - position)  // the file may have grown
        GetSize();
    Seek(Tell());  // or shrunk
    return std::min<std::int64_t>(count, knownSize - position);
}

std::uint32_t GCacheFile::Read(void* buffer, std::uint32_t count)
{
    const std::int64_t available = Available(count);
    if (!ReadBuffered(static_cast<std::uint8_t*>(buffer), available))
        return 0;
    return static_cast<std::uint32_t>(available);
}

std::uint32_t GCacheFile::ReadBulk(void* buffer, std::uint32_t count)
{
    const std::int64_t available = Available(count);
    if (!IsOpen() || buffer == nullptr)
        return 0;
    auto* destination = static_cast<std::uint8_t*>(buffer);
    const std::int64_t cached = CopyFromCache(destination, available);
    position += cached;
    const std::int64_t rest = available - cached;
    if (rest <= cacheCapacity)
        return ReadBuffered(destination + cached, rest) ? static_cast<std::uint32_t>(available) : 0;
    if (!ReadAndCacheAhead(destination + cached, rest))
        return 0;
    position += rest;
    return static_cast<std::uint32_t>(available);
}

// What follows a payload is the next one's header: the cache takes it along.
bool GCacheFile::ReadAndCacheAhead(std::uint8_t* destination, std::int64_t count)
{
    cacheLength = 0;
    const std::int64_t ahead = std::min(cacheCapacity, knownSize - position - count);
    if (OsSeek(position) != position)
        return false;
    const std::int64_t got =
        OsRead(destination, static_cast<std::uint32_t>(count), {cache.get(), static_cast<std::size_t>(ahead)});
    if (got < count)
        return false;
    cacheStart = position + count;
    cacheLength = got - count;
    return true;
}

bool GCacheFile::ReadBuffered(std::uint8_t* destination, std::int64_t count)
{
    if (!IsOpen() || destination == nullptr)
        return false;
    const auto advance = [&](std::int64_t done) {
        destination += done;
        position += done;
        count -= done;
    };
    if (!cache && count > 0) {
        if (!ReadAtPosition(destination, count))
            return false;
        advance(count);
    }
    advance(CopyFromCache(destination, count));
    while (count > cacheCapacity) {
        if (!ReadAtPosition(destination, cacheCapacity))
            return false;
        advance(cacheCapacity);
    }
    while (count > 0) {
        const std::int64_t chunk = std::min(cacheCapacity, knownSize - position);
        if (chunk <= 0)
            break;
        if (!FillCache(chunk))
            return false;
        advance(CopyFromCache(destination, count));
    }
    return true;
}

bool GCacheFile::FillCache(std::int64_t count)
{
    // Forgotten first: a read that fails may already have overwritten some of it.
    cacheLength = 0;
    if (!ReadAtPosition(cache.get(), count))
        return false;
    cacheStart = position;
    cacheLength = count;
    return true;
}

bool GCacheFile::ReadAtPosition(void* destination, std::int64_t count)
{
    return OsSeek(position) == position && OsRead(destination, static_cast<std::uint32_t>(count), {}) == count;
}

std::int64_t GCacheFile::CopyFromCache(std::uint8_t* destination, std::int64_t count)
{
    const std::int64_t offset = position - cacheStart;
    if (offset < 0 || offset >= cacheLength)
        return 0;
    const std::int64_t copied = std::min(count, cacheLength - offset);
    std::memcpy(destination, cache.get() + offset, static_cast<std::size_t>(copied));
    return copied;
}

}  // namespace vex
