// The core frame header of DTS (ETSI TS 102 114, 5.3).
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::array<std::uint8_t, 4> kDtsSync{0x7F, 0xFE, 0x80, 0x01};  // 16 bits, big-endian
inline constexpr std::size_t kDtsHeaderSize = 10;                               // bytes up to the rate code

// As coded: the reader accepts what a format may refuse.
struct GDtsHeader {
    std::uint16_t frameSize = 0;   // FSIZE plus 1, bytes
    std::uint8_t amode = 0;        // 6 bits; 16 and above are user-defined
    std::uint8_t rateCode = 0;     // SFREQ, 4 bits
    std::uint8_t bitRateCode = 0;  // RATE, 5 bits

    std::uint16_t Channels() const;    // of amode, without the low frequency channel; 0 for 16 and above
    std::uint32_t SampleRate() const;  // Hz; 0 for a code without one
    std::uint32_t BitRate() const;     // bit/s; 0 for open, variable and lossless
};

// The header that `bytes` begin with. Needs 10 bytes; nothing without the sync word.
std::optional<GDtsHeader> ReadDtsHeader(GBytes bytes);

}  // namespace vex
