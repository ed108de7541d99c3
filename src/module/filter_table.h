// The twelve source filters of the module, in their fixed order.
#pragma once

#include <span>

#include "dshow/class_factory.h"

namespace vex {

std::span<const CFactoryTemplate> FilterTable();

// Creation function of a row whose filter does not exist yet: refuses with E_NOTIMPL.
CUnknown* RefuseFilter(IUnknown* outer, HRESULT* result);

}  // namespace vex
