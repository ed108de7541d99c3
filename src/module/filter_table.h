// The twelve source filters of the module, in their fixed order.
#pragma once

#include <span>

#include "dshow/class_factory.h"

namespace vex {

std::span<const CFactoryTemplate> FilterTable();

}  // namespace vex
