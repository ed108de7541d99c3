// Four-character codes as numbers: the first character is the lowest byte, in whatever byte order its file is
// written.
#pragma once

#include <cstdint>

namespace vex {

// FourCC("XVID"); the literal has exactly four characters.
constexpr std::uint32_t FourCC(const char (&text)[5])
{
    return static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[0])) |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(text[3])) << 24;
}

}  // namespace vex
