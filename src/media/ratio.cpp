#include "media/ratio.h"

#include <array>

namespace vex {

GRatio SampleAspect(unsigned code)
{
    // clang-format off
    static constexpr auto kRatios = std::to_array<GRatio>({
        {0, 0}, {1, 1}, {12, 11}, {10, 11}, {16, 11}, {40, 33}, {24, 11}, {20, 11}, {32, 11},
        {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3}, {3, 2}, {2, 1},
    });
    // clang-format on
    static_assert(kRatios.size() == kSampleAspectCodes);
    return code < kRatios.size() ? kRatios[code] : GRatio{};
}

}  // namespace vex
