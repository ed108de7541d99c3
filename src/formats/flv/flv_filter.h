// The FLV source filter.
#pragma once

#include "framework/source_filter.h"

namespace vex {

inline constexpr GFilterRules kFlvRules{
    .queue = {.minimumBytes = 4 * kMiB},
    .mediaTimes = GMediaTimeRule::None,
    .preroll = GPrerollRule::Never,
    .resize = GResizeRule::Abort,
};

class CFLV_Filter final : public CVexFilter {
public:
    explicit CFLV_Filter(IUnknown* outer);
};

}  // namespace vex
