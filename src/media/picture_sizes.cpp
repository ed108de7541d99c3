#include "media/picture_sizes.h"

#include <array>

#include "io/bit_reader.h"
#include "io/byte_reader.h"

namespace vex {

std::optional<GPictureSize> Mpeg4ConfigurationSize(GBytes configuration)
{
    constexpr std::size_t kSize = 34;
    constexpr std::uint32_t kVisualObjectSequence = 0x000001B0;
    if (configuration.size() != kSize || GByteReader(configuration).U32BE() != kVisualObjectSequence)
        return std::nullopt;
    const auto byte = [&](std::size_t index) { return std::uint32_t{configuration[index]}; };
    GPictureSize size;
    size.width = ((byte(28) & 3) << 8 | byte(29)) << 1 | (byte(30) & 0x80) >> 6;
    size.height = byte(31) >> 1 | (byte(30) & 0x0F) << 7;
    return size;
}

GSorensonHeader ReadSorensonHeader(GBytes frame)
{
    constexpr std::array<GPictureSize, 8> kSizes{
        {{0, 0}, {0, 0}, {352, 288}, {176, 144}, {128, 96}, {320, 240}, {160, 120}, {0, 0}}};
    GBitReader bits(frame);
    GSorensonHeader header;
    header.startCode = bits.Bits(17) == 1;
    bits.Skip(5 + 8);  // version, temporal reference
    const std::uint32_t sizeCode = bits.Bits(3);
    header.size = kSizes[sizeCode];
    if (sizeCode < 2) {
        const unsigned each = sizeCode == 0 ? 8 : 16;
        header.size.width = bits.Bits(each);
        header.size.height = bits.Bits(each);
    }
    bits.Skip(2);  // picture type
    header.whole = bits.Ok();
    return header;
}

std::optional<GVp6Header> ReadVp6Header(GBytes frame)
{
    GByteReader reader(frame);
    GVp6Header header;
    const std::uint8_t first = reader.U8();
    header.keyFrame = (first & 0x80) == 0;
    const bool separatedCoefficients = (first & 1) != 0;
    if (reader.Ok() && !header.keyFrame)
        return header;
    const bool simpleProfile = (reader.U8() >> 1 & 3) == 0;
    if (separatedCoefficients || simpleProfile)
        reader.Skip(2);  // offset of the second partition
    header.codedRows = reader.U8();
    header.codedColumns = reader.U8();
    reader.Skip(2);  // the size to be displayed
    if (!reader.Ok())
        return std::nullopt;
    return header;
}

}  // namespace vex
