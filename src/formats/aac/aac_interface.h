// What a host needs to know of the AAC filter: its class identifier.
#pragma once

#include "platform/types.h"

namespace vex {

inline constexpr CLSID CLSID_VexAac{0xC1EA8A02, 0x9E67, 0x4967, {0xAE, 0xDC, 0x84, 0x5B, 0x8A, 0xA1, 0x3E, 0xC0}};

}  // namespace vex
