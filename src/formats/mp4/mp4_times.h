// From the units of a clock to 100 ns.
#pragma once

#include <algorithm>
#include <cstdint>

#include "io/checked_math.h"
#include "platform/pipeline.h"

namespace vex {

// 100 ns; 3,600 years. What a file says beyond it is taken for it.
inline constexpr REFERENCE_TIME kLastMp4Time = REFERENCE_TIME{1} << 60;

// `timescale` units a second, not 0. Cut, not rounded.
inline REFERENCE_TIME TimeFromUnits(std::uint64_t units, std::uint64_t timescale)
{
    constexpr auto kLast = static_cast<std::uint64_t>(kLastMp4Time);
    return static_cast<REFERENCE_TIME>(std::min(MulDivU64(units, kUnitsPerSecond, timescale).value_or(kLast), kLast));
}

}  // namespace vex
