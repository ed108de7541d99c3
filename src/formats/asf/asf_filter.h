// The ASF source filters: two names for one reader.
#pragma once

#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kAsfRules{
    .queue = {.minimumBytes = 7 * kMiB},
    .firstVideoOnly = true,
};

class CAsfEx_Filter final : public CVexFilter {
public:
    explicit CAsfEx_Filter(IUnknown* outer);
};

// The older filter.
class CASF_Filter final : public CVexFilter {
public:
    explicit CASF_Filter(IUnknown* outer);
};

}  // namespace vex
