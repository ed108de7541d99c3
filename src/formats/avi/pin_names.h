// The names of the AVI filter's pins.
#pragma once

#include <cstddef>

#include "platform/types.h"

namespace vex {

// "Video", "Audio 01", "Subtitle 02", "Stream 03", by major type; `stream` is the stream's 0-based place in the file.
// The video pin has no number: there is only one.
WString AviPinName(REFGUID majorType, std::size_t stream);

}  // namespace vex
