// The sync frame header of AC-3 (ATSC A/52, 5.3 and 5.4).
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::array<std::uint8_t, 2> kAc3Sync{0x0B, 0x77};
inline constexpr std::size_t kAc3HeaderSize = 7;  // bytes up to lfeon

// As coded: the reader accepts what a format may refuse (bsid, fscod 3, frmsizecod 38 and above).
struct GAc3Header {
    std::uint8_t fscod = 0;       // 2 bits; 3 is reserved
    std::uint8_t frmsizecod = 0;  // 6 bits; 0 to 37 have a meaning
    std::uint8_t bsid = 0;        // 5 bits; 8 in use, 9 to 11 at lower rates, 16 is E-AC-3 (another syntax)
    std::uint8_t acmod = 0;
    bool lfeon = false;

    std::uint16_t Channels() const;    // of acmod, and one for lfeon
    std::uint32_t SampleRate() const;  // Hz, as fscod says it; 0 for 3. A bsid of 9, 10, 11 divides it by 2, 4, 8
    std::uint32_t BitRate() const;     // kbit/s; 0 for a code without one. Divided as the rate is
    std::uint32_t FrameSize() const;   // bytes; 0 for codes without one
};

// The header that `bytes` begin with. Needs 7 bytes; nothing without the sync word.
std::optional<GAc3Header> ReadAc3Header(GBytes bytes);

// kbit/s of a bit rate code, 0 to 18 (half a frmsizecod; also MP4's "dac3"); 0 for others.
std::uint32_t Ac3BitRate(unsigned code);

}  // namespace vex
