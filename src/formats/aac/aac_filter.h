// The AAC source filter.
#pragma once

#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kAacRules{.queue = {.packets = 1000, .minimumBytes = 3 * kMiB, .maximumBytes = 3 * kMiB}};

class CAAC_Filter final : public CVexFilter {
public:
    explicit CAAC_Filter(IUnknown* outer);
};

}  // namespace vex
