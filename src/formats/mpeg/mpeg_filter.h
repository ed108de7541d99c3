// The MPEG source filters: two names for one reader.
#pragma once

#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kMpegRules{.queue = {.minimumBytes = 16 * kMiB}};

class CMPG2_Filter final : public CVexFilter {
public:
    explicit CMPG2_Filter(IUnknown* outer);
};

// The older filter: pins without numbers and languages in their names.
class CMPG_Filter final : public CVexFilter {
public:
    explicit CMPG_Filter(IUnknown* outer);
};

}  // namespace vex
