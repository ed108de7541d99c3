// The Matroska filter as the module and a host list it.
#pragma once

#include "framework/contract/filter_info.h"

namespace vex {

extern const GFilterInfo kMkvFilter;

}  // namespace vex
