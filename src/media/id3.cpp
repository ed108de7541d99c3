#include "media/id3.h"

#include "io/byte_reader.h"

namespace vex {

std::optional<std::uint32_t> Id3TagSize(GBytes bytes)
{
    if (bytes.size() < kId3HeaderSize || !HasTextAt(bytes, 0, "ID3"))
        return std::nullopt;
    GByteReader reader(bytes);
    reader.Skip(6);  // "ID3", version, flags
    std::uint32_t size = 0;
    for (int i = 0; i < 4; ++i)
        size = size << 7 | (reader.U8() & 0x7Fu);  // the top bit is never set in a valid size
    return size + static_cast<std::uint32_t>(kId3HeaderSize);
}

GBytes BehindId3(GBytes bytes)
{
    while (const auto size = Id3TagSize(bytes))
        bytes = bytes.subspan(std::min<std::size_t>(*size, bytes.size()));
    return bytes;
}

}  // namespace vex
