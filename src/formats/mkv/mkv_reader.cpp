#include "formats/mkv/mkv_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vex {
namespace {

// One read of the source, in bytes: what its 32-bit count takes with room to spare.
constexpr std::uint64_t kMaxSourceRead = 1u << 30;

}  // namespace

GMkvReader::GMkvReader(GFileBase& openSource, GDamageLog& damageLog, std::uint32_t capacity)
    : source(openSource), bufferCapacity(capacity), damage(damageLog)
{
    fileSize = std::max<std::int64_t>(source.GetSize(), 0);
    if (bufferCapacity > 0)
        buffer = std::make_unique_for_overwrite<std::uint8_t[]>(bufferCapacity);
}

HRESULT GMkvReader::Read(void* destination, std::uint64_t count)
{
    auto* out = static_cast<std::uint8_t*>(destination);
    const auto advance = [&](std::uint32_t done) {
        out += done;
        count -= done;
    };
    advance(CopyFromBuffer(out, count));
    const std::uint64_t unit = std::max(bufferCapacity, 1u);
    while (count > bufferCapacity) {
        // Whole units without the last one, which goes through the buffer: what follows a frame is a header.
        const std::uint64_t there = std::min({count, Left(), kMaxSourceRead});
        const std::uint64_t behind = bufferCapacity > 0 ? 1 : 0;
        const auto direct = static_cast<std::uint32_t>(there > behind ? (there - behind) / unit * unit : 0);
        if (direct == 0)
            break;
        if (!ReadSource(out, direct))
            return E_FAIL;
        position += direct;
        advance(direct);
    }
    while (count > 0) {
        if (Left() == 0)
            return S_FALSE;
        if (!FillBuffer())
            return E_FAIL;
        advance(CopyFromBuffer(out, count));
    }
    return S_OK;
}

HRESULT GMkvReader::ReadBigEndian(void* destination, std::uint64_t count)
{
    const HRESULT result = Read(destination, count);
    if (result == S_OK)
        std::reverse(static_cast<std::uint8_t*>(destination), static_cast<std::uint8_t*>(destination) + count);
    return result;
}

std::uint32_t GMkvReader::CopyFromBuffer(std::uint8_t* destination, std::uint64_t count)
{
    const std::int64_t offset = position - bufferStart;
    if (offset < 0 || offset >= bufferLength)
        return 0;
    const auto copied = static_cast<std::uint32_t>(std::min(count, static_cast<std::uint64_t>(bufferLength - offset)));
    if (copied > 0)
        std::memcpy(destination, buffer.get() + offset, copied);
    position += copied;
    return copied;
}

bool GMkvReader::ReadSource(void* destination, std::uint32_t count)
{
    return source.Seek(position) == position && source.ReadBulk(destination, count) == count;
}

bool GMkvReader::FillBuffer()
{
    const auto chunk = static_cast<std::uint32_t>(std::min<std::uint64_t>(Left(), bufferCapacity));
    bufferLength = 0;  // a read that fails may have overwritten some of it
    if (chunk == 0 || !ReadSource(buffer.get(), chunk))
        return false;
    bufferStart = position;
    bufferLength = chunk;
    return true;
}

}  // namespace vex
