// Times as people write and read them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/pipeline.h"

namespace vex {

// 100 ns from what kTimeHelp describes. Digits past 100 ns are cut off. Nothing for anything else.
std::optional<REFERENCE_TIME> ParseTime(std::string_view text);

// "0:01:02.345", rounded down to a millisecond; "-" for kNoTime.
std::string TimeText(REFERENCE_TIME time);

}  // namespace vex
