// What a host needs to know of the MP3 filter: its class identifier.
#pragma once

#include "platform/types.h"

namespace vex {

inline constexpr CLSID CLSID_VexMp3{0xC846F6AA, 0x63EE, 0x42CB, {0xAB, 0x73, 0x22, 0x9B, 0xE6, 0xA7, 0x95, 0xAA}};

}  // namespace vex
