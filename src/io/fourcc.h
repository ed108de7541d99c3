// Four-character codes as numbers: the first character is the lowest byte, in whatever byte order its file is
// written.
#pragma once

#include <cstdint>

namespace vex {

constexpr std::uint32_t FourCC(char a, char b, char c, char d)
{
    return static_cast<std::uint32_t>(static_cast<std::uint8_t>(a)) |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(b)) << 8 |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(c)) << 16 |
           static_cast<std::uint32_t>(static_cast<std::uint8_t>(d)) << 24;
}

// FourCC("XVID"); the literal has exactly four characters.
constexpr std::uint32_t FourCC(const char (&text)[5]) { return FourCC(text[0], text[1], text[2], text[3]); }

}  // namespace vex
