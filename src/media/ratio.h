// Aspect ratios as codecs code them.
#pragma once

#include <cstdint>

namespace vex {

struct GRatio {
    std::uint32_t x = 0;
    std::uint32_t y = 0;

    bool operator==(const GRatio&) const = default;
};

inline constexpr unsigned kSampleAspectCodes = 17;

// Width by height of one sample by its code in H.264 (table E-1, 0 to 16) and VC-1 (0 to 13); 0:0 for code 0 and for
// all others.
GRatio SampleAspect(unsigned code);

}  // namespace vex
