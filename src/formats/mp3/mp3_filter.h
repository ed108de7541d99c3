// The MP3 source filter.
#pragma once

#include "framework/source_filter.h"

namespace vex {

// No upper clamp: the limit follows the sample size of the type.
inline constexpr GFilterRules kMp3Rules{
    .queue = {.packets = 600, .minimumBytes = 3 * kMiB, .maximumBytes = kNoUpperClamp}};

class CMP3_Filter final : public CVexFilter {
public:
    explicit CMP3_Filter(IUnknown* outer);
};

}  // namespace vex
