// What a host needs to know of the FLV filter: its class identifier.
#pragma once

#include "platform/types.h"

namespace vex {

inline constexpr CLSID CLSID_VexFlv{0x4CDD9B3E, 0x1D8E, 0x48DE, {0x8B, 0x5B, 0x80, 0xAF, 0xAD, 0xCB, 0x8C, 0xA1}};

}  // namespace vex
