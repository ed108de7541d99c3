// The source filters, in the order in which the module registers them.
#pragma once

#include <span>

#include "framework/contract/filter_info.h"

namespace vex {

inline constexpr std::size_t kFilterCount = 12;

// For hosts too: the list does not bring the filters' code with it.
std::span<const GFilterInfo* const, kFilterCount> FilterInfos();

}  // namespace vex
