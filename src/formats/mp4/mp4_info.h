// The MP4 filter as the module and a host list it.
#pragma once

#include "framework/contract/filter_info.h"

namespace vex {

extern const GFilterInfo kMp4Filter;

}  // namespace vex
