// The Ogg filters as the module and a host list them.
#pragma once

#include "framework/contract/filter_info.h"

namespace vex {

extern const GFilterInfo kOgg1Filter;
extern const GFilterInfo kOggFilter;

}  // namespace vex
