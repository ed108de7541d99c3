// The sequence header and entry point of VC-1, advanced profile (SMPTE 421M, 6.1 and 6.2).
#pragma once

#include <cstdint>
#include <optional>

#include "io/bytes.h"
#include "media/ratio.h"

namespace vex {

struct GVc1Sequence {
    std::uint8_t profile = 0;      // 2 bits; 3 is advanced. Of other profiles only this field is read
    std::uint32_t codedWidth = 0;  // samples, 2 to 8192
    std::uint32_t codedHeight = 0;

    bool hasDisplay = false;         // DISPLAY_EXT: the rest is there
    std::uint32_t displayWidth = 0;  // samples: the 14-bit field plus 1
    std::uint32_t displayHeight = 0;
    GRatio aspect;                    // of one sample, from the code or explicit; 0:0 unspecified
    std::uint32_t rateNumerator = 0;  // frames a second; 0: not given, or a reserved code
    std::uint32_t rateDenominator = 0;

    // From their start codes (00 00 01 0F, 00 00 01 0E) to the next start code or the end of the bytes, emulation
    // prevention included. The entry point is the first one behind the sequence header; empty when missing.
    GBytes sequenceHeader;
    GBytes entryPoint;
};

// The first sequence header in `bytes`; nothing when there is none or it ends within its fields.
std::optional<GVc1Sequence> ReadVc1Sequence(GBytes bytes);

}  // namespace vex
