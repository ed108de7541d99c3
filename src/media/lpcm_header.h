// The header of DVD LPCM in private stream 1, from the sub-stream number on (DVD-Video).
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kLpcmHeaderSize = 7;  // bytes

// As coded: the reader accepts what a format may refuse.
struct GLpcmHeader {
    std::uint8_t subStream = 0;     // 0xA0 to 0xA7
    std::uint8_t quantisation = 0;  // 2 bits
    std::uint8_t rateCode = 0;      // 2 bits
    std::uint8_t channels = 0;      // 1 to 8

    std::uint16_t BitsPerSample() const;  // 16, 20 or 24; 0 for code 3
    std::uint32_t SampleRate() const;     // Hz: 48000, 96000; 0 for codes 2 and 3
};

// Nothing when fewer than 7 bytes are there.
std::optional<GLpcmHeader> ReadLpcmHeader(GBytes bytes);

}  // namespace vex
