// The MPEG filters as the module and a host list them.
#pragma once

#include "framework/contract/filter_info.h"

namespace vex {

extern const GFilterInfo kMpeg1Filter;
extern const GFilterInfo kMpegFilter;

}  // namespace vex
