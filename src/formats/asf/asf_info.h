// The ASF filters as the module and a host list them.
#pragma once

#include "framework/contract/filter_info.h"

namespace vex {

extern const GFilterInfo kAsf1Filter;
extern const GFilterInfo kAsfFilter;

}  // namespace vex
