#include "media/lpcm_header.h"

#include "io/bit_reader.h"

namespace vex {

std::optional<GLpcmHeader> ReadLpcmHeader(GBytes bytes)
{
    GBitReader bits(bytes);
    GLpcmHeader header;
    header.subStream = static_cast<std::uint8_t>(bits.Bits(8));
    bits.Skip(8 + 16);  // frame headers, offset of the first access unit
    bits.Skip(3 + 5);   // emphasis, mute, reserved; frame number
    header.quantisation = static_cast<std::uint8_t>(bits.Bits(2));
    header.rateCode = static_cast<std::uint8_t>(bits.Bits(2));
    bits.Skip(1);  // reserved
    header.channels = static_cast<std::uint8_t>(bits.Bits(3) + 1);
    bits.Skip(8);  // dynamic range
    if (!bits.Ok())
        return std::nullopt;
    return header;
}

std::uint16_t GLpcmHeader::BitsPerSample() const
{
    return static_cast<std::uint16_t>(quantisation < 3 ? 16 + 4 * quantisation : 0);
}

std::uint32_t GLpcmHeader::SampleRate() const { return rateCode == 0 ? 48000 : rateCode == 1 ? 96000 : 0; }

}  // namespace vex
