// The header of an ADTS frame (ISO/IEC 13818-7 clause 6.2, ISO/IEC 14496-3 clause 1.A.2.2).
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"

namespace vex {

inline constexpr std::size_t kAdtsHeaderSize = 7;  // bytes, without the CRC that protection adds

// As coded: the reader accepts what a format may refuse (index 12, channel configuration 0 or 7, any length).
struct GAdtsHeader {
    std::uint8_t id = 0;                    // 0 MPEG-4, 1 MPEG-2
    bool protectionAbsent = false;          // false: 2 bytes of CRC follow the header
    std::uint8_t profile = 0;               // audio object type less 1
    std::uint8_t rateIndex = 0;             // 0 to 15
    std::uint32_t sampleRate = 0;           // Hz; 0 for index 13 and above
    std::uint8_t channelConfiguration = 0;  // 0 to 7
    std::uint16_t frameLength = 0;          // bytes, header included; hostile: may be below 7
};

// The header that `bytes` begin with. Needs 7 bytes; nothing when the 12 bits of the syncword or the two zero bits of
// the layer are not there.
std::optional<GAdtsHeader> ReadAdtsHeader(GBytes bytes);

}  // namespace vex
