#include "formats/avi/riff_walker.h"

#include <array>

#include "io/byte_reader.h"

namespace vex {

bool ReadExactly(GFileBase& source, std::int64_t position, void* buffer, std::uint32_t count)
{
    return source.Seek(position) == position && source.Read(buffer, count) == count;
}

bool ReadRiffHeader(GFileBase& source, std::int64_t position, GRiffChunk& chunk)
{
    std::array<std::uint8_t, kRiffHeaderSize> bytes{};
    if (!ReadExactly(source, position, bytes.data(), kRiffHeaderSize))
        return false;
    GByteReader reader(bytes);
    chunk.code = reader.FourCC();
    chunk.size = reader.U32LE();
    chunk.position = position;
    return true;
}

bool ReadListType(GFileBase& source, const GRiffChunk& list, std::uint32_t& type)
{
    std::array<std::uint8_t, 4> bytes{};
    if (!ReadExactly(source, list.Body(), bytes.data(), 4))
        return false;
    type = GByteReader(bytes).FourCC();
    return true;
}

bool GRiffWalker::Next(GRiffChunk& chunk)
{
    if (position >= end || !ReadRiffHeader(source, position, chunk))
        return false;
    position = chunk.Next();
    return true;
}

}  // namespace vex
