// Reference times out of files, kept where sums and differences of them fit 64 bits.
#pragma once

#include <algorithm>

#include "platform/pipeline.h"

namespace vex {

// 100 ns; 3,600 years. No difference or multiple that the pins form of such times leaves 64 bits.
inline constexpr REFERENCE_TIME kLargestTime = REFERENCE_TIME{1} << 60;

inline REFERENCE_TIME HoldTime(REFERENCE_TIME time) { return std::clamp(time, -kLargestTime, kLargestTime); }

// `time` counted from `base`; no time stays none.
inline REFERENCE_TIME FromBase(REFERENCE_TIME time, REFERENCE_TIME base)
{
    return time == kNoTime ? kNoTime : HoldTime(time) - base;
}

}  // namespace vex
